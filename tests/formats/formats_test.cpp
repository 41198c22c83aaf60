// The bytes of docs/formats.md against those that the library and the platform write.
#include "platform/linux/flow_context.h"
#include "platform/linux/record_ring.h"
#include "qx/compress.h"
#include "qx/diag.h"
#include "qx/event.h"
#include "qx/hlp.h"
#include "qx/process.h"
#include "qx/socket.h"
#include "qx/vdata.h"
#include "table_requests.h"
#include "table_service.h"
#include "tests/support/processes.h"
#include "zema/zema.h"

#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <gmock/gmock.h>
#include <map>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace zema::test;
using namespace std::string_literals;

std::string gSent;                // the last bytes that left
std::vector<std::string> gPassed; // netlink messages
std::string gKernelReply;

std::string textOf(const void *bytes, size_t size)
{
    return {static_cast<const char *>(bytes), size};
}

template <typename T>
std::string raw(const T &value)
{
    return textOf(&value, sizeof value);
}

std::string hex(const std::string &bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size(); ++i) {
        char two[4];
        std::snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(bytes[i]));
        text += two + std::string(i % 16 == 15 || i + 1 == bytes.size() ? "\n" : " ");
    }
    return text;
}

} // namespace

// ---- The kernel's side of the tunnel, and the thread's number ----

uint32_t QX_OS_PthreadSelf(void)
{
    return 0x11223344;
}

int32_t QX_OS_Socket(int32_t, int32_t, int32_t)
{
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

int32_t QX_OS_Bind(int32_t, const void *, uint32_t)
{
    return 0;
}

int32_t QX_OS_Sendto(int32_t, const void *bytes, uint32_t size, int32_t, const void *, uint32_t)
{
    gPassed.push_back(textOf(bytes, size));
    return static_cast<int32_t>(size);
}

int32_t QX_OS_Recv(int32_t, void *bytes, uint32_t, int32_t)
{
    std::memcpy(bytes, gKernelReply.data(), gKernelReply.size());
    return static_cast<int32_t>(gKernelReply.size());
}

namespace {

// What a call asks of the owner of the data, which is this process.
std::string asked(const std::function<void()> &call)
{
    QxHost_ServeSync(
        [](void *, const QxSyncRequest *request) {
            gSent = textOf(request->pvData, request->ulSize);
            return QX_ERR_NOT_FOUND;
        },
        nullptr);
    call();
    return gSent;
}

std::string command()
{
    ZemaCmdMsg message{};
    char text[] = "fw show all";
    EXPECT_EQ(QX_ZEMA_Zemacmd_CompileCmd(3, text, message.acArgs, &message.ulArgc), ZEMA_OK);
    return raw(message);
}

std::string hlp()
{
    QxHost_ServeKernel(
        [](void *, const void *message, uint32_t size) { return gSent = textOf(message, size), 0U; },
        nullptr);
    alignas(HlpTlvMsg) char request[sizeof(HlpTlvMsg) + 4] = {};
    const HlpTlvMsg head{
        .ulMsgType = ZEMA_HLP_MSG_CMD, .usLen = 4, .usReserved = 0, .ulHdrPara1 = 5, .ulHdrPara2 = 6};
    std::memcpy(request, &head, sizeof head);
    std::copy_n("data", 4, request + sizeof head);
    EXPECT_EQ(QX_ZEMA_Hlpsnd(reinterpret_cast<HlpTlvMsg *>(request), 7, 8), ZEMA_OK);
    return gSent.replace(offsetof(QxHlpHeader, ulSenderPid), 4, 4, '\0');
}

std::string dataEvent()
{
    QxHost_ServeModule(
        ZEMA_MODULE_ID,
        [](void *, void *message, uint32_t size) { return gSent = textOf(message, size), 0U; }, nullptr);
    EXPECT_EQ(DataAsync_AsyncSendData(7, "wan1", 5), ZEMA_OK);
    EXPECT_EQ(QxHost_Dispatch(1000), QX_OK);
    return gSent;
}

// The messages of a link's life: the question for the family, the registration, a packet.
std::string tunnel(size_t number)
{
    gKernelReply =
        "\x28\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0\1\2\0\0"s + "\x0a\0\2\0QXPKT\0\0\0"s + "\6\0\1\0\x1c\0\0\0"s;
    gPassed.clear();
    PktTunnelLink link{};
    EXPECT_EQ(QX_PKT_TUNNEL_CreateLinkSocket(29, &link), ZEMA_OK);
    EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, "packet", 6), ZEMA_OK);
    EXPECT_EQ(QX_PKT_TUNNEL_ReleaseLinkSocket(0, &link), ZEMA_OK);
    return gPassed.at(number);
}

