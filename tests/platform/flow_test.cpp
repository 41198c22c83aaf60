// Flows: all that follows from one command, in whichever processes; and peers that break the bus's rules.
#include "platform/linux/frame.h"
#include "tests/platform/bus_room.h"

#include <sys/socket.h>
#include <sys/un.h>

namespace {

using namespace zema::test;
namespace fs = std::filesystem;
using States = std::vector<uint32_t>;

// An own flow, of one command or event.
class Flow {
public:
    ~Flow() { QxHost_FlowClose(flow_); }
    Flow() = default;
    Flow(const Flow &) = delete;
    Flow &operator=(const Flow &) = delete;

    operator QxFlow *() const { return flow_; }
    uint32_t call(uint32_t word = 0) const { return QxHost_FlowCallRpc(flow_, kId, word, "x"); }
    uint32_t raise() const { return QxHost_FlowInvokeEvent(flow_, kEvent, "", 1); }
    // The states of these processes, of others 99.
    States statesOf(const std::vector<uint32_t> &pids) const
    {
        std::array<QxFlowPeer, 8> peers{};
        const uint32_t count = QxHost_FlowPeers(flow_, peers.data(), peers.size());
        States states(pids.size(), 99);
        for (uint32_t i = 0; i < count; ++i) {
            const auto at = std::find(pids.begin(), pids.end(), peers.at(i).ulPid) - pids.begin();
            states.at(static_cast<size_t>(at)) = peers.at(i).ulState;
        }
        return states;
    }

private:
    QxFlow *flow_ = QxHost_FlowOpen();
};

uint32_t printName(void *)
{
    QX_CLI_AsynPrint(3, "here ", 5);
    return 0;
}

TEST_F(Bus, FlowEndsWhenEveryProcessIsDoneWithWhatItPrintedBefore)
{
    const Child agent([] {
        serveRpc([](uint32_t callerWord, char *, uintptr_t, uintptr_t, uintptr_t) {
            QX_CLI_SynPrint(callerWord >> 16U, "\r\n", 2);
            return raiseEvent(4) + 42;
        });
    });
    const Child first([] { subscribe(printName); });
    const Child second([] { subscribe(printName); });
    ASSERT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr));
    for (int round = 0; round < 100; ++round) {
        memset(seen_->text, 0, sizeof seen_->text);
        const Flow flow;
        ASSERT_EQ(QX_OK, flow.call(3U << 16U));
        ASSERT_EQ(QX_OK, QxHost_FlowWait(flow, 5000));
        EXPECT_EQ(QX_OK, QxHost_FlowResult(flow, &result_));
        EXPECT_EQ(42U, result_);
        EXPECT_STREQ("\r\nhere here ", seen_->text);
        EXPECT_EQ((States{1, 1, 1}), flow.statesOf({agent.pid(), first.pid(), second.pid()}));
    }
}

TEST_F(Bus, FlowNamesTheProcessThatHangsAndNoticesItsDeathAtOnce)
{
    const Child well([] { subscribe(printName); });
    Child hung([] { subscribe([](void *) { return static_cast<uint32_t>(pause()); }); });
    ASSERT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr));
    const std::vector<uint32_t> pids{well.pid(), hung.pid()};
    const Flow flow;
    ASSERT_EQ(QX_OK, flow.raise());
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_FlowWait(flow, 200));
    EXPECT_EQ((States{QX_FLOW_DONE, QX_FLOW_WAITING}), flow.statesOf(pids));
    const auto start = steady_clock::now();
    std::thread killer([&] {
        std::this_thread::sleep_for(milliseconds(50));
        hung.end(SIGKILL);
    });
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 60'000));
    killer.join();
    EXPECT_LT(steady_clock::now() - start, milliseconds(10'000));
    EXPECT_EQ((States{QX_FLOW_DONE, QX_FLOW_DIED}), flow.statesOf(pids));
    EXPECT_EQ(QX_ERR_NOT_FOUND, QxHost_FlowResult(flow, &result_));
    EXPECT_EQ(77U, result_);
}

// Raises an event, says that it is done, and ends; or dies without a word.
uint32_t raiseAndEnd(uint32_t dies, char *, uintptr_t, uintptr_t, uintptr_t)
{
    raiseEvent(4);
    if (dies != 0) {
        eventually([] { return gSeen->count == 1; });
        raise(SIGKILL);
    }
    QxHost_Stop();
    return 0;
}

TEST_F(Bus, FlowGoesOnAfterTheEndOfTheProcessThatSpreadIt)
{
    for (const uint32_t dies : {0U, 1U}) {
        seen_->count = 0;
        const Child receiver([] {
            subscribe([](void *) {
                std::this_thread::sleep_for(milliseconds(200));
                return ++gSeen->count;
            });
        });
        const Child callee([] { serveRpc(raiseAndEnd); });
        const Flow flow;
        const auto start = steady_clock::now();
        ASSERT_EQ(QX_OK, flow.call(dies));
        EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 10'000));
        EXPECT_EQ(1U, seen_->count) << "before the receiver was done";
        EXPECT_LT(steady_clock::now() - start, milliseconds(5000)) << "nobody can announce it";
    }
}

TEST_F(Bus, FlowCountsAsMuchAsAHandlerSends)
{
    constexpr uint32_t kMany = 20'000;
    const Child receiver([] { subscribe(countEvent); });
    const Child callee([] {
        serveRpc([](uint32_t, char *, uintptr_t, uintptr_t, uintptr_t) {
            uint32_t result = QX_OK;
            for (uint32_t i = 0; i < kMany; ++i) {
                result |= raiseEvent(0);
            }
            return result;
        });
    });
    const Flow flow;
    ASSERT_EQ(QX_OK, flow.call());
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 60'000));
    EXPECT_EQ(kMany, seen_->count);
}

TEST_F(Bus, FlowWithoutAnyoneToGoToSaysSo)
{
    const Flow flow;
    EXPECT_EQ(QX_ERR_NOBODY, flow.call());
    EXPECT_EQ(QX_OK, flow.raise());
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 5000));
    EXPECT_EQ(0U, QxHost_FlowPeers(flow, nullptr, 0));
}

