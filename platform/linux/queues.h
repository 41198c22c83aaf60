// What waits in the sockets of the bus, as the kernel tells it, so also for processes that hang.
#pragma once

#include "platform/linux/runtime_dir.h"

#include <span>

namespace qx {

struct Queue {
    PeerId id;
    uint32_t connections; // that the process has accepted
    uint32_t untaken;     // that wait to be
    uint64_t bytes;       // in those that it has accepted
};

// Fills the queues of the processes that they name. False when the kernel does not tell.
bool readQueues(std::span<Queue> queues);

} // namespace qx
