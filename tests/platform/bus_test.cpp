// Calls, events, prints and messages between processes; how these come and go; their records.
#include "tests/platform/bus_room.h"

#include <fcntl.h>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <sys/time.h>

namespace {

using namespace zema::test;
namespace fs = std::filesystem;

// ---- Remote procedures ----

TEST_F(Bus, CallReachesTheProcedureWhereverItIs)
{
    const std::string text = "fw show all";
    const auto check = [&](const char *where) {
        gSeen->text[0] = '\0';
        EXPECT_EQ(QX_OK, QxHost_CallRpc(kId, 0x30000, text.c_str(), &result_)) << where;
        EXPECT_EQ(0xF7202001U, std::exchange(result_, 0)) << where;
        EXPECT_EQ(0x30000U, gSeen->word.exchange(0)) << where;
        EXPECT_STREQ("fw show all", seen_->text) << where;
        EXPECT_EQ("fw show all", text) << where << ", on a copy";
    };
    Child child([] { serveRpc(answer, 0xF7202001); });
    check("another process");
    child.end(SIGKILL);
    serveRpc(answer, 0xF7202001);
    check("this one");
}

TEST_F(Bus, EarliestRegistrationAnswersAndTheNextAfterItsDeath)
{
    Child first([] { serveRpc(answer, 1); });
    const Child second([] { serveRpc(answer, 2); });
    const Child third([] {
        serveRpc(answer, 4);
        serveRpc(answer, 3); // replaces the process's own
    });
    EXPECT_TRUE(call() == QX_OK && result_ == 1);
    first.end(SIGKILL);
    EXPECT_TRUE(call() == QX_OK && result_ == 2);
    second.tell(SIGKILL);
    EXPECT_TRUE(eventually([&] { return call() == QX_OK && result_ == 3; }));
}

TEST_F(Bus, CallFailsInBoundedTimeAndLeavesTheResultAlone)
{
    EXPECT_EQ(QX_ERR_NOBODY, call());
    EXPECT_EQ(QX_ERR, QxHost_CallRpc(kId, 0, nullptr, &result_));
    QxHost_SetTimeout(200);
    Child child([] {
        serveRpc([](uint32_t, char *, uintptr_t, uintptr_t, uintptr_t) -> uint32_t {
            gSeen->count++;
            return static_cast<uint32_t>(pause());
        });
    });
    EXPECT_EQ(QX_ERR_TOO_LARGE, call(std::string(200'000, 'x')));
    const auto start = steady_clock::now();
    EXPECT_EQ(QX_ERR_TIMEOUT, call());
    EXPECT_GE(steady_clock::now() - start, milliseconds(190));
    EXPECT_LT(steady_clock::now() - start, milliseconds(3000));
    QxHost_SetTimeout(0);
    std::thread killer([&] {
        EXPECT_TRUE(eventually([&] { return seen_->count >= 1; }));
        std::this_thread::sleep_for(milliseconds(50));
        child.end(SIGKILL);
    });
    EXPECT_EQ(QX_ERR_PEER_GONE, call());
    killer.join();
    EXPECT_LT(steady_clock::now() - start, milliseconds(4500)) << "a death is noticed, not timed out";
    EXPECT_EQ(77U, result_);
}

TEST_F(Bus, RegistrationIsAllOrNothing)
{
    chmod(dir_.c_str(), 0755);
    const std::array<QxRpcRow, 2> rows{{{kId, answer}, {QX_RPC_END_OF_TABLE, nullptr}}};
    EXPECT_EQ(QX_ERR_RUNTIME_DIR, QX_MSG_RegOverWriteRpcCalls(rows.data())) << "open to other users";
    EXPECT_EQ(QX_ERR_RUNTIME_DIR, subscribe(countEvent));
    EXPECT_EQ(-1, QxHost_Fd());
    chmod(dir_.c_str(), 0700);
    EXPECT_EQ(QX_ERR_NOBODY, call()) << "nothing was kept of the failed ones";
}

// ---- Events ----

TEST_F(Bus, EventsReachEveryProcessOnceAndThisOneTooAndGrowNothing)
{
    constexpr uint32_t kRounds = 10'000;
    std::vector<std::unique_ptr<Child>> children;
    for (uint32_t i = 1; i <= 8; ++i) {
        children.push_back(std::make_unique<Child>([i] {
            gSelf = i;
            subscribe(countEvent);
            subscribe(countEvent); // a pair counts once
        }));
    }
    gSelf = 0;
    ASSERT_EQ(QX_OK, subscribe(countEvent));
    const auto held = [&, pid = std::to_string(children[0]->pid())] {
        return filesIn("/proc/self/fd") + filesIn("/proc/" + pid + "/fd") + filesIn(dir_ + "/bus") +
               filesIn(dir_ + "/roles") + filesIn(dir_);
    };
    size_t before = 0;
    for (uint32_t i = 1; i <= kRounds; ++i) {
        ASSERT_EQ(QX_OK, raiseEvent(260));
        if (i == 1) {
            ASSERT_TRUE(eventually([&] { return seen_->count == 9; }));
            before = held();
        }
    }
    EXPECT_EQ(QX_OK, raiseEvent(260, kEvent + 1)) << "nobody wants it";
    EXPECT_TRUE(eventually([&] { return seen_->count == 9 * kRounds; }));
    EXPECT_EQ(before, held());
    const size_t open = filesIn("/proc/self/fd");
    children[2]->end(SIGKILL);
    EXPECT_EQ(QX_OK, EventCenter_RemoveEvent(kEvent, countEvent));
    EXPECT_EQ(QX_ERR_NOT_FOUND, EventCenter_RemoveEvent(kEvent, countEvent));
    EXPECT_EQ(QX_OK, raiseEvent(260)) << "a dead one wants none";
    EXPECT_EQ(open - 1, filesIn("/proc/self/fd")) << "and costs nothing any more";
    EXPECT_TRUE(eventually([&] { return seen_->count == 9 * kRounds + 7; }));
    for (uint32_t i = 0; i <= 8; ++i) {
        EXPECT_EQ(kRounds + (i == 0 || i == 3 ? 0 : 1), seen_->byProcess.at(i)) << i;
    }
}

TEST_F(Bus, NothingStaleStandsBehindAShortEvent)
{
    const Child child([] {
        subscribe([](void *data) {
            const auto *const bytes = static_cast<const char *>(data);
            gSeen->word = static_cast<uint32_t>(std::count(bytes, bytes + 1000, '\0'));
            return ++gSeen->count;
        });
    });
    EXPECT_EQ(QX_OK, raiseEvent(2000) + raiseEvent(3));
    EXPECT_TRUE(eventually([&] { return seen_->count == 2; }));
    EXPECT_EQ(997U, seen_->word);
}

TEST_F(Bus, HungProcessCostsItsTimeOnceAndTheOthersNothingWhateverTheSignals)
{
    QxHost_SetTimeout(300);
    Child hung([] {
        gSelf = 1;
        serveRpc(answer);
        subscribe(countEvent);
    });
    const Child well([] {
        gSelf = 2;
        subscribe(countEvent);
    });
    hung.tell(SIGSTOP);
    signal(SIGALRM, [](int) {});
    const itimerval often{.it_interval = {.tv_sec = 0, .tv_usec = 50'000},
                          .it_value = {.tv_sec = 0, .tv_usec = 50'000}};
    setitimer(ITIMER_REAL, &often, nullptr);
    auto start = steady_clock::now();
    EXPECT_EQ(QX_ERR_TIMEOUT, call("x"));
    uint32_t sent = 0;
    uint32_t result = QX_OK;
    for (; result == QX_OK && sent < 1000; ++sent) {
        result = raiseEvent(60'000);
    }
    EXPECT_EQ(QX_ERR_TIMEOUT, result) << "what could not be handed over must fail the call";
    EXPECT_LT(steady_clock::now() - start, milliseconds(2500)) << "signals stretched it";
    start = steady_clock::now();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(QX_ERR_TIMEOUT, raiseEvent(60'000));
    }
    EXPECT_LT(steady_clock::now() - start, milliseconds(300)) << "only the first one waits";
    setitimer(ITIMER_REAL, std::array<itimerval, 1>{}.data(), nullptr);
    hung.tell(SIGCONT);
    EXPECT_TRUE(
        eventually([&] { return seen_->byProcess[1] == sent - 1 && seen_->byProcess[2] == sent + 10; }));
    EXPECT_EQ(QX_OK, raiseEvent(60'000)) << "it takes frames again";
}

// ---- Terminals and the kernel's side ----

TEST_F(Bus, PrintsArriveInOrderAndSynchronousOnesAreWrittenOnReturn)
{
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_AsynPrint(3, "a", 1));
    const Child child([] { EXPECT_EQ(QX_OK, QxHost_ServeTerminal(3, keepText, nullptr)); });
    std::string wanted;
    for (uint32_t i = 0; i < 50; ++i) {
        const std::string piece = std::to_string(i) + ".";
        const auto size = static_cast<uint32_t>(piece.size());
        EXPECT_EQ(QX_OK, QX_CLI_AsynPrint(i % 3 == 0 ? 0xFFFF : 3, piece.data(), size));
        wanted += piece;
    }
    EXPECT_EQ(QX_OK, QX_CLI_SynPrint(3, "end", 3));
    EXPECT_EQ(wanted + "end", seen_->text);
    EXPECT_EQ(static_cast<uint32_t>(getpid()), seen_->word);
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_SynPrint(4, "a", 1));
    EXPECT_EQ(QX_ERR, QX_CLI_SynPrint(3, nullptr, 1));

    EXPECT_EQ(QX_OK, QxHost_ServeTerminal(5, keepText, nullptr));
    EXPECT_EQ(QX_OK, QX_CLI_SynPrint(5, " now", 4)) << "on this process's own";
    EXPECT_EQ(wanted + "end now", seen_->text);
    EXPECT_EQ(QX_OK, QxHost_ServeTerminal(5, nullptr, nullptr));
    EXPECT_EQ(QX_ERR_NOBODY, QX_CLI_AsynPrint(5, "x", 1));
    EXPECT_EQ(QX_ERR, QxHost_ServeTerminal(0xFFFF, keepText, nullptr)) << "all of them is no terminal";
}

uint32_t keepMessage(void *, const void *message, uint32_t size)
{
    memcpy(gSeen->text, message, size);
    gSeen->word = size;
    return ++gSeen->count;
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
    EXPECT_EQ((std::array{0x2002A002U, 11U, 12U, 57U, static_cast<uint32_t>(getpid()), 21U, 22U}),
              (std::array{header.ulType, header.ulPara1, header.ulPara2, header.ulSize, header.ulSenderPid,
                          header.ulOption1, header.ulOption2}));
    EXPECT_TRUE(item.ucType == 2 && item.usSize == 5);
    EXPECT_EQ(0, memcmp("value", seen_->text + sizeof header + sizeof item, 5));
    kernel.end(SIGKILL);
    EXPECT_EQ(QX_OK, QxHost_ServeKernel(keepMessage, nullptr)) << "a dead one's place is free";
}

// ---- Coming and going ----

TEST_F(Bus, ProcessThatEndsLeavesNothingAndOneThatIsKilledIsCleanedUpByWhoMeetsIt)
{
    Child tidy([] { serveRpc(answer, 1); });
    EXPECT_EQ(0, tidy.end(SIGTERM));
    EXPECT_EQ(0U, filesIn(dir_ + "/bus") + filesIn(dir_ + "/roles"));
    Child killed([] {
        serveRpc(answer, 1);
        subscribe(countEvent);
    });
    std::ofstream(dir_ + "/roles/rpc-4830514F.garbage").put('x');
    std::ofstream(dir_ + "/roles/rpc-4830514F.00000000000000ff.1-00000001x").put('x');
    killed.end(SIGKILL);
    EXPECT_EQ(4U, filesIn(dir_ + "/roles"));
    EXPECT_EQ(QX_ERR_NOBODY, call());
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
    EXPECT_GE(QxHost_Fd(), 0);
    // The procedure is the parent's: a call across processes that the parent does not serve now.
    EXPECT_TRUE(inChild([&] {
        QxHost_SetTimeout(100);
        return QxHost_Fd() >= 0 && call() == QX_ERR_TIMEOUT && QxHost_Leave() == QX_OK;
    }));
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
    const Child server([] { serveRpc(forkInHandler); });
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(QX_OK, call("text"));
        EXPECT_EQ(0U, std::exchange(result_, 99)) << "the child's end";
    }
    EXPECT_EQ(4U, seen_->word);
}

TEST_F(Bus, DirectoryMadeAnewIsNoticed)
{
    ASSERT_EQ(QX_OK, subscribe(countEvent));
    fs::remove_all(dir_);
    fs::create_directory(dir_);
    fs::permissions(dir_, fs::perms::owner_all);
    EXPECT_TRUE(eventually([] { return raiseEvent(0) == QX_ERR_RUNTIME_DIR; }));
}

TEST_F(Bus, DispatchTellsWhyItEnds)
{
    QxHost_Stop();
    EXPECT_EQ(QX_ERR_STOPPED, QxHost_Dispatch(-1)) << "asked for before the bus was joined";
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_Dispatch(0));
    QxHost_Stop();
    EXPECT_EQ(QX_ERR_STOPPED, QxHost_Dispatch(-1));
    EXPECT_EQ(QX_ERR_TIMEOUT, QxHost_Dispatch(1)) << "a stop ends one wait";
    ASSERT_EQ(QX_OK, subscribe([](void *) -> uint32_t {
                  gSeen->word = QxHost_Dispatch(0);
                  gSeen->count = QxHost_Leave();
                  return 0;
              }));
    std::thread sender([] { EXPECT_TRUE(inChild([] { return raiseEvent(0) == QX_OK; })); });
    EXPECT_EQ(QX_OK, QxHost_Dispatch(10'000)) << "accepts the connection";
    EXPECT_EQ(QX_OK, QxHost_Dispatch(10'000));
    EXPECT_EQ(QX_ERR_BUSY, seen_->word) << "not from inside a handler";
    EXPECT_EQ(QX_ERR_BUSY, seen_->count);
    sender.join();
}

// ---- Records ----

std::vector<QxRecord> readAll()
{
    std::vector<QxRecord> records;
    const auto keep = [](void *context, const QxRecord *record) -> uint32_t {
        static_cast<std::vector<QxRecord> *>(context)->push_back(*record);
        return 0;
    };
    EXPECT_EQ(QX_OK, QxHost_ReadRecords(keep, &records));
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
    const size_t open = filesIn("/proc/self/fd");
    const std::vector<QxRecord> records = readAll();
    EXPECT_EQ(open, filesIn("/proc/self/fd"));
    ASSERT_EQ(257U, records.size());
    EXPECT_EQ(45U, records[0].ulLine);
    const QxRecord &last = records[255];
    EXPECT_TRUE(last.ulLine == 300 && last.ullNumber == 300 && last.ulPid == pid && last.ulAlive == 0);
    EXPECT_EQ(0, memcmp(last.aulValue, std::array{1U, 2U, 3U, 4U, 0xF7202001U}.data(), 20));
    EXPECT_STREQ("qx_zema_cmdagent.cpp", last.acFile);
    EXPECT_EQ(std::string(63, 'f'), records[256].acFile);
    for (int i = 0; i < 40; ++i) {
        EXPECT_TRUE(inChild([] {
            QxHost_Fd();
            return QX_PROC_DBG_LastWord("x.cpp", 1, 1, 0, 0, 0, 0) == QX_OK;
        }));
    }
    // 32 of the dead, the last one's and the own; of what is no record's, a link is left alone.
    EXPECT_EQ(35U, filesIn(dir_ + "/records"));
}

} // namespace
