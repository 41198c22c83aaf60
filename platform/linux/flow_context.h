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

    // False when there is no memory for one more process.
    bool add(PeerId id)
    {
        FlowShare *const share =
            std::find_if(shares.begin(), shares.end(), [&](const FlowShare &each) { return each.id == id; });
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
