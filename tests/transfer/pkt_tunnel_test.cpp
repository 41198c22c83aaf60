// The tunnel's messages byte by byte, against a kernel of the test's own.
#include "zema/pkt_tunnel.h"

#include "qx/memory.h"
#include "qx/process.h"
#include "qx/socket.h"
#include "tests/support/platform_double.h"

#include <cerrno>
#include <cstring>
#include <deque>

using namespace zema::test;
using namespace std::string_literals;

namespace {

constexpr int32_t kFd = 5;
const uint32_t kPort = QX_OS_PthreadSelf();
constexpr uint32_t kMinusOne = UINT32_MAX;
constexpr const char *kFile = "qx_pkt_tunnel.cpp";
const std::string kKernel = "\x10\0\0\0\0\0\0\0\0\0\0\0"s;

struct Kernel {
    std::string reply;
    std::optional<int32_t> received; // instead of the reply's size
    std::deque<int32_t> sendResults; // of the next calls; then all is taken
    int32_t lastError = EPERM;
};

Kernel gKernel;

int32_t answer(Call call, int32_t result)
{
    return watched(std::move(call), [&] { return result; });
}

std::string bytesOf(const void *bytes, uint32_t size)
{
    return {static_cast<const char *>(bytes), size};
}

} // namespace

int32_t QX_OS_Socket(int32_t domain, int32_t type, int32_t protocol)
{
    return domain == 16 && type == 3 && protocol == 16 ? answer({"QX_OS_Socket", {}, {}}, kFd) : -1;
}

int32_t QX_OS_Bind(int32_t fd, const void *address, uint32_t size)
{
    return answer({"QX_OS_Bind", {static_cast<uint32_t>(fd)}, bytesOf(address, size)}, 0);
}

int32_t QX_OS_Sendto(int32_t fd, const void *bytes, uint32_t size, int32_t flags, const void *address,
                     uint32_t addressSize)
{
    auto result = static_cast<int32_t>(size);
    if (!gKernel.sendResults.empty()) {
        result = gKernel.sendResults.front();
        gKernel.sendResults.pop_front();
    }
    errno = gKernel.lastError;
    const std::string sent = bytesOf(bytes, size) + bytesOf(address, addressSize);
    return answer({"QX_OS_Sendto", {static_cast<uint32_t>(fd), static_cast<uint32_t>(flags)}, sent}, result);
}

int32_t QX_OS_Recv(int32_t fd, void *bytes, uint32_t size, int32_t flags)
{
    std::memcpy(bytes, gKernel.reply.data(), std::min<size_t>(gKernel.reply.size(), size));
    return answer({"QX_OS_Recv", {static_cast<uint32_t>(fd), size, static_cast<uint32_t>(flags)}, {}},
                  gKernel.received.value_or(static_cast<int32_t>(gKernel.reply.size())));
}

int32_t QX_OS_Close(int32_t fd)
{
    return answer({"QX_OS_Close", {static_cast<uint32_t>(fd)}, {}}, 0);
}

int32_t memcpy_s(void *dst, size_t dstSize, const void *src, size_t count)
{
    return answer({"memcpy_s", {}, {}}, 0) != 0 ? ERANGE
                                                : real(memcpy_s, "memcpy_s")(dst, dstSize, src, count);
}

