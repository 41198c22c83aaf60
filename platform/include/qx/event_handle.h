/*
 * Event handles: callbacks by event type, within the process.
 *
 * A handle carries its operations. Any thread may use one; callbacks run on the thread that invokes, on the
 * list of the moment, and may register and unregister. Nothing of a handle crosses a process.
 */
#ifndef QX_EVENT_HANDLE_H
#define QX_EVENT_HANDLE_H

#include "qx/base.h"

QX_BEGIN_DECLS

typedef struct EventHandle EventHandle;

/* data is the invoker's, valid during the call. The result is not looked at. */
typedef uint32_t (*EventHandleCallback)(void *data);

struct EventHandle {
    /* How many callbacks the event type has. */
    uint32_t (*pfnGetCount)(EventHandle *handle, uint32_t event);

    /* Adds a callback; a pair that is registered already stays so once. 0, QX_ERR for a missing argument,
     * QX_ERR_NO_MEMORY, also when the event type has 64 callbacks. */
    uint32_t (*pfnRegister)(EventHandle *handle, uint32_t event, EventHandleCallback callback);
    /* 1 when the pair is registered, else 0. */
    uint32_t (*pfnIsRegistered)(EventHandle *handle, uint32_t event, EventHandleCallback callback);
    /* 0, QX_ERR for a missing argument, QX_ERR_NOT_FOUND. */
    uint32_t (*pfnUnregister)(EventHandle *handle, uint32_t event, EventHandleCallback callback);
    /* Calls the event type's callbacks in the order of their registration; the reserved ones are 0. 0, also
     * when there is none; QX_ERR for a missing handle. */
    uint32_t (*pfnInvoke)(EventHandle *handle, uint32_t event, void *data, uintptr_t reserved1,
                          uintptr_t reserved2);
};

/* The holder's handle, made on first use and put there; null when the holder is missing or there is no
 * memory. */
QX_API EventHandle *EventHandle_GetEventHandle(EventHandle **holder);

QX_END_DECLS

#endif
