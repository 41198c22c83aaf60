#include "qx/qx.h"
#include "tests/support/processes.h"

#include "platform/linux/frame.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/un.h>
#include <vector>

namespace {

using namespace zema::test;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
namespace fs = std::filesystem;

constexpr uint32_t kId = 0x4830514F;
constexpr uint32_t kEvent = 8853;

struct Seen {
    std::atomic<uint32_t> count{0};
    std::array<std::atomic<uint32_t>, 16> byProcess{};
    std::atomic<uint32_t> word{0};
    char text[4096]{};
};
Seen *gSeen = nullptr;
uint32_t gSelf = 0; // this child's place in byProcess
uint32_t gAnswer = 0;

uint32_t answer(uint32_t callerWord, char *text, uintptr_t, uintptr_t, uintptr_t)
{
    gSeen->count++;
    gSeen->word = callerWord;
    snprintf(gSeen->text, sizeof gSeen->text, "%s", text);
    text[0] = '#'; // the text is the callee's to change
    return gAnswer;
}

uint32_t neverAnswer(uint32_t, char *, uintptr_t, uintptr_t, uintptr_t)
{
    gSeen->count++;
    pause();
    return 0;
}

uint32_t countEvent(void *)
{
    gSeen->count++;
    gSeen->byProcess.at(gSelf)++;
    return 1; // a handler's result is its own
}

uint32_t keepText(void *, const QxPrint *print)
{
    const size_t used = strlen(gSeen->text);
    memcpy(gSeen->text + used, print->pcBytes,
           std::min<size_t>(print->ulSize, sizeof gSeen->text - used - 1));
    gSeen->word = print->ulPid;
    gSeen->count++;
    return 0;
}

void serveRpc(QxRpcHandler handler, uint32_t result)
{
    gAnswer = result;
    const std::array<QxRpcRow, 2> rows{{{kId, handler}, {QX_RPC_END_OF_TABLE, nullptr}}};
    EXPECT_EQ(QX_OK, QX_MSG_RegOverWriteRpcCalls(rows.data()));
}

size_t filesIn(const std::string &dir)
{
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

class Bus : public Scratch {
protected:
    Bus() { gSeen = &*seen_; }
    Shared<Seen> seen_;
};

// ---- Remote procedures ----

TEST_F(Bus, CallReachesAnotherProcessAndBringsItsResult)
{
    const Child child([] { serveRpc(answer, 0xF7202001); });
    uint32_t result = 0;
    ASSERT_EQ(QX_OK, QxHost_CallRpc(kId, 0x30000, "fw show all", &result));
    EXPECT_EQ(0xF7202001U, result);
    EXPECT_EQ(0x30000U, seen_->word);
    EXPECT_STREQ("fw show all", seen_->text);
}

TEST_F(Bus, CallOfOwnProcedureIsAPlainCallOnACopy)
{
    serveRpc(answer, 7);
    const std::string text = "fw show all";
    uint32_t result = 0;
    ASSERT_EQ(QX_OK, QxHost_CallRpc(kId, 1, text.c_str(), &result));
    EXPECT_EQ(7U, result);
    EXPECT_EQ("fw show all", text);
}

TEST_F(Bus, EarliestRegistrationAnswersAndTheNextAfterItsDeath)
{
    Child first([] { serveRpc(answer, 1); });
    const Child second([] { serveRpc(answer, 2); });
    const Child third([] {
        serveRpc(answer, 4);
        serveRpc(answer, 3); // replaces the process's own
    });
    uint32_t result = 0;
    ASSERT_EQ(QX_OK, QxHost_CallRpc(kId, 0, "", &result));
    EXPECT_EQ(1U, result);
    first.end(SIGKILL);
    ASSERT_EQ(QX_OK, QxHost_CallRpc(kId, 0, "", &result));
    EXPECT_EQ(2U, result);
    second.tell(SIGKILL);
    EXPECT_TRUE(eventually([&] { return QxHost_CallRpc(kId, 0, "", &result) == QX_OK && result == 3; }));
}

TEST_F(Bus, CallFailsInBoundedTimeAndLeavesTheResultAlone)
{
    uint32_t result = 77;
    EXPECT_EQ(QX_ERR_NOBODY, QxHost_CallRpc(kId, 0, "", &result));
    EXPECT_EQ(QX_ERR, QxHost_CallRpc(kId, 0, nullptr, &result));
    QxHost_SetTimeout(200);
    Child child([] { serveRpc(neverAnswer, 0); });
    EXPECT_EQ(QX_ERR_TOO_LARGE, QxHost_CallRpc(kId, 0, std::string(200'000, 'x').c_str(), &result));
    const auto start = steady_clock::now();
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_CallRpc(kId, 0, "", &result));
    EXPECT_GE(steady_clock::now() - start, milliseconds(190));
    EXPECT_LT(steady_clock::now() - start, milliseconds(3000));
    QxHost_SetTimeout(0);
    std::thread killer([&] {
        EXPECT_TRUE(eventually([&] { return seen_->count >= 1; }));
        std::this_thread::sleep_for(milliseconds(50));
        child.end(SIGKILL);
    });
    const uint32_t died = QxHost_CallRpc(kId, 0, "", &result);
    killer.join();
    EXPECT_EQ(QX_ERR_PEER_GONE, died);
    EXPECT_LT(steady_clock::now() - start, milliseconds(4500)) << "a death is noticed, not timed out";
    EXPECT_EQ(77U, result);
}

TEST_F(Bus, RegistrationIsAllOrNothing)
{
    chmod(dir_.c_str(), 0755);
    const std::array<QxRpcRow, 2> rows{{{kId, answer}, {QX_RPC_END_OF_TABLE, nullptr}}};
    EXPECT_EQ(QX_ERR_RUNTIME_DIR, QX_MSG_RegOverWriteRpcCalls(rows.data())) << "open to other users";
    EXPECT_EQ(QX_ERR_RUNTIME_DIR, EventCenter_SubscribeEvent(kEvent, countEvent));
    EXPECT_EQ(-1, QxHost_Fd());
    chmod(dir_.c_str(), 0700);
    uint32_t result = 0;
    EXPECT_EQ(QX_ERR_NOBODY, QxHost_CallRpc(kId, 0, "", &result)) << "nothing was kept of the failed ones";
}

// ---- Events ----

TEST_F(Bus, EventReachesEveryProcessOnceAndThisOneToo)
{
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 1; i <= 8; ++i) {
        children.push_back(std::make_unique<Child>([i] {
            gSelf = i;
            EventCenter_SubscribeEvent(kEvent, countEvent);
            EventCenter_SubscribeEvent(kEvent, countEvent); // a pair counts once
        }));
    }
    gSelf = 0;
    ASSERT_EQ(QX_OK, EventCenter_SubscribeEvent(kEvent, countEvent));
    std::array<char, 260> data{};
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), data.size()));
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent + 1, data.data(), data.size()))
        << "nobody wants it";
    EXPECT_TRUE(eventually([&] { return seen_->count == 9; }));
    children[2]->end(SIGKILL);
    ASSERT_EQ(QX_OK, EventCenter_RemoveEvent(kEvent, countEvent));
    EXPECT_EQ(QX_ERR_NOT_FOUND, EventCenter_RemoveEvent(kEvent, countEvent));
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), data.size()))
        << "a dead one wants none";
    EXPECT_TRUE(eventually([&] { return seen_->count == 16; }));
    for (uint32_t i = 0; i <= 8; ++i) {
        EXPECT_EQ(i == 0 || i == 3 ? 1U : 2U, seen_->byProcess.at(i)) << i;
    }
}