namespace {

template <typename T>
std::string raw(T value)
{
    return bytesOf(&value, sizeof value);
}

// Its length may lie.
std::string attribute(uint16_t type, const std::string &value, int lie = 0)
{
    std::string text =
        raw(static_cast<uint16_t>(4 + static_cast<int>(value.size()) + lie)) + raw(type) + value;
    text.resize((text.size() + 3) / 4 * 4, '\0');
    return text;
}

std::string message(uint16_t type, char command, const std::string &attributes, int lie = 0)
{
    return raw(20 + static_cast<int>(attributes.size()) + lie) + raw(type) + "\1\0\0\0\0\0"s + raw(kPort) +
           command + "\1\0\0"s + attributes;
}

std::string packetOf(const std::string &packet)
{
    return message(28, 2, attribute(2, raw(3U) + packet));
}

Call sending(const std::string &bytes)
{
    return {"QX_OS_Sendto", {kFd, 0}, bytes + kKernel};
}

// The calls of one message that is taken at once.
std::vector<Call> wholeSend(const std::string &bytes)
{
    return {{"QX_OS_MemMallocD", {bytes.size()}, {}},
            {"memset_s", {bytes.size(), 0, bytes.size()}, {}},
            {"memcpy_s", {}, {}},
            sending(bytes),
            {"QX_OS_MemFreeD", {}, {}}};
}

const std::string kName = attribute(2, "QXPKT\0"s);
const std::string kReply = message(16, 1, kName + attribute(1, "\x1C\0"s) + attribute(3, raw(1U)));

class PktTunnel : public PlatformTest {
protected:
    PktTunnelLink link = {kPort, 28, kFd, 3};
};

TEST_F(PktTunnel, CreatesALinkStepByStep)
{
    gKernel = {.reply = kReply, .received = {}, .sendResults = {}};
    EXPECT_EQ(QX_PKT_TUNNEL_CreateLinkSocket(29, &link), 0U);
    EXPECT_EQ(bytesOf(&link, sizeof link), raw(kPort) + raw(28) + raw(kFd) + raw(29));
    std::vector<Call> expected = {{"QX_OS_Socket", {}, {}},
                                  {"QX_OS_Bind", {kFd}, kKernel},
                                  {"QX_OS_MemMallocD", {2072}, {}},
                                  {"memset_s", {2072, 0, 2072}, {}}};
    for (const auto &step : {wholeSend(message(16, 3, kName)),
                             {{"QX_OS_Recv", {kFd, 2072, 0}, {}}, {"QX_OS_MemFreeD", {}, {}}},
                             wholeSend(message(28, 1, attribute(1, raw(29) + raw(29))))}) {
        expected.insert(expected.end(), step.begin(), step.end());
    }
    EXPECT_EQ(platform.journal, expected);
}

TEST_F(PktTunnel, WhatFailsInTheCreationIsRecordedAndTheSocketClosed)
{
    const std::string family = attribute(1, "\x1C\0"s);
    const auto refused = [](uint32_t count) { return std::vector<Values>{{1, count}, {1}}; };
    const Values registration = {1, 28, kFd, kPort, 3};
    struct Row {
        const char *reason;
        std::vector<Values> records;
        std::string reply = kReply;
        std::optional<int32_t> received = std::nullopt;
        uint32_t nth = 0; // of the calls that reason names, fails
        int32_t failure = -1;
        uint32_t result = 1;
    };
    const Row rows[] = {
        {"QX_OS_Bind", {{1, kMinusOne}}, "", {}, 1},
        {"QX_OS_MemMallocD", {{1}}, "", {}, 1},
        {"QX_OS_MemMallocD", {{1}, {1}}, "", {}, 2},
        {"QX_OS_MemMallocD", {{1}, registration}, kReply, {}, 3},
        {"memset_s", {{1}}, "", {}, 1},
        {"memset_s", {{1}, {1}}, "", {}, 2},
        {"memset_s", {{1}, registration}, kReply, {}, 3},
        {"memcpy_s", {{1}}, kReply, {}, 2, 34, 0},
        {"QX_OS_Sendto", {{1, kMinusOne}, {1}}, "", {}, 1},
        {"QX_OS_Sendto", {{1, kMinusOne}, registration}, kReply, {}, 2},
        {"QX_OS_Recv", refused(kMinusOne), kReply, {}, 1},
        {"QX_OS_Recv", {{1}}, kReply, {}, 1, 0},
        {"an error, which the family's absence is", refused(40), message(2, 1, kName + family)},
        {"shorter than a header", refused(15), kReply, 15},
        {"says less than a header", refused(40), message(16, 1, kName + family, -25)},
        {"says more than there is", refused(40), message(16, 1, kName + family, 1)},
        {"no attribute", refused(20), message(16, 1, "")},
        {"one attribute", refused(32), message(16, 1, kName)},
        {"a first one beyond the end", refused(32), message(16, 1, attribute(2, "QXPKT\0"s, 60000))},
        {"a first one without a head", refused(32), message(16, 1, attribute(2, "", -4) + family)},
        {"a second one that is cut short", refused(37), message(16, 1, kName + family, -3), 37},
        {"a second one without a head", refused(40), message(16, 1, kName + attribute(1, "\x1C\0"s, -3))},
        {"another type", {{1, 3}, {1}}, message(16, 1, kName + attribute(3, "\x1C\0"s))},
        {"half an identifier", {{1, 0}, {1}}, message(16, 1, kName + attribute(1, "\x1C"))},
        {"the identifier 0", {{1, 0}, {1}}, message(16, 1, kName + attribute(1, "\0\0"s))},
    };
    const PktTunnelLink before = {7, 7, 7, 7};
    for (const Row &row : rows) {
        platform.reset();
        gKernel = {.reply = row.reply, .received = row.received, .sendResults = {}};
        platform.fail(row.reason, row.nth, row.failure);
        link = before;
        EXPECT_EQ(QX_PKT_TUNNEL_CreateLinkSocket(3, &link), row.result) << row.reason << row.nth;
        EXPECT_EQ(raw(link) == raw(before), row.result == 1) << row.reason << row.nth;
        EXPECT_EQ(platform.calls({"QX_OS_Close"}).size(), row.result) << row.reason << row.nth;
        // The summary comes last; a socket that could not be bound has none.
        const bool summed = row.reason != "QX_OS_Bind"s;
        const Call &closing = platform.journal.end()[summed ? -2 : -1];
        EXPECT_EQ(closing.function == "QX_OS_Close", row.result == 1) << row.reason << row.nth;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason << row.nth;
    }
    platform.reset();
    platform.fail("QX_OS_Socket", 1, -2);
    for (const auto &[type, into] : {std::pair{3U, &link}, {30U, &link}, {29U, nullptr}}) {
        EXPECT_EQ(QX_PKT_TUNNEL_CreateLinkSocket(type, into), 1U);
    }
    EXPECT_TRUE(platform.recorded(kFile, {{1, kMinusOne - 1}, {1, 30}, {1}}));
    EXPECT_EQ(platform.journal.size(), 4U) << "nothing is opened, nothing closed";
    EXPECT_EQ(platform.places.size(), 12U);
}

TEST_F(PktTunnel, SendsUntilAllIsOutOrAnErrorTellsOtherwise)
{
    const std::string five =
        "\x24\0\0\0\x1C\0\1\0\0\0\0\0"s + raw(kPort) + "\2\1\0\0\x0D\0\2\0\3\0\0\0hello\0\0\0"s;
    link.ulFamilyId = 0xABCD001C;
    for (const uint32_t size : {0U, 5U, 2048U}) {
        platform.reset();
        const std::string packet = "hello" + std::string(2043, 'p');
        EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, packet.data(), size), 0U);
        EXPECT_EQ(platform.journal, wholeSend(size == 5 ? five : packetOf(packet.substr(0, size)))) << size;
    }
    const Call whole = sending(five);
    const Call rest = sending(five.substr(10));
    struct Row {
        const char *reason;
        std::deque<int32_t> results;
        int32_t lastError;
        std::vector<Call> calls;
        std::vector<Values> records;
    };
    const Row rows[] = {
        {"more than all", {37}, EPERM, {whole}, {}},
        {"a part, two waits, the rest", {10, -1, 0, 26}, EAGAIN, {whole, rest, rest, rest}, {}},
        {"an error after a part", {10, -3}, EPERM, {whole, rest}, {{1, kMinusOne - 2}, {1}}},
        {"nothing taken and no reason to wait", {0}, EPERM, {whole}, {{1, 0}, {1}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        gKernel = {.reply = "", .received = {}, .sendResults = row.results, .lastError = row.lastError};
        EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, "hello", 5), row.records.empty() ? 0U : 1U) << row.reason;
        EXPECT_EQ(platform.calls({"QX_OS_Sendto"}), row.calls) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    platform.reset();
    gKernel = {.reply = "", .received = {}, .sendResults = std::deque(100000, -1), .lastError = EAGAIN};
    EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, "hello", 5), 0U) << "it never gives up";
    EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, five.data(), 2049), 1U);
    EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(&link, nullptr, 2049), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1, 2049}, {1}}));
}

