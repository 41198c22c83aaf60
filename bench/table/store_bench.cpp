// The table store through its exported functions, beside the stores of store_peers.h.
#include "bench/table/store_peers.h"
#include "zema/multi_hashtable.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <random>
#include <vector>

namespace {

constexpr uint32_t kTable = 7;
constexpr uint32_t kItemSize = 64;

using Item = std::array<char, kItemSize>;

// ---- The stores ----

struct Ours {
    static constexpr auto save = MultiHashtable_SaveData;
    static constexpr auto get = MultiHashtable_GetData;
    static constexpr auto remove = MultiHashtable_DeleteData;

    // The empty table goes too: the next round begins with a new one, as the other stores do.
    static void drop()
    {
        const auto destroy = [](void *value) {
            auto *table = static_cast<Hashtable *>(value);
            return table->pfnDestroy(&table);
        };
        Hashtable *const tables = Hashtable_GetHashtable3(&g_MultiHashtable);
        tables->pfnRemove(tables, kTable, destroy, 0);
    }
};

struct Std {
    static constexpr auto save = stdStoreSave;
    static constexpr auto get = stdStoreGet;
    static constexpr auto remove = stdStoreRemove;
    static void drop() { stdStoreDrop(kTable); }
};

struct Absl {
    static constexpr auto save = abslStoreSave;
    static constexpr auto get = abslStoreGet;
    static constexpr auto remove = abslStoreRemove;
    static void drop() { abslStoreDrop(kTable); }
};

// ---- What is measured ----

// Different indexes, scattered over all their range.
std::vector<uint32_t> scattered(size_t count)
{
    std::mt19937 engine(20261123); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same indexes in every run
    std::vector<uint32_t> indexes;
    while (indexes.size() < count) {
        const size_t missing = count - indexes.size();
        std::generate_n(std::back_inserter(indexes), missing, std::ref(engine));
        std::sort(indexes.begin(), indexes.end());
        indexes.erase(std::unique(indexes.begin(), indexes.end()), indexes.end());
    }
    std::shuffle(indexes.begin(), indexes.end(), engine);
    return indexes;
}

template <typename Store>
void fill(const std::vector<uint32_t> &indexes)
{
    Item item{};
    for (const uint32_t index : indexes) {
        std::memcpy(item.data(), &index, sizeof index);
        benchmark::DoNotOptimize(Store::save(kTable, index, item.data(), kItemSize));
    }
}

template <typename Store>
void drain(const std::vector<uint32_t> &indexes)
{
    for (const uint32_t index : indexes) {
        benchmark::DoNotOptimize(Store::remove(kTable, index));
    }
}

// In another order than that of their first save.
std::vector<uint32_t> reordered(std::vector<uint32_t> indexes)
{
    std::mt19937 engine(1); // NOLINT(cert-msc32-c,cert-msc51-cpp)
    std::shuffle(indexes.begin(), indexes.end(), engine);
    return indexes;
}

template <typename Store>
void get(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    const std::vector<uint32_t> asked = reordered(indexes);
    fill<Store>(indexes);
    Item item{};
    size_t i = 0;
    while (state.KeepRunning()) {
        if (Store::get(kTable, asked[i], item.data(), kItemSize) != 0 ||
            std::memcmp(item.data(), &asked[i], sizeof asked[i]) != 0) {
            state.SkipWithError("not what was saved");
        }
        i = i + 1 < asked.size() ? i + 1 : 0;
    }
    drain<Store>(indexes);
    Store::drop();
}

template <typename Store>
void overwrite(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    const std::vector<uint32_t> asked = reordered(indexes);
    fill<Store>(indexes);
    const Item item{};
    size_t i = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(Store::save(kTable, asked[i], item.data(), kItemSize));
        i = i + 1 < asked.size() ? i + 1 : 0;
    }
    drain<Store>(indexes);
    Store::drop();
}

template <typename Action>
double secondsOf(Action action)
{
    const auto begin = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

// Of all items, into a new table.
template <typename Store>
void add(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    while (state.KeepRunning()) {
        state.SetIterationTime(secondsOf([&] { fill<Store>(indexes); }));
        drain<Store>(indexes);
        Store::drop();
    }
}

template <typename Store>
void remove(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    const std::vector<uint32_t> asked = reordered(indexes);
    while (state.KeepRunning()) {
        fill<Store>(indexes);
        state.SetIterationTime(secondsOf([&] { drain<Store>(asked); }));
        Store::drop();
    }
}

size_t bytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Bytes an item, given as nanoseconds.
template <typename Store>
void memory(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    while (state.KeepRunning()) {
        const size_t before = bytesInUse();
        fill<Store>(indexes);
        const auto bytes = static_cast<double>(bytesInUse() - before);
        state.SetIterationTime(bytes / static_cast<double>(indexes.size()) * 1e-9);
        drain<Store>(indexes);
        Store::drop();
    }
}

// The longest of all saves that fill a table: what a growth costs at once.
template <typename Store>
void longestAdd(benchmark::State &state)
{
    const std::vector<uint32_t> indexes = scattered(static_cast<size_t>(state.range(0)));
    const Item item{};
    while (state.KeepRunning()) {
        double longest = 0;
        for (const uint32_t index : indexes) {
            longest =
                std::max(longest, secondsOf([&] {
                             benchmark::DoNotOptimize(Store::save(kTable, index, item.data(), kItemSize));
                         }));
        }
        state.SetIterationTime(longest);
        drain<Store>(indexes);
        Store::drop();
    }
}

void counts(benchmark::internal::Benchmark *bench)
{
    bench->Arg(100)->Arg(10'000)->Arg(1'000'000);
}

void timedCounts(benchmark::internal::Benchmark *bench)
{
    bench->Apply(counts)->UseManualTime();
}

void onceEach(benchmark::internal::Benchmark *bench)
{
    bench->Apply(timedCounts)->Iterations(1);
}

BENCHMARK_TEMPLATE(get, Ours)->Apply(counts);
BENCHMARK_TEMPLATE(get, Std)->Apply(counts);
BENCHMARK_TEMPLATE(get, Absl)->Apply(counts);
BENCHMARK_TEMPLATE(overwrite, Ours)->Apply(counts);
BENCHMARK_TEMPLATE(overwrite, Std)->Apply(counts);
BENCHMARK_TEMPLATE(overwrite, Absl)->Apply(counts);
BENCHMARK_TEMPLATE(add, Ours)->Apply(timedCounts);
BENCHMARK_TEMPLATE(add, Std)->Apply(timedCounts);
BENCHMARK_TEMPLATE(add, Absl)->Apply(timedCounts);
BENCHMARK_TEMPLATE(remove, Ours)->Apply(timedCounts);
BENCHMARK_TEMPLATE(remove, Std)->Apply(timedCounts);
BENCHMARK_TEMPLATE(remove, Absl)->Apply(timedCounts);
BENCHMARK_TEMPLATE(memory, Ours)->Apply(onceEach);
BENCHMARK_TEMPLATE(memory, Std)->Apply(onceEach);
BENCHMARK_TEMPLATE(memory, Absl)->Apply(onceEach);
BENCHMARK_TEMPLATE(longestAdd, Ours)->Apply(onceEach);
BENCHMARK_TEMPLATE(longestAdd, Std)->Apply(onceEach);
BENCHMARK_TEMPLATE(longestAdd, Absl)->Apply(onceEach);

} // namespace