uint32_t lookBehind(void *data)
{
    const auto *const bytes = static_cast<const char *>(data);
    gSeen->word = bytes == nullptr ? 0 : static_cast<uint32_t>(std::count(bytes, bytes + 1000, '\0'));
    gSeen->count++;
    return 0;
}

TEST_F(Bus, NothingStaleStandsBehindAShortEvent)
{
    const Child child([] { EventCenter_SubscribeEvent(kEvent, lookBehind); });
    std::string data(2000, 'x');
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 2000));
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 3));
    ASSERT_TRUE(eventually([&] { return seen_->count == 2; }));
    EXPECT_EQ(997U, seen_->word);
}

TEST_F(Bus, HungProcessCostsItsTimeOnceAndTheOthersNothing)
{
    QxHost_SetTimeout(300);
    Child hung([] {
        gSelf = 1;
        EventCenter_SubscribeEvent(kEvent, countEvent);
    });
    const Child well([] {
        gSelf = 2;
        EventCenter_SubscribeEvent(kEvent, countEvent);
    });
    hung.tell(SIGSTOP);
    std::vector<char> data(60'000);
    uint32_t sent = 0;
    uint32_t result = QX_OK;
    while (result == QX_OK && sent < 1000) {
        result = EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 60'000);
        ++sent;
    }
    EXPECT_EQ(QX_ERR_TIMEOUT, result) << "what could not be handed over must fail the call";
    const auto start = steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(QX_ERR_TIMEOUT, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 60'000));
    }
    EXPECT_LT(steady_clock::now() - start, milliseconds(300)) << "only the first one waits";
    hung.tell(SIGCONT);
    EXPECT_TRUE(
        eventually([&] { return seen_->byProcess[1] == sent - 1 && seen_->byProcess[2] == sent + 10; }));
    EXPECT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 60'000)) << "it takes frames again";
}

// ---- Terminals and the kernel's side ----

TEST_F(Bus, PrintsArriveInOrderAndSynchronousOnesAreWrittenOnReturn)
{
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_AsynPrint(3, "a", 1));
    const Child child([] { EXPECT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr)); });
    std::string wanted;
    for (int i = 0; i < 50; ++i) {
        const std::string piece = std::to_string(i) + ".";
        ASSERT_EQ(QX_OK, QX_CLI_AsynPrint(i % 3 == 0 ? 0xFFFF : 3, piece.data(),
                                          static_cast<uint32_t>(piece.size())));
        wanted += piece;
    }
    ASSERT_EQ(QX_OK, QX_CLI_SynPrint(3, "end", 3));
    EXPECT_EQ(wanted + "end", seen_->text);
    EXPECT_EQ(static_cast<uint32_t>(getpid()), seen_->word);
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_SynPrint(4, "a", 1));
    EXPECT_EQ(QX_ERR, QX_CLI_SynPrint(3, nullptr, 1));
}

