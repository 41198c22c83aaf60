// Interface indexes, bit maps and identifier pools.
#include "qx/memory.h"
#include "tests/platform/surroundings.h"
#include "tests/support/platform_double_system.h"
#include "zema/bit_map.h"
#include "zema/index.h"
#include "zema/index_array.h"

#include <numeric>
#include <random>

using namespace zema::test;

// This host's locks are the platform's, but tell of failures. Nobody looks at those of making and ending one.
static uint32_t unlockResult;

uint32_t QX_OS_MutexInit(QxMutex *mutex, uint32_t reserved)
{
    const uint32_t result = real(QX_OS_MutexInit, "QX_OS_MutexInit")(mutex, reserved);
    PlatformDouble::instance().enter({"QX_OS_MutexInit", {result, reserved}, {}});
    return 1;
}

uint32_t QX_OS_MutexDestroy(QxMutex *mutex)
{
    PlatformDouble::instance().enter({"QX_OS_MutexDestroy", {}, {}});
    return static_cast<uint32_t>(pthread_mutex_destroy(mutex)) + 1;
}

uint32_t QX_OS_MutexUnLock(QxMutex *mutex)
{
    return static_cast<uint32_t>(pthread_mutex_unlock(mutex)) + unlockResult;
}

namespace {

using Fields = std::array<uint32_t, 4>;

constexpr size_t kOperations = 1'000'000;

class Index : public PlatformTest {};

TEST_F(Index, PacksAndUnpacks)
{
    const std::tuple<const char *, Fields, uint32_t, Fields> rows[] = {
        {"every field full", {15, 255, 255, 0xFFF}, 0xFFFFFFFF, {15, 255, 255, 0xFFF}},
        {"fields told apart", {3, 0x12, 0x34, 0x567}, 0x31234567, {3, 0x12, 0x34, 0x567}},
        {"an instance too wide", {1, 0, 0, 0x1005}, 0x10001005, {1, 0, 1, 5}},
        {"others too wide", {0x13, 0, 0x101, 7}, 0x30101007, {3, 1, 1, 7}},
        {"a first identifier too wide", {1, 0x212, 0, 7}, 0x31200007, {3, 0x12, 0, 7}},
    };
    for (const auto &[reason, fields, packed, unpacked] : rows) {
        uint32_t index = 0;
        uint32_t type = 0;
        uint8_t ids[2] = {};
        uint16_t instance = 0xFFFF;
        Index_MakeIndex(fields[0], fields[1], fields[2], fields[3], &index);
        EXPECT_EQ(index, packed) << reason;
        Index_GetPrototype(index, &type, nullptr, &ids[1], nullptr);
        Index_GetId(index, &ids[0], nullptr, &instance);
        EXPECT_EQ((Fields{type, ids[0], ids[1], instance}), unpacked) << reason;
    }
    uint32_t first = 0;
    uint8_t fields[3] = {};
    TR181_Common_MakeIndex(0xF0, 0x1F2, 0xF3, 0xF4, &first);
    EXPECT_EQ(first, 0xF1F2F3F4) << "a second field too wide";
    TR181_Common_GetPrototype(0xF1F2F3F4, &first, &fields[0], &fields[1], &fields[2]);
    EXPECT_EQ((Fields{first, fields[0], fields[1], fields[2]}), (Fields{0xF1, 0xF2, 0xF3, 0xF4}));
}

TEST_F(Index, KnowsWhatAnIndexIs)
{
    constexpr uint32_t (*kPredicates[])(uint32_t) = {
        Index_IsBrIndex,    Index_IsTunnelIndex, Index_IsTunnel6RDIndex, Index_IsDMZIfIndex,
        Index_IsSshifIndex, Index_IsTwampIndex,  Index_IsWanIndex,       Index_IsVlanIfIndex,
    };
    const std::pair<uint32_t, const char *> rows[] = {
        {0x1FFFFFFF, "00000011"}, {0x20000000, "00000011"}, {0x30000007, "10000000"},
        {0x40000000, "01000000"}, {0x5010A001, "00000000"}, {0x60000000, "00000000"},
        {0x70000000, "00000000"}, {0x80000000, "00000000"}, {0x90000000, "00000000"},
        {0xA0000000, "00000000"}, {0xB0000001, "00000001"}, {0xC0000000, "00000001"},
        {0xD0000000, "00100000"}, {0xE0000000, "00000000"}, {0xF0164001, "00010000"},
        {0x00164001, "00001011"}, {0x00164002, "00000000"}, {0xC010A001, "00000101"},
    };
    for (const auto &[index, answers] : rows) {
        for (size_t i = 0; i < std::size(kPredicates); ++i) {
            EXPECT_EQ(kPredicates[i](index), answers[i] == '1' ? 1U : 0U) << std::hex << index << " " << i;
        }
        EXPECT_EQ(Index_IsIndexTypeEqual(index, index >> 28U), 1U) << std::hex << index;
        EXPECT_EQ(Index_IsIndexTypeEqual(index, index >> 28U | 0x10U), 0U) << "not only four bits count";
    }
    const std::pair<int32_t, int32_t> instances[] = {{INT32_MIN, 1}, {-3, 1},  {0, 1},  {1, 1},
                                                     {2, 2},         {15, 15}, {16, 1}, {INT32_MAX, 1}};
    for (const auto &[instance, valid] : instances) {
        EXPECT_EQ(Index_GetValidWanDevInst(instance), valid) << instance;
    }
}

TEST_F(Index, MakesPathsOfBridges)
{
    const std::tuple<const char *, Fields, uint32_t, const char *, std::vector<Values>> rows[] = {
        {"a digit", {1, 2, 3, 4}, 64, "Device.Bridging.Bridge.2", {}},
        {"just fits", {0, 255, 0, 0}, 27, "Device.Bridging.Bridge.255", {}},
        {"one short", {0, 255, 0, 0}, 26, "Device.Bridging.Bridge.25", {}},
        {"fields too wide", {0, 0, 0x200, 0x10000}, 64, "Device.Bridging.Bridge.3", {}},
        {"room for the end only", {1, 2, 3, 4}, 1, "", {{1, 0, 1}}},
        {"no room", {1, 2, 3, 4}, 0, nullptr, {{1, UINT32_MAX, 0}}},
    };
    for (const auto &[reason, fields, size, path, records] : rows) {
        platform.reset();
        uint32_t index = 0;
        Guarded out(size);
        TR181_Common_MakeIndex(fields[0], fields[1], fields[2], fields[3], &index);
        EXPECT_EQ(TR181_Common_BridgeIndexToPath(&index, out.data(), size), 0U) << reason;
        EXPECT_TRUE(out.guardsHold() && (path == nullptr || out.data() == std::string(path))) << reason;
        EXPECT_TRUE(platform.recorded("index.cpp", records)) << reason;
    }
    platform.reset();
    char out[] = "untouched";
    const uint32_t index = 1;
    EXPECT_EQ(TR181_Common_BridgeIndexToPath(nullptr, out, sizeof out), 1U);
    EXPECT_EQ(TR181_Common_BridgeIndexToPath(&index, nullptr, 9), 1U);
    EXPECT_STREQ(out, "untouched");
    EXPECT_TRUE(platform.recorded("index.cpp", {{1}, {1}}));
}

class Bits : public PlatformTest {
protected:
    std::mt19937 random_{6}; // NOLINT(cert-msc32-c,cert-msc51-cpp): the same operations in every run
};

TEST_F(Bits, LockAndRefuse)
{
    EXPECT_EQ(BitMapAlloc(0), nullptr);
    for (const uint32_t count : {64U, UINT32_MAX}) {
        platform.fail("QX_OS_MemMallocSet", 1);
        EXPECT_EQ(BitMapAlloc(count), nullptr) << count;
    }
    BitMap *const map = BitMapAlloc(33);
    ASSERT_NE(map, nullptr);
    EXPECT_EQ(BitMapHold(map), 0U);
    EXPECT_EQ(BitMapHold(map), static_cast<uint32_t>(EDEADLK)) << "the lock's own result";
    unlockResult = 7;
    EXPECT_EQ(BitMapPut(map), 7U);
    unlockResult = 0;
    for (BitMap *const each : {map, static_cast<BitMap *>(nullptr)}) {
        BitMapSet(each, 33);
        BitMapClr(each, 34);
        EXPECT_EQ(BitMapTestBit(each, 33), 0U);
    }
    BitMapClrAll(nullptr);
    EXPECT_EQ(BitMapFindFirstZeroBit(nullptr), -1);
    EXPECT_TRUE(BitMapHold(nullptr) == 0 && BitMapPut(nullptr) == 0);
    EXPECT_TRUE(map->aulWords[0] == 0 && map->aulWords[1] == 0 && map->ulBitCount == 33);
    char calls[512];
    constexpr size_t kHeader = offsetof(BitMap, aulWords);
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(map));
    (void)std::snprintf(
        calls, sizeof calls,
        "MemMallocSet %zx; MemMallocSet %zx; MemMallocSet %zx; MutexInit 0 0; record ffffffff %x 21; record "
        "ffffffff %x 22; record ffffffff 0 21; record ffffffff 0 22; record ffffffff; "
        "MutexDestroy; MemFreeD",
        kHeader + 8, kHeader + (1U << 29U), kHeader + 8, address, address);
    BitMapFree(map);
    BitMapFree(nullptr);
    EXPECT_EQ(textOf(platform.journal), calls);
    EXPECT_EQ(platform.places.size(), 3U) << "each failure has a line of its own";
    EXPECT_EQ(platform.places.begin()->first, "bit_map.cpp");
}

