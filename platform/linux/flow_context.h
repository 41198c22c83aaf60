// What a thread knows of the flow whose frame it is handling: everything it sends meanwhile is more of that
// flow.
#pragma once

#include "platform/linux/frame.h"

namespace qx {

// How many frames of a flow a process got. In the word that a frame is done, the first one is the sender
// itself.
struct FlowShare {
    PeerId id;
    uint32_t frames;
};
static_assert(sizeof(FlowShare) == 12);

struct FlowContext {
    uint32_t flow;
    PeerId origin;
    Vec<FlowShare, 8> shares;

    // False when there is no memory for one more process. The first one stands for the process itself; what
    // it sends to itself is a share like any other.
    bool add(PeerId id)
    {
        FlowShare *const others = shares.begin() + std::min(shares.count(), 1U);
        FlowShare *const share =
            std::find_if(others, shares.end(), [&](const FlowShare &each) { return each.id == id; });
        if (share == shares.end()) {
            return shares.push({.id = id, .frames = 1});
        }
        ++share->frames;
        return true;
    }

    // Takes one back.
    void remove(PeerId id)
    {
        for (FlowShare &share : shares) {
            share.frames -= share.id == id ? 1 : 0;
        }
    }
};

// Null while this thread handles no frame of a flow.
FlowContext *&currentFlow();

} // namespace qx