TEST_F(Bus, OwnTerminalIsWrittenAtOnce)
{
    ASSERT_EQ(QX_OK, QxHost_ServeTerminal(5, keepText, nullptr));
    EXPECT_EQ(QX_OK, QX_CLI_SynPrint(5, "now", 3));
    EXPECT_STREQ("now", seen_->text);
    EXPECT_EQ(QX_OK, QxHost_ServeTerminal(5, nullptr, nullptr));
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_AsynPrint(5, "x", 1));
    EXPECT_EQ(QX_ERR, QxHost_ServeTerminal(0xFFFF, keepText, nullptr)) << "all of them is no terminal";
}

uint32_t keepMessage(void *, const void *message, uint32_t size)
{
    memcpy(gSeen->text, message, size);
    gSeen->word = size;
    gSeen->count++;
    return 0;
}

TEST_F(Bus, HlpMessageReachesTheKernelsSideWhole)
{
    std::array<std::byte, 5 + QX_HLP_OVERHEAD> message{};
    EXPECT_EQ(QX_ERR, QX_OS_HLP_Send(message.data(), 0, 0)) << "not initialised";
    EXPECT_EQ(QX_ERR, QX_OS_AddTlvToHlpMsg(message.data(), 2, 5, "value"));
    ASSERT_EQ(QX_OK, QX_OS_InitHlpMsg(message.data(), 0, 0x2002A002, 11, 12));
    ASSERT_EQ(QX_OK, QX_OS_AddTlvToHlpMsg(message.data(), 2, 5, "value"));
    EXPECT_EQ(QX_ERR_NOBODY, QX_OS_HLP_Send(message.data(), 0, 0));
    Child kernel([] { EXPECT_EQ(QX_OK, QxHost_ServeKernel(keepMessage, nullptr)); });
    EXPECT_EQ(QX_ERR_TAKEN, QxHost_ServeKernel(keepMessage, nullptr));
    ASSERT_EQ(QX_OK, QX_OS_HLP_Send(message.data(), 21, 22));
    ASSERT_TRUE(eventually([&] { return seen_->count == 1; }));
    QxHlpHeader header{};
    QxHlpTlv item{};
    memcpy(&header, seen_->text, sizeof header);
    memcpy(&item, seen_->text + sizeof header, sizeof item);
    EXPECT_EQ(57U, seen_->word);
    EXPECT_EQ(0x2002A002U, header.ulType);
    EXPECT_EQ((std::array{11U, 12U, 57U, static_cast<uint32_t>(getpid()), 21U, 22U}),
              (std::array{header.ulPara1, header.ulPara2, header.ulSize, header.ulSenderPid, header.ulOption1,
                          header.ulOption2}));
    EXPECT_EQ(2, item.ucType);
    EXPECT_EQ(5, item.usSize);
    EXPECT_EQ(0, memcmp("value", seen_->text + sizeof header + sizeof item, 5));
    kernel.end(SIGKILL);
    EXPECT_EQ(QX_OK, QxHost_ServeKernel(keepMessage, nullptr)) << "a dead one's place is free";
}

