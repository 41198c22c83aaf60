// The search of a bit map beside a search bit by bit, and an identifier pool beside a set of free numbers.
#include "qx/memory.h"
#include "zema/bit_map.h"
#include "zema/index_array.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

int32_t findBitByBit(const BitMap *map)
{
    for (uint32_t bit = 0; bit < map->ulBitCount; ++bit) {
        if ((map->aulWords[bit / 32] >> bit % 32 & 1U) == 0) {
            return static_cast<int32_t>(bit);
        }
    }
    return -1;
}

// All but the last number are in use.
void lowestClear(benchmark::State &state, int32_t (*find)(const BitMap *), uint32_t count)
{
    BitMap *const map = BitMapAlloc(count);
    for (uint32_t bit = 0; bit + 1 < count; ++bit) {
        BitMapSet(map, bit);
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(map);
        int32_t found = find(map);
        benchmark::DoNotOptimize(found);
        benchmark::ClobberMemory();
    }
    if (find(map) != static_cast<int32_t>(count) - 1) {
        state.SkipWithError("another number is found");
    }
    BitMapFree(map);
}

// A set hands out its lowest number, a pool the one that came back last.

class PoolOfOurs {
public:
    explicit PoolOfOurs(uint16_t capacity) : pool_{0, nullptr, capacity, 0} {}
    PoolOfOurs(const PoolOfOurs &) = delete;
    PoolOfOurs &operator=(const PoolOfOurs &) = delete;
    ~PoolOfOurs() { (void)QX_OS_MemFreeD(pool_.pusFree); }

    uint16_t take()
    {
        uint16_t id = 0;
        (void)QX_UTL_NewIndex(&pool_, &id);
        return id;
    }
    void giveBack(uint16_t id) { (void)QX_UTL_FreeIndex(&pool_, id); }

private:
    IndexArray pool_;
};

class PoolOfASet {
public:
    explicit PoolOfASet(uint16_t capacity)
    {
        for (uint32_t id = 1; id <= capacity; ++id) {
            free_.insert(free_.end(), static_cast<uint16_t>(id));
        }
    }
    uint16_t take()
    {
        const uint16_t id = *free_.begin();
        free_.erase(free_.begin());
        return id;
    }
    void giveBack(uint16_t id) { free_.insert(id); }

private:
    std::set<uint16_t> free_;
};

// Every number goes out and comes back, each time in an order that is not foreseen.
template <typename Pool>
void takeAndGiveBack(benchmark::State &state, uint16_t capacity)
{
    constexpr size_t kStepsBeforeOrdersRepeat = 1U << 18U;

    std::mt19937 random(6); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same orders in every run
    std::vector<std::vector<uint16_t>> orders(kStepsBeforeOrdersRepeat / capacity);
    for (std::vector<uint16_t> &order : orders) {
        order.resize(capacity);
        std::iota(order.begin(), order.end(), uint16_t{0});
        std::shuffle(order.begin(), order.end(), random);
    }
    Pool pool(capacity);
    std::vector<uint16_t> held(capacity);
    size_t round = 0;
    while (state.KeepRunningBatch(capacity)) {
        const std::vector<uint16_t> &order = orders[round++ % orders.size()];
        std::generate(held.begin(), held.end(), [&] { return pool.take(); });
        std::for_each(order.begin(), order.end(), [&](uint16_t at) { pool.giveBack(held[at]); });
    }
    std::sort(held.begin(), held.end());
    if (held.front() != 1 || held.back() != capacity ||
        std::adjacent_find(held.begin(), held.end()) != held.end()) {
        state.SkipWithError("a number was handed out twice");
    }
}

const bool registered = [] {
    for (const uint32_t count : {4096U, 65536U}) {
        const std::string bits = std::to_string(count);
        benchmark::RegisterBenchmark(std::string("lowest/").append(bits).c_str(), lowestClear,
                                     BitMapFindFirstZeroBit, count);
        benchmark::RegisterBenchmark(std::string("bitByBit/").append(bits).c_str(), lowestClear, findBitByBit,
                                     count);
    }
    for (const uint16_t capacity : std::array<uint16_t, 3>{256, 4096, 65535}) {
        const std::string ids = std::to_string(capacity);
        benchmark::RegisterBenchmark(std::string("pool/").append(ids).c_str(), takeAndGiveBack<PoolOfOurs>,
                                     capacity);
        benchmark::RegisterBenchmark(std::string("set/").append(ids).c_str(), takeAndGiveBack<PoolOfASet>,
                                     capacity);
    }
    return true;
}();

} // namespace
