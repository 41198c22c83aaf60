// Layer records: whom a save warns, what an iteration skips and reports, which stamps a state sets.
#include "zema/layer_base.h"

#include "tests/support/platform_double_table.h"

using namespace zema::test;

namespace {

struct Record {
    LayerBaseHeader header;
    uint32_t own;
};

uint32_t save(uint32_t table, uint32_t index, uint32_t visible = 1)
{
    const Record record{{index, 0, 0, 0, table, visible}, 1000 + index};
    return LayerBase_SaveData(&record, sizeof record);
}

class LayerBase : public TableTest {};

TEST_F(LayerBase, WarnsOffTheMainThread)
{
    struct Row {
        const char *reason;
        uint32_t table, state, thread, module;
        std::string name; // empty: no warning
    };
    const Row rows[] = {
        {"the main thread", 1, 0, 100, 5, ""},
        {"another one", 1, 0, 107, 0, "TABLE_OF_IPV6IF"},
        {"another table", 2, 5, 107, 0, "TABLE_OF_IPV4IF"},
        {"another table", 5, 7, 107, 0, "TABLE_OF_PPPIF"},
        {"another table", 6, 0, 107, 0, "TABLE_OF_ETHLINK"},
        {"another table", 7, 0, 107, 0, "TABLE_OF_WANBASIC"},
        {"a table that is not listed", 3, 0, 107, 1, ""},
        {"a table that is not listed", 4, 6, 107, 1, ""},
        {"a table that is not listed", 8, 0, 107, 1, ""},
        {"module 0 in the state of modules", 1, 6, 107, 0, ""},
        {"another module then", 1, 6, 100, 2, "TABLE_OF_IPV6IF"},
    };
    for (const Row &row : rows) {
        deeds();
        around = {.state = row.state, .thread = row.thread, .module = row.module};
        EXPECT_EQ(save(row.table, 4), 0U) << row.reason;
        const std::string warning = "print \n[WARNNING] TableId=" + row.name +
                                    " save not in zema main thread(100), current thread(" +
                                    std::to_string(row.thread) + ")\n backTrace layer_base.cpp ";
        const std::string wanted = (row.name.empty() ? "" : warning) + "malloc40 memset_s40,0,40 sync14," +
                                   std::to_string(row.table) + ",4,28 ";
        EXPECT_EQ(deeds().substr(0, wanted.size()), wanted) << row.reason;
    }
}

TEST_F(LayerBase, HandsOutWhatIsVisibleAndReportsFailures)
{
    Record record{};
    std::pair<uint32_t, uint32_t>
        stopAndSum; // the index where the visitor stops, the sum of the visited ones
    const MultiHashtableVisitor visitor = [](uint32_t table, void *item, void *given) {
        auto &[stop, sum] = *static_cast<std::pair<uint32_t, uint32_t> *>(given);
        const auto &visited = *static_cast<const Record *>(item);
        EXPECT_TRUE(table == 3 && visited.own == 1000 + visited.header.ulIndex);
        sum += visited.header.ulIndex;
        return visited.header.ulIndex == stop ? 5U : 0U;
    };
    const auto each = [&](uint32_t stop) {
        stopAndSum = {stop, 0};
        return LayerBase_ForeachDataItem(3, sizeof(Record), visitor, &stopAndSum);
    };
    const auto get = [&](uint32_t index) { return LayerBase_GetData(3, index, &record, 28); };
    const auto visit = [](uint32_t size, MultiHashtableVisitor given) {
        return LayerBase_ForeachDataItem(3, size, given, nullptr);
    };
    struct Row {
        const char *reason;
        std::function<uint32_t()> call;
        std::pair<const char *, uint32_t> failing; // whose nth call yields 5
        uint32_t result;
        const char *end; // of what was done
    };
    constexpr const char *kMalloc = "QX_OS_MemMallocD";
    const Row rows[] = {
        {"no record", [] { return LayerBase_SaveData(nullptr, 28); }, {"", 0}, 1, "layer{1}"},
        {"no whole header", [&] { return LayerBase_SaveData(&record, 23); }, {"", 0}, 1, "layer{1}"},
        {"no save", [&] { return save(3, 1); }, {"sync", 1}, 5, "free ex{5} layer{5}"},
        {"no buffer", [] { return LayerBase_GetData(3, 1, nullptr, 0); }, {"", 0}, 1, "layer{1}"},
        {"no read", [&] { return get(1); }, {"sync", 1}, 5, "sync16,3,1,28 +0>28"},
        {"a hidden one", [&] { return get(2); }, {"", 0}, 0, "sync16,3,2,28 +0>28"},
        {"no visitor", [&] { return visit(28, nullptr); }, {"", 0}, 1, "layer{1}"},
        {"a short header", [&] { return visit(23, visitor); }, {"", 0}, 1, "layer{1}"},
        {"no indexes", [&] { return each(0); }, {kMalloc, 1}, 1, "malloc512 layer{1}"},
        {"no buffer", [&] { return each(0); }, {kMalloc, 2}, 1, "malloc512 malloc28 free layer{1,3}"},
        {"no list", [&] { return each(0); }, {"sync", 1}, 1, ">516 ex{5} free layer{5,3} free free"},
        {"no item", [&] { return each(0); }, {"sync", 3}, 1, "sync16,3,2,28 +0>28 layer{5,3,2} free free"},
        {"a stop", [&] { return each(4); }, {"", 0}, 1, "sync16,3,4,28 +0>28 layer{5,3,4} free free"},
        {"to the end", [&] { return each(0); }, {"", 0}, 0, "sync16,3,16,28 +0>28 free free"},
    };
    for (const uint32_t index : {1U, 2U, 4U, 8U, 16U}) {
        EXPECT_EQ(save(3, index, index == 2 || index == 8 ? 0 : index), 0U);
    }
    for (const Row &row : rows) {
        deeds();
        platform.fail(row.failing.first, row.failing.second, 5);
        EXPECT_EQ(row.call(), row.result) << row.reason;
        const std::string done = deeds();
        EXPECT_TRUE(done.ends_with(row.end)) << row.reason << ": " << done;
    }
    EXPECT_EQ(stopAndSum.second, 1U + 4 + 16);
    EXPECT_EQ(record.own, 1002U);
    std::erase_if(platform.places, [](const auto &place) { return place.first != "layer_base.cpp"; });
    EXPECT_EQ(platform.places.size(), 9U) << "each place has a line of its own";
}

TEST_F(LayerBase, StampsTwoStates)
{
    const std::array<uint32_t, 4> rows[] = {
        {4, 70, 0, 0}, {2, 71, 71, 0}, {3, 72, 71, 72}, {4, 73, 71, 72}, {2, 74, 74, 72}};
    LayerBaseHeader header{1, 0, 0, 0, 5, 1};
    for (const auto &[state, now, second, third] : rows) {
        around.jiffies = {1, now};
        LayerBase_SetState(&header, state);
        EXPECT_TRUE(header.ulState == state && header.ulState2Jiffies == second &&
                    header.ulState3Jiffies == third)
            << now;
    }
    EXPECT_TRUE(header.ulIndex == 1 && header.ulTableId == 5 && header.ulVisible == 1);
    LayerBase_SetState(nullptr, 2);
}

} // namespace