// Sizes about the word and the block of words, filled from below as their owners do.
TEST_F(Bits, AgreeWithASetOfClearBits)
{
    const uint32_t sizes[] = {1, 10, 31, 32, 33, 40, 64, 480, 511, 512, 513, 545, 1024, 1531};
    for (const uint32_t size : sizes) {
        platform.reset();
        BitMap *const map = BitMapAlloc(size);
        platform.watching = false;
        std::vector<uint32_t> all(size);
        std::iota(all.begin(), all.end(), 0);
        std::set<uint32_t> clear(all.begin(), all.end());
        size_t refused = 0;
        for (size_t i = 0; i < kOperations / std::size(sizes) + 1; ++i) {
            const int32_t lowest = clear.empty() ? -1 : static_cast<int32_t>(*clear.begin());
            ASSERT_EQ(BitMapFindFirstZeroBit(map), lowest) << size;
            auto bit = static_cast<uint32_t>(random_() % (size + 1));
            ASSERT_EQ(BitMapTestBit(map, bit), bit < size && !clear.contains(bit) ? 1U : 0U) << size;
            const size_t dice = random_() % 4000;
            if (dice == 0) {
                BitMapClrAll(map);
                clear.insert(all.begin(), all.end());
                continue;
            }
            bit = dice >= 1100 && lowest >= 0 ? static_cast<uint32_t>(lowest) : bit;
            refused += bit == size ? 1 : 0;
            if (dice < 1000) {
                BitMapClr(map, bit);
                clear.insert(all.begin() + bit, all.begin() + std::min(bit + 1, size));
            } else {
                BitMapSet(map, bit);
                clear.erase(bit);
            }
        }
        EXPECT_EQ(platform.recordCount, refused) << size;
        EXPECT_EQ(size % 32 == 0 ? 0 : map->aulWords[size / 32] >> size % 32, 0U) << "no bits of the map";
        BitMapFree(map);
    }
}

