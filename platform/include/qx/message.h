/*
 * The message layer: remote procedures, messages to modules, and the modules that threads belong to.
 */
#ifndef QX_MESSAGE_H
#define QX_MESSAGE_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* A remote procedure. callerWord is the caller's; text is NUL-terminated and the callee's to change; the last
 * three are reserved and 0. The result goes back to the caller. Called from inside dispatch. */
typedef uint32_t (*QxRpcHandler)(uint32_t callerWord, char *text, uintptr_t reserved1, uintptr_t reserved2,
                                 uintptr_t reserved3);

typedef struct QxRpcRow {
    uint32_t ulId;
    QxRpcHandler pfnHandler;
} QxRpcRow;

#define QX_RPC_END_OF_TABLE 0xFFFFFFFFU

/*
 * Registers the rows up to the one with identifier QX_RPC_END_OF_TABLE; the rows are copied. A row replaces
 * this process's earlier registration of its identifier at once; a row whose handler is null withdraws it. Of
 * several processes that register one identifier, the earliest that lives answers: a module that is restarted
 * does not take over from the main process, and a main process that died is stood in for. 0 when all rows
 * stand; otherwise none of them does, and the result tells why (QX_ERR, QX_ERR_NO_MEMORY,
 * QX_ERR_RUNTIME_DIR). Any thread.
 */
QX_API uint32_t QX_MSG_RegOverWriteRpcCalls(const QxRpcRow *rows);

/* What stands in front of every message; the platform reads the receiver and sets the size. */
#define QX_MSG_HEADER_SIZE 84U
#define QX_MSG_RECEIVER_OFFSET 72U /* the receiver's module, a 32-bit word in host byte order */
#define QX_MSG_SIZE_OFFSET 76U     /* the size of the payload, likewise */

/*
 * Posts size bytes of payload behind a header of QX_MSG_HEADER_SIZE bytes to the process that serves the
 * header's receiver (QxHost_ServeModule), and does not wait until it is handled. Copies are taken: both may
 * be released when this returns. A message to this process itself is handled by a later dispatch, not from
 * here; of those at most 8 MiB wait, then QX_ERR_NO_MEMORY. option is 4. 0, QX_ERR for a missing argument,
 * QX_ERR_NOBODY, QX_ERR_PEER_GONE, QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE above 130988 bytes, QX_ERR_NO_MEMORY,
 * QX_ERR_RUNTIME_DIR. Any thread.
 */
QX_API uint32_t QX_MSG_AsynSend(const void *payload, uint32_t size, const void *header, uint32_t option);

/* The module that the calling thread belongs to: what the host set with QxHost_SetCurThreadMid, 0 until then.
 */
QX_API uint32_t QX_MSG_GetCurThreadMid(void);

QX_END_DECLS

#endif
