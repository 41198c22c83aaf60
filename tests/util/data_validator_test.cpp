// The data validator: what passes, and what each failure returns, records and marks.
#include "zema/data_validator.h"

#include "common/record.h"
#include "tests/support/platform_double.h"

#include <cstring>
#include <random>
#include <strings.h>

using namespace zema::test;

namespace {

constexpr const char *kFile = "data_validator.cpp";
constexpr uint32_t kCode = 0xF7000009;

constexpr NameValueMapEntry kModes[] = {{"AUTO", 1}, {"manual", 2}, {"off", 0}};

DataValidatorRule range(uintptr_t value, uintptr_t lower, uintptr_t upper, uintptr_t code)
{
    return {.ulType = 0, .ulValue = value, .ulLower = lower, .ulUpper = upper, .ulErrCode = code};
}

DataValidatorRule element(const char *name, uintptr_t code, const NameValueMapEntry *map = kModes)
{
    return {.ulType = 1, .pcName = name, .pstMap = map, .ulCount = std::size(kModes), .ulErrCode = code};
}

// The rules, stated plainly.
struct Expected {
    uint32_t result = 0;
    std::vector<zema::test::Call> records;
    std::vector<uint32_t> failed;

    Expected(const std::vector<DataValidatorRule> &rules, bool stops)
    {
        for (uint32_t i = 0; i < rules.size() && result == 0; ++i) {
            const auto code = static_cast<uint32_t>(rules[i].ulErrCode);
            if (fails(rules[i])) {
                records.push_back(recordOf(kFile, {code, i, zema::addressValue(rules[i].pcName)}));
                result = stops ? code : 0;
                failed.push_back(code != 0 ? 1 : 0);
            } else {
                failed.push_back(0);
            }
        }
    }

    bool fails(const DataValidatorRule &rule)
    {
        if (rule.ulType != 1) {
            return rule.ulType == 0 && (rule.ulValue < rule.ulLower || rule.ulValue > rule.ulUpper);
        }
        if (rule.pcName == nullptr || rule.pstMap == nullptr) {
            records.push_back(recordOf(kFile, {1}));
            return true;
        }
        const auto count = static_cast<uint32_t>(rule.ulCount);
        for (uint32_t i = 0; i < count; ++i) {
            if (strcasecmp(rule.pstMap[i].acName, rule.pcName) == 0) {
                return false;
            }
        }
        records.push_back(recordOf("name_value_map.cpp", {1, count}));
        records.push_back(recordOf(kFile, {1, count}));
        return true;
    }
};

class DataValidator : public PlatformTest {
protected:
    // Both functions against the plain rules.
    void check(const std::vector<DataValidatorRule> &rules, const std::string &reason)
    {
        const auto count = static_cast<uint32_t>(rules.size());
        platform.reset();
        const Expected stopping(rules, true);
        EXPECT_EQ(DataValidator_CheckValidate(rules.data(), count), stopping.result) << reason;
        EXPECT_EQ(platform.calls({"record"}), stopping.records) << reason;

        platform.reset();
        std::vector<DataValidatorCheckOnlyRule> marked(count);
        for (uint32_t i = 0; i < count; ++i) {
            marked[i] = {.stRule = rules[i], .ulUser = i, .ulFailed = i % 2 * 5};
        }
        const Expected marking(rules, false);
        EXPECT_EQ(DataValidator_CheckOnlyValidate(marked.data(), count), 0U) << reason;
        EXPECT_EQ(platform.calls({"record"}), marking.records) << reason;
        for (uint32_t i = 0; i < count; ++i) {
            EXPECT_EQ(marked[i].ulFailed, marking.failed[i] == 1 ? 1 : i % 2 * 5) << reason << ", rule " << i;
            EXPECT_EQ(marked[i].ulUser, i) << reason;
            EXPECT_EQ(std::memcmp(&marked[i].stRule, &rules[i], sizeof rules[i]), 0) << reason;
        }
    }
};

TEST_F(DataValidator, ComparesUnsigned)
{
    struct Row {
        const char *reason;
        uint32_t value, lower, upper, result;
    };
    const Row rows[] = {
        {"at the lower limit", 3, 3, 5, 0},
        {"at the upper limit", 5, 3, 5, 0},
        {"below", 2, 3, 5, 1},
        {"above", 6, 3, 5, 1},
        {"the highest is not -1", 0xFFFFFFFF, 0, 0x7FFFFFFF, 1},
        {"the highest below the highest limit", 0xFFFFFFFF, 0, 0xFFFFFFFF, 0},
        {"limits the wrong way round", 5, 5, 3, 1},
    };
    for (const Row &row : rows) {
        EXPECT_EQ(DataValidator_IsInRangeOf(row.value, row.lower, row.upper), row.result) << row.reason;
        const std::string text(row.value % 8, 't');
        EXPECT_EQ(DataValidator_IsLengthInRangeOf(text.c_str(), row.lower, row.upper),
                  DataValidator_IsInRangeOf(row.value % 8, row.lower, row.upper))
            << row.reason;
    }
    EXPECT_TRUE(platform.recorded(kFile, {}));
    EXPECT_EQ(DataValidator_IsLengthInRangeOf(nullptr, 0, 9), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}}));
}

