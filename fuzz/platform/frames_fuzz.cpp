// Frames from a peer that does not keep the rules, as a process with every role receives them.
#include "platform/linux/frame.h"
#include "qx/host.h"
#include "qx/qx.h"

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::string gDirectory;

int connectToSelf()
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    for (const auto &entry : std::filesystem::directory_iterator(gDirectory + "/bus")) {
        strncpy(address.sun_path, entry.path().c_str(), sizeof address.sun_path - 1);
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        abort();
    }
    return fd;
}

// Reads all that a handler may read, so that a sanitizer sees what it may not.
uint32_t touch(const void *bytes, size_t size)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < size; ++i) {
        sum += static_cast<const unsigned char *>(bytes)[i];
    }
    return sum;
}

uint32_t onRpc(uint32_t, char *text, uintptr_t, uintptr_t, uintptr_t)
{
    memset(text, 'x', strlen(text));
    return 0;
}

void joinWithEveryRole()
{
    gDirectory = "/tmp/zema-fuzz-XXXXXX";
    setenv("ZEMA_RUNTIME_DIR", mkdtemp(gDirectory.data()), 1);
    const std::array<QxRpcRow, 2> rows{{{7, onRpc}, {QX_RPC_END_OF_TABLE, nullptr}}};
    QX_MSG_RegOverWriteRpcCalls(rows.data());
    EventCenter_SubscribeEvent(7, [](void *data) { return data == nullptr ? 0 : touch(data, 1024); });
    QxHost_ServeTerminal(
        7, [](void *, const QxPrint *print) { return touch(print->pcBytes, print->ulSize); }, nullptr);
    QxHost_ServeKernel([](void *, const void *message, uint32_t size) { return touch(message, size); },
                       nullptr);
    QxHost_ServeModule(
        7, [](void *, void *message, uint32_t size) { return touch(message, size + 1024); }, nullptr);
    QxHost_ServeSync(
        [](void *, const QxSyncRequest *request) {
            memset(request->pvReply, 'x', request->ulReplySize);
            return touch(request->pvData, request->ulSize);
        },
        nullptr);
    QxHost_Monitor(
        [](void *, const QxPassage *passage) {
            if (passage->ulBytes > sizeof passage->acBytes) {
                abort();
            }
        },
        nullptr);
    if (QxHost_FlowOpen() == nullptr) {
        abort();
    }
    atexit([] {
        QxHost_Leave();
        std::filesystem::remove_all(gDirectory);
    });
}

} // namespace

// The first byte says which parts of the header are made right, so that the fuzzer reaches what is behind
// each check.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool joined = [] {
        joinWithEveryRole();
        return true;
    }();
    static int fd = -1;
    if (size < 1 + sizeof(qx::FrameHeader) || !joined) {
        return 0;
    }
    const uint8_t right = *data++;
    std::array<uint8_t, 4096> bytes{};
    const size_t length = std::min(size - 1, bytes.size());
    memcpy(bytes.data(), data, length);
    qx::FrameHeader header{};
    memcpy(&header, bytes.data(), sizeof header);
    header.magic = (right & 1) != 0 ? qx::kFrameMagic : header.magic;
    header.version = (right & 1) != 0 ? qx::kFrameVersion : header.version;
    header.length = (right & 2) != 0 ? static_cast<uint32_t>(length - sizeof header) : header.length;
    header.number = (right & 4) != 0 ? 7 : header.number;
    header.flow = (right & 8) != 0 ? 0 : header.flow;
    header.kind = (right & 16) != 0 ? static_cast<qx::FrameKind>(1 + right % 10) : header.kind;
    memcpy(bytes.data(), &header, sizeof header);
    if (fd < 0) {
        fd = connectToSelf();
    }
    if (send(fd, bytes.data(), length, MSG_NOSIGNAL) < 0) {
        close(fd);
        fd = -1;
    }
    while (QxHost_Dispatch(0) == QX_OK) {
    }
    std::array<char, 256> reply{};
    if (fd >= 0 && recv(fd, reply.data(), reply.size(), MSG_DONTWAIT) == 0) {
        close(fd);
        fd = -1;
    }
    return 0;
}
