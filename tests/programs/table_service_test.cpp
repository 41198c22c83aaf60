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
    const auto below = [&engine](uint32_t limit) { return static_cast<uint32_t>(engine() % limit); };
    std::map<std::pair<uint32_t, uint32_t>, std::string> model;
    for (int i = 0; i < 20000 && !HasFailure(); ++i) {
        const std::pair<uint32_t, uint32_t> key{below(3), below(40)};
        const auto item = model.find(key);
        const size_t most = item == model.end() ? 300 : item->second.size();
        switch (below(4)) {
        case 0: {
            const std::string data(below(static_cast<uint32_t>(most) + 1),
                                   static_cast<char>('a' + below(26)));
            EXPECT_EQ(MultiHashtableEx_SaveData(key.first, key.second, data.data(),
                                                static_cast<uint32_t>(data.size())),
                      0U);
            model.try_emplace(key, data).first->second.replace(0, data.size(), data);
            break;
        }
        case 1:
            EXPECT_EQ(MultiHashtableEx_DeleteData(key.first, key.second) == 0, model.erase(key) == 1);
            break;
        case 2: {
            std::string data(most, '#');
            const auto size = static_cast<uint32_t>(data.size());
            const uint32_t result = MultiHashtableEx_GetData(key.first, key.second, data.data(), size);
            EXPECT_EQ(result == 0, item != model.end());
            EXPECT_EQ(data, item == model.end() ? std::string(most, '#') : item->second);
            break;
        }
        default: {
            std::array<uint32_t, 64> indexes{};
            uint32_t count = 99;
            EXPECT_EQ(MultiHashtableEx_GetIndexList(key.first, indexes.data(), 64, &count), 0U);
            std::sort(indexes.begin(), indexes.begin() + count);
            std::vector<uint32_t> expected;
            for (const auto &[other, data] : model) {
                if (other.first == key.first) {
                    expected.push_back(other.second);
                }
            }
            EXPECT_EQ(std::vector<uint32_t>(indexes.begin(), indexes.begin() + count), expected);
        }
        }
    }
    const uint32_t tooLong = 400;
    const std::vector<char> data(tooLong);
    EXPECT_EQ(MultiHashtableEx_SaveData(model.begin()->first.first, model.begin()->first.second, data.data(),
                                        tooLong),
              1U);
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

Item makeItem(uint32_t table, uint32_t index, uint32_t stamp)
{
    Item item;
    std::ranges::generate(
        item, [&, n = 0U]() mutable { return (table * 1000 + index) * 0x9E3779B9U ^ (stamp + n++); });
    return item;
}

bool isRight(uint32_t table, uint32_t index, const Item &item)
{
    const uint32_t stamp = item[0] ^ (table * 1000 + index) * 0x9E3779B9U;
    return item == makeItem(table, index, stamp);
}

uint32_t askOnce(std::mt19937 &engine, Counts &counts)
{
    const uint32_t table = static_cast<uint32_t>(engine() % 3);
    const uint32_t index = static_cast<uint32_t>(engine() % 50);
    Item item = makeItem(table, index, static_cast<uint32_t>(engine()));
    switch (engine() % 8) {
    case 0:
    case 1:
    case 2:
        return MultiHashtableEx_SaveData(table, index, item.data(), sizeof item);
    case 3: {
        const uint32_t result = MultiHashtableEx_DeleteData(table, index);
        return result == QX_ERR_NOT_FOUND ? QX_OK : result;
    }
    default: {
        const uint32_t result = MultiHashtableEx_GetData(table, index, item.data(), sizeof item);
        counts.wrong += result == QX_OK && !isRight(table, index, item) ? 1 : 0;
        return result == QX_ERR_NOT_FOUND ? QX_OK : result;
    }
    }
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
    EXPECT_EQ(counts->finished, load.clients);
    EXPECT_EQ(counts->done, all);
    EXPECT_EQ(counts->wrong, 0U);
    EXPECT_EQ(counts->unexpected, 0U);
    std::printf(
        "%u clients, %lu requests, %u kills: %u failures, all while there was no owner; no wrong byte\n",
        load.clients, static_cast<unsigned long>(all), load.kills, counts->failed.load());
}

} // namespace
