#include "zema/bit_map.h"

#include "common/record.h"
#include "qx/memory.h"

#include <algorithm>
#include <bit>
#include <functional>
#include <numeric>

static_assert(offsetof(BitMap, ulBitCount) == 0 && offsetof(BitMap, stLock) == sizeof(void *) &&
              offsetof(BitMap, aulWords) == sizeof(void *) + sizeof(QxMutex) &&
              sizeof(BitMap) == offsetof(BitMap, aulWords));

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);

constexpr uint32_t kRefused = 0xFFFFFFFF;
constexpr uint32_t kWordBits = 32;
constexpr uint32_t kAllSet = 0xFFFFFFFF;

// Without the sum that the highest counts would overflow.
constexpr uint32_t wordCount(uint32_t bits)
{
    return bits / kWordBits + (bits % kWordBits != 0 ? 1 : 0);
}

constexpr uint32_t maskOf(uint32_t bit)
{
    return 1U << bit % kWordBits;
}

bool hasBit(const BitMap *map, uint32_t bit)
{
    return map != nullptr && bit < map->ulBitCount;
}

// The first word with a clear bit. Words are passed over in blocks, with one comparison of the bits that are
// set in all of a block.
const uint32_t *findNotAllSet(const uint32_t *word, const uint32_t *end)
{
    constexpr ptrdiff_t kBlock = 16;

    while (end - word >= kBlock &&
           std::accumulate(word, word + kBlock, kAllSet, std::bit_and<>()) == kAllSet) {
        word += kBlock;
    }
    return std::find_if(word, end, [](uint32_t each) { return each != kAllSet; });
}

} // namespace

BitMap *BitMapAlloc(uint32_t ulBitCount)
{
    if (ulBitCount == 0) {
        return nullptr;
    }
    const auto size = static_cast<uint32_t>(sizeof(BitMap) + wordCount(ulBitCount) * sizeof(uint32_t));
    auto *const map = static_cast<BitMap *>(QX_OS_MemMallocSet(size));
    if (map == nullptr) {
        return nullptr;
    }
    map->ulBitCount = ulBitCount;
    (void)QX_OS_MutexInit(&map->stLock, 0);
    return map;
}

void BitMapFree(BitMap *pstMap)
{
    if (pstMap == nullptr) {
        return;
    }
    (void)QX_OS_MutexDestroy(&pstMap->stLock);
    (void)QX_OS_MemFreeD(pstMap);
}

uint32_t BitMapHold(BitMap *pstMap)
{
    return pstMap != nullptr ? QX_OS_MutexLock(&pstMap->stLock) : ZEMA_OK;
}

uint32_t BitMapPut(BitMap *pstMap)
{
    return pstMap != nullptr ? QX_OS_MutexUnLock(&pstMap->stLock) : ZEMA_OK;
}

void BitMapSet(BitMap *pstMap, uint32_t ulBit)
{
    if (!hasBit(pstMap, ulBit)) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, kRefused, zema::addressValue(pstMap), ulBit, 0, 0);
        return;
    }
    pstMap->aulWords[ulBit / kWordBits] |= maskOf(ulBit);
}

void BitMapClr(BitMap *pstMap, uint32_t ulBit)
{
    if (!hasBit(pstMap, ulBit)) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, kRefused, zema::addressValue(pstMap), ulBit, 0, 0);
        return;
    }
    pstMap->aulWords[ulBit / kWordBits] &= ~maskOf(ulBit);
}

void BitMapClrAll(BitMap *pstMap)
{
    if (pstMap == nullptr) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, kRefused, zema::addressValue(pstMap), 0, 0, 0);
        return;
    }
    std::fill_n(&pstMap->aulWords[0], wordCount(pstMap->ulBitCount), 0U);
}

uint32_t BitMapTestBit(const BitMap *pstMap, uint32_t ulBit)
{
    return hasBit(pstMap, ulBit) ? pstMap->aulWords[ulBit / kWordBits] >> ulBit % kWordBits & 1U : 0;
}

int32_t BitMapFindFirstZeroBit(const BitMap *pstMap)
{
    constexpr int32_t kNone = -1;

    if (pstMap == nullptr) {
        return kNone;
    }
    const uint32_t *const words = &pstMap->aulWords[0];
    const uint32_t *const end = words + wordCount(pstMap->ulBitCount);
    const uint32_t *const word = findNotAllSet(words, end);
    if (word == end) {
        return kNone;
    }
    const auto bit =
        static_cast<uint32_t>(word - words) * kWordBits + static_cast<uint32_t>(std::countr_one(*word));
    return bit < pstMap->ulBitCount ? static_cast<int32_t>(bit) : kNone;
}
