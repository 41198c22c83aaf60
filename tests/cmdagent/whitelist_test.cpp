// The whitelist and its checks: what is accepted, and what each rejection records.
#include "cmdagent/whitelist.h"
#include "tests/support/platform_double.h"

#include <cstring>
#include <limits>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_zema_cmdagent.cpp";

class Whitelist : public PlatformTest {};

// A row is searched for in its own class only, in table order, and its number is what a rejection records.
TEST_F(Whitelist, FindsEachRowInItsClassOnly)
{
    for (uint32_t row = 0; row < ZEMA_ZEMACMD_ROW_COUNT; ++row) {
        const ZemacmdCheckItem &item = ZemacmdCheckTable[row];
        const std::string text = std::string(item.pcCmd) + " ! ! !";
        const auto length = static_cast<uint32_t>(text.size());
        platform.reset();
        EXPECT_EQ(QX_ZEMA_Zemacmd_CheckPara(text.c_str(), length, item.ulDbgFlag), 0U) << text;
        EXPECT_EQ(platform.journal.back(), recordOf(kFile, {1, row, length})) << text;
        platform.reset();
        EXPECT_EQ(QX_ZEMA_Zemacmd_CheckPara(text.c_str(), length, 1 - item.ulDbgFlag), 0U) << text;
        EXPECT_TRUE(platform.recorded(kFile, {{1, 38, length, 0, 0}})) << text;
    }
}

