/*
 * Result codes, the module identifier and the debug level table: what every family of the library shares.
 *
 * Unless its header says otherwise, a function returns an unsigned 32-bit result code: 0 for success, 1 for a
 * failure without a code of its own, one of the codes below, or the nonzero result of the platform call that
 * failed, passed on. Callers treat every nonzero value as a failure and compare only against codes they know.
 * Predicates and checks return 1 for true or accepted and 0 for false or rejected, the opposite sense; their
 * headers say so.
 *
 * Failures are recorded, not printed: the failing place writes a last-word record (source file, line, five
 * values, the first of them the failure code) with QX_PROC_DBG_LastWord, then releases what it holds, then
 * returns. Values that a place does not use are 0; a pointer is recorded as its low 32 bits.
 */
#ifndef ZEMA_RESULT_H
#define ZEMA_RESULT_H

#include "qx/base.h"

QX_BEGIN_DECLS

#define ZEMA_API QX_API

#define ZEMA_OK 0U
#define ZEMA_ERR 1U

#define ZEMA_ERR_LARGEDATA_NOMEM 0xF7108001U /* no working buffer for a large block */
#define ZEMA_ERR_CMD_REJECTED 0xF7202001U    /* a command fails its check or cannot be compiled */
#define ZEMA_ERR_NETDEV_PARA 0xF7301001U     /* an argument is missing or the buffer too small */
#define ZEMA_ERR_NETDEV_SOCKET 0xF730100AU   /* the socket for a device request cannot be opened */
#define ZEMA_ERR_NETDEV_IOCTL 0xF7301015U    /* the device request fails */
#define ZEMA_ERR_HLP_MSG_INIT 0xF7307001U    /* the HLP message header cannot be initialised */
#define ZEMA_ERR_HLP_ALLOC 0xF7307002U       /* no HLP request, or no memory for its message */

/* The component's module in the message layer: trace lines carry it and data events are addressed to it. */
#define ZEMA_MODULE_ID 49U

/* The debug level of each module identifier. CMDAgent_Init sets every one to 255; the library neither reads
 * nor writes it elsewhere. */
#define ZEMA_DBG_LEVEL_COUNT 4096U
extern ZEMA_API uint8_t g_mid_dbg_level[ZEMA_DBG_LEVEL_COUNT];

QX_END_DECLS

#endif
