// Data events: what is posted, and what becomes of a message that is delivered.
#include "zema/data_async.h"

#include "qx/message.h"
#include "tests/support/platform_double_system.h"

#include <cstring>

using namespace zema::test;
using namespace std::string_literals;

namespace {

uint32_t callback(void *)
{
    return 0;
}

EventHandle handle = {
    .pfnGetCount = nullptr,
    .pfnRegister =
        [](EventHandle *, uint32_t event, EventHandleCallback) {
            return watched({"register", {event}, {}}, [] { return 0U; });
        },
    .pfnIsRegistered = nullptr,
    .pfnUnregister =
        [](EventHandle *, uint32_t event, EventHandleCallback) {
            return watched({"unregister", {event}, {}}, [] { return 0U; });
        },
    .pfnInvoke =
        [](EventHandle *, uint32_t event, void *data, uintptr_t reserved1, uintptr_t reserved2) {
            const std::string text = data == nullptr ? "no data" : static_cast<const char *>(data);
            return watched({"invoke", {event, reserved1, reserved2}, text}, [] { return 0U; });
        },
};

std::string header(uint32_t sender, uint32_t receiver, uint32_t size)
{
    DataAsyncHeader bytes = {};
    std::strcpy(bytes.acSender, "zema");
    std::strcpy(bytes.acReceiver, "zema");
    bytes.ulSender = sender;
    bytes.ulReceiver = receiver;
    bytes.ulPayloadSize = size;
    return {reinterpret_cast<const char *>(&bytes), sizeof bytes};
}

} // namespace

EventHandle *EventHandle_GetEventHandle(EventHandle **holder)
{
    EXPECT_EQ(holder, &g_DataAsyncEvent);
    return watched({"handle", {}, {}}, [] { return &handle; });
}

uint32_t QX_MSG_AsynSend(const void *payload, uint32_t size, const void *head, uint32_t option)
{
    EXPECT_EQ(std::string(static_cast<const char *>(head), 84), header(49, 49, 0));
    return watched({"send", {size, option}, {static_cast<const char *>(payload), size}}, [] { return 0U; });
}

namespace {

class DataAsync : public PlatformTest {
protected:
    // What the call leaves behind, once with each of these calls failing.
    void expect(const std::string &reason, uint32_t (*call)(), const std::string &failing, uint32_t result,
                const std::string &trail)
    {
        platform.reset();
        if (!failing.empty()) {
            platform.fail(failing, 1, 0x77);
        }
        EXPECT_EQ(call(), result) << reason;
        EXPECT_EQ(textOf(platform.journal), trail) << reason;
    }
};

constexpr uint32_t kEvent = 7;

const auto add = [] { return DataAsync_RegisterOnDataAsyncEvent(kEvent, callback); };
const auto addNothing = [] { return DataAsync_RegisterOnDataAsyncEvent(kEvent, nullptr); };
const auto removeIt = [] { return DataAsync_UnregisterOnDataAsyncEvent(kEvent, callback); };
const auto removeNothing = [] { return DataAsync_UnregisterOnDataAsyncEvent(kEvent, nullptr); };
const auto invoke = [] { return DataAsync_InvokeDataAsyncEvent(kEvent, std::string("here").data()); };
const auto post = [] { return DataAsync_AsyncSendData(kEvent, "0123456789", 10); };
const auto postNull = [] { return DataAsync_AsyncSendData(kEvent, nullptr, 10); };
const auto postNone = [] { return DataAsync_AsyncSendData(kEvent, "x", 0); };
const auto postTooMuch = [] { return DataAsync_AsyncSendData(kEvent, "x", 0xFFFFFFFD); };

TEST_F(DataAsync, RegistersInvokesAndPosts)
{
    expect("registered", add, "", 0, "handle; register 7");
    expect("no callback", addNothing, "", 1, "handle; record 1 7");
    expect("no handle", add, "handle", 1, "handle; record 1 7");
    expect("refused", add, "register", 0x77, "handle; register 7; record 77 7");
    expect("taken away", removeIt, "", 0, "handle; unregister 7");
    expect("no callback", removeNothing, "", 1, "handle; record 1");
    expect("no handle", removeIt, "handle", 1, "handle; record 1");
    expect("refused", removeIt, "unregister", 0x77, "handle; unregister 7; record 77");
    expect("invoked", invoke, "", 0, "handle; invoke 7 0 0 here");
    expect("no handle", invoke, "handle", 1, "handle; record 1 7");
    expect("refused, which is not recorded", invoke, "invoke", 0x77, "handle; invoke 7 0 0 here");
    const std::string zeroed = "memset_s 54 0 54; ";
    const std::string sent = "memset_s e 0 e; " + zeroed + "send e 4 \7\0\0\0"s + "0123456789";
    expect("posted", post, "", 0, sent + "; MemFreeD");
    expect("no memory", post, "QX_OS_MemMallocD", 1, "record 1 7");
    expect("not sent", post, "send", 0x77, sent + "; record 77 7; MemFreeD");
    expect("no data", postNull, "", 0, zeroed + "send 4 4 \7\0\0\0"s);
    expect("no length", postNone, "", 0, zeroed + "send 4 4 \7\0\0\0"s);
    expect("not sent", postNone, "send", 0x77, zeroed + "send 4 4 \7\0\0\0; record 77 7"s);
    expect("more than any block holds", postTooMuch, "", 1, "record 1 7");
    EXPECT_EQ(platform.places.size(), 10U);
}

TEST_F(DataAsync, TakesOnlyWhatIsTheModules)
{
    struct Row {
        const char *reason;
        std::string message;
        uint32_t result;
        std::string trail;
        std::string failing = {};
    };
    const std::string seven = "\7\0\0\0"s;
    const std::string traced = "trace 31 DataAsync_OnAsynDataReceive:recv msg, msgtype:7\r\n; handle";
    const Row rows[] = {
        {"data", header(49, 49, 8) + seven + "abc\0"s, 0, traced + "; invoke 7 0 0 abc"},
        {"none", header(49, 49, 4) + seven + "abc\0"s, 0, traced + "; invoke 7 0 0 no data"},
        {"from another module", header(12, 49, 4) + seven, 0, traced + "; invoke 7 0 0 no data"},
        {"to another module", header(49, 13, 4) + seven, 0, traced + "; invoke 7 0 0 no data"},
        {"of others", header(12, 13, 4) + seven, 1, "trace 31 sendmid:0xc, recvmid:0xd\r\n"},
        {"half a type", header(49, 49, 3) + seven, 1, "record 1 3"},
        {"nothing", header(49, 49, 0), 1, "record 1"},
        {"a callback's handle that refuses", header(49, 49, 4) + seven, 0x77,
         traced + "; invoke 7 0 0 no data; record 77", "invoke"},
        {"no handle", header(49, 49, 4) + seven, 1, traced + "; record 1 7; record 1", "handle"},
    };
    for (const Row &row : rows) {
        platform.reset();
        if (!row.failing.empty()) {
            platform.fail(row.failing, 1, 0x77);
        }
        std::vector<char> message(row.message.begin(), row.message.end()); // of exactly that size
        EXPECT_EQ(DataAsync_OnAsynDataReceive(message.data()), row.result) << row.reason;
        EXPECT_EQ(textOf(platform.journal), row.trail) << row.reason;
    }
    EXPECT_EQ(DataAsync_OnAsynDataReceive(nullptr), 1U);
}

} // namespace
