// The packet tunnel: "packet_link TYPE [TEXT]" makes a link of the type to the kernel's module, sends the
// text and prints what comes back within a second.
#include <zema/pkt_tunnel.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/socket.h>

namespace {

// The messages that are no packet, as the kernel's refusals, are of no interest here.
uint32_t printAnswer(const PktTunnelLink &link)
{
    const timeval patience = {.tv_sec = 1, .tv_usec = 0};
    setsockopt(link.lSockFd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    uint8_t buffer[PKT_TUNNEL_BUFFER_SIZE];
    uint8_t *packet = nullptr;
    uint32_t length = 0;
    const uint32_t result = QX_PKT_TUNNEL_RecvPkgBuf(&link, buffer, sizeof buffer, &packet, &length);
    if (result != ZEMA_OK || packet == nullptr) {
        return ZEMA_ERR;
    }
    std::printf("%u bytes came back: %.*s\n", length, static_cast<int>(length),
                reinterpret_cast<char *>(packet));
    return ZEMA_OK;
}

uint32_t sendText(const PktTunnelLink &link, const char *text)
{
    const uint32_t result = QX_PKT_TUNNEL_SendPkg(&link, text, static_cast<uint32_t>(std::strlen(text)));
    return result == ZEMA_OK ? printAnswer(link) : result;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2 && argc != 3) {
        std::fputs("usage: packet_link TYPE [TEXT]\n", stderr);
        return 2;
    }
    PktTunnelLink link = {};
    uint32_t result =
        QX_PKT_TUNNEL_CreateLinkSocket(static_cast<uint32_t>(std::strtoul(argv[1], nullptr, 10)), &link);
    if (result != ZEMA_OK) {
        std::fputs("packet_link: no link: not a link type, or the kernel has no such family\n", stderr);
        return 1;
    }
    std::printf("family %u, port %u\n", link.ulFamilyId, link.ulPortId);
    result = argc == 3 ? sendText(link, argv[2]) : ZEMA_OK;
    const uint32_t released = QX_PKT_TUNNEL_ReleaseLinkSocket(0, &link);
    return result == ZEMA_OK && released == ZEMA_OK ? 0 : 1;
}
