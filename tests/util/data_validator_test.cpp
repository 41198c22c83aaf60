// The data validator and its name-value maps: what passes and is found, and what each failure returns,
// records and marks.
#include "zema/data_validator.h"

#include "common/record.h"
#include "tests/platform/surroundings.h"
#include "tests/support/platform_double.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <strings.h>

using namespace zema::test;

namespace {

constexpr const char *kFile = "data_validator.cpp";
constexpr const char *kMapFile = "name_value_map.cpp";
constexpr uint32_t kUntouched = 77;
constexpr NameValueMapEntry kModes[] = {{"AUTO", 1}, {"manual", 2}, {"off", 0}};

class DataValidator : public PlatformTest {};
class NameValueMap : public PlatformTest {};

TEST_F(DataValidator, ComparesUnsigned)
{
    const std::tuple<const char *, uint32_t, uint32_t, uint32_t, uint32_t> rows[] = {
        {"at the lower limit", 3, 3, 5, 0},
        {"at the upper limit", 5, 3, 5, 0},
        {"below", 2, 3, 5, 1},
        {"above", 6, 3, 5, 1},
        {"the highest is not -1", 0xFFFFFFFF, 0, 0x7FFFFFFF, 1},
        {"the highest at the highest limit", 0xFFFFFFFF, 0, 0xFFFFFFFF, 0},
        {"limits the wrong way round", 4, 5, 3, 1},
    };
    for (const auto &[reason, value, lower, upper, result] : rows) {
        EXPECT_EQ(DataValidator_IsInRangeOf(value, lower, upper), result) << reason;
        if (value < 8) {
            const std::string text(value, 't');
            EXPECT_EQ(DataValidator_IsLengthInRangeOf(text.c_str(), lower, upper), result) << reason;
        }
    }
    EXPECT_EQ(DataValidator_IsLengthInRangeOf(nullptr, 0, 9), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}}));
}

TEST_F(DataValidator, AllowsPrintableCharactersThatAreNotForbidden)
{
    // The text, its least and its most characters, what is forbidden, the result, the record.
    const std::tuple<const char *, const char *, uint32_t, uint32_t, const char *, uint32_t,
                     std::vector<Values>>
        rows[] = {
            {"within", "ab c", 1, 4, "'\"", 0, {}},
            {"empty, and nothing forbidden", "", 0, 0, "", 0, {}},
            {"too long by one", "abc", 1, 2, "", 1, {{1, 1, 2, 3}}},
            {"too short by one, before characters", "a\tc", 4, 9, "a", 1, {{1, 4, 9, 3}}},
            {"the first is forbidden", "abc", 0, 9, "cba", 1, {}},
            {"case matters", "abc", 0, 9, "ABC", 0, {}},
            {"no text", nullptr, 0, 9, nullptr, 1, {{1}}},
            {"no set, before the length", "abc", 4, 9, nullptr, 1, {{1}}},
        };
    for (const auto &[reason, text, min, max, forbidden, result, records] : rows) {
        platform.reset();
        EXPECT_EQ(DataValidator_IsValidateString1(text, min, max, forbidden), result) << reason;
        EXPECT_TRUE(platform.recorded(kFile, records)) << reason;
    }
    EXPECT_EQ(platform.places.size(), 3U) << "text, set and length are told apart";
    platform.reset();
    for (unsigned byte = 1; byte < 256; ++byte) {
        const std::string text = std::string(1000, byte == ' ' ? '!' : ' ') + static_cast<char>(byte);
        const uint32_t result = byte >= 0x20 && byte <= 0x7E ? 0 : 1;
        EXPECT_EQ(DataValidator_IsValidateString2(text.c_str(), ""), result) << byte;
        EXPECT_EQ(DataValidator_IsValidateString2(text.c_str(), &text[1000]), 1U) << byte;
    }
    EXPECT_TRUE(platform.recorded(kFile, {})) << "nothing of a single byte";
}

DataValidatorRule range(uint32_t type, uintptr_t value, uintptr_t lower, uintptr_t upper, uint32_t code)
{
    return {.ulType = type, .ulValue = value, .ulLower = lower, .ulUpper = upper, .ulErrCode = code};
}

DataValidatorRule element(const char *name, const NameValueMapEntry *map, uint32_t count, uint32_t code)
{
    return {.ulType = 1, .pcName = name, .pstMap = map, .ulCount = count, .ulErrCode = code};
}

