#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/hlp.h"
#include "zema/hlp.h"

static_assert(sizeof(HlpTlvMsg) == 16 && offsetof(HlpTlvMsg, usLen) == 4 &&
              offsetof(HlpTlvMsg, ulHdrPara1) == 8 && offsetof(HlpTlvMsg, ulHdrPara2) == 12 &&
              offsetof(HlpTlvMsg, aucValue) == 16);

namespace {

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, 0, 0, 0, 0);
}

} // namespace

uint32_t QX_ZEMA_Hlpsnd(const HlpTlvMsg *request, uint32_t option1, uint32_t option2)
{
    if (request == nullptr) {
        report(__LINE__, ZEMA_ERR_HLP_ALLOC);
        return ZEMA_ERR_HLP_ALLOC;
    }
    const zema::PlatformBuffer message(request->usLen + QX_HLP_OVERHEAD);
    if (!message) {
        report(__LINE__, ZEMA_ERR_HLP_ALLOC);
        return ZEMA_ERR_HLP_ALLOC;
    }
    (void)memset_s(message.data(), message.size(), 0, message.size());
    if (QX_OS_InitHlpMsg(message.data(), 0, request->ulMsgType, request->ulHdrPara1, request->ulHdrPara2) !=
        0) {
        report(__LINE__, ZEMA_ERR_HLP_MSG_INIT);
        return ZEMA_ERR_HLP_MSG_INIT;
    }
    QX_ZEMA_AddTlvToHlpMsg(message.data(), static_cast<uint8_t>(request->ulMsgType), request->usLen,
                           request->aucValue);
    const uint32_t result = QX_OS_HLP_Send(message.data(), option1, option2);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

void QX_ZEMA_AddTlvToHlpMsg(void *message, uint8_t type, uint16_t length, const void *value)
{
    const uint32_t result = QX_OS_AddTlvToHlpMsg(message, type, length, value);
    if (result != 0) {
        report(__LINE__, result);
    }
}
