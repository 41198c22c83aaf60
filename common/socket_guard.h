// A socket, held by one owner and closed on every path.
#pragma once

#include "qx/socket.h"

#include <utility>

namespace zema {

class SocketGuard {
public:
    explicit SocketGuard(int32_t fd) : fd_(fd) {}
    ~SocketGuard() { close(); }
    SocketGuard(SocketGuard &&other) noexcept : fd_(std::exchange(other.fd_, kNone)) {}
    SocketGuard &operator=(SocketGuard &&) = delete;
    SocketGuard(const SocketGuard &) = delete;
    SocketGuard &operator=(const SocketGuard &) = delete;

    explicit operator bool() const { return fd_ >= 0; }
    int32_t fd() const { return fd_; } // negative: what the failed opening returned

    void close()
    {
        if (fd_ >= 0) {
            (void)QX_OS_CloseSocket(std::exchange(fd_, kNone));
        }
    }

private:
    static constexpr int32_t kNone = -1;

    int32_t fd_;
};

} // namespace zema
