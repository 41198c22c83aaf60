/*
 * HLP message sending: one value to the kernel modules as one message with one item.
 *
 * A request belongs to its caller and is only read. Each call allocates and frees a buffer of its own; calls
 * from several threads may run at once. Failures are recorded under qx_hlp_send.cpp with the failure code as
 * first value.
 */
#ifndef ZEMA_HLP_H
#define ZEMA_HLP_H

#include "zema/result.h"

QX_BEGIN_DECLS

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic" /* C++ takes a flexible array member as an extension */
/* A request: the header of a value of usLen bytes that stands right behind it. Host byte order. */
typedef struct HlpTlvMsg {
    uint32_t ulMsgType;  /* its low 8 bits are also the item's type */
    uint16_t usLen;      /* bytes of the value */
    uint16_t usReserved; /* 0 */
    uint32_t ulHdrPara1; /* the two are handed to QX_OS_InitHlpMsg unchanged */
    uint32_t ulHdrPara2;
    uint8_t aucValue[];
} HlpTlvMsg;
#pragma GCC diagnostic pop

/*
 * Sends the request's value as one item; the options are passed to QX_OS_HLP_Send unchanged.
 *
 * 0 when sent; ZEMA_ERR_HLP_ALLOC, recorded, without a request or a buffer; ZEMA_ERR_HLP_MSG_INIT, recorded,
 * when the header cannot be initialised; otherwise the result of QX_OS_HLP_Send, recorded. An item that
 * cannot be added is recorded and does not stop the send.
 */
ZEMA_API uint32_t QX_ZEMA_Hlpsnd(const HlpTlvMsg *request, uint32_t option1, uint32_t option2);

/* Appends an item to a message that has room for it. A failure is recorded (its result) and not returned. */
ZEMA_API void QX_ZEMA_AddTlvToHlpMsg(void *message, uint8_t type, uint16_t length, const void *value);

QX_END_DECLS

#endif
