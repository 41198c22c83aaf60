#include "zema/data_async.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/message.h"

#include <cstring>
#include <limits>

static_assert(sizeof(DataAsyncHeader) == QX_MSG_HEADER_SIZE && offsetof(DataAsyncHeader, acSender) == 4 &&
              offsetof(DataAsyncHeader, ulSender) == 36 && offsetof(DataAsyncHeader, acReceiver) == 40 &&
              offsetof(DataAsyncHeader, ulReceiver) == QX_MSG_RECEIVER_OFFSET &&
              offsetof(DataAsyncHeader, ulPayloadSize) == QX_MSG_SIZE_OFFSET &&
              offsetof(DataAsyncHeader, ulReserved2) == 80);

EventHandle *g_DataAsyncEvent = nullptr;

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);
constexpr char kModuleName[] = "zema";
constexpr uint32_t kSendOption = 4;
constexpr uint32_t kTypeSize = sizeof(uint32_t);

void report(uint32_t line, uint32_t code, uint32_t detail = 0)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, detail, 0, 0, 0);
}

DataAsyncHeader makeHeader()
{
    DataAsyncHeader header{};
    (void)memset_s(&header, sizeof header, 0, sizeof header);
    for (char(*name)[sizeof header.acSender] : {&header.acSender, &header.acReceiver}) {
        (void)strncpy_s(*name, sizeof *name, kModuleName, sizeof *name - 1);
    }
    header.ulSender = ZEMA_MODULE_ID;
    header.ulReceiver = ZEMA_MODULE_ID;
    return header;
}

uint32_t post(uint32_t event, const void *payload, uint32_t size)
{
    const DataAsyncHeader header = makeHeader();
    const uint32_t result = QX_MSG_AsynSend(payload, size, &header, kSendOption);
    if (result != 0) {
        report(__LINE__, result, event);
    }
    return result;
}

} // namespace

EventHandle *DataAsync_GetEventHandle(void)
{
    return EventHandle_GetEventHandle(&g_DataAsyncEvent);
}

uint32_t DataAsync_RegisterOnDataAsyncEvent(uint32_t ulEvent, EventHandleCallback pfnCallback)
{
    EventHandle *const handle = DataAsync_GetEventHandle();
    if (pfnCallback == nullptr) {
        report(__LINE__, ZEMA_ERR, ulEvent);
        return ZEMA_ERR;
    }
    if (handle == nullptr) {
        report(__LINE__, ZEMA_ERR, ulEvent);
        return ZEMA_ERR;
    }
    const uint32_t result = handle->pfnRegister(handle, ulEvent, pfnCallback);
    if (result != 0) {
        report(__LINE__, result, ulEvent);
    }
    return result;
}

uint32_t DataAsync_UnregisterOnDataAsyncEvent(uint32_t ulEvent, EventHandleCallback pfnCallback)
{
    EventHandle *const handle = DataAsync_GetEventHandle();
    if (pfnCallback == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (handle == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const uint32_t result = handle->pfnUnregister(handle, ulEvent, pfnCallback);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t DataAsync_InvokeDataAsyncEvent(uint32_t ulEvent, void *pData)
{
    EventHandle *const handle = DataAsync_GetEventHandle();
    if (handle == nullptr) {
        report(__LINE__, ZEMA_ERR, ulEvent);
        return ZEMA_ERR;
    }
    return handle->pfnInvoke(handle, ulEvent, pData, 0, 0);
}

uint32_t DataAsync_AsyncSendData(uint32_t ulEvent, const void *pData, uint32_t ulLen)
{
    if (pData == nullptr || ulLen == 0) {
        return post(ulEvent, &ulEvent, kTypeSize);
    }
    if (ulLen > std::numeric_limits<uint32_t>::max() - kTypeSize) { // no block is that large
        report(__LINE__, ZEMA_ERR, ulEvent);
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer payload(ulLen + kTypeSize);
    if (!payload) {
        report(__LINE__, ZEMA_ERR, ulEvent);
        return ZEMA_ERR;
    }
    auto *const bytes = static_cast<char *>(payload.data());
    (void)memset_s(bytes, payload.size(), 0, payload.size());
    (void)memcpy_s(bytes, payload.size(), &ulEvent, kTypeSize);
    (void)memcpy_s(bytes + kTypeSize, ulLen, pData, ulLen);
    return post(ulEvent, bytes, payload.size());
}

uint32_t DataAsync_OnAsynDataReceive(void *pMessage)
{
    if (pMessage == nullptr) {
        return ZEMA_ERR;
    }
    DataAsyncHeader header;
    std::memcpy(&header, pMessage, sizeof header);
    if (header.ulSender != ZEMA_MODULE_ID && header.ulReceiver != ZEMA_MODULE_ID) {
        (void)QX_PROC_DBG_TraceN(ZEMA_MODULE_ID, kFile, __LINE__, "sendmid:0x%x, recvmid:0x%x\r\n",
                                 header.ulSender, header.ulReceiver);
        return ZEMA_ERR;
    }
    if (header.ulPayloadSize < kTypeSize) {
        report(__LINE__, ZEMA_ERR, header.ulPayloadSize);
        return ZEMA_ERR;
    }
    char *const payload = static_cast<char *>(pMessage) + sizeof header;
    uint32_t event = 0;
    std::memcpy(&event, payload, sizeof event);
    (void)QX_PROC_DBG_TraceN(ZEMA_MODULE_ID, kFile, __LINE__,
                             "DataAsync_OnAsynDataReceive:recv msg, msgtype:%d\r\n",
                             static_cast<int32_t>(event));
    const uint32_t result = DataAsync_InvokeDataAsyncEvent(
        event, header.ulPayloadSize == kTypeSize ? nullptr : payload + kTypeSize);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}
