// One frame out of or into a connected socket, within a time that signals do not stretch.
#pragma once

#include "platform/linux/frame.h"

namespace qx {

// A moment from which on nothing waits any more, a few milliseconds exact: looking at it costs next to
// nothing.
class Deadline {
public:
    explicit Deadline(uint32_t milliseconds);
    bool passed() const { return remainingMs() == 0; }
    int remainingMs() const;

private:
    uint64_t endMs_;
};

// 0, or an errno: EAGAIN when there was no room in time (the socket's own limit, the deadline after a signal;
// at once when it is not to wait), EMSGSIZE, EPIPE and its like when the other end is gone.
int sendFrame(int fd, FrameHeader header, Payload payload, bool waits, const Deadline &deadline);

// A frame whose payload fits the room, into which it goes straight: 0, or an errno: EAGAIN when none came in
// time, EPIPE at the end of the connection, EPROTO for anything else.
int receiveFrame(int fd, FrameHeader &header, Room room, const Deadline &deadline);

} // namespace qx
