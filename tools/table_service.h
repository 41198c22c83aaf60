// The owner's side of the synchronised tables.
#pragma once

#include "qx/host.h"

namespace tools {

// Answers requests 14 to 17 as the table store of this process does, and those of table_requests.h; a
// QxSyncHandler. Every length is checked before use. QX_ERR_PROTOCOL, recorded (that, the code, the request's
// size, the reply's, the process), for a request that is not what its code says; QX_ERR_NOT_FOUND for an
// unknown code.
uint32_t serveTables(void *context, const QxSyncRequest *request);

} // namespace tools
