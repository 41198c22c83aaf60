#include "device_service.h"

#include "qx/message.h"
#include "zema/netdev.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>
#include <linux/rtnetlink.h>
#include <map>
#include <net/if.h>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace tools {
namespace {

// ---- Deleting a device ----

class RouteSocket {
public:
    RouteSocket()
    {
        const timeval limit{.tv_sec = 5, .tv_usec = 0};
        setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~RouteSocket() { close(fd_); }
    RouteSocket(const RouteSocket &) = delete;
    RouteSocket &operator=(const RouteSocket &) = delete;
    int fd() const { return fd_; }

private:
    int fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
};

struct LinkRequest {
    nlmsghdr header;
    ifinfomsg link;
};

struct Acknowledgement {
    nlmsghdr header;
    nlmsgerr error;
};

// The kernel's acknowledgement, an error number; ETIMEDOUT when none came.
int receiveError(int fd)
{
    Acknowledgement answer{};
    sockaddr_nl sender{};
    socklen_t senderSize = sizeof sender;
    ssize_t size = -1;
    do {
        size = recvfrom(fd, &answer, sizeof answer, 0, reinterpret_cast<sockaddr *>(&sender), &senderSize);
    } while (size < 0 && errno == EINTR);
    const bool isAnswer = size >= static_cast<ssize_t>(sizeof answer) && sender.nl_pid == 0 &&
                          answer.header.nlmsg_type == NLMSG_ERROR;
    return isAnswer ? -answer.error.error : ETIMEDOUT;
}

uint32_t deleteDevice(int32_t index)
{
    const RouteSocket socket;
    LinkRequest request{};
    request.header = {.nlmsg_len = sizeof request,
                      .nlmsg_type = RTM_DELLINK,
                      .nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK,
                      .nlmsg_seq = 1,
                      .nlmsg_pid = 0};
    request.link.ifi_index = index;
    if (send(socket.fd(), &request, sizeof request, 0) != static_cast<ssize_t>(sizeof request)) {
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    switch (receiveError(socket.fd())) {
    case 0:
        return QX_OK;
    case ENODEV:
        return QX_ERR_NOT_FOUND;
    default:
        return ZEMA_ERR_NETDEV_IOCTL;
    }
}

uint32_t answerDelete(const void *request)
{
    uint32_t index = 0;
    std::memcpy(&index, request, sizeof index);
    return index >= 1 && index <= INT_MAX ? deleteDevice(static_cast<int32_t>(index)) : QX_ERR;
}

// ---- Flags ----

// By kernel index: a device keeps its flag whatever it is called, and another one of its name begins without.
std::map<uint32_t, uint16_t> flags;

// Only what the kernel says counts: a question that could not be asked takes no flag away.
bool isGone(const std::pair<const uint32_t, uint16_t> &flag)
{
    char name[IF_NAMESIZE];
    return if_indextoname(flag.first, name) == nullptr && errno == ENXIO;
}

// What the kernel lets a device be called.
bool mayBeName(std::string_view name)
{
    return !name.empty() && name.size() < IFNAMSIZ && name != "." && name != ".." &&
           name.find_first_of("/: \t\n\v\f\r\xA0") == std::string_view::npos;
}

uint32_t answerFlag(const void *request)
{
    NetDevPrivFlagRecord record;
    std::memcpy(&record, request, sizeof record);
    const std::string name(record.acName, strnlen(record.acName, sizeof record.acName));
    if (!mayBeName(name)) {
        return QX_ERR;
    }
    const uint32_t index = if_nametoindex(name.c_str());
    if (index == 0) {
        return errno == ENODEV ? QX_ERR_NOT_FOUND : ZEMA_ERR_NETDEV_SOCKET;
    }
    if (!flags.contains(index)) {
        std::erase_if(flags, isGone); // so there are never more flags than devices
    }
    flags[index] = record.usFlag;
    return QX_OK;
}

uint32_t tellFlag(uint32_t /*callerWord*/, char *text, uintptr_t, uintptr_t, uintptr_t)
{
    const auto found = flags.find(if_nametoindex(text));
    return found != flags.end() ? kHasFlag | found->second : 0;
}

struct Service {
    uint32_t code;
    uint32_t size;
    uint32_t (*answer)(const void *request);
};

constexpr Service kServices[] = {
    {ZEMA_SYNC_NETDEV_PRIV_FLAG, sizeof(NetDevPrivFlagRecord), answerFlag},
    {ZEMA_SYNC_NETDEV_DELETE, sizeof(uint32_t), answerDelete},
};

} // namespace

uint32_t deviceService(uint32_t code, const void *request, uint32_t size)
{
    for (const Service &service : kServices) {
        if (service.code == code) {
            return request != nullptr && service.size == size ? service.answer(request) : QX_ERR;
        }
    }
    return QX_ERR;
}

uint32_t serveDeviceFlags()
{
    constexpr QxRpcRow kRows[] = {{.ulId = kDeviceFlagProcedure, .pfnHandler = tellFlag},
                                  {.ulId = QX_RPC_END_OF_TABLE, .pfnHandler = nullptr}};
    return QX_MSG_RegOverWriteRpcCalls(kRows);
}

} // namespace tools
