// What this process tells the monitors of the bus about the frames that it handles.
#pragma once

#include "platform/linux/bus.h"

namespace qx {

// One frame from before its handling, which may change its payload, to behind it. Costs next to nothing while
// there is no monitor.
class Passage {
public:
    explicit Passage(const Arrival &arrival);

    // Tells every monitor of it. Nobody waits: what finds no room at a monitor is only counted.
    void tell(const Handled &handled);

private:
    static constexpr uint32_t kMostExcerpted = 64;

    const FrameHeader &header_;
    uint32_t senderPid_;
    uint64_t startNs_ = 0; // 0: there is no monitor
    uint32_t excerpted_ = 0;
    std::array<std::byte, kMostExcerpted>
        excerpt_; // of the payload, of a message's payload behind its header
};

} // namespace qx
