#include "zema/pkt_tunnel.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/process.h"
#include "qx/socket.h"

#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <linux/genetlink.h>
#include <optional>
#include <sys/socket.h>
#include <utility>

namespace {

constexpr char kFamilyName[] = "QXPKT";

enum Command : uint8_t { kRegister = 1, kData = 2 };
enum AttributeType : uint16_t { kLinkTypeAttribute = 1, kPacketAttribute = 2 };

// How every message begins, in both directions.
struct Head {
    nlmsghdr netlink;
    genlmsghdr generic;
    nlattr attribute;
};

constexpr uint32_t kAttributeOffset = offsetof(Head, attribute);

static_assert(sizeof(Head) == PKT_TUNNEL_HEAD_SIZE && kAttributeOffset == 20 && sizeof(sockaddr_nl) == 12);
static_assert(PKT_TUNNEL_BUFFER_SIZE == PKT_TUNNEL_PACKET_MAX + PKT_TUNNEL_HEAD_SIZE);
static_assert(sizeof(PktTunnelLink) == 16 && offsetof(PktTunnelLink, ulFamilyId) == 4 &&
              offsetof(PktTunnelLink, lSockFd) == 8 && offsetof(PktTunnelLink, ulLinkType) == 12);

constexpr sockaddr_nl kKernel = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, 0, 0, 0, 0);
}

void report(uint32_t line, uint32_t code, uint32_t detail)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail, 0, 0, 0);
}

class Socket {
public:
    explicit Socket(int32_t fd) : fd_(fd) {}
    ~Socket() { close(); }
    Socket(const Socket &) = delete;
    Socket &operator=(const Socket &) = delete;

    int32_t fd() const { return fd_; }
    int32_t release() { return std::exchange(fd_, -1); }
    void close()
    {
        if (fd_ >= 0) {
            (void)QX_OS_Close(release());
        }
    }

private:
    int32_t fd_;
};

struct Message {
    uint16_t type;
    uint8_t command;
    uint16_t attribute;
    const uint32_t *word; // in front of the data, or null
    const void *data;
    uint32_t size;
};

// What stands at an offset of bytes that need not be aligned for it.
template <typename T>
T load(const void *bytes, uint32_t offset)
{
    T value;
    std::memcpy(&value, static_cast<const uint8_t *>(bytes) + offset, sizeof value);
    return value;
}

bool isZeroed(const zema::PlatformBuffer &buffer)
{
    return buffer && memset_s(buffer.data(), buffer.size(), 0, buffer.size()) == 0;
}

uint32_t sendWhole(int32_t fd, const uint8_t *bytes, uint32_t size)
{
    while (true) {
        const int32_t sent = QX_OS_Sendto(fd, bytes, size, 0, &kKernel, sizeof kKernel);
        if (sent > 0) {
            if (static_cast<uint32_t>(sent) >= size) {
                return ZEMA_OK;
            }
            bytes += sent;
            size -= static_cast<uint32_t>(sent);
        } else if (QX_OS_GetLastErr() != EAGAIN) {
            report(__LINE__, ZEMA_ERR, static_cast<uint32_t>(sent));
            return ZEMA_ERR;
        }
    }
}

uint32_t sendMessage(int32_t fd, uint32_t port, const Message &message)
{
    const uint32_t wordSize = message.word != nullptr ? sizeof *message.word : 0;
    const auto length = static_cast<uint32_t>(sizeof(nlattr)) + wordSize + message.size;
    const zema::PlatformBuffer buffer(kAttributeOffset + NLA_ALIGN(length));
    if (!isZeroed(buffer)) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    auto *const head = static_cast<Head *>(buffer.data());
    head->netlink = {.nlmsg_len = buffer.size(),
                     .nlmsg_type = message.type,
                     .nlmsg_flags = NLM_F_REQUEST,
                     .nlmsg_seq = 0,
                     .nlmsg_pid = port};
    head->generic = {.cmd = message.command, .version = 1, .reserved = 0};
    head->attribute = {.nla_len = static_cast<uint16_t>(length), .nla_type = message.attribute};
    auto *const value = reinterpret_cast<uint8_t *>(head + 1);
    if (wordSize > 0) {
        std::memcpy(value, message.word, wordSize);
    }
    const uint32_t dataOffset = sizeof(Head) + wordSize;
    if (memcpy_s(value + wordSize, buffer.size() - dataOffset, message.data, message.size) != 0) {
        report(__LINE__, ZEMA_ERR);
    }
    return sendWhole(fd, static_cast<const uint8_t *>(buffer.data()), buffer.size());
}

