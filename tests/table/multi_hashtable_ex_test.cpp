// Tables of another process: the bytes of each request, results, platform calls and records in order.
#include "zema/multi_hashtable_ex.h"

#include "tests/support/platform_double_table.h"

using namespace zema::test;

namespace {

// Notes the items' first letters; the one of item z ends the pass.
uint32_t visit(uint32_t table, void *item, void *seen)
{
    EXPECT_EQ(table, 2U);
    const char letter = std::exchange(*static_cast<char *>(item), '!');
    *static_cast<std::string *>(seen) += letter;
    return letter == 'z' ? 7 : 0;
}

class MultiHashtableEx : public TableTest {};

TEST_F(MultiHashtableEx, AsksTheOwner)
{
    const std::string data(65536, 'x');
    std::vector<uint32_t> out(17000, 9);
    uint32_t count = 9;
    std::string seen;
    const auto save = [&](uint32_t n) {
        return MultiHashtableEx_SaveData(2, 3, n < 99 ? "abc" : data.data(), n);
    };
    const auto read = [&](uint32_t n) { return MultiHashtableEx_GetData(2, 3, out.data(), n); };
    const auto drop = [&](uint32_t) { return MultiHashtableEx_DeleteData(2, 3); };
    const auto list = [&](uint32_t n) { return MultiHashtableEx_GetIndexList(2, out.data(), n, &count); };
    const auto each = [&](uint32_t n) { return MultiHashtableEx_ForeachDataItem(2, n, visit, &seen); };
    const auto missing = [&](uint32_t n) {
        return n == 0   ? MultiHashtableEx_SaveData(2, 3, nullptr, 3)
               : n == 1 ? MultiHashtableEx_GetData(2, 3, nullptr, 3)
               : n == 2 ? MultiHashtableEx_GetIndexList(2, nullptr, 3, &count)
               : n == 3 ? MultiHashtableEx_GetIndexList(2, out.data(), 3, nullptr)
                        : MultiHashtableEx_ForeachDataItem(2, 8, nullptr, &seen);
    };
    constexpr const char *kMalloc = "QX_OS_MemMallocD";
    struct Row {
        const char *reason;
        std::function<uint32_t(uint32_t)> call;
        uint32_t number;
        std::pair<const char *, uint32_t> failing; // whose nth call yields 5
        uint32_t result, count;                    // 9: untouched
        std::string deeds;
    };
    const std::string all =
        "malloc512 malloc8 malloc516 sync17,2,128,0 +0>516 free sync16,2,4,8 +0>8 sync16,2,9,8 +0>8";
    const std::string saved = "malloc15 memset_s15,0,15 sync14,2,3,3 abc+3>none0 free";
    const std::string longest = "malloc65535 memset_s65535,0,65535 sync14,2,3,65523 xxxx+65523>none0 free";
    const std::string cut = "malloc65538 memset_s65538,0,65538 sync14,2,0,0 +0>none0 free";
    const std::string noList = "malloc512 malloc8 malloc516 sync17,2,128,0 +0>516 ex{5} free";
    const Row rows[] = {
        {"a save", save, 3, {}, 0, 9, saved},
        {"an empty one", save, 0, {}, 0, 9, "malloc12 memset_s12,0,12 sync14,2,3,0 +0>none0 free"},
        {"the longest", save, 65523, {}, 0, 9, longest},
        {"one that is cut", save, 65526, {}, 0, 9, cut},
        {"more than memory", save, 0xFFFFFFFA, {}, 1, 9, "ex{1}"},
        {"no request", save, 3, {kMalloc, 1}, 1, 9, "malloc15 ex{1}"},
        {"a refused save", save, 3, {"sync", 1}, 5, 9, saved + " ex{5}"},
        {"no data", missing, 0, {}, 1, 9, ""},
        {"a deletion", drop, 0, {}, 0, 9, "sync15,2,3,0 +0>none0"},
        {"a refused one", drop, 0, {"sync", 1}, 5, 9, "sync15,2,3,0 +0>none0 ex{5,2,3}"},
        {"a read", read, 4, {}, 0, 9, "sync16,2,3,4 +0>4"},
        {"the longest", read, 65535, {}, 0, 9, "sync16,2,3,65535 +0>65535"},
        {"a refused one", read, 4, {"sync", 1}, 5, 9, "sync16,2,3,4 +0>4"},
        {"no buffer", missing, 1, {}, 1, 9, ""},
        {"a list", list, 3, {}, 0, 3, "malloc16 sync17,2,3,0 +0>16 free"},
        {"an owner that lists too many", list, 2, {}, 0, 2, "malloc12 sync17,2,2,0 +0>12 free"},
        {"a reply that is cut", list, 16384, {}, 0, 0, "malloc65540 sync17,2,16384,0 +0>4 free"},
        {"... to nothing", list, 16383, {}, 0, 0, "malloc65536 sync17,2,16383,0 +0>0 free"},
        {"more than memory", list, 0xFFFFFFFF, {}, 1, 9, "ex{1}"},
        {"no reply", list, 3, {kMalloc, 1}, 1, 9, "malloc16 ex{1}"},
        {"a refused list", list, 3, {"sync", 1}, 5, 9, "malloc16 sync17,2,3,0 +0>16 ex{5} free"},
        {"no indexes", missing, 2, {}, 1, 9, "ex{1}"},
        {"no count", missing, 3, {}, 1, 9, "ex{1}"},
        {"no visitor", missing, 4, {}, 1, 9, ""},
        {"no index buffer", each, 8, {kMalloc, 1}, 1, 9, "malloc512 ex{1}"},
        {"no item buffer", each, 8, {kMalloc, 2}, 1, 9, "malloc512 malloc8 ex{1,2} free"},
        {"no list", each, 8, {"sync", 1}, 5, 9, noList + " ex{5,2} ex{5,2,@} free free"},
        {"no item", each, 8, {"sync", 3}, 5, 9, all + " ex{5,2,9} ex{5,2,@,3} free free"},
        {"a visitor's result", each, 8, {}, 7, 9, all + " ex{7,2,9} ex{7,2,@,3} free free"},
    };
    for (const Row &row : rows) {
        deeds();
        count = 9;
        out.assign(out.size(), 9);
        around.items = {{4, "aaaaaaaa"}, {9, "zzzzzzzz"}, {3, data}};
        if (row.deeds.starts_with(all)) {
            around.items = {{4, "aaaaaaaa"}, {9, "zzzzzzzz"}, {10, "not visited"}};
        }
        platform.fail(row.failing.first != nullptr ? row.failing.first : "", row.failing.second, 5);
        EXPECT_EQ(row.call(row.number), row.result) << row.reason;
        EXPECT_EQ(deeds(), row.deeds) << row.reason;
        EXPECT_EQ(count, row.count) << row.reason;
        const bool isRead = row.deeds.starts_with("sync16") && row.result == 0;
        const size_t written = isRead ? row.number : count == 9 ? 0 : 4 * size_t{count};
        const std::string bytes(reinterpret_cast<const char *>(out.data()), 4 * out.size());
        const std::string list3("\3\0\0\0\4\0\0\0\11\0\0\0", 12);
        EXPECT_EQ(bytes.substr(0, written), isRead ? data.substr(0, written) : list3.substr(0, written));
        EXPECT_EQ(bytes.find_first_not_of(std::string("\11\0", 2), written), std::string::npos) << row.reason;
    }
    EXPECT_EQ(seen, "aaz") << "one visit before the refused item, two before the visitor's result";
    EXPECT_EQ(platform.places.size(), 17U) << "each place has a line of its own";

    for (uint32_t index = 0; index < 200; ++index) {
        around.items[index] = "original";
    }
    EXPECT_EQ(each(8), 0U);
    EXPECT_EQ(seen, "aaz" + std::string(128, 'o'));
    EXPECT_EQ(around.items[1], "original") << "the visitor changed a copy";
}

} // namespace
