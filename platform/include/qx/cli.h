/*
 * Operators' terminals. Terminal 0xFFFF addresses every one. The bytes are given as they are, without regard
 * to a terminating zero. Bytes that one thread prints on one terminal appear in the order of its calls.
 */
#ifndef QX_CLI_H
#define QX_CLI_H

#include "qx/base.h"

QX_BEGIN_DECLS

#define QX_CLI_ALL_TERMINALS 0xFFFFU

/*
 * QX_CLI_SynPrint returns when the terminal's process has written the bytes; QX_CLI_AsynPrint when it has
 * them in its queue, and waits only while that queue is full. 0 when every process that serves the terminal
 * took them; QX_ERR for missing bytes, QX_ERR_NOBODY when no process serves it, QX_ERR_TIMEOUT,
 * QX_ERR_PEER_GONE (it died while it wrote), QX_ERR_TOO_LARGE, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR; the
 * nonzero result of this process's own writer and, for QX_CLI_SynPrint, of another one's. Any thread.
 */
QX_API uint32_t QX_CLI_SynPrint(uint32_t terminal, const char *bytes, uint32_t size);
QX_API uint32_t QX_CLI_AsynPrint(uint32_t terminal, const char *bytes, uint32_t size);

QX_END_DECLS

#endif
