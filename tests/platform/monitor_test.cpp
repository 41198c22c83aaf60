// Monitors of the bus, and what a process says of itself: nobody may wait for them.
#include "qx/event.h"
#include "qx/message.h"
#include "tests/support/processes.h"

#include <array>
#include <linux/netlink.h>
#include <map>
#include <string>
#include <sys/socket.h>

namespace {

using namespace zema::test;

struct Seen {
    std::atomic<uint32_t> handled{0}; // events, at the subscriber
    std::atomic<uint32_t> shown{0};   // passages, at the monitor
    std::atomic<uint32_t> missed{0};
    QxPassage last{};
};
Seen *gSeen = nullptr;

void watch(void * /*context*/, const QxPassage *passage)
{
    gSeen->last = *passage;
    gSeen->missed += passage->ulMissed;
    ++gSeen->shown;
}

void monitor()
{
    EXPECT_EQ(QxHost_Monitor(watch, nullptr), QX_OK);
}

void subscribe()
{
    EventCenter_SubscribeEvent(7, [](void *) {
        ++gSeen->handled;
        return 0U;
    });
}

class Monitors : public Scratch {
protected:
    Monitors() { gSeen = &*seen_; }

    // Posts events and waits until all are handled.
    static void post(uint32_t count)
    {
        uint32_t wanted = gSeen->handled + count;
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(EventCenter_GlobalInvokeEvent2(7, &wanted, sizeof wanted), QX_OK);
        }
        ASSERT_TRUE(eventually([&] { return gSeen->handled == wanted; }));
    }

    static bool allCame(uint32_t passages)
    {
        return eventually([&] { return gSeen->shown + gSeen->missed == passages; });
    }

    Shared<Seen> seen_;
};

TEST_F(Monitors, TellWhoSentWhatToWhom)
{
    const Child receiver([] {
        const std::array<QxRpcRow, 2> rows{{{8,
                                             [](uint32_t, char *text, uintptr_t, uintptr_t, uintptr_t) {
                                                 *text = 'X'; // the text is the handler's to change
                                                 usleep(2000);
                                                 return 5U;
                                             }},
                                            {QX_RPC_END_OF_TABLE, nullptr}}};
        EXPECT_EQ(QX_MSG_RegOverWriteRpcCalls(rows.data()), QX_OK);
    });
    const Child watcher(monitor);
    uint32_t result = 0;
    ASSERT_EQ(QxHost_CallRpc(8, 9, "fw show all", &result), QX_OK);
    ASSERT_TRUE(allCame(1));
    const QxPassage &call = gSeen->last;
    EXPECT_EQ((std::array{call.ulKind, call.ulSenderPid, call.ulReceiverPid, call.ulNumber, call.ulWord,
                          call.ulSize, call.ulStatus, call.ulResult, call.ulMissed, call.ulBytes}),
              (std::array{QX_PASSAGE_RPC, uint32_t(getpid()), receiver.pid(), 8U, 9U, 12U, 0U, 5U, 0U, 12U}));
    EXPECT_STREQ(call.acBytes, "fw show all");
    EXPECT_GE(call.ullTookNs, 2'000'000U);
}

TEST_F(Monitors, AreNotWaitedForAndNothingIsMissedUnseen)
{
    constexpr uint32_t kMany = 10'000;
    const Child receiver(subscribe);
    Child stopped(monitor);
    post(1);
    ASSERT_TRUE(allCame(1));
    stopped.tell(SIGSTOP);
    const auto start = std::chrono::steady_clock::now();
    post(kMany);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5))
        << "less than one time limit";
    stopped.tell(SIGCONT);
    EXPECT_TRUE(eventually([] {
        post(1); // the next that finds room says how many did not
        return gSeen->missed > 0;
    }));
    EXPECT_TRUE(allCame(gSeen->handled));
    stopped.end(SIGKILL);
    post(2);
    const Child next(monitor);
    const uint32_t before = gSeen->shown;
    post(1);
    EXPECT_TRUE(eventually([&] { return gSeen->shown == before + 1; })) << "the dead one is in nobody's way";
}

TEST_F(Monitors, TheProcessesAndTheirRolesAreListed)
{
    const Child receiver(subscribe);
    const Child hung([] { EventCenter_SubscribeEvent(9, [](void *) { return gSeen->shown++, 0U; }); });
    ASSERT_EQ(EventCenter_GlobalInvokeEvent2(9, nullptr, 0), QX_OK);
    ASSERT_TRUE(allCame(1)); // so it has the connection
    hung.tell(SIGSTOP);
    ASSERT_EQ(EventCenter_GlobalInvokeEvent2(9, nullptr, 0), QX_OK);
    post(3);
    QxHost_SetTimeout(100);
    std::map<uint32_t, QxProcess> processes;
    EXPECT_EQ(QxHost_ListProcesses(
                  [](void *context, const QxProcess *process) {
                      static_cast<std::map<uint32_t, QxProcess> *>(context)->emplace(process->ulPid,
                                                                                     *process);
                      return 0U;
                  },
                  &processes),
              QX_OK);
    ASSERT_EQ(processes.size(), 2U) << "this one is not among them";
    EXPECT_EQ(processes[receiver.pid()].ulResult, QX_OK);
    EXPECT_EQ(processes[receiver.pid()].ullHandled, 3U);
    EXPECT_EQ(processes[hung.pid()].ulResult, QX_ERR_TIMEOUT);
    const int kernel = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_SOCK_DIAG); // not under emulation
    EXPECT_EQ(processes[hung.pid()].ulWaiting, kernel < 0 ? 0U : 36U) << "the second event's header";
    close(kernel);
    std::map<std::string, uint32_t> roles;
    EXPECT_EQ(QxHost_ListRoles(
                  [](void *context, const QxRoleHeld *role) {
                      static_cast<std::map<std::string, uint32_t> *>(context)->emplace(role->acRole,
                                                                                       role->ulPid);
                      return 0U;
                  },
                  &roles),
              QX_OK);
    EXPECT_EQ(roles, (std::map<std::string, uint32_t>{{"event-7", receiver.pid()}, {"event-9", hung.pid()}}));
}

} // namespace