// ---- Flows ----

uint32_t raiseAndPrint(uint32_t callerWord, char *, uintptr_t, uintptr_t, uintptr_t)
{
    char data[4] = {};
    QX_CLI_SynPrint(callerWord >> 16, "\r\n", 2);
    EventCenter_GlobalInvokeEvent2(kEvent, data, sizeof data);
    return 42;
}

uint32_t printName(void *)
{
    QX_CLI_AsynPrint(3, "here ", 5);
    return 0;
}

uint32_t printAndHang(void *)
{
    gSeen->count++;
    pause();
    return 0;
}

std::vector<uint32_t> statesOf(const QxFlow *flow, const std::vector<uint32_t> &pids)
{
    std::array<QxFlowPeer, 8> peers{};
    const uint32_t count = QxHost_FlowPeers(flow, peers.data(), peers.size());
    std::vector<uint32_t> states;
    for (const uint32_t pid : pids) {
        const auto *const end = peers.data() + count;
        const auto *const peer = std::find_if(static_cast<const QxFlowPeer *>(peers.data()), end,
                                              [&](const QxFlowPeer &each) { return each.ulPid == pid; });
        states.push_back(peer == end ? 99 : peer->ulState);
    }
    return states;
}

TEST_F(Bus, FlowEndsWhenEveryProcessIsDoneWithWhatItPrintedBefore)
{
    const Child agent([] { serveRpc(raiseAndPrint, 0); });
    const Child first([] { EventCenter_SubscribeEvent(kEvent, printName); });
    const Child second([] { EventCenter_SubscribeEvent(kEvent, printName); });
    ASSERT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr));
    for (int round = 0; round < 100; ++round) {
        memset(seen_->text, 0, sizeof seen_->text);
        QxFlow *const flow = QxHost_FlowOpen();
        uint32_t result = 0;
        ASSERT_EQ(QX_OK, QxHost_FlowCallRpc(flow, kId, 3U << 16, "x"));
        ASSERT_EQ(QX_OK, QxHost_FlowWait(flow, 5000));
        EXPECT_EQ(QX_OK, QxHost_FlowResult(flow, &result));
        EXPECT_EQ(42U, result);
        EXPECT_STREQ("\r\nhere here ", seen_->text);
        EXPECT_EQ((std::vector<uint32_t>{1, 1, 1}), statesOf(flow, {agent.pid(), first.pid(), second.pid()}));
        QxHost_FlowClose(flow);
    }
}

