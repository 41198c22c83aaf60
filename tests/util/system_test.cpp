// Processes, terminals, option files, parameter lists: each platform call watched, files below a folder of
// the test's.
#include "tests/support/platform_double_system.h"
#include "tests/support/processes.h"
#include "zema/netdev.h"
#include "zema/process.h"
#include "zema/wan_options.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sys/resource.h>

using namespace zema::test;
using namespace std::string_literals;

namespace {

class UtilSystem : public PlatformTest {
protected:
    UtilSystem()
    {
        System::instance().root = testing::TempDir() + "zema-system-XXXXXX";
        EXPECT_NE(mkdtemp(System::instance().root.data()), nullptr);
        std::filesystem::create_directories(var() + "wan/w");
    }
    ~UtilSystem() override { std::filesystem::remove_all(System::instance().root); }

    static std::string var() { return System::instance().root + "/var/"; }

    // What the calls since the last check were, none of them under another file's name.
    void check(const std::string &reason, const std::string &calls)
    {
        EXPECT_EQ(textOf(platform.journal), calls) << reason;
        for (const auto &[file, line] : platform.places) {
            EXPECT_EQ(file, "qx_util_common.cpp") << line;
        }
        EXPECT_TRUE(platform.blocks.empty()) << reason;
        platform.reset();
    }
};

std::string numbered(int count, char separator)
{
    std::string text = "v0";
    for (int i = 1; i < count; ++i) {
        text += separator + ("v" + std::to_string(i));
    }
    return text;
}

// Whether a text of this size, and perhaps a zero in the place of its newline, is all that was written.
bool isAllWritten(const char *bytes, size_t room, size_t size)
{
    const size_t end = size + 1 < room && bytes[size + 1] == '\0' ? size + 2 : size + 1;
    return std::all_of(bytes + std::min(end, room), bytes + room, [](char c) { return c == '#'; });
}

// The values with "|" between them; "-" for a result of 1 that leaves all untouched, "-0" but for the state.
std::string all(const char *wan, const char *option)
{
    OptionValueList list;
    std::memset(static_cast<void *>(&list), '#', sizeof list);
    const uint32_t result = QX_UTL_GetOptionValue(wan, option, &list);
    const uint32_t count = result == 0 ? list.ucCount : 0;
    EXPECT_TRUE(result == 0 ? list.ucState == 0 && count > 0 : list.ucCount == '#');
    std::string values;
    for (uint32_t i = 0; i < 32; ++i) {
        const char *const value = list.aacValue[i];
        EXPECT_TRUE(i < count ? isAllWritten(value, 256, std::strlen(value)) : *value == '#') << i;
        values += (i == 0 || i >= count ? "" : "|") + std::string(i < count ? value : "");
    }
    return result == 0 ? values : list.ucState == 0 ? "-0" : "-";
}

std::string first(const char *wan, const char *option, uint32_t size)
{
    char out[300];
    std::fill_n(out, sizeof out, '#');
    if (QX_UTL_GetDhcpHdrOptValue(wan, option, out, size) != 0) {
        EXPECT_TRUE(*out == '#');
        return "-";
    }
    EXPECT_TRUE(size == 0 ? *out == '#' : isAllWritten(out, sizeof out, std::strlen(out)));
    return size == 0 ? "" : out;
}

TEST_F(UtilSystem, ReadsOptions)
{
    const std::string v255(255, 'v');
    const std::string line1199 = "x=" + std::string(1197, 'y');
    const std::string server = "Printf pcSaveStr=[12 abc\n]\r\n; Printf pcSaveStr=[12!abc\n]\r\n; "
                               "Printf acValue=[11!abc\n]\r\n; ";
    const std::string blanks =
        "Printf pcSaveStr=[   ]\r\n; Printf pcSaveStr=[  !]\r\n; Printf acValue=[!]\r\n; ";
    const struct {
        const char *reason;
        std::string file;
        std::string all;
        const char *option = "dns";
        std::string first = ""; // when it is not the first of all; "-0" is "-" with a record
        std::string console = "";
    } rows[] = {
        {"values of the second line", "mode=route\ndns=10.0.0.1 10.0.0.2\n", "10.0.0.1|10.0.0.2"},
        {"the first line that matches", "\ndns=a\ndns=b\n", "a"},
        {"blanks around values, and a newline of its own", "dns=  a   b \n", "a|b|"},
        {"only blanks are separators", "dns=a\tb\rc\r\n", "a\tb\rc\r"},
        {"equal signs before the name and in the value", "==dns==a=b\n", "=a=b"},
        {"a blank belongs to the name", "dns =a\n", "-"},
        {"case and length too", "DNS=a\nd=a\ndnss=a\n", "-"},
        {"a name with an equal sign is none", "a=b=c\n", "-", "a=b"},
        {"no line at all", "", "-"},
        {"an empty value", "dns=\n", ""},
        {"no value", "dns=", "-0"},
        {"nothing but blanks", "dns=   ", "-0"},
        {"a last line that is the name", "a=b\ndns", "-"},
        {"a name without value elsewhere", "dns\ndns=a\n", "a"},
        {"equal signs alone, a newline behind them", "===\ndns=a", "a"},
        {"and without one", "===", "-", "dns", "-0"},
        {"a zero byte before the name", "\0=\ndns=a"s, "a", "dns", "-0"},
        {"no name is asked for", "=a\n=", "-", "", "-0"},
        {"the longest value", "dns=" + v255 + " " + v255 + "w\n", v255 + "|" + v255},
        {"32 values", "dns=" + numbered(32, ' ') + "\n", numbered(32, '|')},
        {"40 values", "dns=" + numbered(40, ' ') + "\n", numbered(32, '|')},
        {"a piece of a line is a line", line1199 + "dns=a\n", "a"},
        {"not before its end", line1199.substr(1) + "dns=a\n", "-"},
        {"a server", "tr069srv=12 abc\n", "11!abc", "tr069srv", "12", server},
        {"a server of another form", "tr069srv=1 abc\n", "1|abc", "tr069srv"},
        {"a short one", "tr069srv=1 ", "1", "tr069srv"},
        {"one of blanks", "tr069srv=   ", "!", "tr069srv", "-0", blanks},
        {"another option is never a server", "tr069sr=12 abc\n", "12|abc", "tr069sr"},
    };
    const std::string open = "Fopen /var/wan/w/config r; ";
    for (const auto &row : rows) {
        std::ofstream(var() + "wan/w/config") << row.file;
        EXPECT_EQ(all("w", row.option), row.all) << row.reason;
        check(row.reason, open + row.console + "Fclose; MemFreeD" + (row.all == "-0" ? "; record 1" : ""));
        const std::string one = row.first.empty() ? row.all.substr(0, row.all.find('|')) : row.first;
        EXPECT_EQ(first("w", row.option, 300), one == "-0" ? "-" : one) << row.reason;
        check(row.reason, open + "Fclose; MemFreeD" + (one == "-0" ? "; record 1" : ""));
    }
    EXPECT_EQ(platform.places.size(), 3U) << "no value, twice, and no name";
}

TEST_F(UtilSystem, FitsAFirstValueIntoItsBuffer)
{
    const std::string v255(255, 'v');
    std::ofstream(var() + "wan/w/config") << "opt=abc def\nend=abc\nlong=" + v255 + "v";
    const std::tuple<const char *, uint32_t, std::string> rows[] = {
        {"opt", 4, "abc"}, {"opt", 3, ""}, {"opt", 1, ""},    {"opt", 0, ""},
        {"end", 5, "abc"}, {"end", 4, ""}, {"long", 255, ""}, {"long", 256, v255}};
    for (const auto &[option, size, value] : rows) {
        EXPECT_EQ(first("w", option, size), value) << option << " " << size;
    }
}

TEST_F(UtilSystem, GivesBackWhatAnOptionTook)
{
    std::ofstream(var() + "wan/w/config") << "dns=a\n";
    const std::string longest(248, 'w');
    const std::tuple<const char *, std::string, const char *, int64_t, std::string> rows[] = {
        {"no memory", "w", "QX_OS_MemMallocD", 0, "record 1"},
        {"no path, but a folder", "w", "snprintf_s", -1, "record 1 ffffffff; Fopen  r; Fclose; MemFreeD"},
        {"an empty path", "w", "snprintf_s", 0, "record 1; Fopen  r; Fclose; MemFreeD"},
        {"no file", "w", "QX_OS_Fopen", 0, "Fopen /var/wan/w/config r; MemFreeD"},
        {"no reading", "w", "QX_OS_Fgets", 0, "Fopen /var/wan/w/config r; Fclose; MemFreeD"},
        {"a path cut", longest, "", 0, "Fopen /var/wan/" + longest.substr(2) + " r; MemFreeD"},
    };
    for (const auto &[reason, wan, failing, failure, calls] : rows) {
        platform.fail(failing, 1, failure);
        EXPECT_EQ(all(wan.c_str(), "dns"), "-") << reason;
        check(reason, calls);
        platform.fail(failing, 1, failure);
        EXPECT_EQ(first(wan.c_str(), "dns", 9), "-") << reason;
        check(reason, calls);
    }
    OptionValueList list;
    char out = '#';
    EXPECT_EQ(QX_UTL_GetOptionValue(nullptr, "a", &list) + QX_UTL_GetOptionValue("w", nullptr, &list) +
                  QX_UTL_GetOptionValue("w", "a", nullptr) +
                  QX_UTL_GetDhcpHdrOptValue(nullptr, "a", &out, 1) +
                  QX_UTL_GetDhcpHdrOptValue("w", nullptr, &out, 1) +
                  QX_UTL_GetDhcpHdrOptValue("w", "a", nullptr, 1),
              6U);
    check("missing arguments", "");
}

TEST_F(UtilSystem, FindsAProcess)
{
    const std::string k255(255, 'k');
    const std::string key = "wan1 \tppp";
    const std::string path = "/var/zemad_wan1ppp_pid.txt";
    const auto lists = [](const std::string &keyword, const std::string &sizes, const std::string &command) {
        return "StripSpace " + keyword + "; MemMallocSet " + sizes + "; ExecShellCmd ps w| grep  " + command +
               "; MemFreeD; MemFreeD; Fopen /var/";
    };
    const std::string list =
        lists(key, "b; MemMallocSet 13", "zemad | grep wan1\\ \\\tppp >" + path) + path.substr(5) + " r";
    const std::string none = list + "; Fclose; Remove " + path + "; record 1";
    const std::string done = list + "; Fclose; Remove " + path;
    const struct {
        const char *reason;
        const char *process;
        std::string keyword;
        std::string listing;
        uint32_t result;
        std::string calls;
        const char *failing = "";
    } rows[] = {
        {"the first usable line", "zemad", key, "ps 1\nzemad 2\n\n  34 ?  zemad\n56 zemad\n", 34, done},
        {"no end of the line", "zemad", key, "34", 34, done},
        {"a line is taken in pieces of 510", "zemad", key, std::string(510, 'x') + "34\n", 34, done},
        {"no line", "zemad", key, "", 1, none},
        {"no usable line", "zemad", key, "12 upsd zemad\nzemad\n", 1, none},
        {"whatever the command says", "zemad", key, "12", 1, list + "; record 1", "QX_OS_ExecShellCmd"},
        {"a file that cannot be read", "zemad", key, "12", 1, none, "QX_OS_Fgets"},
        {"blanks that stay", "zemad", "k", "", 1, "StripSpace k; record 1", "QX_OS_StripSpace"},
        {"no memory", "zemad", "k", "", 1, "StripSpace k; MemMallocSet b; record 1", "QX_OS_MemMallocSet"},
        {"a keyword of 255", "p", k255, "", 1,
         lists(k255, "3; MemMallocSet 1ff", "p | grep " + k255 + " >/var/p_" + k255.substr(29)) + "p_" +
             k255.substr(7) + " r; record 1"},
        {"a keyword of 256", "p", k255 + "k", "", 1, "record 1"},
        {"nothing for the shell to obey", "a;id", "$k'<", "", 1,
         lists("$k'<", "9; MemMallocSet 9", "a\\;id | grep \\$k\\'\\< >/var/'a;id'_'$k'\\''<'_pid.txt") +
             "a;id_$k'<_pid.txt r; record 1"},
    };
    for (const auto &row : rows) {
        System::instance().listing = row.listing;
        platform.fail(row.failing, 1);
        uint32_t pid = 1;
        EXPECT_EQ(QX_UTL_GetPid(row.process, row.keyword.c_str(), &pid), row.result == 34 ? 0U : 1U)
            << row.reason;
        EXPECT_EQ(pid, row.result) << row.reason;
        check(row.reason, row.calls);
        EXPECT_FALSE(std::filesystem::exists(System::instance().root + path)) << row.reason;
    }
    uint32_t pid = 1;
    platform.fail("QX_OS_MemMallocSet", 2);
    EXPECT_EQ(QX_UTL_GetPid("p", "k", &pid), 1U);
    check("no memory for the keyword", "StripSpace k; MemMallocSet 3; MemMallocSet 3; record 1; MemFreeD");
    EXPECT_EQ(platform.places.size(), 6U);
    platform.fail("QX_OS_StripSpace", 1, 6);
    EXPECT_EQ(QX_UTL_GetPid("p", "k", &pid), 6U);
    check("the platform's own failure", "StripSpace k; record 6");
    EXPECT_EQ(QX_UTL_GetPid(nullptr, "k", &pid) + QX_UTL_GetPid("p", nullptr, &pid) +
                  QX_UTL_GetPid("p", "k", nullptr),
              3U);
    check("missing arguments", "");
}

TEST_F(UtilSystem, PrintsOnAllTerminals)
{
    const std::string text(2047, 't');
    QX_UTL_PrintToAllTerminal("%s %d\n", "link", 7);
    check("a line", "MemMallocSet 800; QX_CLI_SynPrint ffff link 7\n; MemFreeD");
    QX_UTL_PrintToAllTerminal("%s", text.c_str());
    check("2046 characters", "MemMallocSet 800; QX_CLI_SynPrint ffff " + text.substr(1) + "; MemFreeD");
    platform.fail("QX_OS_MemMallocSet", 1);
    QX_UTL_PrintToAllTerminal("%s", "a");
    check("no memory", "MemMallocSet 800");
}

TEST_F(UtilSystem, AppendsRowsOfParameters)
{
    char list[] = "list";
    char address[24];
    (void)std::snprintf(address, sizeof address, "record %x",
                        static_cast<uint32_t>(reinterpret_cast<uintptr_t>(list)));
    const DbAppendRow rows[] = {{1, 2, 3}, {0xFFFFFFFF, 5, 6}};
    const std::string one = "append 1 0 3 0 2 0 list";
    const std::string both = one + "; append ffffffff 0 6 0 5 0 list";
    const std::tuple<const DbAppendRow *, uint32_t, char *, uint32_t, std::string> given[] = {
        {rows, 24, list, 0, both},       {rows, 23, list, 0, one},
        {rows, 11, list, 0, ""},         {rows, 24, nullptr, 1, "record 0"},
        {nullptr, 24, list, 1, address}, {rows, 0xFFFFFFFF, list, 1, address},
    };
    for (const auto &[table, size, to, result, calls] : given) {
        EXPECT_EQ(QX_UTL_DBAppendAllList(table, size, to), result) << size;
        check("rows in " + std::to_string(size), calls);
    }
    platform.fail("append", 2, 77);
    EXPECT_EQ(QX_UTL_DBAppendAllList(rows, 24, list), 77U);
    check("refused", both + "; record 4d; record ffffffff");
    EXPECT_EQ(platform.places.size(), 3U);
}

TEST_F(UtilSystem, LearnsAnAddressFromTheSystemItself)
{
    const auto ask = [](const char *name, bool there) {
        std::string mac(8, '#');
        const int32_t result =
            get_dev_mac(name, there ? reinterpret_cast<uint8_t *>(mac.data() + 1) : nullptr);
        EXPECT_EQ(mac, result == 1 ? "#\0\0\0\0\0\0#"s : "########") << name;
        return result;
    };
    const size_t before = filesIn("/proc/self/fd");
    EXPECT_EQ(ask("lo", true), 1);
    EXPECT_EQ(ask("lo", false), -1);
    EXPECT_EQ(ask("no such device", true), -1);
    EXPECT_EQ(ask(nullptr, true), -1);
    EXPECT_EQ(filesIn("/proc/self/fd"), before) << "a descriptor stays open";
    rlimit usual{};
    getrlimit(RLIMIT_NOFILE, &usual);
    const rlimit none{.rlim_cur = 0, .rlim_max = usual.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    EXPECT_EQ(ask("lo", true), -1) << "no descriptor to be had";
    setrlimit(RLIMIT_NOFILE, &usual);
    check("recorded", "record 1; record 1; record 1");
    EXPECT_EQ(platform.places.size(), 2U);
}

} // namespace
