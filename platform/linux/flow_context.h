// What a thread knows of the flow whose frame it is handling: everything it sends meanwhile is more of that
// flow.
#pragma once

#include "platform/linux/frame.h"

namespace qx {

struct FlowContext {
    uint32_t flow;
    PeerId origin;
    Vec<PeerId, 8> receivers; // who got more of it
};

// Null while this thread handles no frame of a flow.
FlowContext *&currentFlow();

} // namespace qx