// A message of the kernel in which the library finds "packet".
std::string received()
{
    gKernelReply = "\x20\0\0\0\x1c\0\0\0\0\0\0\0\0\0\0\0\2\1\0\0\x0a\0\2\0packet\0\0"s;
    const PktTunnelLink link{};
    char buffer[PKT_TUNNEL_BUFFER_SIZE];
    uint8_t *packet = nullptr;
    uint32_t length = 0;
    EXPECT_EQ(QX_PKT_TUNNEL_RecvPkgBuf(&link, buffer, sizeof buffer, &packet, &length), ZEMA_OK);
    EXPECT_EQ(textOf(packet, length), "packet");
    return gKernelReply;
}

// The beginning of what the owner of the tables replies.
std::string answered(uint32_t code, const std::vector<uint32_t> &words, uint32_t replySize, size_t shown)
{
    alignas(16) char reply[sizeof(tools::Page)] = {};
    const QxSyncRequest request{.ulCode = code,
                                .ulPid = 0,
                                .pvData = words.data(),
                                .ulSize = static_cast<uint32_t>(4 * words.size()),
                                .pvReply = reply,
                                .ulReplySize = replySize};
    EXPECT_EQ(tools::serveTables(nullptr, &request), QX_OK) << code;
    return textOf(reply, shown);
}

// A block's file, without its maker's process and time.
std::string block()
{
    uint32_t id = 0;
    EXPECT_EQ(QX_VDATA_CreShm(3, &id), QX_OK);
    EXPECT_EQ(QX_VDATA_UpdateData(id, 3, "abc"), QX_OK);
    char path[64];
    std::snprintf(path, sizeof path, "/dev/shm/zema-%u-%08x", geteuid(), id);
    std::ifstream file(path);
    const std::string bytes{std::istreambuf_iterator<char>(file), {}};
    EXPECT_EQ(QX_VDATA_FreeShm(id), QX_OK);
    return bytes.size() < 19 ? bytes : std::string(bytes).replace(7, 12, 12, '\0');
}

// What an event is to a process that has these names, which is this one.
std::string frameFor(const std::string &folder, std::istringstream names)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string name;
    std::getline(names, name);
    std::snprintf(address.sun_path, sizeof address.sun_path, "%s/%s", folder.c_str(), name.c_str());
    std::getline(names, name);
    const std::ofstream role(folder + "/" + name);
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address), 0) << address.sun_path;
    EXPECT_EQ(listen(listener, 4), 0);
    EXPECT_EQ(EventCenter_GlobalInvokeEvent2(ZEMA_EVENT_CMD, name.data(), 2), QX_OK);
    char bytes[64];
    pollfd arrival{.fd = listener, .events = POLLIN, .revents = 0};
    for (ssize_t size = 0; poll(&arrival, 1, 0) > 0;) { // one connection may have asked whether we live
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        size = recv(fd, bytes, sizeof bytes, MSG_DONTWAIT);
        close(fd);
        if (size > 0) {
            close(listener);
            return textOf(bytes, static_cast<size_t>(size));
        }
    }
    close(listener);
    return "";
}

std::string compressed(const std::string &text)
{
    std::string out(text.size() + 1, '\0');
    uint32_t size = 0;
    EXPECT_EQ(QX_OS_Compress(text.data(), static_cast<uint32_t>(text.size()), out.data(),
                             static_cast<uint32_t>(out.size()), &size),
              QX_OK);
    return out.substr(0, size);
}

