// What the kernel, or who takes its place, sends to a link: replies to the creation, and messages received.
#include "qx/diag.h"
#include "qx/socket.h"
#include "zema/pkt_tunnel.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

namespace {

std::vector<uint8_t> gMessage;
std::vector<uint8_t> gTaken;
int32_t gSent = 0; // of each message, at most; negative or 0 once, then all

void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

int32_t QX_OS_Socket(int32_t /*domain*/, int32_t /*type*/, int32_t /*protocol*/)
{
    return 5;
}

int32_t QX_OS_Bind(int32_t /*fd*/, const void * /*address*/, uint32_t /*size*/)
{
    return 0;
}

int32_t QX_OS_Sendto(int32_t /*fd*/, const void *bytes, uint32_t size, int32_t /*flags*/,
                     const void * /*address*/, uint32_t /*addressSize*/)
{
    const auto *const first = static_cast<const uint8_t *>(bytes);
    gTaken.assign(first, first + size); // reads what a kernel would read
    if (gSent <= 0) {
        errno = EAGAIN;
        return std::exchange(gSent, INT32_MAX);
    }
    return std::min(gSent, static_cast<int32_t>(size));
}

int32_t QX_OS_Recv(int32_t /*fd*/, void *bytes, uint32_t size, int32_t /*flags*/)
{
    const size_t taken = std::min<size_t>(size, gMessage.size());
    std::copy_n(gMessage.begin(), taken, static_cast<uint8_t *>(bytes));
    return static_cast<int32_t>(taken);
}

int32_t QX_OS_Close(int32_t /*fd*/)
{
    return 0;
}

// The first byte says which lengths are made right, so that the fuzzer reaches what is behind each check, the
// second how much the socket takes at a time, the third and fourth how large the buffer is.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 4) {
        return 0;
    }
    gMessage.assign(data + 4, data + size);
    const auto length = static_cast<uint32_t>(gMessage.size());
    if ((data[0] & 1) != 0 && length >= sizeof length) {
        std::memcpy(gMessage.data(), &length, sizeof length);
    }
    if ((data[0] & 2) != 0 && length >= 24) {
        const auto attribute = static_cast<uint16_t>(length - 20);
        std::memcpy(gMessage.data() + 20, &attribute, sizeof attribute);
    }
    gSent = static_cast<int32_t>(data[1]) - 2;

    const PktTunnelLink untouched = {7, 7, 7, 7};
    PktTunnelLink link = untouched;
    if (QX_PKT_TUNNEL_CreateLinkSocket(data[0] % 30, &link) != ZEMA_OK) {
        check(std::memcmp(&link, &untouched, sizeof link) == 0);
    } else {
        check(link.ulFamilyId != 0 && link.ulFamilyId <= UINT16_MAX);
    }
    check(QX_PKT_TUNNEL_SendPkg(&link, length > 0 ? gMessage.data() : data, length) ==
          (length > PKT_TUNNEL_PACKET_MAX ? 1U : 0U));

    const uint32_t room =
        PKT_TUNNEL_HEAD_SIZE + (data[2] | static_cast<uint32_t>(data[3]) << 8U) % (PKT_TUNNEL_PACKET_MAX + 1);
    std::vector<uint8_t> buffer(room);
    uint8_t *packet = nullptr;
    uint32_t packetSize = 0;
    const uint32_t result = QX_PKT_TUNNEL_RecvPkgBuf(&link, buffer.data(), room, &packet, &packetSize);
    if (result == ZEMA_OK && packet != nullptr) {
        check(packet == buffer.data() + PKT_TUNNEL_HEAD_SIZE);
        check(packetSize <= std::min(room, length) - PKT_TUNNEL_HEAD_SIZE);
    }
    return 0;
}