class Pool : public Bits {};

TEST_F(Pool, RefusesAndRecords)
{
    uint16_t id = 77;
    IndexArray none = {0, nullptr, 0, 0};
    IndexArray pool = {0, nullptr, 3, 0};
    EXPECT_TRUE(QX_UTL_InitIndexArray(nullptr) == 1 && QX_UTL_InitIndexArray(&none) == 1);
    EXPECT_EQ(QX_UTL_FreeIndex(&pool, 0), 0U) << "none is out, whatever the identifier";
    EXPECT_EQ(QX_UTL_FreeAllIndex(&pool), 0U);
    EXPECT_EQ(QX_UTL_NewIndex(&none, &id), 1U);
    EXPECT_TRUE(QX_UTL_NewIndex(nullptr, &id) == 1 && QX_UTL_NewIndex(&pool, nullptr) == 1);
    EXPECT_TRUE(QX_UTL_FreeIndex(nullptr, 1) == 1 && QX_UTL_FreeAllIndex(nullptr) == 1);
    platform.fail("QX_OS_MemMallocD", 1);
    EXPECT_EQ(QX_UTL_NewIndex(&pool, &id), 1U);
    EXPECT_TRUE(id == 77 && pool.usInitialised == 0 && pool.usUsed == 0) << "nothing changes";
    for (uint32_t next = 1; next <= 3; ++next) {
        EXPECT_TRUE(QX_UTL_NewIndex(&pool, &id) == 0 && id == next) << next;
    }
    EXPECT_EQ(QX_UTL_NewIndex(&pool, &id), 1U);
    EXPECT_TRUE(QX_UTL_FreeIndex(&pool, 0) == 0 && QX_UTL_FreeIndex(&pool, 4) == 0);
    EXPECT_EQ(QX_UTL_InitIndexArray(&pool), 0U) << "leaves a pool alone that is ready";
    EXPECT_TRUE(id == 3 && pool.usUsed == 3 && pool.usInitialised == 1);
    EXPECT_TRUE(QX_UTL_FreeIndex(&pool, 3) == 0 && QX_UTL_FreeIndex(&pool, 65535) == 0);
    EXPECT_TRUE(QX_UTL_FreeIndex(&pool, 1) == 0 && QX_UTL_FreeIndex(&pool, 2) == 0);
    EXPECT_EQ(QX_UTL_FreeAllIndex(&pool), 0U);
    EXPECT_TRUE(QX_UTL_NewIndex(&pool, &id) == 0 && id == 2) << "with none out the order stays";
    EXPECT_EQ(platform.calls({"QX_OS_MemMallocD"}), std::vector<Call>(2, {"QX_OS_MemMallocD", {6}, {}}));
    EXPECT_TRUE(platform.recorded(
        "qx_util_common.cpp",
        {{1}, {1}, {1}, {1}, {1}, {1, 3}, {1}, {1, 3, 3}, {1, 0, 3, 3}, {1, 4, 3, 3}, {1, 65535, 3, 2}}));
    EXPECT_EQ(platform.places.size(), 7U) << "each failure has a line of its own";
    (void)QX_OS_MemFreeD(pool.pusFree);
}

