#include "zema/multi_hashtable.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "table/item_lengths.h"

#include <algorithm>
#include <span>

constinit Hashtable *g_MultiHashtable = nullptr;

namespace {

void report(uint32_t line, uint32_t code, uint32_t detail1 = 0, uint32_t detail2 = 0, uint32_t detail3 = 0)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail1, detail2, detail3, 0);
}

// A table that is not there yet, empty; null when it cannot be had.
[[gnu::cold]] Hashtable *makeTable(Hashtable *tables, uint32_t tableId)
{
    Hashtable *made = nullptr;
    made = Hashtable_Create(&made, 0, 0);
    if (made == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return nullptr;
    }
    const uint32_t result = tables->pfnPut(tables, tableId, made);
    if (result != 0) {
        (void)made->pfnDestroy(&made);
        report(__LINE__, result);
        return nullptr;
    }
    return made;
}

inline Hashtable *getTable(uint32_t tableId)
{
    Hashtable *const tables = Hashtable_GetHashtable3(&g_MultiHashtable);
    if (tables == nullptr) [[unlikely]] {
        report(__LINE__, ZEMA_ERR);
        return nullptr;
    }
    void *present = nullptr;
    if (tables->pfnGet(tables, tableId, &present) == 0) {
        return static_cast<Hashtable *>(present);
    }
    return makeTable(tables, tableId);
}

// The table, or null, recorded for the place that asks for it.
inline Hashtable *tableFor(uint32_t line, uint32_t tableId)
{
    Hashtable *const table = getTable(tableId);
    if (table == nullptr) {
        report(line, ZEMA_ERR);
    }
    return table;
}

} // namespace

Hashtable *MultiHashtable_GetTable(uint32_t ulTableId)
{
    return getTable(ulTableId);
}

