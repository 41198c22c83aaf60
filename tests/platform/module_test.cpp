// Messages to modules and event handles: from one process into the callbacks of another.
#include "qx/event.h"
#include "qx/event_handle.h"
#include "qx/message.h"
#include "tests/support/processes.h"

#include <array>
#include <cstring>
#include <numeric>
#include <vector>

namespace {

using namespace zema::test;

struct Got {
    std::atomic<uint32_t> count{0};
    std::atomic<uint32_t> size{0};
    std::atomic<uint32_t> word{0}; // at the header's place for the size
    std::atomic<uint32_t> sum{0};
};
Got *gGot = nullptr;

uint32_t take(void *context, void *message, uint32_t size)
{
    EXPECT_EQ(context, &gGot);
    uint32_t word = 0;
    memcpy(&word, static_cast<char *>(message) + QX_MSG_SIZE_OFFSET, sizeof word);
    gGot->size = size;
    gGot->word = word;
    const auto *const bytes = static_cast<uint8_t *>(message);
    gGot->sum = std::accumulate(bytes + QX_MSG_HEADER_SIZE, bytes + size, 0U);
    ++gGot->count;
    return 1; // a handler's result is its own
}

uint32_t post(uint32_t module, uint32_t size)
{
    std::array<char, QX_MSG_HEADER_SIZE> header{};
    memcpy(&header[QX_MSG_RECEIVER_OFFSET], &module, sizeof module);
    const std::vector<char> payload(size, 1);
    return QX_MSG_AsynSend(payload.data(), size, header.data(), 4);
}

void dispatchAll()
{
    while (QxHost_Dispatch(0) == QX_OK) {
    }
}

class Modules : public Scratch {
protected:
    Modules() { gGot = &*got_; }