TEST_F(Pool, AgreesWithAStack)
{
    for (const uint32_t capacity : {1U, 3U, 300U, 65535U}) {
        platform.watching = false;
        IndexArray pool = {0, nullptr, static_cast<uint16_t>(capacity), 0};
        ASSERT_EQ(QX_UTL_InitIndexArray(&pool), 0U);
        std::vector<uint16_t> order(capacity);
        std::iota(order.rbegin(), order.rend(), uint16_t{1});
        std::vector<uint16_t> free = order; // the next one last
        std::vector<uint16_t> out;
        bool grows = true;
        for (size_t i = 0; i < kOperations / 4; ++i) {
            grows = out.empty() || (!free.empty() && (random_() % 1000 == 0) != grows);
            if (i % 60000 == 59999) {
                ASSERT_EQ(QX_UTL_FreeAllIndex(&pool), 0U);
                free = out.empty() ? free : order;
                out.clear();
            } else if (grows) {
                ASSERT_EQ(QX_UTL_NewIndex(&pool, &out.emplace_back()), 0U);
                ASSERT_EQ(out.back(), free.back()) << capacity << ", operation " << i;
                free.pop_back();
            } else {
                std::swap(out[random_() % out.size()], out.back());
                ASSERT_EQ(QX_UTL_FreeIndex(&pool, out.back()), 0U);
                free.push_back(out.back());
                out.pop_back();
            }
            ASSERT_EQ(pool.usUsed, out.size());
        }
        (void)QX_OS_MemFreeD(pool.pusFree);
    }
    EXPECT_EQ(platform.recordCount, 0U);
}

} // namespace
