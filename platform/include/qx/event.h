/*
 * The event centre: numbered events with a block of data, within the process and to all processes.
 */
#ifndef QX_EVENT_H
#define QX_EVENT_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* data is valid during the call. What came from another process is followed by at least 1024 zero bytes, so
 * that a handler of a fixed structure reads no stale byte behind a short one. The result is not passed on. */
typedef uint32_t (*QxEventHandler)(void *data);

/* Calls handler for each such event of this or any process. A pair that is subscribed already stays so once.
 * 0, QX_ERR for a missing handler, QX_ERR_NO_MEMORY, also when the process has 64 handlers of the event,
 * QX_ERR_RUNTIME_DIR. Any thread. */
QX_API uint32_t EventCenter_SubscribeEvent(uint32_t event, QxEventHandler handler);

/* 0, or QX_ERR_NOT_FOUND. */
QX_API uint32_t EventCenter_RemoveEvent(uint32_t event, QxEventHandler handler);

/*
 * Hands size bytes of data to every process that subscribed to the event, then calls this process's own
 * subscribers on the calling thread. Does not wait for the other processes to handle it. 0 when every live
 * subscriber's process has it, also when there is none; otherwise the result of the last one that could not
 * be reached, after all others were tried: QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE, QX_ERR_PEER_GONE,
 * QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. Any thread.
 */
QX_API uint32_t EventCenter_GlobalInvokeEvent2(uint32_t event, void *data, uint32_t size);

/* Calls this process's subscribers of the event on the calling thread; their data is the parameter, a value
 * rather than an address where the event says so. reserved1 and reserved2 are 0. 0, also when there is none.
 * Any thread. */
QX_API uint32_t EventCenter_InvokeEvent(uint32_t event, uintptr_t parameter, uintptr_t reserved1,
                                        uintptr_t reserved2);

QX_END_DECLS

#endif