// ---- Hostile peers ----

constexpr size_t kHead = sizeof(qx::FrameHeader);

// A bare connection to the only process on the bus, as one that does not keep its rules would make it.
int rawConnection(const std::string &dir)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    for (const auto &entry : fs::directory_iterator(dir + "/bus")) {
        strncpy(address.sun_path, entry.path().c_str(), sizeof address.sun_path - 1);
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    return connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 ? fd : -1;
}

// Whether a call with a header of that kind and so many bytes of payload is answered by the connection's end.
bool isHungUpOn(int fd, const qx::FrameHeader &header, size_t size)
{
    std::vector<char> bytes(size, 'x');
    memcpy(bytes.data(), &header, std::min(size, kHead));
    (void)send(fd, bytes.data(), size, MSG_NOSIGNAL); // the end may have come before
    const bool ends = recv(fd, bytes.data(), 1, 0) <= 0;
    close(fd);
    return fd >= 0 && ends;
}

TEST_F(Bus, FramesThatBreakTheRulesCloseTheirConnectionAndStopNobody)
{
    const Child child([] { serveRpc(answer, 9); });
    struct Row {
        const char *reason;
        void (*spoil)(qx::FrameHeader &);
        size_t size = kHead + 8; // of the whole frame
    };
    using enum qx::FrameKind;
    const Row rows[] = {
        {"nothing but one byte", [](auto &) {}, 1},
        {"a header cut short", [](auto &) {}, kHead - 1},
        {"a header without the payload that it promises", [](auto &) {}, kHead},
        {"more payload than it promises", [](auto &h) { h.length = 2; }},
        {"a length near the end of numbers", [](auto &h) { h.length = 0xFFFFFFFF; }},
        {"another magic", [](auto &h) { h.magic ^= 1; }},
        {"another version", [](auto &h) { h.version = 2; }},
        {"a kind below the first", [](auto &h) { h.kind = static_cast<qx::FrameKind>(0); }},
        {"a kind behind the last", [](auto &h) { h.kind = static_cast<qx::FrameKind>(99); }},
        {"a reply to nothing", [](auto &h) { h.kind = reply; }},
        {"a text without its zero", [](auto &) {}},
        {"an HLP message of eight bytes", [](auto &h) { h.kind = hlp; }},
        {"a word of a flow of somebody else", [](auto &h) { h.kind = done; }},
        {"larger than any frame", [](auto &h) { h.length = 150'000; }, kHead + 150'000},
    };
    for (const Row &row : rows) {
        qx::FrameHeader header = qx::frameOf(rpc, kId);
        header.length = 8;
        row.spoil(header);
        EXPECT_TRUE(isHungUpOn(rawConnection(dir_), header, row.size)) << row.reason;
    }
    const int silent = rawConnection(dir_);
    EXPECT_EQ(QX_OK, call("x")) << "one that says nothing stops nobody";
    EXPECT_EQ(1U, seen_->count) << "none of them was handled";
    close(silent);
}

TEST_F(Bus, WhatWasSentToACrowdedProcessWaitsAndIsNotLost)
{
    const Child child([] {
        serveRpc(answer, 9);
        subscribe(countEvent);
    });
    std::vector<int> crowd(560);
    std::generate(crowd.begin(), crowd.end(), [&] { return rawConnection(dir_); });
    EXPECT_EQ(QX_OK, raiseEvent(0));
    QxHost_SetTimeout(300);
    EXPECT_EQ(QX_ERR_TIMEOUT, call("x")) << "beyond the limit nobody is served";
    std::for_each(crowd.begin(), crowd.end(), close);
    EXPECT_TRUE(eventually([&] { return call("x") == QX_OK; }));
    EXPECT_TRUE(eventually([&] { return seen_->byProcess[0] == 1; })) << "the event was taken for delivered";
}

TEST_F(Bus, AnotherUserIsNotListenedTo)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const Child child([] { serveRpc(answer, 9); });
    for (const auto &entry : fs::directory_iterator(dir_ + "/bus")) {
        fs::permissions(entry, fs::perms::all);
    }
    fs::permissions(dir_, fs::perms::all);
    fs::permissions(dir_ + "/bus", fs::perms::all);
    EXPECT_TRUE(inChild([&] {
        qx::FrameHeader header = qx::frameOf(qx::FrameKind::rpc, kId);
        header.length = 1;
        return setgid(65534) == 0 && setuid(65534) == 0 && isHungUpOn(rawConnection(dir_), header, kHead + 1);
    }));
    EXPECT_EQ(0U, seen_->count);
}

} // namespace
