// A packet sent through the tunnel, beside a bare sendto of the same message.
#include "zema/pkt_tunnel.h"

#include <benchmark/benchmark.h>
#include <linux/genetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <vector>

namespace {

// A family that no kernel has: it looks for it and refuses the message, and after a while drops its refusals,
// because nobody reads them. What that takes is in both figures, as the module's work on a real packet would
// be.
constexpr uint32_t kNoFamily = GENL_MAX_ID;

class Channel {
public:
    Channel() { link_.lSockFd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC); }
    ~Channel() { close(link_.lSockFd); }
    Channel(const Channel &) = delete;
    Channel &operator=(const Channel &) = delete;

    const PktTunnelLink &link() const { return link_; }

private:
    PktTunnelLink link_ = {.ulPortId = 1, .ulFamilyId = kNoFamily, .lSockFd = -1, .ulLinkType = 3};
};

std::vector<uint8_t> messageOf(uint32_t packetSize)
{
    struct {
        nlmsghdr netlink;
        genlmsghdr generic;
        nlattr attribute;
        uint32_t linkType;
    } head = {};
    std::vector<uint8_t> message(sizeof head + NLA_ALIGN(packetSize), 'p');
    head.netlink = {.nlmsg_len = static_cast<uint32_t>(message.size()),
                    .nlmsg_type = kNoFamily,
                    .nlmsg_flags = NLM_F_REQUEST,
                    .nlmsg_seq = 0,
                    .nlmsg_pid = 1};
    head.generic = {.cmd = 2, .version = 1, .reserved = 0};
    head.attribute = {.nla_len = static_cast<uint16_t>(packetSize + 8), .nla_type = 2};
    head.linkType = 3;
    std::memcpy(message.data(), &head, sizeof head);
    return message;
}

void sendThroughTunnel(benchmark::State &state)
{
    const Channel channel;
    const std::vector<uint8_t> packet(static_cast<size_t>(state.range(0)), 'p');
    while (state.KeepRunning()) {
        if (QX_PKT_TUNNEL_SendPkg(&channel.link(), packet.data(), static_cast<uint32_t>(packet.size())) !=
            0) {
            state.SkipWithError("the packet is not sent");
        }
    }
}

void sendBarely(benchmark::State &state)
{
    const Channel channel;
    const std::vector<uint8_t> message = messageOf(static_cast<uint32_t>(state.range(0)));
    const sockaddr_nl kernel = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = 0, .nl_groups = 0};
    while (state.KeepRunning()) {
        if (sendto(channel.link().lSockFd, message.data(), message.size(), 0,
                   reinterpret_cast<const sockaddr *>(&kernel), sizeof kernel) < 0) {
            state.SkipWithError("the message is not sent");
        }
    }
}

BENCHMARK(sendThroughTunnel)->Arg(100)->Arg(2048);
BENCHMARK(sendBarely)->Arg(100)->Arg(2048);

} // namespace
