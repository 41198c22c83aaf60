// The shared tables from outside: requests that are not what they say, a model of the store, and many clients
// of an owner that is killed again and again.
#include "qx/data_sync.h"
#include "table_requests.h"
#include "table_service.h"
#include "tests/support/processes.h"
#include "zema/multi_hashtable_ex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <vector>

namespace {

using namespace zema::test;

class TableService : public Scratch {};

void own()
{
    EXPECT_EQ(QxHost_ServeSync(tools::serveTables, nullptr), QX_OK);
}

TEST_F(TableService, LooksAtEverySizeBeforeUse)
{
    struct Row {
        const char *reason;
        uint32_t code;
        std::vector<uint32_t> words;
        uint32_t size;
        uint32_t replySize;
        uint32_t result;
    };
    constexpr uint32_t kTable = 77;
    const Row rows[] = {
        {"a save without its words", 14, {kTable, 1, 0}, 11, 0, QX_ERR_PROTOCOL},
        {"of more than there is", 14, {kTable, 1, 5}, 16, 0, QX_ERR_PROTOCOL},
        {"of less", 14, {kTable, 1, 3}, 16, 0, QX_ERR_PROTOCOL},
        {"of a length that wraps", 14, {kTable, 1, 0xFFFFFFF8}, 16, 0, QX_ERR_PROTOCOL},
        {"that wants a reply", 14, {kTable, 1, 4, 9}, 16, 4, QX_ERR_PROTOCOL},
        {"of four bytes", 14, {kTable, 1, 4, 9}, 16, 0, QX_OK},
        {"longer than the item", 14, {kTable, 1, 8, 9, 9}, 20, 0, 1},
        {"a read of another length than its reply's", 16, {kTable, 1, 4}, 12, 3, QX_ERR_PROTOCOL},
        {"with a word too many", 16, {kTable, 1, 4, 0}, 16, 4, QX_ERR_PROTOCOL},
        {"longer than the item", 16, {kTable, 1, 8}, 12, 8, 1},
        {"of the item", 16, {kTable, 1, 4}, 12, 4, QX_OK},
        {"of what is not there", 16, {kTable, 2, 4}, 12, 4, QX_ERR_NOT_FOUND},
        {"a list without room for the count", 17, {kTable, 0}, 8, 3, QX_ERR_PROTOCOL},
        {"of more than there is room for", 17, {kTable, 0xFFFFFFFF}, 8, 7, QX_OK},
        {"a deletion without index", 15, {kTable}, 4, 0, QX_ERR_PROTOCOL},
        {"of the item", 15, {kTable, 1}, 8, 0, QX_OK},
        {"of the item again", 15, {kTable, 1}, 8, 0, QX_ERR_NOT_FOUND},
        {"a listing into little room", tools::kListTables, {0}, 4, 8, QX_ERR_PROTOCOL},
        {"items of no table", tools::kListItems, {99, 0}, 8, sizeof(tools::Page), QX_ERR_NOT_FOUND},
        {"a length of no table", tools::kItemLength, {99, 0}, 8, 4, QX_ERR_NOT_FOUND},
        {"no code", 13, {}, 0, 0, QX_ERR_NOT_FOUND},
    };
    for (const Row &row : rows) {
        const auto data = std::make_unique<char[]>(row.size); // of exactly that size, for the sanitizer
        const auto *const words = reinterpret_cast<const char *>(row.words.data());
        std::copy_n(words, std::min<size_t>(row.size, row.words.size() * 4), data.get());
        const auto reply = std::make_unique<uint32_t[]>(row.replySize / 4 + 1);
        const QxSyncRequest request{.ulCode = row.code,
                                    .ulPid = 1,
                                    .pvData = data.get(),
                                    .ulSize = row.size,
                                    .pvReply = reply.get(),
                                    .ulReplySize = row.replySize};
        EXPECT_EQ(tools::serveTables(nullptr, &request), row.result) << row.reason << ", code " << row.code;
    }
}

TEST_F(TableService, KeepsToTheModelAcrossProcesses)
{
    const Child owner(own);
    std::mt19937 engine(41); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same operations in every run
    const auto below = [&engine](size_t limit) { return static_cast<uint32_t>(engine() % limit); };
    std::map<uint32_t, std::map<uint32_t, std::string>> model;
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        const uint32_t table = below(3), index = below(40) << below(2) * 20;
        auto &items = model[table];
        const bool known = items.contains(index);
        const std::string old = known ? items[index] : "";
        const uint32_t size = below(4) == 0 ? below(300) : below(old.size() + 1);
        const bool fits = size <= old.size();
        std::string data(size, static_cast<char>('a' + below(26)));
        switch (below(4)) {
        case 0:
            EXPECT_EQ(MultiHashtableEx_SaveData(table, index, data.data(), size), known && !fits ? 1U : 0U);
            items[index] = !known ? data : fits ? data + old.substr(size) : old;
            break;
        case 1:
            EXPECT_EQ(MultiHashtableEx_DeleteData(table, index) == 0, items.erase(index) == 1);
            break;
        case 2:
            data.assign(size, '#');
            EXPECT_EQ(MultiHashtableEx_GetData(table, index, data.data(), size) == 0, known && fits);
            EXPECT_EQ(data, known && fits ? old.substr(0, size) : std::string(size, '#'));
            break;
        default: {
            std::array<uint32_t, 80> indexes{};
            uint32_t count = 99;
            EXPECT_EQ(MultiHashtableEx_GetIndexList(table, indexes.data(), indexes.size(), &count), 0U);
            std::sort(indexes.begin(), indexes.begin() + count);
            EXPECT_TRUE(std::equal(indexes.begin(), indexes.begin() + count, items.begin(), items.end(),
                                   [](uint32_t listed, const auto &item) { return listed == item.first; }));
        }
        }
    }
}

