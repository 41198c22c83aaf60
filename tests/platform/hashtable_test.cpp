// The hashtable: keys in and out in every order, badly chosen keys, changes in the middle of a visit, no
// memory.
#include "qx/hashtable.h"

#include "tests/platform/surroundings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <random>

namespace {

class Table {
public:
    explicit Table(uint32_t room = 0) { Hashtable_Create(&table, room, 0); }
    ~Table() { EXPECT_EQ(table->pfnDestroy(&table), QX_OK); }
    Table(const Table &) = delete;
    Table &operator=(const Table &) = delete;

    uint32_t put(uint32_t key) { return table->pfnPut(table, key, valueOf(key)); }
    bool holds(uint32_t key)
    {
        void *value = this;
        const uint32_t result = table->pfnGet(table, key, &value);
        EXPECT_EQ(value, result == QX_OK ? valueOf(key) : this);
        EXPECT_EQ(table->pfnHasKey(table, key), result == QX_OK ? 1U : 0U);
        return result == QX_OK;
    }
    std::vector<uint32_t> keys(uint32_t max = 1U << 20U)
    {
        std::vector<uint32_t> all(max);
        uint32_t count = 0;
        EXPECT_EQ(table->pfnGetKeys(table, all.data(), max, &count), QX_OK);
        all.resize(count);
        return all;
    }
    // Null for key 0: that is a value like any other.
    static void *valueOf(uint32_t key) { return reinterpret_cast<void *>(uintptr_t{key} * 8); }