TEST_F(DataValidator, AppliesTablesOfRules)
{
    constexpr uintptr_t kHigh = UINTPTR_MAX ^ UINT32_MAX; // what is of no number
    const char *const name = "OFF";
    const uint32_t subject = zema::addressValue(name);
    const std::pair<DataValidatorRule, std::vector<Call>> rows[] = {
        // what a failure records
        {range(0, 5, 5, 5, 3), {}},
        {range(0, kHigh | 2, kHigh | 1, 3, 3), {}},
        {range(2, 9, 1, 2, 3), {}},
        {element("Auto", kModes, 3, 3), {}},
        {range(0, 9, 1, 2, 0), {recordOf(kFile, {0, 4, 9})}},
        {element(nullptr, kModes, 3, 0), {recordOf(kFile, {1}), recordOf(kFile, {0, 5})}},
        {element(name, nullptr, 3, 0), {recordOf(kFile, {1}), recordOf(kFile, {0, 6, subject})}},
        {element(name, kModes, 2, 7),
         {recordOf(kMapFile, {1, 2}), recordOf(kFile, {1, 2}), recordOf(kFile, {7, 7, subject})}},
        {range(0, 3, 1, 2, 0xF7000008), {recordOf(kFile, {0xF7000008, 8, 3})}},
    };
    constexpr uint32_t kCount = std::size(rows);
    std::vector<DataValidatorRule> rules;
    std::vector<DataValidatorCheckOnlyRule> marked;
    std::vector<Call> records;
    for (const auto &[rule, recorded] : rows) {
        rules.push_back(rule);
        marked.push_back({.stRule = rule, .ulUser = 5, .ulFailed = 5});
        records.insert(records.end(), recorded.begin(), recorded.end());
    }
    EXPECT_EQ(DataValidator_CheckOnlyValidate(marked.data(), kCount), 0U);
    EXPECT_EQ(platform.journal, records);
    for (uint32_t i = 0; i < kCount; ++i) {
        EXPECT_EQ(marked[i].ulFailed, i < 7 ? 5U : 1U) << i;
        EXPECT_EQ(marked[i].ulUser, 5U) << i;
        EXPECT_EQ(std::memcmp(&marked[i].stRule, &rules[i], sizeof rules[i]), 0) << i;
    }

    platform.journal.clear();
    records.pop_back(); // the rule behind the first that ends the stopping form
    EXPECT_EQ(DataValidator_CheckValidate(rules.data(), kCount), 7U);
    EXPECT_EQ(platform.journal, records);
    EXPECT_EQ(platform.places.size(), 8U) << "two kinds in two functions, no name, no map, not found twice";
    EXPECT_EQ(DataValidator_CheckValidate(rules.data() + 8, 1), 0xF7000008U);

    platform.journal.clear();
    for (const uint32_t count : {0U, 1U}) {
        EXPECT_EQ(DataValidator_CheckValidate(nullptr, count), count);
        EXPECT_EQ(DataValidator_CheckOnlyValidate(nullptr, count), 0U);
    }
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}}));
}

// ---- Name-value maps ----

TEST_F(NameValueMap, AgreesWithAPlainSearch)
{
    std::mt19937 engine(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same maps in every run
    const auto below = [&engine](size_t limit) { return static_cast<uint32_t>(engine() % limit); };
    uint32_t found = 0;
    for (int round = 0; round < 100000 && !HasFailure(); ++round) {
        std::vector<NameValueMapEntry> map(below(6));
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
        const auto named = std::ranges::find_if(
            map, [&](const auto &entry) { return strcasecmp(entry.acName, name.c_str()) == 0; });
        uint32_t value = kUntouched;
        const uint32_t result = NameValueMap_GetValue(map.data(), count, name.c_str(), &value);
        EXPECT_EQ(result, named == map.end() ? 1U : 0U);
        EXPECT_EQ(value, named == map.end() ? kUntouched : named->ulValue);
        found += 1 - result;

        const uint32_t size = below(40);
        Guarded out(size);
        const std::string before(out.data(), size);
        const auto valued = std::ranges::find(map, value, &NameValueMapEntry::ulValue);
        const bool copies = size > 0 && valued != map.end();
        const std::string copied = copies ? std::string(valued->acName).substr(0, size - 1) : before;
        EXPECT_EQ(NameValueMap_GetName(map.data(), count, value, out.data(), size), copies ? 0U : 1U);
        EXPECT_EQ(copies ? out.data() : std::string(out.data(), size), copied);
        EXPECT_TRUE(out.guardsHold());
        EXPECT_TRUE(platform.recorded(kMapFile, std::vector<Values>(result + (copies ? 0 : 1), {1, count})));
        platform.reset();
    }
    EXPECT_GT(found, 10000U);
    EXPECT_EQ(platform.places.size(), 3U) << "no name, no room and no value are told apart";
}

TEST_F(NameValueMap, ReadsNoFurtherThanAnEntryWithoutItsEnd)
{
    const auto entry = std::make_unique<NameValueMapEntry>(); // a sanitizer sees a read behind it
    std::memset(entry.get(), 'n', sizeof *entry);
    std::array<char, 64> out{};
    EXPECT_EQ(NameValueMap_GetName(entry.get(), 1, entry->ulValue, out.data(), out.size()), 0U);
    EXPECT_EQ(std::string(out.data()), std::string(31, 'n'));
    for (const size_t length : {31U, 32U, 36U}) {
        EXPECT_EQ(NameValueMap_GetValue(entry.get(), 1, std::string(length, 'n').c_str(), &entry->ulValue),
                  1U)
            << length;
    }
}

} // namespace