TEST_F(TableService, CarriesTheLongestRequests)
{
    const Child owner(own);
    std::vector<uint8_t> data(MULTIHASHTABLEEX_SAVE_MAX);
    std::ranges::generate(data, [n = 0U]() mutable { return static_cast<uint8_t>(n++ * 31); });
    EXPECT_EQ(MultiHashtableEx_SaveData(1, 1, data.data(), MULTIHASHTABLEEX_SAVE_MAX), 0U);
    std::vector<uint8_t> read(data.size());
    EXPECT_EQ(MultiHashtableEx_GetData(1, 1, read.data(), MULTIHASHTABLEEX_SAVE_MAX), 0U);
    EXPECT_TRUE(read == data);
    for (uint32_t i = 0; i < MULTIHASHTABLEEX_LIST_MAX + 5; ++i) {
        EXPECT_EQ(MultiHashtableEx_SaveData(2, i * 64, &i, sizeof i), 0U);
    }
    std::vector<uint32_t> indexes(MULTIHASHTABLEEX_LIST_MAX);
    uint32_t count = 0;
    EXPECT_EQ(MultiHashtableEx_GetIndexList(2, indexes.data(), MULTIHASHTABLEEX_LIST_MAX, &count), 0U);
    EXPECT_EQ(count, MULTIHASHTABLEEX_LIST_MAX);
    std::ranges::sort(indexes);
    EXPECT_EQ(std::ranges::adjacent_find(indexes), indexes.end());
}

// ---- Many clients, and an owner that dies ----

struct Load {
    uint32_t clients = 4;
    uint32_t requests = 4000; // of each client
    uint32_t kills = 5;
};

// ZEMA_LOAD="8 125000 20" is the million.
Load wantedLoad()
{
    Load load;
    const char *const wanted = getenv("ZEMA_LOAD");
    if (wanted != nullptr) {
        sscanf(wanted, "%u %u %u", &load.clients, &load.requests, &load.kills);
    }
    return load;
}

struct Counts {
    std::atomic<uint32_t> life{0}; // odd while there is no owner
    std::atomic<uint32_t> done{0}; // requests
    std::atomic<uint32_t> failed{0};
    std::atomic<uint32_t> unexpected{0}; // that failed though the same owner was there before and after
    std::atomic<uint32_t> wrong{0};      // items with bytes that nobody saved
    std::atomic<uint32_t> finished{0};   // clients
};

using Item = std::array<uint32_t, 16>;

// Of equal words that tell whose item it is.
bool isRight(const Item &item, uint32_t key)
{
    return item[0] % 256 == key && std::ranges::count(item, item[0]) == 16;
}

uint32_t askOnce(std::mt19937 &engine, Counts &counts)
{
    const auto table = static_cast<uint32_t>(engine() % 3);
    const auto index = static_cast<uint32_t>(engine() % 50);
    Item item;
    item.fill(static_cast<uint32_t>(engine()) << 8U | (table * 50 + index));
    const size_t deed = engine() % 8;
    const uint32_t result = deed < 3    ? MultiHashtableEx_SaveData(table, index, item.data(), sizeof item)
                            : deed == 3 ? MultiHashtableEx_DeleteData(table, index)
                                        : MultiHashtableEx_GetData(table, index, item.data(), sizeof item);
    counts.wrong += result == QX_OK && !isRight(item, table * 50 + index) ? 1 : 0;
    return result == QX_ERR_NOT_FOUND ? QX_OK : result;
}

void askAlot(uint32_t seed, uint32_t requests, Counts &counts)
{
    std::mt19937 engine(seed); // NOLINT(cert-msc32-c,cert-msc51-cpp)
    for (uint32_t i = 0; i < requests;) {
        const uint32_t before = counts.life;
        if (askOnce(engine, counts) == QX_OK) {
            ++counts.done;
            ++i;
            continue;
        }
        ++counts.failed;
        counts.unexpected += before % 2 == 0 && before == counts.life ? 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ++counts.finished;
}

TEST_F(TableService, ManyClientsOutliveTheirOwners)
{
    const Load load = wantedLoad();
    Shared<Counts> counts;
    auto owner = std::make_unique<Child>(own);
    std::vector<pid_t> clients;
    for (uint32_t i = 0; i < load.clients; ++i) {
        clients.push_back(fork());
        if (clients.back() == 0) {
            askAlot(i, load.requests, *counts);
            _exit(0);
        }
    }
    std::mt19937 engine(std::random_device{}());
    const uint64_t all = uint64_t{load.clients} * load.requests;
    for (uint32_t i = 0; i < load.kills; ++i) {
        const uint64_t until = all * i / load.kills + engine() % (all / load.kills);
        EXPECT_TRUE(eventually([&] { return counts->done >= until || counts->finished == load.clients; }));
        ++counts->life;
        owner->end(SIGKILL);
        owner = std::make_unique<Child>(own);
        ++counts->life;
    }
    for (const pid_t client : clients) {
        waitpid(client, nullptr, 0);
    }
    EXPECT_TRUE(counts->finished == load.clients && counts->done == all);
    EXPECT_EQ(counts->wrong + counts->unexpected, 0U);
    std::printf(
        "%u clients, %lu requests, %u kills: %u failures, all while there was no owner; no wrong byte\n",
        load.clients, static_cast<unsigned long>(all), load.kills, counts->failed.load());
}

} // namespace
