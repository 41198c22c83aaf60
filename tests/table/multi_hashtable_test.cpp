// The table store of a process: results, the platform calls and records in order, what is left untouched.
#include "zema/multi_hashtable.h"

#include "tests/support/platform_double_table.h"

#include <sstream>

using namespace zema::test;

namespace {

constexpr uint32_t kTable = 7;

std::string resultOf(uint32_t result)
{
    return result == QX_ERR_NOT_FOUND ? "gone" : result == QX_ERR_TAKEN ? "taken" : std::to_string(result);
}

uint32_t save(uint32_t index, const std::string &data, uint32_t table = kTable)
{
    return MultiHashtable_SaveData(table, index, data.data(), static_cast<uint32_t>(data.size()));
}

// The item's first bytes; the result when that is not 0.
std::string read(uint32_t index, uint32_t length, uint32_t table = kTable)
{
    std::string out(length + 1, '?');
    const uint32_t result = MultiHashtable_GetData(table, index, out.data(), length);
    EXPECT_EQ(out.substr(result == 0 ? length : 0), std::string(result == 0 ? 1 : length + 1, '?'));
    return result == 0 ? out.substr(0, length) : resultOf(result);
}

// Notes the first letter of each item; answers with `yes` to the letter wanted, else with `no`.
struct Visits {
    char wanted = '\0';
    uint32_t yes = 0, no = 0;
    std::string seen{};
    std::function<void(char letter, char *item)> act = [](char, const char *) {};

