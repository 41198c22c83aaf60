/*
 * Synchronous requests to the process that owns the shared tables (QxHost_ServeSync in qx/host.h).
 *
 * The caller waits until the owner has answered. Request and reply are in host byte order; their layout
 * belongs to the operation. A request to oneself is a plain call of the handler. Any thread may ask, several
 * at once. An owner that is absent, dies or hangs costs a bounded time (QxHost_SetTimeout), and a later
 * request finds a new owner by itself.
 */
#ifndef QX_DATA_SYNC_H
#define QX_DATA_SYNC_H

#include "qx/base.h"

QX_BEGIN_DECLS

/*
 * Sends a request of size bytes and receives a reply of exactly replySize bytes, straight into reply; either
 * may be null when its size is 0. 0, the handler's result, or QX_ERR (a missing argument), QX_ERR_NOBODY (no
 * owner), QX_ERR_PEER_GONE (it died before it answered), QX_ERR_TIMEOUT, QX_ERR_PROTOCOL (a reply of another
 * size), QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR. After QX_ERR_TIMEOUT or QX_ERR_PEER_GONE the request may have
 * been carried out, or may yet be. The reply of a failed request is untouched, unless the owner breaks the
 * rules or is this process itself.
 */
QX_API uint32_t DataSync_SyncData1(uint32_t code, const void *request, uint16_t size, void *reply,
                                   uint16_t replySize);

/* The same with no reply. QX_ERR_TOO_LARGE for a payload above 65535 bytes. */
QX_API uint32_t DataSync_SyncData(uint32_t operation, const void *payload, uint32_t size);

QX_END_DECLS

#endif
