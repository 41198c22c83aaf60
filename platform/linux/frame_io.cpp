#include "platform/linux/frame_io.h"

#include <array>
#include <cerrno>
#include <climits>
#include <ctime>
#include <poll.h>
#include <sys/socket.h>

namespace qx {
namespace {

// Below this size, copying a payload from or to its place behind the header costs less than telling the
// kernel of two pieces.
constexpr size_t kSmallFrame = 512;

uint64_t coarseMs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000U + static_cast<uint64_t>(now.tv_nsec) / 1'000'000U;
}

bool waitFor(int fd, short events, const Deadline &deadline)
{
    pollfd socket{.fd = fd, .events = events, .revents = 0};
    int ready = 0;
    do {
        ready = poll(&socket, 1, deadline.remainingMs());
    } while (ready < 0 && errno == EINTR && !deadline.passed());
    return ready > 0;
}

ssize_t sendSmall(int fd, FrameHeader &header, Payload payload, int flags)
{
    std::array<std::byte, kSmallFrame> bytes;
    std::memcpy(bytes.data(), &header, sizeof header);
    std::copy(payload.begin(), payload.end(), bytes.begin() + sizeof header);
    return send(fd, bytes.data(), sizeof header + payload.size(), flags | MSG_NOSIGNAL);
}

ssize_t sendLarge(int fd, FrameHeader &header, Payload payload, int flags)
{
    std::array<iovec, 2> parts{{
        {.iov_base = &header, .iov_len = sizeof header},
        {.iov_base = const_cast<std::byte *>(payload.data()), .iov_len = payload.size()},
    }};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return sendmsg(fd, &message, flags | MSG_NOSIGNAL);
}

// Like the next one.
ssize_t receiveSmall(int fd, FrameHeader &header, Room room, int flags)
{
    std::array<std::byte, kSmallFrame> bytes;
    const ssize_t got = recv(fd, bytes.data(), sizeof header + room.size(), flags | MSG_TRUNC);
    std::memcpy(&header, bytes.data(), sizeof header);
    const size_t payload =
        std::max<size_t>(static_cast<size_t>(std::max<ssize_t>(got, 0)), sizeof header) - sizeof header;
    std::copy_n(bytes.data() + sizeof header, std::min(payload, room.size()), room.data());
    return got;
}

// The size of the frame, whatever of it found room.
ssize_t receiveOnce(int fd, FrameHeader &header, Room room, int flags)
{
    if (sizeof header + room.size() <= kSmallFrame) {
        return receiveSmall(fd, header, room, flags);
    }
    std::array<iovec, 2> parts{{
        {.iov_base = &header, .iov_len = sizeof header},
        {.iov_base = room.data(), .iov_len = room.size()},
    }};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    return recvmsg(fd, &message, flags | MSG_TRUNC);
}

} // namespace

Deadline::Deadline(uint32_t milliseconds) : endMs_(coarseMs() + milliseconds) {}

int Deadline::remainingMs() const
{
    const uint64_t now = coarseMs();
    return now >= endMs_ ? 0 : static_cast<int>(std::min<uint64_t>(endMs_ - now, INT_MAX));
}

// The first try waits as long as the socket's own limit lets it. A signal would start that limit anew each
// time, so what is left after one is waited for by the deadline.
int sendFrame(int fd, FrameHeader header, Payload payload, bool waits, const Deadline &deadline)
{
    header.length = static_cast<uint32_t>(payload.size());
    const auto sendOnce = sizeof header + payload.size() <= kSmallFrame ? sendSmall : sendLarge;
    ssize_t sent = sendOnce(fd, header, payload, waits ? 0 : MSG_DONTWAIT);
    bool interrupted = false;
    while (sent < 0 && (errno == EINTR || (interrupted && errno == EAGAIN))) {
        interrupted = true;
        if (!waitFor(fd, POLLOUT, deadline)) {
            return EAGAIN;
        }
        sent = sendOnce(fd, header, payload, MSG_DONTWAIT);
    }
    return sent < 0 ? errno : 0;
}

int receiveFrame(int fd, FrameHeader &header, Room room, const Deadline &deadline)
{
    ssize_t got = receiveOnce(fd, header, room, 0);
    bool interrupted = false;
    while (got < 0 && (errno == EINTR || (interrupted && errno == EAGAIN))) {
        interrupted = true;
        if (!waitFor(fd, POLLIN, deadline)) {
            return EAGAIN;
        }
        got = receiveOnce(fd, header, room, MSG_DONTWAIT);
    }
    if (got < 0) {
        return errno;
    }
    if (got == 0) {
        return EPIPE;
    }
    const auto size = static_cast<size_t>(got);
    return size <= sizeof header + room.size() && isWhole(header, size) ? 0 : EPROTO;
}

} // namespace qx
