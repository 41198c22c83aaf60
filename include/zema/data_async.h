/*
 * Data events: an event type and bytes, posted by any thread of any process to module 49 (ZEMA_MODULE_ID) and
 * handed there to the callbacks of that type.
 *
 * Posting does not wait. The process that serves the module (QxHost_ServeModule) hands each message to
 * DataAsync_OnAsynDataReceive, on the thread that dispatches; the callbacks run there, and the data that they
 * get lies in the message. Results are result codes; failures are recorded under data_async.cpp, in the order
 * given.
 */
#ifndef ZEMA_DATA_ASYNC_H
#define ZEMA_DATA_ASYNC_H

#include "qx/event_handle.h"
#include "zema/result.h"

QX_BEGIN_DECLS

/* A message, in host byte order. Behind it: the event type, a 32-bit word, then the event's data. */
typedef struct DataAsyncHeader {
    uint32_t ulReserved1;   /* 0 */
    char acSender[32];      /* "zema" */
    uint32_t ulSender;      /* ZEMA_MODULE_ID */
    char acReceiver[32];    /* "zema" */
    uint32_t ulReceiver;    /* ZEMA_MODULE_ID */
    uint32_t ulPayloadSize; /* set by the message layer */
    uint32_t ulReserved2;   /* 0 */
} DataAsyncHeader;

/* Holds the event handle with all registrations of this process; null until EventHandle_GetEventHandle fills
 * it. */
extern ZEMA_API EventHandle *g_DataAsyncEvent;

/* The event handle, or null. */
ZEMA_API EventHandle *DataAsync_GetEventHandle(void);

/* Adds a callback for an event type. 1, recorded (1, the type), for a missing callback or without a handle;
 * else the result of pfnRegister, when nonzero recorded (that, the type). */
ZEMA_API uint32_t DataAsync_RegisterOnDataAsyncEvent(uint32_t ulEvent, EventHandleCallback pfnCallback);

/* Takes it away. 1, recorded (1), for a missing callback or without a handle; else the result of
 * pfnUnregister, when nonzero recorded. */
ZEMA_API uint32_t DataAsync_UnregisterOnDataAsyncEvent(uint32_t ulEvent, EventHandleCallback pfnCallback);

/* Calls this process's callbacks of an event type on this thread. The result of pfnInvoke; 1, recorded (1,
 * the type), without a handle. */
ZEMA_API uint32_t DataAsync_InvokeDataAsyncEvent(uint32_t ulEvent, void *pData);

/* Posts an event with a copy of ulLen bytes of data; with none when pData is null or ulLen is 0. The result
 * of QX_MSG_AsynSend, when nonzero recorded (that, the type); 1, recorded (1, the type), when there is no
 * memory. */
ZEMA_API uint32_t DataAsync_AsyncSendData(uint32_t ulEvent, const void *pData, uint32_t ulLen);

/*
 * Takes a delivered message, header and payload back to back, whose size word is true, and invokes its event
 * with its data, or null when there is none. Module 49 is the sender or the receiver, else 1 and a trace line
 * with both. A payload below 4 bytes is 1, recorded (1, its size). The event type is traced. The result of
 * the invocation, when nonzero recorded. A missing message is 1.
 */
ZEMA_API uint32_t DataAsync_OnAsynDataReceive(void *pMessage);

QX_END_DECLS

#endif