TEST_F(Whitelist, ChecksTheTextOfARow)
{
    struct Row {
        const char *reason;
        uint32_t flag;
        std::string text;
        std::vector<Values> records; // none: accepted
    };
    const std::string longParameter = "dbg " + std::string(250, ' ') + "12 3";
    const Row rows[] = {
        {"no parameters wanted, none given", 0, "fw show all", {}},
        {"a parameter where none is wanted", 0, "fw show all 1", {{1, 11, 13}, {1, 2, 13}}},
        {"a trailing space counts as more", 0, "fw show all ", {{1, 11, 12}, {1, 2, 12}}},
        {"a debug row through the display entry", 0, "cpu dbg on", {{1, 38, 10}}},
        {"a class that does not exist", 2, "cpu dbg on", {{1, 38, 10}}},
        {"a class beyond what a bucket number could hold", 0x80000001, "cpu dbg on", {{1, 38, 10}}},
        {"case matters", 0, "FW show all", {{1, 38, 11}}},
        {"a beginning of a command is none", 0, "fw show al", {{1, 38, 10}}},
        {"a first byte outside ASCII", 1, "\x80w show all", {{1, 38, 11}}},
        {"the earlier of two rows wins", 0, "user_flow show ctp 5", {}},
        {"the later one for other texts", 0, "user_flow show 500", {}},
        {"the later row is not tried then", 0, "user_flow show ctp 40", {{1, 18, 21, 1, 40}, {1, 10, 21}}},
        {"highest of 1 to 32", 0, "ctp show_ctp detail 32", {}},
        {"above 1 to 32", 0, "ctp show_ctp detail 33", {{1, 19, 22, 1, 33}, {1, 29, 22}}},
        {"highest of 1 to 1024", 0, "user_flow show 1024", {}},
        {"above 1 to 1024", 0, "user_flow show 1025", {{1, 14, 19, 1, 1025}, {1, 11, 19}}},
        {"no space before the parameter", 1, "fw dbg pktinfo info5", {}},
        {"lowest of 0 to 100", 1, "fw dbg pktinfo info 0", {}},
        {"highest of 0 to 100", 1, "fw dbg pktinfo info 100", {}},
        {"above 0 to 100", 1, "fw dbg pktinfo info 101", {{1, 19, 23, 1, 101}, {1, 4, 23}}},
        {"below 1 to 16", 1, "vbr-fw clean vbr-id 0", {{1, 19, 21, 1, 0}, {1, 6, 21}}},
        {"above 1 to 16", 1, "vbr-fw clean vbr-id 17", {{1, 19, 22, 1, 17}, {1, 6, 22}}},
        {"highest of 1 to 16, spaces around", 1, "vbr-fw clean vbr-id   16  ", {}},
        {"no parameter", 1, "vbr-fw dbg vbr-id", {{1, 17, 17}, {1, 17, 17, 0, 0}, {1, 9, 17}}},
        {"spaces are no parameter", 1, "vbr-fw dbg vbr-id  ", {{1, 17, 19}, {1, 17, 19, 0, 0}, {1, 9, 19}}},
        {"no number", 1, "vbr-fw dbg vbr-id 1x", {{1, 17, 20}, {1, 17, 20, 0, 0}, {1, 9, 20}}},
        {"a tab does not separate", 1, "vbr-fw dbg vbr-id 1\t", {{1, 17, 20}, {1, 17, 20, 0, 0}, {1, 9, 20}}},
        {"one too many", 1, "vbr-fw dbg vbr-id 1 2", {{1, 17, 21}, {1, 17, 21, 0, 0}, {1, 9, 21}}},
        {"beyond 32 bits", 1, "vbr-fw dbg vbr-id 4294967297", {{1, 17, 28, 1, 0xFFFFFFFF}, {1, 9, 28}}},
        {"two numbers", 1, "dbg 1 0", {}},
        {"the first not above 0", 1, "dbg 0 5", {{1, 3, 1, 0, 5}, {1, 32, 7}}},
        {"the second below 0", 1, "dbg 1 -1", {{1, 3, 1, 1, 0xFFFFFFFF}, {1, 32, 8}}},
        {"one number where two are wanted", 1, "dbg 1", {{1, 3, 5, 1, 0}, {1, 3, 0, 1, 0}, {1, 32, 5}}},
        {"three numbers", 1, "dbg 1 2 3", {{1, 3, 9, 1, 2}, {1, 3, 0, 1, 2}, {1, 32, 9}}},
        {"a sign on the first", 1, "dbg -1 2", {{1, 3, 8}, {1, 3, 0, 0, 0}, {1, 32, 8}}},
        {"no numbers", 1, "dbg", {{1, 3, 3}, {1, 3, 0, 0, 0}, {1, 32, 3}}},
        {"only a space", 1, "dbg ", {{1, 3, 4}, {1, 3, 0, 0, 0}, {1, 32, 4}}},
        {"a letter behind the command", 1, "dbgx 1 2", {{1, 3, 8}, {1, 3, 0, 0, 0}, {1, 32, 8}}},
        {"a second that is no number counts as 0", 1, "dbg 7 x", {}},
        {"a first beyond 31 bits stays positive", 1, "dbg 4294967295 0", {}},
        {"behind 255 characters", 1, longParameter, {{1, 3, 258, 1, 0}, {1, 3, 0, 1, 0}, {1, 32, 258}}},
        {"a keyword", 0, "route show fib6", {}},
        {"keywords are case-sensitive", 0, "route show FIB6", {{1, 10, 15}, {1, 34, 15}}},
        {"a longer word than the keyword", 0, "route show all4", {{1, 10, 15}, {1, 34, 15}}},
        {"no keyword", 0, "route show", {{1, 10, 10}, {1, 34, 10}}},
        {"only spaces for a keyword", 0, "route show  ", {{1, 10, 12}, {1, 34, 12}}},
        {"an extra keyword", 0, "route show all x", {{1, 10, 16, kSomeAddress}, {1, 34, 16}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        const auto length = static_cast<uint32_t>(row.text.size());
        EXPECT_EQ(QX_ZEMA_Zemacmd_CheckPara(row.text.c_str(), length, row.flag),
                  row.records.empty() ? 1U : 0U)
            << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    EXPECT_EQ(platform.places.size(), 21U) << "every stop of every check, but for missing arguments";
}

TEST_F(Whitelist, WritesTheValuesThatWereConverted)
{
    constexpr int32_t kUntouched = -77;
    constexpr int32_t kHighest = std::numeric_limits<int32_t>::max();
    struct Row {
        const char *reason;
        const char *text;
        uint32_t result;
        int32_t first;
        int32_t second;
    };
    const Row rows[] = {
        {"both", "c 5 -6", 1, 5, -6},
        {"the first is no number", "c x 6", 0, kUntouched, kUntouched},
        {"there is no second", "c 5", 0, 5, kUntouched},
        {"there is a third", "c 5 6 7", 0, 5, 6},
        {"the second is no number", "c 5 x", 1, 5, 0},
        {"out of range", "c 3000000000 -3000000000", 1, kHighest, std::numeric_limits<int32_t>::min()},
    };
    for (const Row &row : rows) {
        int32_t first = kUntouched;
        int32_t second = kUntouched;
        const auto length = static_cast<uint32_t>(std::strlen(row.text));
        EXPECT_EQ(QX_ZEMA_Zemacmd_Check2DigPara("c", row.text, length, &first, &second), row.result)
            << row.reason;
        EXPECT_EQ(std::pair(first, second), std::pair(row.first, row.second)) << row.reason;
    }
    uint32_t value = 77;
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara("c", "c 5 6", 5, &value), 0U);
    EXPECT_EQ(value, 77U) << "one number: written on acceptance only";
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara("c", "c 5", 3, &value), 1U);
    EXPECT_EQ(value, 5U);
}

// The checks are exported: each can be called with anything.
TEST_F(Whitelist, ChecksSurviveAnyArguments)
{
    const std::string giant(300, '5');
    const std::string text = giant + " 5";
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(text.c_str()));
    uint32_t value = 0;
    int32_t first = 0;
    EXPECT_EQ(QX_ZEMA_Zemacmd_CheckPara(text.c_str(), 0, 0), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CheckPara(nullptr, 7, 0), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara(giant.c_str(), text.c_str(), 302, &value), 0U)
        << "behind the copy";
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara("command", "com", 50, &value), 0U) << "text ends in the command";
    EXPECT_EQ(QX_ZEMA_Zemacmd_ComCheckPara(nullptr, "c", 0), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CheckForVbrFw(nullptr, "c 5", 3), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CheckRouteShowPara("c", nullptr, 9), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara("c", "c 5", 3, nullptr), 0U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check2DigPara("c", "c 5 5", 5, &first, nullptr), 0U);
    platform.fail("QX_OS_IsDigitStr", 0, 2);
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check1DigPara("c", "c 5", 3, &value), 0U) << "only 1 says digits";
    EXPECT_EQ(QX_ZEMA_Zemacmd_Check2DigPara("c", "c 5 5", 5, &first, &first), 0U);
    const std::vector<Values> records = {{1, address, 0}, {1, 0, 7}, {1, 300, 302}, {1, 7, 50},
                                         {1, 0, 0},       {1, 0, 3}, {1, 0, 3},     {1, 1, 9},
                                         {1, 1, 3},       {1, 1, 5}, {1, 1, 3},     {1, 1, 5}};
    EXPECT_TRUE(platform.recorded(kFile, records));
    EXPECT_EQ(platform.places.size(), 9U);
}

} // namespace
