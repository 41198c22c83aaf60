#include "zema/layer_base.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/message.h"
#include "qx/process.h"

#include <algorithm>
#include <array>
#include <span>

static_assert(sizeof(LayerBaseHeader) == 24 && offsetof(LayerBaseHeader, ulState) == 4 &&
              offsetof(LayerBaseHeader, ulState2Jiffies) == 8 &&
              offsetof(LayerBaseHeader, ulState3Jiffies) == 12 &&
              offsetof(LayerBaseHeader, ulTableId) == 16 && offsetof(LayerBaseHeader, ulVisible) == 20);

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);

// In this system state it is the message layer that tells the main thread from the others.
constexpr uint32_t kStateOfModules = 6;

void report(uint32_t line, uint32_t code, uint32_t detail1 = 0, uint32_t detail2 = 0)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, detail1, detail2, 0, 0);
}

struct MainThreadTable {
    const char *name;
    uint32_t id;
};

constexpr std::array<MainThreadTable, 5> kMainThreadTables = {{
    {.name = "TABLE_OF_IPV6IF", .id = 1},
    {.name = "TABLE_OF_IPV4IF", .id = 2},
    {.name = "TABLE_OF_PPPIF", .id = 5},
    {.name = "TABLE_OF_ETHLINK", .id = 6},
    {.name = "TABLE_OF_WANBASIC", .id = 7},
}};

bool isMainThread()
{
    uint32_t state = 0;
    (void)QX_OS_StatGet(&state);
    if (state == kStateOfModules) {
        return QX_MSG_GetCurThreadMid() == 0;
    }
    return QX_OS_GetThreadID() == QX_OS_GetPID();
}

void warnOffMainThread(uint32_t tableId)
{
    const auto *const table = std::find_if(kMainThreadTables.begin(), kMainThreadTables.end(),
                                           [&](const MainThreadTable &each) { return each.id == tableId; });
    if (table == kMainThreadTables.end() || isMainThread()) {
        return;
    }
    const auto process = static_cast<int32_t>(QX_OS_GetPID());
    const auto thread = static_cast<int32_t>(QX_OS_GetThreadID());
    (void)QX_OS_Printf("\n[WARNNING] TableId=%s save not in zema main thread(%d), current thread(%d)\n",
                       table->name, process, thread);
    (void)QX_OS_BackTrace(kFile, __LINE__);
}

uint32_t jiffies()
{
    std::array<uint32_t, 2> words = {};
    (void)QX_PROC_DBG_GetJiffies(words.data());
    return words[1];
}

} // namespace

uint32_t LayerBase_SaveData(const void *pRecord, uint32_t ulLen)
{
    if (pRecord == nullptr || ulLen < sizeof(LayerBaseHeader)) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const auto *const header = static_cast<const LayerBaseHeader *>(pRecord);
    warnOffMainThread(header->ulTableId);
    const uint32_t result = MultiHashtableEx_SaveData(header->ulTableId, header->ulIndex, pRecord, ulLen);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t LayerBase_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen)
{
    if (pBuf == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return MultiHashtableEx_GetData(ulTableId, ulIndex, pBuf, ulLen);
}

uint32_t LayerBase_ForeachDataItem(uint32_t ulTableId, uint32_t ulSize, MultiHashtableVisitor pfnVisitor,
                                   void *pUser)
{
    if (pfnVisitor == nullptr || ulSize < sizeof(LayerBaseHeader)) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    zema::PlatformBuffer indexes(LAYERBASE_FOREACH_MAX * sizeof(uint32_t));
    if (!indexes) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer record(ulSize);
    if (!record) {
        indexes.reset();
        report(__LINE__, ZEMA_ERR, ulTableId);
        return ZEMA_ERR;
    }
    auto *const listed = static_cast<uint32_t *>(indexes.data());
    uint32_t count = 0;
    uint32_t result = MultiHashtableEx_GetIndexList(ulTableId, listed, LAYERBASE_FOREACH_MAX, &count);
    if (result != 0) {
        report(__LINE__, result, ulTableId);
        return ZEMA_ERR;
    }
    for (const uint32_t index : std::span(listed, count)) {
        result = MultiHashtableEx_GetData(ulTableId, index, record.data(), ulSize);
        if (result != 0) {
            report(__LINE__, result, ulTableId, index);
            return ZEMA_ERR;
        }
        if (static_cast<const LayerBaseHeader *>(record.data())->ulVisible == 0) {
            continue;
        }
        result = pfnVisitor(ulTableId, record.data(), pUser);
        if (result != 0) {
            report(__LINE__, result, ulTableId, index);
            return ZEMA_ERR;
        }
    }
    return ZEMA_OK;
}

void LayerBase_SetState(void *pRecord, uint32_t ulState)
{
    if (pRecord == nullptr) {
        return;
    }
    auto *const header = static_cast<LayerBaseHeader *>(pRecord);
    header->ulState = ulState;
    if (ulState == 2) {
        header->ulState2Jiffies = jiffies();
    } else if (ulState == 3) {
        header->ulState3Jiffies = jiffies();
    }
}
