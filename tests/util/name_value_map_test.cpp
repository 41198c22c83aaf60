// The name-value map: which entry is found, and what is written and recorded.
#include "zema/name_value_map.h"

#include "tests/platform/surroundings.h"
#include "tests/support/platform_double.h"

#include <cstring>
#include <memory>
#include <random>

using namespace zema::test;

namespace {

constexpr const char *kFile = "name_value_map.cpp";
constexpr const char *kLongest = "0123456789012345678901234567890";
constexpr uint32_t kUntouched = 77;

constexpr NameValueMapEntry kMap[] = {
    {"AUTO", 1}, {"auto", 2}, {"disabled", 3}, {"0123456789012345678901234567890", 4}, {"static", 3}, {"", 5},
};
constexpr uint32_t kCount = std::size(kMap);

class NameValueMap : public PlatformTest {};

TEST_F(NameValueMap, FindsTheFirstEntryOfAName)
{
    struct Row {
        const char *reason;
        const char *name;
        uint32_t count;
        uint32_t result;
        uint32_t value;
    };
    const Row rows[] = {
        {"in another case, and the earlier of two", "Auto", kCount, 0, 1},
        {"a beginning of a name", "disable", kCount, 1, kUntouched},
        {"more than a name", "disabled.", kCount, 1, kUntouched},
        {"as long as a name may be", kLongest, kCount, 0, 4},
        {"longer than any name", "0123456789012345678901234567890x", kCount, 1, kUntouched},
        {"empty, as the last entry's", "", kCount, 0, 5},
        {"behind the count", "static", 4, 1, kUntouched},
        {"in an empty map", "auto", 0, 1, kUntouched},
    };
    for (const Row &row : rows) {
        platform.reset();
        uint32_t value = kUntouched;
        EXPECT_EQ(NameValueMap_GetValue(kMap, row.count, row.name, &value), row.result) << row.reason;
        EXPECT_EQ(value, row.value) << row.reason;
        const auto records = row.result == 0 ? std::vector<Values>() : std::vector<Values>{{1, row.count}};
        EXPECT_TRUE(platform.recorded(kFile, records)) << row.reason;
    }
}

TEST_F(NameValueMap, CopiesTheFirstNameOfAValue)
{
    struct Row {
        const char *reason;
        uint32_t value;
        uint32_t size;
        const char *name; // null: none is copied
    };
    const Row rows[] = {
        {"cut to fit, and the earlier of two", 3, 4, "dis"},
        {"just fits", 3, 9, "disabled"},
        {"one short", 3, 8, "disable"},
        {"room for the end only", 3, 1, ""},
        {"the longest in a large buffer", 4, 100, kLongest},
        {"no room, whatever the value", 3, 0, nullptr},
        {"no such value", 6, 9, nullptr},
    };
    for (const Row &row : rows) {
        platform.reset();
        Guarded out(row.size);
        const std::string before(out.data(), row.size);
        EXPECT_EQ(NameValueMap_GetName(kMap, kCount, row.value, out.data(), row.size),
                  row.name == nullptr ? 1U : 0U)
            << row.reason;
        EXPECT_TRUE(out.guardsHold()) << row.reason;
        if (row.name == nullptr) {
            EXPECT_EQ(std::string(out.data(), row.size), before) << row.reason;
            EXPECT_TRUE(platform.recorded(kFile, {{1, kCount}})) << row.reason;
        } else {
            EXPECT_STREQ(out.data(), row.name) << row.reason;
            EXPECT_TRUE(platform.recorded(kFile, {})) << row.reason;
        }
    }
    EXPECT_EQ(platform.places.size(), 2U) << "the two failures are told apart by their lines";
    platform.fail("strncpy_s", 1, 22);
    std::array<char, 9> out{};
    EXPECT_EQ(NameValueMap_GetName(kMap, kCount, 3, out.data(), out.size()), 0U)
        << "what becomes of the copy does not count";
}

TEST_F(NameValueMap, ReadsNoFurtherThanAnEntryWithoutItsEnd)
{
    const auto entry = std::make_unique<NameValueMapEntry>(); // a sanitizer sees a read behind it
    std::memset(entry.get(), 'n', sizeof *entry);
    std::array<char, 64> out{};
    EXPECT_EQ(NameValueMap_GetName(entry.get(), 1, entry->ulValue, out.data(), out.size()), 0U);
    EXPECT_EQ(std::string(out.data()), std::string(31, 'n'));
    for (const size_t length : {31U, 32U, 36U}) {
        uint32_t value = kUntouched;
        EXPECT_EQ(NameValueMap_GetValue(entry.get(), 1, std::string(length, 'n').c_str(), &value), 1U)
            << length;
    }
}

TEST_F(NameValueMap, AgreesWithAPlainSearchOnRandomMaps)
{
    platform.watching = false;
    std::mt19937 engine(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same maps in every run
    const auto below = [&engine](size_t limit) { return static_cast<uint32_t>(engine() % limit); };
    uint32_t found = 0;
    for (int round = 0; round < 300000; ++round) {
        std::vector<NameValueMapEntry> map(1 + below(5));
        std::string name;
        for (NameValueMapEntry &entry : map) {
            name.resize(below(32));
            std::ranges::generate(
                name, [&] { return below(2) == 0 ? "aAzZ"[below(4)] : static_cast<char>(1 + below(255)); });
            std::memset(entry.acName, 'A', sizeof entry.acName);
            std::memcpy(entry.acName, name.c_str(), name.size() + 1);
            entry.ulValue = below(4);
        }
        // Changes the last one by what tells the cases of a letter apart, in letters and in other bytes.
        for (size_t i = below(4); i > 0 && !name.empty(); --i) {
            char &c = name[below(name.size())];
            c = c == ' ' ? c : static_cast<char>(c ^ ' ');
        }
        const auto count = static_cast<uint32_t>(map.size());
        const auto block = std::make_unique<char[]>(name.size() + 1); // a sanitizer sees a read behind it
        std::copy_n(name.c_str(), name.size() + 1, block.get());

        const auto named = std::ranges::find_if(
            map, [&](const auto &entry) { return strcasecmp(entry.acName, name.c_str()) == 0; });
        uint32_t value = kUntouched;
        ASSERT_EQ(NameValueMap_GetValue(map.data(), count, block.get(), &value),
                  named == map.end() ? 1U : 0U);
        ASSERT_EQ(value, named == map.end() ? kUntouched : named->ulValue);
        found += named == map.end() ? 0 : 1;

        const uint32_t size = 1 + below(40);
        Guarded out(size);
        const auto valued = std::ranges::find(map, value, &NameValueMapEntry::ulValue);
        if (NameValueMap_GetName(map.data(), count, value, out.data(), size) == 0) {
            ASSERT_EQ(std::string(out.data()), std::string(valued->acName).substr(0, size - 1));
        } else {
            ASSERT_EQ(valued, map.end());
        }
        ASSERT_TRUE(out.guardsHold());
    }
    EXPECT_GT(found, 10000U);
}

} // namespace