TEST_F(Bus, FlowNamesTheProcessThatHangsAndNoticesItsDeathAtOnce)
{
    const Child well([] { EventCenter_SubscribeEvent(kEvent, printName); });
    Child hung([] { EventCenter_SubscribeEvent(kEvent, printAndHang); });
    ASSERT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr));
    QxFlow *const flow = QxHost_FlowOpen();
    ASSERT_EQ(QX_OK, QxHost_FlowInvokeEvent(flow, kEvent, "", 1));
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_FlowWait(flow, 200));
    EXPECT_EQ((std::vector<uint32_t>{QX_FLOW_DONE, QX_FLOW_WAITING}),
              statesOf(flow, {well.pid(), hung.pid()}));
    const uint32_t pid = hung.pid();
    const auto start = steady_clock::now();
    std::thread killer([&] {
        std::this_thread::sleep_for(milliseconds(50));
        hung.end(SIGKILL);
    });
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 60'000));
    killer.join();
    EXPECT_LT(steady_clock::now() - start, milliseconds(10'000));
    EXPECT_EQ((std::vector<uint32_t>{QX_FLOW_DONE, QX_FLOW_DIED}), statesOf(flow, {well.pid(), pid}));
    uint32_t result = 5;
    EXPECT_EQ(QX_ERR_NOT_FOUND, QxHost_FlowResult(flow, &result));
    EXPECT_EQ(5U, result);
    QxHost_FlowClose(flow);
}

// The callee raises an event, says that it is done, and ends; the receiver works on.
uint32_t raiseAndEnd(uint32_t, char *, uintptr_t, uintptr_t, uintptr_t)
{
    char data[4] = {};
    EventCenter_GlobalInvokeEvent2(kEvent, data, sizeof data);
    QxHost_Stop();
    return 0;
}

uint32_t workForAWhile(void *)
{
    std::this_thread::sleep_for(milliseconds(200));
    gSeen->count++;
    return 0;
}

// It dies without a word, though it raised an event.
uint32_t raiseAndDie(uint32_t, char *, uintptr_t, uintptr_t, uintptr_t)
{
    char data[4] = {};
    EventCenter_GlobalInvokeEvent2(kEvent, data, sizeof data);
    eventually([] { return gSeen->count == 1; });
    raise(SIGKILL);
    return 0;
}

TEST_F(Bus, FlowGoesOnAfterTheEndOfTheProcessThatSpreadIt)
{
    for (const QxRpcHandler handler : {raiseAndEnd, raiseAndDie}) {
        seen_->count = 0;
        const Child receiver([] { EventCenter_SubscribeEvent(kEvent, workForAWhile); });
        const Child callee([&] { serveRpc(handler, 0); });
        QxFlow *const flow = QxHost_FlowOpen();
        const auto start = steady_clock::now();
        ASSERT_EQ(QX_OK, QxHost_FlowCallRpc(flow, kId, 0, "x"));
        EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 10'000));
        EXPECT_EQ(1U, seen_->count) << "before the receiver was done";
        EXPECT_LT(steady_clock::now() - start, milliseconds(5000))
            << "what nobody can announce is not waited for";
        QxHost_FlowClose(flow);
    }
}

uint32_t raiseOften(uint32_t, char *, uintptr_t, uintptr_t, uintptr_t)
{
    for (int i = 0; i < 20'000; ++i) {
        EventCenter_GlobalInvokeEvent2(kEvent, nullptr, 0);
    }
    return 0;
}

TEST_F(Bus, FlowCountsAsMuchAsAHandlerSends)
{
    const Child receiver([] { EventCenter_SubscribeEvent(kEvent, countEvent); });
    const Child callee([] { serveRpc(raiseOften, 0); });
    QxFlow *const flow = QxHost_FlowOpen();
    ASSERT_EQ(QX_OK, QxHost_FlowCallRpc(flow, kId, 0, "x"));
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 60'000));
    EXPECT_EQ(20'000U, seen_->count);
    QxHost_FlowClose(flow);
}

TEST_F(Bus, FlowWithoutAnyoneToGoToSaysSo)
{
    QxFlow *const flow = QxHost_FlowOpen();
    EXPECT_EQ(QX_ERR_NOBODY, QxHost_FlowCallRpc(flow, kId, 0, "x"));
    EXPECT_EQ(QX_OK, QxHost_FlowInvokeEvent(flow, kEvent, "", 1));
    EXPECT_EQ(QX_OK, QxHost_FlowWait(flow, 5000));
    EXPECT_EQ(0U, QxHost_FlowPeers(flow, nullptr, 0));
    QxHost_FlowClose(flow);
}

// ---- Hostile peers ----

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

struct BadFrame {
    const char *why;
    std::function<void(qx::FrameHeader &)> spoil;
    size_t size; // of the whole frame
};

TEST_F(Bus, FramesThatBreakTheRulesCloseTheirConnectionAndStopNobody)
{
    const Child child([] { serveRpc(answer, 9); });
    constexpr size_t kHead = sizeof(qx::FrameHeader);
    const auto keep = [](qx::FrameHeader &) {};
    const std::vector<BadFrame> frames{
        {"nothing but one byte", keep, 1},
        {"a header cut short", keep, kHead - 1},
        {"a header without the payload that it promises", keep, kHead},
        {"more payload than it promises", [](auto &h) { h.length = 2; }, kHead + 8},
        {"a length near the end of numbers", [](auto &h) { h.length = 0xFFFFFFFF; }, kHead + 8},
        {"another magic", [](auto &h) { h.magic ^= 1; }, kHead + 8},
        {"another version", [](auto &h) { h.version = 2; }, kHead + 8},
        {"a kind below the first", [](auto &h) { h.kind = static_cast<qx::FrameKind>(0); }, kHead + 8},
        {"a kind behind the last", [](auto &h) { h.kind = static_cast<qx::FrameKind>(99); }, kHead + 8},
        {"a reply to nothing", [](auto &h) { h.kind = qx::FrameKind::reply; }, kHead + 8},
        {"a text without its zero", keep, kHead + 8},
        {"an HLP message of eight bytes", [](auto &h) { h.kind = qx::FrameKind::hlp; }, kHead + 8},
        {"a word of a flow of somebody else", [](auto &h) { h.kind = qx::FrameKind::done; }, kHead + 8},
        {"larger than any frame", [](auto &h) { h.length = 150'000; }, kHead + 150'000},
    };
    for (const BadFrame &row : frames) {
        SCOPED_TRACE(row.why);
        const int fd = rawConnection(dir_);
        ASSERT_GE(fd, 0);
        qx::FrameHeader header = qx::frameOf(qx::FrameKind::rpc, kId);
        header.length = 8;
        row.spoil(header);
        std::vector<char> bytes(row.size, 'x');
        memcpy(bytes.data(), &header, std::min(bytes.size(), kHead));
        ASSERT_EQ(static_cast<ssize_t>(bytes.size()), send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
        char byte = 0;
        EXPECT_EQ(0, recv(fd, &byte, 1, 0)) << "closed without a reply";
        close(fd);
    }
    const int silent = rawConnection(dir_);
    uint32_t result = 0;
    EXPECT_EQ(QX_OK, QxHost_CallRpc(kId, 0, "x", &result)) << "one that says nothing stops nobody";
    EXPECT_EQ(1U, seen_->count) << "none of them was handled";
    close(silent);
}

TEST_F(Bus, WhatWasSentToACrowdedProcessWaitsAndIsNotLost)
{
    Child child([] {
        serveRpc(answer, 9);
        EventCenter_SubscribeEvent(kEvent, countEvent);
    });
    std::vector<int> crowd(560);
    for (int &fd : crowd) {
        fd = rawConnection(dir_);
    }
    EXPECT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, nullptr, 0));
    QxHost_SetTimeout(300);
    uint32_t result = 0;
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_CallRpc(kId, 0, "x", &result)) << "beyond the limit nobody is served";
    for (const int fd : crowd) {
        close(fd);
    }
    EXPECT_TRUE(eventually([&] { return QxHost_CallRpc(kId, 0, "x", &result) == QX_OK; }));
    EXPECT_TRUE(eventually([&] { return seen_->byProcess[0] == 1; })) << "the event was taken for delivered";
}

TEST_F(Bus, AnotherUserIsNotListenedTo)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can become another user";
    }
    const Child child([] { serveRpc(answer, 9); });
    fs::permissions(dir_, fs::perms::all);
    fs::permissions(dir_ + "/bus", fs::perms::all);
    for (const auto &entry : fs::directory_iterator(dir_ + "/bus")) {
        fs::permissions(entry.path(), fs::perms::all);
    }
    const pid_t stranger = fork();
    if (stranger == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0) {
            _exit(3);
        }
        const int fd = rawConnection(dir_);
        qx::FrameHeader header = qx::frameOf(qx::FrameKind::rpc, kId);
        std::array<char, sizeof header + 1> bytes{};
        header.length = 1;
        memcpy(bytes.data(), &header, sizeof header);
        char byte = 0;
        send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        _exit(fd >= 0 && recv(fd, &byte, 1, 0) <= 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(stranger, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(0U, seen_->count);
}

// ---- Coming and going ----

TEST_F(Bus, ProcessThatEndsLeavesNothingAndOneThatIsKilledIsCleanedUpByWhoMeetsIt)
{
    Child tidy([] { serveRpc(answer, 1); });
    EXPECT_EQ(0, tidy.end(SIGTERM));
    EXPECT_EQ(0U, filesIn(dir_ + "/bus") + filesIn(dir_ + "/roles"));
    Child killed([] {
        serveRpc(answer, 1);
        EventCenter_SubscribeEvent(kEvent, countEvent);
    });
    std::ofstream(dir_ + "/roles/rpc-4830514F.garbage").put('x');
    std::ofstream(dir_ + "/roles/rpc-4830514F.00000000000000ff.1-00000001x").put('x');
    killed.end(SIGKILL);
    EXPECT_EQ(4U, filesIn(dir_ + "/roles"));
    uint32_t result = 0;
    EXPECT_EQ(QX_ERR_NOBODY, QxHost_CallRpc(kId, 0, "", &result));
    EXPECT_EQ(2U, filesIn(dir_ + "/roles")) << "all that it left, but nothing that is not the bus's";
    EXPECT_EQ(0U, filesIn(dir_ + "/bus"));
    Child roleless([] { QxHost_Fd(); });
    roleless.end(SIGKILL);
    EXPECT_EQ(1U, filesIn(dir_ + "/bus")) << "nobody looks for it";
    QxHost_Leave();
    EXPECT_GE(QxHost_Fd(), 0);
    EXPECT_EQ(1U, filesIn(dir_ + "/bus")) << "but the next one that joins, whose own this is";
}

TEST_F(Bus, ForkedChildStandsOnItsOwn)
{
    serveRpc(answer, 5);
    const int fd = QxHost_Fd();
    const pid_t child = fork();
    if (child == 0) {
        uint32_t result = 0;
        const bool anew = QxHost_Fd() >= 0 && fcntl(fd, F_GETFD) != -2;
        // The procedure is the parent's, so this is a call across processes that the parent does not serve
        // now.
        QxHost_SetTimeout(100);
        _exit(anew && QxHost_CallRpc(kId, 0, "", &result) == QX_ERR_TIMEOUT && QxHost_Leave() == QX_OK ? 0
                                                                                                       : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
    EXPECT_EQ(1U, filesIn(dir_ + "/bus")) << "the child's end removed only its own";
    EXPECT_EQ(1U, filesIn(dir_ + "/roles"));
}

// Calls what a forked child may call, and returns from the handler in the child too.
uint32_t forkInHandler(uint32_t, char *text, uintptr_t, uintptr_t, uintptr_t)
{
    const pid_t child = fork();
    if (child == 0) {
        gSeen->word = static_cast<uint32_t>(strlen(text)); // still there
        return 1;
    }
    int status = -1;
    waitpid(child, &status, 0);
    return static_cast<uint32_t>(status);
}

TEST_F(Bus, ChildForkedInAHandlerReturnsFromItAndAnswersNobody)
{
    const Child server([] { serveRpc(forkInHandler, 0); });
    uint32_t result = 99;
    for (int round = 0; round < 3; ++round) {
        ASSERT_EQ(QX_OK, QxHost_CallRpc(kId, 0, "text", &result));
        EXPECT_EQ(0U, result) << "the child's end";
    }
    EXPECT_EQ(4U, seen_->word);
}

TEST_F(Bus, SignalsDoNotStretchTheTimeLimit)
{
    Child hung([] {
        serveRpc(answer, 0);
        EventCenter_SubscribeEvent(kEvent, countEvent);
    });
    hung.tell(SIGSTOP);
    QxHost_SetTimeout(400);
    signal(SIGALRM, [](int) {});
    const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 50'000},
                          .it_value = {.tv_sec = 0, .tv_usec = 50'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    const auto start = steady_clock::now();
    uint32_t result = 0;
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_CallRpc(kId, 0, "x", &result));
    std::vector<char> data(60'000);
    uint32_t raised = QX_OK;
    for (int i = 0; raised == QX_OK && i < 100; ++i) {
        raised = EventCenter_GlobalInvokeEvent2(kEvent, data.data(), 60'000);
    }
    EXPECT_EQ(QX_ERR_TIMEOUT, raised);
    EXPECT_LT(steady_clock::now() - start, milliseconds(2500));
    const itimerval never{};
    setitimer(ITIMER_REAL, &never, nullptr);
}

TEST_F(Bus, DirectoryMadeAnewIsNoticed)
{
    ASSERT_EQ(QX_OK, EventCenter_SubscribeEvent(kEvent, countEvent));
    fs::remove_all(dir_);
    fs::create_directory(dir_);
    fs::permissions(dir_, fs::perms::owner_all);
    EXPECT_TRUE(
        eventually([] { return EventCenter_GlobalInvokeEvent2(kEvent, nullptr, 0) == QX_ERR_RUNTIME_DIR; }));
}

TEST_F(Bus, DispatchTellsWhyItEnds)
{
    QxHost_Stop();
    EXPECT_EQ(QX_ERR_STOPPED, QxHost_Dispatch(-1)) << "asked for before the bus was joined";
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_Dispatch(0));
    QxHost_Stop();
    EXPECT_EQ(QX_ERR_STOPPED, QxHost_Dispatch(-1));
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_Dispatch(1)) << "a stop ends one wait";
    ASSERT_EQ(QX_OK, EventCenter_SubscribeEvent(kEvent, [](void *) -> uint32_t {
                  gSeen->word = QxHost_Dispatch(0);
                  gSeen->count = QxHost_Leave();
                  return 0;
              }));
    const pid_t sender = fork();
    if (sender == 0) {
        _exit(EventCenter_GlobalInvokeEvent2(kEvent, nullptr, 0) == QX_OK ? 0 : 1);
    }
    EXPECT_EQ(QX_OK, QxHost_Dispatch(10'000)) << "accepts the connection";
    EXPECT_EQ(QX_OK, QxHost_Dispatch(10'000));
    EXPECT_EQ(QX_ERR_BUSY, seen_->word) << "not from inside a handler";
    EXPECT_EQ(QX_ERR_BUSY, seen_->count);
    waitpid(sender, nullptr, 0);
}

// ---- Load ----

size_t openDescriptors(uint32_t pid)
{
    return filesIn("/proc/" + std::to_string(pid) + "/fd");
}

TEST_F(Bus, TenThousandCommandsToEightProcessesLoseNothingAndGrowNothing)
{
    constexpr uint32_t kRounds = 10'000;
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 0; i < 8; ++i) {
        children.push_back(std::make_unique<Child>([i] {
            gSelf = i;
            EventCenter_SubscribeEvent(kEvent, countEvent);
        }));
    }
    std::array<char, 260> data{};
    ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), data.size()));
    ASSERT_TRUE(eventually([&] { return seen_->count == 8; }));
    const size_t before =
        openDescriptors(children[0]->pid()) + openDescriptors(static_cast<uint32_t>(getpid()));
    const size_t files = filesIn(dir_ + "/bus") + filesIn(dir_ + "/roles") + filesIn(dir_);
    for (uint32_t i = 1; i < kRounds; ++i) {
        ASSERT_EQ(QX_OK, EventCenter_GlobalInvokeEvent2(kEvent, data.data(), data.size()));
    }
    EXPECT_TRUE(eventually([&] { return seen_->count == 8 * kRounds; }));
    for (uint32_t i = 0; i < 8; ++i) {
        EXPECT_EQ(kRounds, seen_->byProcess.at(i));
    }
    EXPECT_EQ(before, openDescriptors(children[0]->pid()) + openDescriptors(static_cast<uint32_t>(getpid())));
    EXPECT_EQ(files, filesIn(dir_ + "/bus") + filesIn(dir_ + "/roles") + filesIn(dir_));
}

TEST_F(Bus, EightThreadsAskAtOnce)
{
    const Child child([] { serveRpc(answer, 9); });
    std::vector<std::thread> threads;
    threads.reserve(8);
    std::atomic<uint32_t> good{0};
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 200; ++round) {
                uint32_t result = 0;
                good += QxHost_CallRpc(kId, 0, "x", &result) == QX_OK && result == 9 ? 1 : 0;
            }
        });
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
    EXPECT_EQ(1600U, good);
}

