// Data events as a process receives them: messages with any header and any payload, in a block that ends
// where they end.
#include "qx/diag.h"
#include "qx/message.h"
#include "zema/data_async.h"

#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

std::vector<uint8_t> gMessage;
uint32_t gCalls = 0;

void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// The data is what stands behind the event type, to the message's end.
uint32_t take(void *data)
{
    const size_t start = QX_MSG_HEADER_SIZE + sizeof(uint32_t);
    check(data == (gMessage.size() == start ? nullptr : gMessage.data() + start));
    for (size_t i = start; i < gMessage.size(); ++i) {
        static_cast<uint8_t *>(data)[i - start] ^= 0xFFU;
    }
    return ++gCalls;
}

} // namespace

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t value1, uint32_t /*value2*/,
                              uint32_t /*value3*/, uint32_t /*value4*/, uint32_t /*value5*/)
{
    check(value1 != 0);
    return 0;
}

// The first byte says which words are made right, so that the fuzzer reaches what is behind each check; the
// size is always, as the platform sees to it.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const uint32_t registered = DataAsync_RegisterOnDataAsyncEvent(7, take);
    check(registered == ZEMA_OK);
    if (size < 1 + QX_MSG_HEADER_SIZE) {
        return 0;
    }
    gMessage.assign(data + 1, data + size);
    DataAsyncHeader header;
    std::memcpy(&header, gMessage.data(), sizeof header);
    header.ulSender = (data[0] & 1) != 0 ? ZEMA_MODULE_ID : header.ulSender;
    header.ulReceiver = (data[0] & 2) != 0 ? ZEMA_MODULE_ID : header.ulReceiver;
    header.ulPayloadSize = static_cast<uint32_t>(gMessage.size() - sizeof header);
    std::memcpy(gMessage.data(), &header, sizeof header);
    uint32_t event = 0;
    const bool hasEvent = header.ulPayloadSize >= sizeof event;
    if (hasEvent && (data[0] & 4) != 0) {
        event = 7;
        std::memcpy(gMessage.data() + sizeof header, &event, sizeof event);
    }
    if (hasEvent) {
        std::memcpy(&event, gMessage.data() + sizeof header, sizeof event);
    }
    const bool isOurs = header.ulSender == ZEMA_MODULE_ID || header.ulReceiver == ZEMA_MODULE_ID;
    gCalls = 0;
    const uint32_t result = DataAsync_OnAsynDataReceive(gMessage.data());
    check(gCalls == (isOurs && hasEvent && event == 7 ? 1U : 0U));
    check((isOurs && hasEvent) || result == ZEMA_ERR);
    return 0;
}