uint32_t MultiHashtable_SaveData(uint32_t ulTableId, uint32_t ulIndex, const void *pData, uint32_t ulLen)
{
    if (pData == nullptr && ulLen != 0) {
        return ZEMA_ERR;
    }
    Hashtable *const table = tableFor(__LINE__, ulTableId);
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    void *item = nullptr;
    if (table->pfnGet(table, ulIndex, &item) == 0) {
        const uint32_t length = MultiHashtable_GetLength(table, ulIndex);
        if (ulLen > length) [[unlikely]] {
            report(__LINE__, ZEMA_ERR, ulIndex, ulLen, length);
            return ZEMA_ERR;
        }
        (void)memcpy_s(item, ulLen, pData, ulLen);
        return ZEMA_OK;
    }
    const uint32_t result = MultiHashtable_AddData(table, ulIndex, pData, ulLen);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t MultiHashtable_AddData(Hashtable *pstTable, uint32_t ulIndex, const void *pData, uint32_t ulLen)
{
    if (pstTable == nullptr || (pData == nullptr && ulLen != 0)) {
        return ZEMA_ERR;
    }
    zema::PlatformBuffer item(ulLen);
    if (!item) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    (void)memcpy_s(item.data(), ulLen, pData, ulLen);
    const uint32_t result = pstTable->pfnPut(pstTable, ulIndex, item.data());
    if (result != 0) {
        report(__LINE__, result, ulIndex);
        return result;
    }
    item.release();
    if (!zema::noteLength(*pstTable, ulIndex, ulLen)) {
        report(__LINE__, ZEMA_ERR, ulIndex);
        (void)pstTable->pfnRemove(pstTable, ulIndex, MultiHashtable_ReleaseData, 0);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

uint32_t MultiHashtable_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen)
{
    if (pBuf == nullptr && ulLen != 0) {
        return ZEMA_ERR;
    }
    Hashtable *const table = tableFor(__LINE__, ulTableId);
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    void *item = nullptr;
    const uint32_t result = table->pfnGet(table, ulIndex, &item);
    if (result != 0) {
        report(__LINE__, result);
        return result;
    }
    const uint32_t length = MultiHashtable_GetLength(table, ulIndex);
    if (ulLen > length) [[unlikely]] {
        report(__LINE__, ZEMA_ERR, ulIndex, ulLen, length);
        return ZEMA_ERR;
    }
    (void)memcpy_s(pBuf, ulLen, item, ulLen);
    return ZEMA_OK;
}

uint32_t MultiHashtable_DeleteData(uint32_t ulTableId, uint32_t ulIndex)
{
    Hashtable *const table = tableFor(__LINE__, ulTableId);
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t result = table->pfnRemove(table, ulIndex, MultiHashtable_ReleaseData, 0);
    if (result != 0) {
        report(__LINE__, result);
        return result;
    }
    zema::forgetLength(*table, ulIndex);
    return ZEMA_OK;
}

uint32_t MultiHashtable_ReleaseData(void *pItem)
{
    (void)QX_OS_MemFreeD(pItem);
    return ZEMA_OK;
}

uint32_t MultiHashtable_GetIndexList(uint32_t ulTableId, uint32_t *pulIndexes, uint32_t ulMax,
                                     uint32_t *pulCount)
{
    if ((pulIndexes == nullptr && ulMax != 0) || pulCount == nullptr) {
        return ZEMA_ERR;
    }
    Hashtable *const table = tableFor(__LINE__, ulTableId);
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t result = table->pfnGetKeys(table, pulIndexes, ulMax, pulCount);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t MultiHashtable_ForeachDataItem(uint32_t ulTableId, MultiHashtableVisitor pfnVisitor, void *pUser)
{
    Hashtable *const table = pfnVisitor != nullptr ? tableFor(__LINE__, ulTableId) : nullptr;
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    zema::PlatformBuffer buffer(MULTIHASHTABLE_FOREACH_MAX * sizeof(uint32_t));
    if (!buffer) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const auto ended = [&](uint32_t line, uint32_t code, uint32_t detail) {
        buffer.reset();
        report(line, code, ulTableId, detail);
        return code;
    };
    auto *const keys = static_cast<uint32_t *>(buffer.data());
    uint32_t count = 0;
    uint32_t result = table->pfnGetKeys(table, keys, MULTIHASHTABLE_FOREACH_MAX, &count);
    if (result != 0) {
        return ended(__LINE__, result, count);
    }
    for (const uint32_t key : std::span(keys, std::min(count, MULTIHASHTABLE_FOREACH_MAX))) {
        void *item = nullptr;
        result = table->pfnGet(table, key, &item);
        if (result != 0) {
            return ended(__LINE__, result, count);
        }
        result = pfnVisitor(ulTableId, item, pUser);
        if (result != 0) {
            return ended(__LINE__, result, 0);
        }
    }
    return ZEMA_OK;
}

uint32_t MultiHashtable_FindDataItem(uint32_t ulTableId, MultiHashtableVisitor pfnMatcher, void *pUser)
{
    Hashtable *const table = pfnMatcher != nullptr ? tableFor(__LINE__, ulTableId) : nullptr;
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    zema::PlatformBuffer buffer(MULTIHASHTABLE_FIND_MAX * sizeof(uint32_t));
    if (!buffer) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const auto failed = [&](uint32_t line, uint32_t code) {
        buffer.reset();
        report(line, code, ulTableId);
        return code;
    };
    auto *const keys = static_cast<uint32_t *>(buffer.data());
    uint32_t count = 0;
    uint32_t result = table->pfnGetKeys(table, keys, MULTIHASHTABLE_FIND_MAX, &count);
    if (result != 0) {
        return failed(__LINE__, result);
    }
    for (const uint32_t key : std::span(keys, std::min(count, MULTIHASHTABLE_FIND_MAX))) {
        void *item = nullptr;
        result = table->pfnGet(table, key, &item);
        if (result != 0) {
            return failed(__LINE__, result);
        }
        if (pfnMatcher(ulTableId, item, pUser) == 0) {
            return ZEMA_OK;
        }
    }
    return ZEMA_ERR;
}

uint32_t MultiHashtable_ForeachDataItemExt(uint32_t ulTableId, HashtableVisitor pfnVisitor, void *pArg1,
                                           void *pArg2, void *pArg3)
{
    Hashtable *const table = tableFor(__LINE__, ulTableId);
    if (table == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t result = table->pfnForEach(table, pfnVisitor, pArg1, pArg2, pArg3);
    if (result != 0) {
        report(__LINE__, result, ulTableId);
    }
    return result;
}
