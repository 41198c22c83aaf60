#include "zema/multi_hashtable_ex.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/data_sync.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

namespace {

constexpr uint32_t kWord = sizeof(uint32_t);
constexpr uint32_t kSaveHead = 3 * kWord;

void report(uint32_t line, uint32_t code, uint32_t detail1 = 0, uint32_t detail2 = 0, uint32_t detail3 = 0,
            uint32_t detail4 = 0)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail1, detail2, detail3, detail4);
}

// A length as it travels.
constexpr uint16_t cut(uint32_t length)
{
    return static_cast<uint16_t>(length);
}

template <size_t N>
uint32_t ask(uint32_t code, const std::array<uint32_t, N> &words, void *reply, uint32_t replySize)
{
    return DataSync_SyncData1(code, words.data(), sizeof words, reply, cut(replySize));
}

} // namespace

uint32_t MultiHashtableEx_SaveData(uint32_t ulTableId, uint32_t ulIndex, const void *pData, uint32_t ulLen)
{
    if (pData == nullptr && ulLen != 0) {
        return ZEMA_ERR;
    }
    if (ulLen > std::numeric_limits<uint32_t>::max() - kSaveHead) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    zema::PlatformBuffer request(kSaveHead + ulLen);
    if (!request) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const std::array<uint32_t, 3> head = {ulTableId, ulIndex, ulLen};
    (void)memset_s(request.data(), request.size(), 0, request.size());
    (void)memcpy_s(request.data(), request.size(), head.data(), kSaveHead);
    (void)memcpy_s(static_cast<char *>(request.data()) + kSaveHead, ulLen, pData, ulLen);
    const uint32_t result =
        DataSync_SyncData1(MULTIHASHTABLEEX_CODE_SAVE, request.data(), cut(request.size()), nullptr, 0);
    request.reset();
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t MultiHashtableEx_DeleteData(uint32_t ulTableId, uint32_t ulIndex)
{
    const uint32_t result = ask(MULTIHASHTABLEEX_CODE_DELETE, std::array{ulTableId, ulIndex}, nullptr, 0);
    if (result != 0) {
        report(__LINE__, result, ulTableId, ulIndex);
    }
    return result;
}

uint32_t MultiHashtableEx_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen)
{
    if (pBuf == nullptr && ulLen != 0) {
        return ZEMA_ERR;
    }
    return ask(MULTIHASHTABLEEX_CODE_GET, std::array{ulTableId, ulIndex, ulLen}, pBuf, ulLen);
}

uint32_t MultiHashtableEx_GetIndexList(uint32_t ulTableId, uint32_t *pulIndexes, uint32_t ulMax,
                                       uint32_t *pulCount)
{
    if (pulIndexes == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pulCount == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (ulMax >= std::numeric_limits<uint32_t>::max() / kWord) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer reply((ulMax + 1) * kWord);
    if (!reply) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    // An answer that does not even hold the count, because its length was cut, lists none.
    auto *const words = static_cast<uint32_t *>(reply.data());
    words[0] = 0;
    const uint32_t result =
        ask(MULTIHASHTABLEEX_CODE_LIST, std::array{ulTableId, ulMax}, words, reply.size());
    if (result != 0) {
        report(__LINE__, result);
        return result;
    }
    const uint32_t room = std::max(cut(reply.size()) / kWord, 1U) - 1;
    *pulCount = std::min(words[0], room);
    (void)memcpy_s(pulIndexes, size_t{ulMax} * kWord, words + 1, size_t{*pulCount} * kWord);
    return ZEMA_OK;
}

uint32_t MultiHashtableEx_ForeachDataItem(uint32_t ulTableId, uint32_t ulItemSize,
                                          MultiHashtableVisitor pfnVisitor, void *pUser)
{
    if (pfnVisitor == nullptr) {
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer indexes(MULTIHASHTABLEEX_FOREACH_MAX * kWord);
    if (!indexes) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer item(ulItemSize);
    if (!item) {
        report(__LINE__, ZEMA_ERR, ulTableId);
        return ZEMA_ERR;
    }
    auto *const listed = static_cast<uint32_t *>(indexes.data());
    uint32_t count = 0;
    uint32_t result = MultiHashtableEx_GetIndexList(ulTableId, listed, MULTIHASHTABLEEX_FOREACH_MAX, &count);
    if (result != 0) {
        report(__LINE__, result, ulTableId);
        report(__LINE__, result, ulTableId, zema::addressValue(item.data()), count);
        return result;
    }
    for (const uint32_t index : std::span(listed, count)) {
        const uint32_t read = MultiHashtableEx_GetData(ulTableId, index, item.data(), ulItemSize);
        if (read != 0) {
            report(__LINE__, read, ulTableId, index);
            report(__LINE__, read, ulTableId, zema::addressValue(item.data()), count);
            return read;
        }
        result = pfnVisitor(ulTableId, item.data(), pUser);
        if (result != 0) {
            report(__LINE__, result, ulTableId, index);
            report(__LINE__, result, ulTableId, zema::addressValue(item.data()), count, read);
            return result;
        }
    }
    return ZEMA_OK;
}