TEST_F(DataValidator, AllowsPrintableCharactersThatAreNotForbidden)
{
    struct Row {
        const char *reason;
        const char *text;
        uint32_t min, max;
        const char *forbidden;
        std::vector<Values> records;
        uint32_t result;
    };
    const Row rows[] = {
        {"within", "ab c", 1, 4, "'\"", {}, 0},
        {"empty, and nothing forbidden", "", 0, 0, "", {}, 0},
        {"too long by one", "abc", 1, 2, "", {{1, 1, 2, 3}}, 1},
        {"too short by one, before characters", "a\tc", 4, 9, "a", {{1, 4, 9, 3}}, 1},
        {"the first is forbidden", "abc", 0, 9, "cba", {}, 1},
        {"case matters", "abc", 0, 9, "ABC", {}, 0},
        {"no text", nullptr, 0, 9, nullptr, {{1}}, 1},
        {"no set, before the length", "abc", 4, 9, nullptr, {{1}}, 1},
    };
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(DataValidator_IsValidateString1(row.text, row.min, row.max, row.forbidden), row.result)
            << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    EXPECT_EQ(platform.places.size(), 3U) << "text, set and length are told apart";
    platform.reset();
    for (unsigned byte = 1; byte < 256; ++byte) {
        const std::string text = std::string(1000, byte == ' ' ? '!' : ' ') + static_cast<char>(byte);
        EXPECT_EQ(DataValidator_IsValidateString2(text.c_str(), ""), byte >= 0x20 && byte <= 0x7E ? 0U : 1U)
            << byte;
        EXPECT_EQ(DataValidator_IsValidateString2(text.c_str(), &text[1000]), 1U) << byte;
    }
    EXPECT_TRUE(platform.recorded(kFile, {})) << "nothing of a single byte";
}

TEST_F(DataValidator, AppliesTablesOfRules)
{
    DataValidatorRule odd = range(9, 1, 3, kCode);
    odd.ulType = 2;
    const std::pair<const char *, std::vector<DataValidatorRule>> rows[] = {
        {"no rules", {}},
        {"all pass", {range(5, 5, 5, kCode), element("Auto", kCode)}},
        {"the first failure counts", {range(0, 1, 2, 7), range(3, 1, 2, 8), element("x", 9)}},
        {"an error code of 0 is passed over", {range(0, 1, 2, 0), element("x", 0), range(3, 1, 2, 8)}},
        {"a type of no meaning passes", {odd}},
        {"no name, no map", {element(nullptr, 0), element("auto", 0, nullptr), element(nullptr, 3, nullptr)}},
    };
    for (const auto &[reason, rules] : rows) {
        check(rules, reason);
    }
    constexpr uintptr_t kHigh = UINTPTR_MAX / 2 + 1; // not of a number where a word has more than 32 bits
    const DataValidatorRule wide = range(kHigh | 2, 1, 3, kCode);
    EXPECT_EQ(DataValidator_CheckValidate(&wide, 1), sizeof kHigh > 4 ? 0 : kCode);
    platform.reset();
    EXPECT_EQ(DataValidator_CheckValidate(nullptr, 0), 0U);
    EXPECT_EQ(DataValidator_CheckOnlyValidate(nullptr, 0), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {}));
    EXPECT_EQ(DataValidator_CheckValidate(nullptr, 1), 1U);
    EXPECT_EQ(DataValidator_CheckOnlyValidate(nullptr, 1), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}}));
}

TEST_F(DataValidator, RecordsEachKindOfFailureAtItsOwnLine)
{
    for (const DataValidatorRule &rule :
         {range(9, 1, 2, 0), element(nullptr, 0), element("auto", 0, nullptr), element("x", 0)}) {
        DataValidatorCheckOnlyRule marked = {.stRule = rule, .ulUser = 0, .ulFailed = 0};
        DataValidator_CheckValidate(&rule, 1);
        DataValidator_CheckOnlyValidate(&marked, 1);
    }
    std::erase_if(platform.places, [](const auto &place) { return place.first != kFile; });
    EXPECT_EQ(platform.places.size(), 7U) << "two kinds of rule in two functions, no name, no map, not found";
}

TEST_F(DataValidator, AgreesWithThePlainRulesOnRandomTables)
{
    std::mt19937 engine(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same tables in every run
    const auto below = [&engine](size_t limit) { return static_cast<uint32_t>(engine() % limit); };
    const char *const names[] = {"auto", "AUTO", "Off", "manual", "manua", "", "x", nullptr};
    for (int round = 0; round < 20000 && !HasFailure(); ++round) {
        std::vector<DataValidatorRule> rules(below(8));
        for (DataValidatorRule &rule : rules) {
            const uint32_t code = below(3) == 0 ? kCode + below(4) : 0;
            rule = below(2) == 0 ? range(below(4), below(3), 1 + below(4), code)
                                 : element(names[below(8)], code, below(8) == 0 ? nullptr : kModes);
            rule.ulType = below(16) == 0 ? 2 + below(3) : rule.ulType;
            rule.ulCount = rule.ulType == 1 ? below(std::size(kModes) + 1) : rule.ulUpper;
        }
        check(rules, "round " + std::to_string(round));
    }
}

} // namespace
