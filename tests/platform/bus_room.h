// What the tests of the bus share: handlers that note what reached them, whichever process they run in.
#pragma once

#include "qx/qx.h"
#include "tests/support/processes.h"

#include <algorithm>
#include <array>
#include <cstring>

namespace zema::test {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

inline constexpr uint32_t kId = 0x4830514F;
inline constexpr uint32_t kEvent = 8853;

struct Seen {
    std::atomic<uint32_t> count{0};
    std::array<std::atomic<uint32_t>, 16> byProcess{};
    std::atomic<uint32_t> word{0};
    char text[4096]{};
};
inline Seen *gSeen = nullptr;
inline uint32_t gSelf = 0; // this child's place in byProcess
inline uint32_t gAnswer = 0;

inline uint32_t answer(uint32_t callerWord, char *text, uintptr_t, uintptr_t, uintptr_t)
{
    gSeen->count++;
    gSeen->word = callerWord;
    snprintf(gSeen->text, sizeof gSeen->text, "%s", text);
    text[0] = '#'; // the text is the callee's to change
    return gAnswer;
}

inline uint32_t countEvent(void *)
{
    gSeen->count++;
    gSeen->byProcess.at(gSelf)++;
    return 1; // a handler's result is its own
}

inline uint32_t keepText(void *, const QxPrint *print)
{
    const size_t used = strlen(gSeen->text);
    memcpy(gSeen->text + used, print->pcBytes,
           std::min<size_t>(print->ulSize, sizeof gSeen->text - used - 1));
    gSeen->word = print->ulPid;
    gSeen->count++;
    return 0;
}

inline void serveRpc(QxRpcHandler handler, uint32_t result = 0)
{
    gAnswer = result;
    const std::array<QxRpcRow, 2> rows{{{kId, handler}, {QX_RPC_END_OF_TABLE, nullptr}}};
    EXPECT_EQ(QX_OK, QX_MSG_RegOverWriteRpcCalls(rows.data()));
}

inline uint32_t subscribe(QxEventHandler handler)
{
    return EventCenter_SubscribeEvent(kEvent, handler);
}

// With so many bytes, all of them x.
inline uint32_t raiseEvent(uint32_t size, uint32_t event = kEvent)
{
    std::string data(size, 'x');
    return EventCenter_GlobalInvokeEvent2(event, size == 0 ? nullptr : data.data(), size);
}

class Bus : public Scratch {
protected:
    Bus() { gSeen = &*seen_; }

    uint32_t call(const std::string &text = "", uint32_t word = 0)
    {
        return QxHost_CallRpc(kId, word, text.c_str(), &result_);
    }

    Shared<Seen> seen_;
    uint32_t result_ = 77; // of the last call that brought one
};

} // namespace zema::test