TEST_F(PktTunnel, ShowsAPacketOnlyWhereOneWasReceived)
{
    constexpr uint32_t kUntouched = 4711;
    const std::string hundred = message(28, 2, attribute(2, std::string(100, 'p')));
    const auto lying = [](int lie) { return message(28, 2, attribute(2, std::string(100, 'p'), lie)); };
    struct Row {
        const char *reason;
        std::string bytes;
        uint32_t result;
        uint32_t length = kUntouched;
        std::vector<Values> records = {};
        uint32_t size = 2072;
        std::optional<int32_t> received = std::nullopt;
    };
    const Row rows[] = {
        {"a packet", hundred, 0, 100},
        {"an empty one", message(28, 2, attribute(2, "")), 0, 0},
        {"the largest one", message(28, 2, attribute(2, std::string(2048, 'p'))), 0, 2048},
        {"one as large as the buffer", hundred, 0, 100, {}, 124},
        {"a kernel's error", message(2, 2, std::string(16, '\0')), 36},
        {"a failed receive", hundred, kMinusOne, kUntouched, {}, 2072, -1},
        {"an empty message", hundred, 0, kUntouched, {}, 2072, 0},
        {"less than a header", hundred, 15, kUntouched, {}, 2072, 15},
        {"says less than a header", message(28, 2, attribute(2, ""), -9), 24},
        {"cut short", hundred, 123, kUntouched, {}, 2072, 123},
        {"another attribute", message(28, 2, attribute(3, "p")), 1, kUntouched, {{1, 3}}},
        {"none", message(28, 2, attribute(2, ""), -4), 1, kUntouched, {{1}}, 24, 20},
        {"longer than the buffer", lying(1), 1, 101, {{1, 101, 100}}, 124},
        {"longer than the buffer and what came", lying(9), 1, 109, {{1, 109, 106}}, 130},
        {"longer than what came", lying(1), 1, 101, {{1, 101, 100}}},
        {"shorter than its head", lying(-101), 1, kMinusOne, {{1, kMinusOne, 2048}}},
    };
    std::array<uint8_t, 2072> buffer;
    uint32_t length = 0;
    uint8_t *packet = nullptr;
    for (const Row &row : rows) {
        platform.reset();
        gKernel = {.reply = row.bytes, .received = row.received, .sendResults = {}};
        length = kUntouched;
        packet = nullptr;
        EXPECT_EQ(QX_PKT_TUNNEL_RecvPkgBuf(&link, buffer.data(), row.size, &packet, &length), row.result)
            << row.reason;
        EXPECT_EQ(length, row.length) << row.reason;
        EXPECT_EQ(packet, row.length == kUntouched ? nullptr : buffer.data() + 24) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
        EXPECT_EQ(platform.journal.front(), (Call{"QX_OS_Recv", {kFd, row.size, 0}, {}})) << row.reason;
    }
    platform.reset();
    const auto receive = QX_PKT_TUNNEL_RecvPkgBuf;
    EXPECT_EQ(receive(nullptr, buffer.data(), 24, &packet, &length), 1U);
    EXPECT_EQ(receive(&link, nullptr, 24, &packet, &length), 1U);
    EXPECT_EQ(receive(&link, buffer.data(), 24, nullptr, &length), 1U);
    EXPECT_EQ(receive(&link, buffer.data(), 24, &packet, nullptr), 1U);
    constexpr uint32_t kAny = kSomeAddress;
    EXPECT_TRUE(platform.recorded(kFile, {{1, 0, kAny, kAny, kAny},
                                          {1, kAny, 0, kAny, kAny},
                                          {1, kAny, kAny, 0, kAny},
                                          {1, kAny, kAny, kAny, 0}}));
    EXPECT_EQ(platform.journal.size(), 4U);
}

TEST_F(PktTunnel, ReleasesTheSocketAndLeavesTheDescriptor)
{
    EXPECT_EQ(QX_PKT_TUNNEL_ReleaseLinkSocket(kMinusOne, &link), 0U);
    EXPECT_EQ(link.lSockFd, kFd);
    platform.fail("QX_OS_Close", 1, -1);
    EXPECT_EQ(QX_PKT_TUNNEL_ReleaseLinkSocket(0, &link), 1U);
    EXPECT_EQ(QX_PKT_TUNNEL_ReleaseLinkSocket(0, nullptr), 1U);
    EXPECT_EQ(QX_PKT_TUNNEL_SendPkg(nullptr, "", 0), 1U);
    const Call closing = {"QX_OS_Close", {kFd}, {}};
    EXPECT_EQ(platform.journal, (std::vector<Call>{closing, closing, recordOf(kFile, {1, kMinusOne}),
                                                   recordOf(kFile, {1}), recordOf(kFile, {1})}));
}

} // namespace