// ---- Records ----

std::vector<QxRecord> readAll()
{
    std::vector<QxRecord> records;
    EXPECT_EQ(QX_OK, QxHost_ReadRecords(
                         [](void *context, const QxRecord *record) -> uint32_t {
                             static_cast<std::vector<QxRecord> *>(context)->push_back(*record);
                             return 0;
                         },
                         &records));
    return records;
}

TEST_F(Bus, RecordsOutliveTheirProcessAndTheRingKeepsTheLatest)
{
    Child child([] {
        for (uint32_t i = 1; i <= 300; ++i) {
            QX_PROC_DBG_LastWord("qx_zema_cmdagent.cpp", i, 1, 2, 3, 4, 0xF7202001);
        }
    });
    EXPECT_EQ(1U, readAll().at(0).ulAlive);
    const uint32_t pid = child.pid();
    child.end(SIGKILL);
    QX_PROC_DBG_LastWord(std::string(100, 'f').c_str(), 1, 0, 0, 0, 0, 0);
    std::ofstream(dir_ + "/records/garbage").write("ZRecxxxx", 8);
    fs::create_symlink("/dev/zero", dir_ + "/records/link");
    const std::vector<QxRecord> records = readAll();
    ASSERT_EQ(257U, records.size());
    EXPECT_EQ(45U, records[0].ulLine);
    EXPECT_EQ(300U, records[255].ulLine);
    EXPECT_EQ(300U, records[255].ullNumber);
    EXPECT_EQ(pid, records[255].ulPid);
    EXPECT_EQ(0U, records[255].ulAlive);
    EXPECT_EQ(0xF7202001U, records[255].aulValue[4]);
    EXPECT_STREQ("qx_zema_cmdagent.cpp", records[255].acFile);
    EXPECT_EQ(std::string(63, 'f'), records[256].acFile);
}

TEST_F(Bus, RecordFilesOfDeadProcessesDoNotPileUp)
{
    for (int i = 0; i < 40; ++i) {
        Child child([] {
            QxHost_Fd();
            QX_PROC_DBG_LastWord("x.cpp", 1, 1, 0, 0, 0, 0);
        });
        child.end(SIGKILL);
    }
    EXPECT_LE(filesIn(dir_ + "/records"), 33U);
    EXPECT_GE(filesIn(dir_ + "/records"), 32U);
}

} // namespace