// Whether a receive brought one whole message that is not an error.
bool isMessage(const void *bytes, int32_t received)
{
    if (received < static_cast<int32_t>(sizeof(nlmsghdr))) {
        return false;
    }
    const auto head = load<nlmsghdr>(bytes, 0);
    return head.nlmsg_type != NLMSG_ERROR && head.nlmsg_len >= sizeof head &&
           head.nlmsg_len <= static_cast<uint32_t>(received);
}

// The head of the attribute at an offset, when all of it was received.
std::optional<nlattr> wholeAttribute(const void *bytes, uint32_t received, uint32_t offset)
{
    if (offset + sizeof(nlattr) > received) {
        return std::nullopt;
    }
    const auto head = load<nlattr>(bytes, offset);
    const bool whole = head.nla_len >= sizeof head && head.nla_len <= received - offset;
    return whole ? std::optional(head) : std::nullopt;
}

// Where the second attribute of the controller's reply starts; 0 when it is not all there.
uint32_t secondAttribute(const void *reply, int32_t received)
{
    if (!isMessage(reply, received)) {
        return 0;
    }
    const auto size = static_cast<uint32_t>(received);
    const auto first = wholeAttribute(reply, size, kAttributeOffset);
    if (!first) {
        return 0;
    }
    const auto second = kAttributeOffset + static_cast<uint32_t>(NLA_ALIGN(first->nla_len));
    return wholeAttribute(reply, size, second) ? second : 0;
}

uint16_t familyIn(const void *reply, int32_t received)
{
    const uint32_t second = secondAttribute(reply, received);
    if (second == 0) {
        if (received != 0) {
            report(__LINE__, ZEMA_ERR, static_cast<uint32_t>(received));
        }
        return 0;
    }
    const auto attribute = load<nlattr>(reply, second);
    if (attribute.nla_type != CTRL_ATTR_FAMILY_ID) {
        report(__LINE__, ZEMA_ERR, attribute.nla_type);
        return 0;
    }
    const bool hasValue = attribute.nla_len >= sizeof attribute + sizeof(uint16_t);
    const uint16_t family = hasValue ? load<uint16_t>(reply, second + sizeof attribute) : uint16_t{0};
    if (family == 0) {
        report(__LINE__, ZEMA_ERR, family);
    }
    return family;
}

// What the kernel calls the family; 0 when it does not know it or cannot be asked.
uint16_t lookUpFamily(int32_t fd, uint32_t port)
{
    const zema::PlatformBuffer reply(PKT_TUNNEL_BUFFER_SIZE);
    if (!isZeroed(reply)) {
        return 0;
    }
    const Message question = {.type = GENL_ID_CTRL,
                              .command = CTRL_CMD_GETFAMILY,
                              .attribute = CTRL_ATTR_FAMILY_NAME,
                              .word = nullptr,
                              .data = kFamilyName,
                              .size = sizeof kFamilyName};
    if (sendMessage(fd, port, question) != ZEMA_OK) {
        return 0;
    }
    const int32_t received = QX_OS_Recv(fd, reply.data(), reply.size(), 0);
    return familyIn(reply.data(), received);
}

uint32_t registerLinkType(const PktTunnelLink &link)
{
    const Message registration = {.type = static_cast<uint16_t>(link.ulFamilyId),
                                  .command = kRegister,
                                  .attribute = kLinkTypeAttribute,
                                  .word = &link.ulLinkType,
                                  .data = &link.ulLinkType,
                                  .size = sizeof link.ulLinkType};
    return sendMessage(link.lSockFd, link.ulPortId, registration);
}

// A bound socket, or a negative number.
int32_t openSocket()
{
    Socket socket(QX_OS_Socket(AF_NETLINK, SOCK_RAW, NETLINK_GENERIC));
    if (socket.fd() < 0) {
        report(__LINE__, ZEMA_ERR, static_cast<uint32_t>(socket.fd()));
        return socket.fd();
    }
    const int32_t bound = QX_OS_Bind(socket.fd(), &kKernel, sizeof kKernel);
    if (bound < 0) {
        report(__LINE__, ZEMA_ERR, static_cast<uint32_t>(bound));
        return bound;
    }
    return socket.release();
}

} // namespace