    Hashtable *table = nullptr;
};

// Ways to choose the nth key.
struct Choice {
    const char *reason;
    std::function<uint32_t(uint32_t)> key;
};
const Choice kChoices[] = {
    {"scattered", [](uint32_t n) { return static_cast<uint32_t>(std::mt19937(n)()); }},
    {"a sequence", [](uint32_t n) { return n; }},
    {"a sequence from the end", [](uint32_t n) { return ~n; }},
    {"multiples of 2^12", [](uint32_t n) { return n << 12U; }},
    {"two sequences in each half", [](uint32_t n) { return n << 16U | n >> 8U; }},
    {"a step that the multiplier takes to nearly nothing", [](uint32_t n) { return n * 46368; }},
    {"addresses in network order", [](uint32_t n) { return __builtin_bswap32(0x0A000000 + n); }},
};

TEST(Hashtable, IsAMap)
{
    for (const Choice &choice : kChoices) {
        Table table;
        std::mt19937 random(1); // NOLINT(cert-msc32-c,cert-msc51-cpp)
        std::map<uint32_t, bool> model;
        const auto step = [&](uint32_t range, bool grows) {
            const uint32_t key = choice.key(static_cast<uint32_t>(random()) % range);
            const bool known = model.contains(key);
            if (random() % 3 < (grows ? 2 : 1)) {
                EXPECT_EQ(table.put(key), known ? QX_ERR_TAKEN : QX_OK);
                model[key] = true;
            } else {
                EXPECT_EQ(table.table->pfnRemove(table.table, key, nullptr, 0),
                          known ? QX_OK : QX_ERR_NOT_FOUND);
                model.erase(key);
            }
            EXPECT_EQ(table.holds(key), model.contains(key)) << choice.reason;
            EXPECT_EQ(table.table->pfnGetCount(table.table), model.size());
        };
        for (int i = 0; i < 60000; ++i) { // grows, shrinks, and is looked at in the middle of a growth
            step(12000, i % 30000 < 20000);
            if (i % 1237 == 0) {
                auto keys = table.keys();
                EXPECT_EQ(keys, table.keys()) << "the order is stable";
                EXPECT_TRUE(keys.size() < 9 || table.keys(9) == std::vector(keys.begin(), keys.begin() + 9));
                std::sort(keys.begin(), keys.end());
                EXPECT_TRUE(std::equal(keys.begin(), keys.end(), model.begin(), model.end(),
                                       [](uint32_t key, const auto &entry) { return key == entry.first; }));
                for (const auto &entry : model) {
                    ASSERT_TRUE(table.holds(entry.first)) << choice.reason;
                }
            }
        }
    }
}

TEST(Hashtable, IsNotSlowedDownByTheChoiceOfKeys)
{
    std::map<std::string, double> seconds;
    for (const Choice &choice : kChoices) {
        std::vector<uint32_t> keys(60000);
        for (uint32_t n = 0; n < keys.size(); ++n) {
            keys[n] = choice.key(n);
        }
        Table table;
        const auto begin = std::chrono::steady_clock::now();
        for (const uint32_t key : keys) {
            table.put(key);
        }
        seconds[choice.reason] =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
        EXPECT_LT(seconds[choice.reason], 25 * seconds["scattered"])
            << choice.reason << ": unmoved keys take a thousand times as long";
    }
}

TEST(Hashtable, StaysAsItIsWhileItIsVisited)
{
    Table table;
    uint32_t empty = 0;
    const auto visitor = [](uint32_t key, void *value, void *given, void *sum, void *last) {
        Hashtable *visited = static_cast<Table *>(given)->table;
        EXPECT_EQ(value, Table::valueOf(key));
        EXPECT_EQ(visited->pfnPut(visited, 999, nullptr), QX_ERR_BUSY);
        EXPECT_EQ(visited->pfnRemove(visited, key, nullptr, 0), QX_ERR_BUSY);
        EXPECT_EQ(visited->pfnDestroy(&visited), QX_ERR_BUSY);
        EXPECT_EQ(visited->pfnReplace(visited, key, sum), QX_OK);
        *static_cast<uint32_t *>(sum) += key;
        return key == *static_cast<uint32_t *>(last) ? 5U : 0U;
    };
    EXPECT_EQ(table.table->pfnForEach(table.table, visitor, &table, &empty, &empty), QX_OK) << "empty";
    for (uint32_t key = 1; key <= 100; ++key) {
        table.put(key);
    }
    uint32_t sum = 0;
    uint32_t last = 101;
    EXPECT_EQ(table.table->pfnForEach(table.table, visitor, &table, &sum, &last), QX_OK);
    EXPECT_EQ(sum, 5050U);
    static Hashtable *released = nullptr;
    released = table.table;
    const HashtableRelease release = [](void *value) {
        *static_cast<uint32_t *>(value) = released->pfnHasKey(released, 7);
        return released->pfnPut(released, 7, Table::valueOf(7));
    };
    EXPECT_EQ(table.table->pfnRemove(table.table, 7, release, 0), QX_OK);
    EXPECT_TRUE(sum == 0 && table.holds(7)) << "the value left before it was released";
    last = table.keys(1)[0];
    EXPECT_EQ(table.table->pfnReplace(table.table, last, Table::valueOf(last)), QX_OK);
    EXPECT_EQ(table.table->pfnForEach(table.table, visitor, &table, &sum, &last), 5U);
    EXPECT_EQ(sum, last) << "one visit";
    EXPECT_EQ(table.table->pfnReplace(table.table, 101, nullptr), QX_ERR_NOT_FOUND);
}

TEST(Hashtable, WorksOnWithoutMemory)
{
    Hashtable *made = nullptr;
    EXPECT_EQ(Hashtable_Create(&made, 0xFFFFFFFF, 0), nullptr);
    EXPECT_EQ(made, nullptr);
    if constexpr (NoMemory::kWorks) {
        Table grows;
        Table hasRoom(100000);
        uint32_t count = 0;
        uint32_t result = QX_OK;
        {
            const NoMemory noMemory;
            for (uint32_t key = 0; key < 100000; ++key) {
                EXPECT_EQ(hasRoom.put(key), QX_OK);
            }
            for (; result == QX_OK; result = grows.put(count)) {
                ++count;
            }
        }
        EXPECT_EQ(result, QX_ERR_NO_MEMORY);
        EXPECT_EQ(grows.keys().size(), count - 1);
        EXPECT_EQ(grows.put(count), QX_OK) << "there is memory again";
    }
}

} // namespace
