/*
 * HLP messages: what user space tells the kernel's forwarding modules.
 *
 * A message is a QxHlpHeader followed by items, each a QxHlpTlv and its value, each item padded to 4 bytes.
 * All fields are in host byte order. The header and one item's own header are 52 bytes together, so a message
 * of one value of n bytes needs n + 52 bytes when n is a multiple of 4, and the padding of the last item is
 * not sent. The caller owns the message. The functions keep no state; any thread.
 */
#ifndef QX_HLP_H
#define QX_HLP_H

#include "qx/base.h"

QX_BEGIN_DECLS

#define QX_HLP_MAGIC 0x31504C48U /* the bytes "HLP1" on a little-endian machine */

typedef struct QxHlpHeader {
    uint32_t ulMagic;
    uint32_t ulType;
    uint32_t ulPara1;
    uint32_t ulPara2;
    uint32_t ulSize;      /* bytes of the whole message, this header included */
    uint32_t ulSenderPid; /* filled in by the send */
    uint32_t ulOption1;   /* the send's options, carried unchanged */
    uint32_t ulOption2;
    uint32_t aulReserved[3];
} QxHlpHeader;

typedef struct QxHlpTlv {
    uint8_t ucType;
    uint8_t ucReserved;
    uint16_t usSize; /* bytes of the value that follows */
    uint32_t ulReserved;
} QxHlpTlv;

#define QX_HLP_OVERHEAD 52U

/* Writes a header without items. zero is reserved and 0. 0, or nonzero when message is missing. */
QX_API uint32_t QX_OS_InitHlpMsg(void *message, uint32_t zero, uint32_t type, uint32_t para1, uint32_t para2);

/* Appends one item; the message has room for it. 0, or nonzero when message or a needed value is missing or
 * message was not initialised. */
QX_API uint32_t QX_OS_AddTlvToHlpMsg(void *message, uint8_t type, uint16_t size, const void *value);

/* Hands the message to the kernel's side: whoever holds the role of the kernel (QxHost_ServeKernel). 0 when
 * it has it, QX_ERR for a message that is missing or was not initialised, QX_ERR_NOBODY, QX_ERR_PEER_GONE,
 * QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. */
QX_API uint32_t QX_OS_HLP_Send(void *message, uint32_t option1, uint32_t option2);

QX_END_DECLS

#endif