uint32_t QX_PKT_TUNNEL_CreateLinkSocket(uint32_t ulLinkType, PktTunnelLink *pstLink)
{
    if (ulLinkType >= PKT_TUNNEL_LINK_TYPES) {
        report(__LINE__, ZEMA_ERR, ulLinkType);
        return ZEMA_ERR;
    }
    if (pstLink == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    Socket socket(openSocket());
    if (socket.fd() < 0) {
        return ZEMA_ERR;
    }
    PktTunnelLink link = {
        .ulPortId = QX_OS_PthreadSelf(), .ulFamilyId = 0, .lSockFd = socket.fd(), .ulLinkType = ulLinkType};
    link.ulFamilyId = lookUpFamily(link.lSockFd, link.ulPortId);
    if (link.ulFamilyId == 0) {
        socket.close();
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (registerLinkType(link) != ZEMA_OK) {
        socket.close();
        (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, kRegister, link.ulFamilyId,
                                   static_cast<uint32_t>(link.lSockFd), link.ulPortId, ulLinkType);
        return ZEMA_ERR;
    }
    (void)socket.release();
    *pstLink = link;
    return ZEMA_OK;
}

uint32_t QX_PKT_TUNNEL_ReleaseLinkSocket(uint32_t /*ulReserved*/, const PktTunnelLink *pstLink)
{
    if (pstLink == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const int32_t closed = QX_OS_Close(pstLink->lSockFd);
    if (closed != 0) {
        report(__LINE__, ZEMA_ERR, static_cast<uint32_t>(closed));
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

// Behind a system call the processor predicts no return right: a packet's way has as few as can be.
[[gnu::flatten]] uint32_t QX_PKT_TUNNEL_SendPkg(const PktTunnelLink *pstLink, const void *pvPacket,
                                                uint32_t ulLength)
{
    if (pstLink == nullptr || pvPacket == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (ulLength > PKT_TUNNEL_PACKET_MAX) {
        report(__LINE__, ZEMA_ERR, ulLength);
        return ZEMA_ERR;
    }
    const Message packet = {.type = static_cast<uint16_t>(pstLink->ulFamilyId),
                            .command = kData,
                            .attribute = kPacketAttribute,
                            .word = &pstLink->ulLinkType,
                            .data = pvPacket,
                            .size = ulLength};
    const uint32_t result = sendMessage(pstLink->lSockFd, pstLink->ulPortId, packet);
    if (result != ZEMA_OK) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t QX_PKT_TUNNEL_RecvPkgBuf(const PktTunnelLink *pstLink, void *pvBuffer, uint32_t ulBufferSize,
                                  uint8_t **ppucPacket, uint32_t *pulLength)
{
    if (pstLink == nullptr || pvBuffer == nullptr || ppucPacket == nullptr || pulLength == nullptr) {
        (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, zema::addressValue(pstLink),
                                   zema::addressValue(pvBuffer), zema::addressValue(ppucPacket),
                                   zema::addressValue(pulLength));
        return ZEMA_ERR;
    }
    const int32_t received = QX_OS_Recv(pstLink->lSockFd, pvBuffer, ulBufferSize, 0);
    const auto size = static_cast<uint32_t>(received);
    if (!isMessage(pvBuffer, received)) {
        return size;
    }
    // What stands behind a shorter message is older than it.
    const auto attribute = size >= sizeof(Head) ? load<nlattr>(pvBuffer, kAttributeOffset) : nlattr{};
    if (attribute.nla_type != kPacketAttribute) {
        report(__LINE__, ZEMA_ERR, attribute.nla_type);
        return ZEMA_ERR;
    }
    // A length below its own head's becomes one above every bound.
    *pulLength = attribute.nla_len - static_cast<uint32_t>(sizeof attribute);
    *ppucPacket = static_cast<uint8_t *>(pvBuffer) + sizeof(Head);
    for (const uint32_t end : {ulBufferSize, size}) {
        const auto bound = end - static_cast<uint32_t>(sizeof(Head));
        if (*pulLength > bound) {
            (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, *pulLength, bound, 0, 0);
            return ZEMA_ERR;
        }
    }
    return ZEMA_OK;
}
