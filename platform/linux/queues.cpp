#include "platform/linux/queues.h"

#include <cerrno>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace qx {
namespace {

// The kernel's words for the states of sockets.
constexpr uint8_t kEstablished = 1;
constexpr uint8_t kListens = 10;
constexpr timeval kPatience{.tv_sec = 1, .tv_usec = 0};

struct Request {
    nlmsghdr header;
    unix_diag_req body;
};

class DiagSocket {
public:
    DiagSocket() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG)) {}
    ~DiagSocket()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    DiagSocket(const DiagSocket &) = delete;
    DiagSocket &operator=(const DiagSocket &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// An accepted socket has the name under which its listener was bound: the draft's.
Queue *queueOf(std::span<Queue> queues, std::string_view name)
{
    const auto found = std::find_if(queues.begin(), queues.end(), [&](const Queue &queue) {
        const NameText draft = draftSocketName(queue.id);
        const std::string_view wanted(draft.data());
        return name.size() >= wanted.size() &&
               std::equal(wanted.begin(), wanted.end(), name.end() - static_cast<ptrdiff_t>(wanted.size()));
    });
    return found == queues.end() ? nullptr : &*found;
}

void countSocket(std::span<Queue> queues, nlmsghdr *message)
{
    if (message->nlmsg_type != SOCK_DIAG_BY_FAMILY ||
        message->nlmsg_len < NLMSG_LENGTH(sizeof(unix_diag_msg))) {
        return;
    }
    auto *const body = static_cast<unix_diag_msg *>(NLMSG_DATA(message));
    std::string_view name;
    unix_diag_rqlen waiting{};
    auto left = static_cast<uint32_t>(message->nlmsg_len - NLMSG_LENGTH(sizeof *body));
    for (auto *item = reinterpret_cast<rtattr *>(body + 1); RTA_OK(item, left); item = RTA_NEXT(item, left)) {
        if (item->rta_type == UNIX_DIAG_NAME) {
            name = {static_cast<const char *>(RTA_DATA(item)), RTA_PAYLOAD(item)};
        } else if (item->rta_type == UNIX_DIAG_RQLEN && RTA_PAYLOAD(item) >= sizeof waiting) {
            std::memcpy(&waiting, RTA_DATA(item), sizeof waiting);
        }
    }
    name = name.substr(0, name.find('\0'));
    Queue *const queue = queueOf(queues, name);
    if (queue != nullptr && body->udiag_state == kListens) {
        queue->untaken = waiting.udiag_rqueue;
    } else if (queue != nullptr) {
        ++queue->connections;
        queue->bytes += waiting.udiag_rqueue;
    }
}

bool ask(int fd)
{
    Request request{};
    request.header = {.nlmsg_len = sizeof request,
                      .nlmsg_type = SOCK_DIAG_BY_FAMILY,
                      .nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP,
                      .nlmsg_seq = 1,
                      .nlmsg_pid = 0};
    request.body.sdiag_family = AF_UNIX;
    request.body.udiag_states = 1U << kEstablished | 1U << kListens;
    request.body.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_RQLEN;
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &kPatience, sizeof kPatience);
    return send(fd, &request, sizeof request, 0) == sizeof request;
}

} // namespace

bool readQueues(std::span<Queue> queues)
{
    const DiagSocket diag;
    if (diag.get() < 0 || !ask(diag.get())) {
        return false;
    }
    alignas(nlmsghdr) std::array<char, 16384> bytes;
    for (;;) {
        const ssize_t got = recv(diag.get(), bytes.data(), bytes.size(), 0);
        if (got <= 0) {
            return false;
        }
        auto left = static_cast<uint32_t>(got);
        auto *message = reinterpret_cast<nlmsghdr *>(bytes.data());
        for (; NLMSG_OK(message, left); message = NLMSG_NEXT(message, left)) {
            if (message->nlmsg_type == NLMSG_DONE || message->nlmsg_type == NLMSG_ERROR) {
                return message->nlmsg_type == NLMSG_DONE;
            }
            countSocket(queues, message);
        }
    }
}

} // namespace qx