    static uint32_t visit(uint32_t table, void *item, void *user)
    {
        auto &visits = *static_cast<Visits *>(user);
        EXPECT_EQ(table, kTable);
        const char letter = *static_cast<char *>(item);
        visits.seen += letter;
        visits.act(letter, static_cast<char *>(item));
        return letter == visits.wanted ? visits.yes : visits.no;
    }
    uint32_t forEach() { return MultiHashtable_ForeachDataItem(kTable, visit, this); }
    uint32_t find() { return MultiHashtable_FindDataItem(kTable, visit, this); }
};

// Does what a line says: a word, an index and a text or a length. The text - is empty, / is a null pointer.
std::string perform(const std::string &line)
{
    std::istringstream words(line);
    std::string word, text;
    uint32_t index = 0, length = 0, out[4] = {9, 9, 9, 9};
    words >> word >> index >> text;
    char *const data = text == "/" ? nullptr : text.data();
    std::istringstream(text) >> length;
    const auto size = static_cast<uint32_t>(text == "-" ? 0 : text.size());
    if (word == "save") {
        return resultOf(MultiHashtable_SaveData(kTable, index, data, size));
    }
    if (word == "add") {
        return resultOf(MultiHashtable_AddData(MultiHashtable_GetTable(kTable), index, data, size));
    }
    if (word == "read") {
        return data == nullptr ? resultOf(MultiHashtable_GetData(kTable, index, data, 1))
                               : read(index, length);
    }
    if (word == "drop") {
        return resultOf(MultiHashtable_DeleteData(kTable, index));
    }
    if (word == "dropPastTheLibrary") {
        Hashtable *const table = MultiHashtable_GetTable(kTable);
        return resultOf(table->pfnRemove(table, index, MultiHashtable_ReleaseData, 0));
    }
    if (word == "list") {
        const uint32_t result = MultiHashtable_GetIndexList(kTable, out, index, out + 3);
        EXPECT_TRUE(result == 0 || std::count(out, out + 4, 9U) == 4) << "no list, no output";
        return resultOf(result) + (result == 0 ? "#" + std::to_string(out[3]) : "");
    }
    if (word == "each") {
        return resultOf(Visits{.wanted = 'b', .yes = 7}.forEach());
    }
    if (word == "find") {
        return resultOf(Visits{.wanted = static_cast<char>(index), .no = 1}.find());
    }
    return resultOf(MultiHashtable_ForeachDataItemExt(kTable, nullptr, nullptr, nullptr, nullptr));
}

class MultiHashtable : public TableTest {};

TEST_F(MultiHashtable, FailsWhereThePlatformFails)
{
    struct Row {
        const char *reason, *line, *failing; // a function, whose nth call yields 5
        uint32_t nth;
        const char *result, *deeds;
    };
    const Row rows[] = {
        {"an overwrite", "save 2 bcde", "", 0, "0", "root get get"},
        {"no tables", "save 1 abcd", "root", 1, "1", "root {1} {1}"},
        {"... to read", "read 1 1", "root", 1, "1", "root {1} {1}"},
        {"... to delete from", "drop 1", "root", 1, "1", "root {1} {1}"},
        {"... to list", "list 3", "root", 1, "1", "root {1} {1}"},
        {"... to visit", "each", "root", 1, "1", "root {1} {1}"},
        {"... to search", "find", "root", 1, "1", "root {1} {1}"},
        {"... to pass through", "pass", "root", 1, "1", "root {1} {1}"},
        {"no memory", "save 4 abcd", "QX_OS_MemMallocD", 1, "1", "root get get malloc4 {1} {1}"},
        {"no entry", "save 4 abcd", "put", 1, "5", "root get get malloc4 put {5,4} free {5}"},
        {"it is there", "add 1 abcd", "", 0, "taken", "root get malloc4 put {4043309064,1} free"},
        {"no table of lengths", "save 4 abc", "create", 1, "1",
         "root get get malloc3 put create {1,4} remove free {1}"},
        {"a length without entry", "save 4 abc", "put", 2, "1",
         "root get get malloc3 put create put {1,4} remove free {1}"},
        {"nothing to read", "read 4 1", "", 0, "gone", "root get get {4043309063}"},
        {"nothing to delete", "drop 4", "remove", 1, "5", "root get remove {5}"},
        {"a list", "list 3", "keys", 1, "5", "root get keys {5}"},
        {"no memory to visit", "each", "QX_OS_MemMallocD", 1, "1", "root get malloc1024 {1}"},
        {"no list to visit", "each", "keys", 1, "5", "root get malloc1024 keys free {5,7}"},
        {"gone before its visit", "each", "get", 2, "5", "root get malloc1024 keys get free {5,7,3}"},
        {"the visitor's result", "each", "", 0, "7", nullptr},
        {"no memory to search", "find", "QX_OS_MemMallocD", 1, "1", "root get malloc512 {1}"},
        {"no list to search", "find", "keys", 1, "5", "root get malloc512 keys free {5,7}"},
        {"gone before its match", "find", "get", 3, "5", "root get malloc512 keys get get free {5,7}"},
        {"no match", "find", "", 0, "1", "root get malloc512 keys get get get free"},
        {"a pass through", "pass", "forEach", 1, "5", "root get forEach {5,7}"},
        {"no data", "save 1 /", "", 0, "1", ""},
        {"no data to add", "add 1 /", "", 0, "1", "root get"},
        {"no buffer", "read 1 /", "", 0, "1", ""},
    };
    for (const auto &[index, letter] : {std::pair(1U, 'a'), {2U, 'b'}, {3U, 'c'}}) {
        save(index, std::string(4, letter));
    }
    for (const Row &row : rows) {
        deeds();
        platform.fail(row.failing, row.nth, 5);
        EXPECT_EQ(perform(row.line), row.result) << row.reason;
        const std::string done = deeds();
        EXPECT_EQ(row.deeds != nullptr ? done : done.substr(done.rfind(" free")),
                  row.deeds != nullptr ? row.deeds : " free {7,7}")
            << row.reason;
    }
    EXPECT_EQ(read(1, 4) + read(2, 4) + read(4, 0), "aaaabcdegone");
    dropTables();
    const std::pair<const char *, const char *> fresh[] = {{"create", "root get create {1} {1}"},
                                                           {"put", "root get create put destroy {5} {1}"}};
    for (const auto &[failing, done] : fresh) {
        platform.journal.clear();
        platform.fail(failing, 1, 5);
        EXPECT_EQ(perform("read 1 1"), "1");
        EXPECT_EQ(deeds(), done);
    }
    EXPECT_EQ(MultiHashtable_AddData(nullptr, 1, "a", 1), 1U);
    EXPECT_EQ(MultiHashtable_GetIndexList(1, nullptr, 1, nullptr), 1U);
    EXPECT_EQ(MultiHashtable_ForeachDataItem(1, nullptr, nullptr), 1U);
    EXPECT_EQ(MultiHashtable_FindDataItem(1, nullptr, nullptr), 1U);
    EXPECT_EQ(deeds(), "");
    EXPECT_EQ(platform.places.size(), 25U) << "each place has a line of its own";
}

TEST_F(MultiHashtable, KeepsToTheLengthOfTheFirstSave)
{
    const std::array<const char *, 3> rows[] = {
        {"save 1 abcd", "0", ""},
        {"save 1 efghi", "1", "{1,1,5,4}"},
        {"read 1 4", "abcd", ""},
        {"read 1 5", "1", "{1,1,5,4}"},
        {"save 1 xy", "0", "a shorter one does not shrink it"},
        {"read 1 4", "xycd", ""},
        {"save 2 longer-than-that", "0", ""},
        {"read 2 16", "longer-than-that", ""},
        {"read 2 17", "1", "{1,2,17,16}"},
        {"save 1 abcde", "1", "{1,1,5,4}"},
        {"save 3 z", "0", ""},
        {"save 3 zz", "1", "{1,3,2,1}"},
        {"save 4 -", "0", ""},
        {"save 4 z", "1", "{1,4,1}"},
        {"add 3 1234567", "taken", "the present one is not disturbed"},
        {"save 3 zz", "1", "{1,3,2,1}"},
        {"drop 3", "0", ""},
        {"save 3 12345", "0", "a deletion forgets"},
        {"dropPastTheLibrary 3", "0", ""},
        {"save 3 abcd", "0", "of the usual length"},
        {"read 3 5", "1", "{1,3,5,4}"},
    };
    save(9, "", 8); // a table that begins with an empty item
    save(1, "abcd", 8);
    EXPECT_EQ(read(9, 1, 8), "1");
    for (const auto &[line, result, record] : rows) {
        deeds();
        EXPECT_EQ(perform(line), result) << line << record;
        const std::string done = deeds();
        EXPECT_EQ(record[0] == '{', done.ends_with(record) && record[0] == '{') << line << done;
    }
}

TEST_F(MultiHashtable, VisitsWhatWasThereAtTheStart)
{
    const auto indexOf = [](char letter) { return static_cast<uint32_t>(letter); };
    for (const char letter : {'a', 'b', 'c', 'd', 'e'}) {
        save(indexOf(letter), std::string(8, letter));
    }
    Visits all;
    EXPECT_EQ(all.forEach(), 0U);
    const std::string order = all.seen;
    EXPECT_EQ(order.size(), 5U);
    Visits third{.wanted = order[2], .yes = 7};
    EXPECT_EQ(third.forEach(), 7U);
    EXPECT_EQ(third.seen, order.substr(0, 3));
    Visits match{.wanted = order[1], .no = 9};
    EXPECT_EQ(match.find(), 0U);
    EXPECT_EQ(match.seen, order.substr(0, 2));

    Visits busy{.act = [&](char letter, char *item) {
        item[1] = '!';
        if (letter == order[0]) {
            save(indexOf(order[4]), "z");
        } else if (letter == order[1]) {
            EXPECT_EQ(MultiHashtable_DeleteData(kTable, indexOf(order[0])), 0U);
            for (uint32_t i = 0; i < 500; ++i) { // the table grows
                save(1000 + i, "added...");
            }
        }
    }};
    EXPECT_EQ(busy.forEach(), 0U);
    EXPECT_EQ(busy.seen, order.substr(0, 4) + 'z');
    EXPECT_EQ(read(indexOf(order[2]), 3), std::string({order[2], '!', order[2]}));

    Visits many;
    Visits none{.no = 1};
    EXPECT_EQ(many.forEach(), 0U);
    EXPECT_EQ(many.seen.size(), 256U);
    EXPECT_EQ(none.find(), 1U);
    EXPECT_EQ(none.seen, many.seen.substr(0, 128));

    Visits deletes{.act = [](char, const char *) {
        uint32_t indexes[2] = {}, count = 0;
        EXPECT_EQ(MultiHashtable_GetIndexList(kTable, indexes, 2, &count), 0U);
        EXPECT_EQ(MultiHashtable_DeleteData(kTable, indexes[1]), 0U);
    }};
    EXPECT_EQ(deletes.forEach(), QX_ERR_NOT_FOUND);
    EXPECT_EQ(deletes.seen.size(), 1U);

    std::array<const void *, 3> got{};
    const HashtableVisitor visitor = [](uint32_t, void *value, void *a, void *b, void *c) {
        *static_cast<std::array<const void *, 3> *>(a) = {value, b, c};
        return 5U;
    };
    EXPECT_EQ(MultiHashtable_ForeachDataItemExt(kTable, visitor, &got, &many, &none), 5U);
    EXPECT_TRUE(got[0] != nullptr && got[1] == &many && got[2] == &none);
}

} // namespace