// The header of the file of records and the first record, without what is another one each time.
std::pair<std::string, std::string> recordRing(const std::string &folder)
{
    QX_PROC_DBG_LastWord("formats.cpp", 9, 1, 2, 3, 4, 5);
    std::ifstream file(std::filesystem::directory_iterator(folder + "/records")->path());
    qx::RingHeader header{};
    file.read(reinterpret_cast<char *>(&header), sizeof header);
    qx::RingSlot slot{};
    while (slot.number != 1 && file.read(reinterpret_cast<char *>(&slot), sizeof slot)) {
    }
    header.pid = 0;
    slot.timeNs = slot.thread = 0;
    return {raw(header), raw(slot)};
}

std::map<std::string, std::string> goldens()
{
    std::map<std::string, std::string> found;
    std::ifstream page(ZEMA_FORMATS);
    std::string name;
    for (std::string line; std::getline(page, line);) {
        if (line.rfind("```golden ", 0) == 0) {
            name = line.substr(10);
            found[name] = "";
        } else if (line == "```") {
            name.clear();
        } else if (!name.empty()) {
            found[name] += line + "\n";
        }
    }
    return found;
}

using Formats = Scratch;

TEST_F(Formats, AreWhatIsWritten)
{
    const auto [recordsHeader, firstRecord] = recordRing(dir_);
    std::map<std::string, std::string> page = goldens();
    const std::string eventFrame = frameFor(dir_, std::istringstream(page["names"]));
    page.erase("names");
    EXPECT_EQ(command().substr(28), std::string(232, '\0'));
    EXPECT_EQ(MultiHashtable_SaveData(2, 7, "abcd", 4), ZEMA_OK);
    const LayerBaseHeader layer{.ulIndex = 7,
                                .ulState = 2,
                                .ulState2Jiffies = 100,
                                .ulState3Jiffies = 0,
                                .ulTableId = 2,
                                .ulVisible = 1};
    const LargeDataDesc desc{.ulShmId = 0x12345678, .ulRawLen = 5000, .ulStoredLen = 600};
    qx::FrameHeader frame = qx::frameOf(qx::FrameKind::rpc, ZEMA_RPC_ID_CMD, 0x00030000);
    frame.length = 12;
    frame.serial = 9;
    frame.flow = 1;
    frame.origin = {.pid = 4242, .nonce = 0xCAFE};
    const qx::FlowShare share{.id = frame.origin, .frames = 1};
    const std::map<std::string, std::string> written = {
        {"command", command().substr(0, 28)},
        {"hlp", hlp()},
        {"save", asked([] { MultiHashtableEx_SaveData(2, 7, "abcd", 4); })},
        {"delete", asked([] { MultiHashtableEx_DeleteData(2, 7); })},
        {"read", asked([] { MultiHashtableEx_GetData(2, 7, gSent.data(), 4); })},
        {"list", asked([] {
             uint32_t index = 0;
             MultiHashtableEx_GetIndexList(2, &index, 1, &index);
         })},
        {"device-delete", asked([] { NETDEV_DeleteNetDeviceByIndex(5); })},
        {"device-flag", asked([] { NETDEV_SetNetDevPrivFlag("eth0", 0x1234); })},
        {"list-reply", answered(MULTIHASHTABLEEX_CODE_LIST, {2, 2}, 12, 12)},
        {"tables-reply", answered(tools::kListTables, {0}, sizeof(tools::Page), 16)},
        {"items-reply", answered(tools::kListItems, {2, 0}, sizeof(tools::Page), 16)},
        {"length-reply", answered(tools::kItemLength, {2, 7}, 4, 4)},
        {"layer", raw(layer)},
        {"data-event", dataEvent()},
        {"tunnel-family", tunnel(0)},
        {"tunnel-answer", gKernelReply},
        {"tunnel-register", tunnel(1)},
        {"tunnel-packet", tunnel(2)},
        {"tunnel-received", received()},
        {"descriptor", raw(desc)},
        {"stored", compressed("abc")},
        {"packed", compressed(std::string(32, 'a'))},
        {"block", block()},
        {"event-frame", eventFrame},
        {"frame", raw(frame)},
        {"flow-word", raw(share)},
        {"records-header", recordsHeader},
        {"records-slot", firstRecord},
    };
    for (const auto &[name, bytes] : written) {
        const auto shown = page.find(name);
        EXPECT_EQ(shown == page.end() ? "no such block" : shown->second, hex(bytes)) << name;
    }
    EXPECT_EQ(page.size(), written.size());
}

} // namespace