    Shared<Got> got_;
};

TEST_F(Modules, MessagesReachTheProcessThatServesTheModule)
{
    EXPECT_EQ(post(49, 10), QX_ERR_NOBODY);
    {
        const Child server([] { EXPECT_EQ(QxHost_ServeModule(49, take, &gGot), QX_OK); });
        EXPECT_EQ(QxHost_ServeModule(49, take, &gGot), QX_ERR_TAKEN);
        EXPECT_EQ(post(50, 10), QX_ERR_NOBODY);
        for (const uint32_t size : {0U, 1U, 428U, 429U, 130988U}) {
            gGot->count = 0;
            EXPECT_EQ(post(49, size), QX_OK) << size;
            EXPECT_TRUE(eventually([&] { return gGot->count == 1; })) << size;
            EXPECT_EQ(gGot->size, QX_MSG_HEADER_SIZE + size);
            EXPECT_TRUE(gGot->word == size && gGot->sum == size) << size;
        }
        EXPECT_EQ(post(49, 130989), QX_ERR_TOO_LARGE);
        EXPECT_EQ(QX_MSG_AsynSend(nullptr, 1, "", 4), QX_ERR);
        EXPECT_EQ(QX_MSG_AsynSend("", 0, nullptr, 4), QX_ERR);
    }
    EXPECT_EQ(post(49, 10), QX_ERR_NOBODY) << "its process has ended";
}

TEST_F(Modules, AMessageToOneselfComesWithALaterDispatch)
{
    EXPECT_EQ(QxHost_ServeModule(49, take, &gGot), QX_OK);
    EXPECT_EQ(post(49, 3), QX_OK);
    EXPECT_EQ(gGot->count, 0U) << "not from inside the send";
    EXPECT_TRUE(eventually([] { return QxHost_Dispatch(10) == QX_ERR_TIMEOUT; }));
    EXPECT_EQ(gGot->count, 1U);
    uint32_t waiting = 0;
    while (waiting < 1000 && post(49, 100'000) == QX_OK) {
        ++waiting;
    }
    EXPECT_EQ(waiting, (8U << 20U) / 101'500) << "a dispatch that does not keep up";
    dispatchAll();
    EXPECT_EQ(gGot->count, 1 + waiting);
    EXPECT_EQ(post(49, 3), QX_OK) << "there is room again";
    EXPECT_EQ(QxHost_ServeModule(49, nullptr, nullptr), QX_OK);
    EXPECT_EQ(post(49, 3), QX_ERR_NOBODY);
}

constexpr uint32_t kEvent = 8853;

TEST_F(Modules, AMessageBelongsToTheFlowOfItsSender)
{
    const Child child([] {
        const auto handle = [](void *, void *, uint32_t) {
            usleep(20'000);
            return ++gGot->count;
        };
        EXPECT_EQ(QxHost_ServeModule(49, handle, nullptr), QX_OK);
        EXPECT_EQ(EventCenter_SubscribeEvent(kEvent,
                                             [](void *) { return post(49, 1) | post(49, 1) | post(49, 1); }),
                  QX_OK);
    });
    QxFlow *const flow = QxHost_FlowOpen();
    EXPECT_EQ(QxHost_FlowInvokeEvent(flow, kEvent, "", 1), QX_OK);
    EXPECT_EQ(QxHost_FlowWait(flow, 10'000), QX_OK);
    EXPECT_EQ(gGot->count, 3U) << "the flow ends with the last of them, though they are the receiver's own";
    QxHost_FlowClose(flow);
}

constexpr uint32_t kMany = 3000; // more than a socket holds

uint32_t postMany(void *, void *message, uint32_t size)
{
    const bool isFirst = size == QX_MSG_HEADER_SIZE;
    for (uint32_t n = 0; isFirst && n < kMany; ++n) {
        EXPECT_EQ(post(49, 500), QX_OK);
    }
    ++gGot->count;
    return message == nullptr ? 1 : 0;
}

TEST_F(Modules, AHandlerMayPostToItsOwnProcessAsMuchAsItLikes)
{
    EXPECT_EQ(QxHost_ServeModule(49, postMany, nullptr), QX_OK);
    EXPECT_EQ(post(49, 0), QX_OK);
    dispatchAll();
    EXPECT_EQ(gGot->count, kMany + 1);
    std::thread other([] { EXPECT_EQ(post(49, 1), QX_OK); });
    EXPECT_EQ(QxHost_Dispatch(10'000), QX_OK) << "another thread's message ends the wait";
    other.join();
    EXPECT_EQ(gGot->count, kMany + 2);
    EXPECT_EQ(post(49, 1), QX_OK);
    {
        const Child child([] {
            EXPECT_EQ(QxHost_ServeModule(50, take, &gGot), QX_OK);
            dispatchAll();
            gGot->count += 100;
        });
    }
    EXPECT_EQ(gGot->count, kMany + 102) << "what waits in the parent is not the child's";
    dispatchAll();
    EXPECT_EQ(gGot->count, kMany + 103);
    EXPECT_EQ(post(49, 1), QX_OK);
    EXPECT_EQ(QxHost_Leave(), QX_OK) << "what waits is given back";
}

// ---- Event handles ----

uint32_t gCalls = 0;
EventHandle *gHandle = nullptr;

uint32_t countTen(void *)
{
    return (gCalls += 10) == 0 ? 1 : 0;
}

// Takes itself away and adds another, while it is called.
uint32_t giveWay(void *)
{
    return gHandle->pfnUnregister(gHandle, 1, giveWay) + gHandle->pfnRegister(gHandle, 1, countTen);
}

TEST(EventHandles, CallWhatIsRegisteredForTheType)
{
    EventHandle *holder = nullptr;
    gHandle = EventHandle_GetEventHandle(&holder);
    ASSERT_EQ(gHandle, holder);
    EXPECT_EQ(EventHandle_GetEventHandle(&holder), holder);
    EXPECT_EQ(EventHandle_GetEventHandle(nullptr), nullptr);
    const auto count = [](void *data) { return gCalls += *static_cast<uint32_t *>(data); };
    uint32_t one = 1;
    const auto invoked = [&](uint32_t event) {
        gCalls = 0;
        EXPECT_EQ(gHandle->pfnInvoke(gHandle, event, &one, 0, 0), QX_OK);
        return gCalls;
    };
    EXPECT_EQ(invoked(1), 0U) << "nobody yet";
    for (const auto &[event, callback] :
         {std::pair<uint32_t, EventHandleCallback>{1, count}, {1, count}, {2, countTen}, {1, giveWay}}) {
        EXPECT_EQ(gHandle->pfnRegister(gHandle, event, callback), QX_OK) << "even a second time";
    }
    EXPECT_EQ(gHandle->pfnRegister(gHandle, 1, nullptr), QX_ERR);
    EXPECT_EQ(gHandle->pfnGetCount(gHandle, 1), 2U);
    EXPECT_EQ(invoked(1), 1U) << "what is added meanwhile is called the next time";
    EXPECT_EQ(invoked(1), 11U);
    EXPECT_EQ(invoked(2), 10U);
    EXPECT_EQ(gHandle->pfnIsRegistered(gHandle, 1, giveWay), 0U);
    EXPECT_EQ(gHandle->pfnUnregister(gHandle, 1, giveWay), QX_ERR_NOT_FOUND);
    EXPECT_EQ(gHandle->pfnInvoke(nullptr, 1, nullptr, 0, 0), QX_ERR);
}

} // namespace
