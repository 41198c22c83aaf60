#include "qx/text.h"

#include "tests/platform/surroundings.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>

namespace {

std::string everyByte()
{
    std::string bytes(255, '\0');
    std::generate(bytes.begin(), bytes.end(), [byte = 0]() mutable { return static_cast<char>(++byte); });
    return bytes;
}

int sign(int value)
{
    return (value > 0) - (value < 0);
}

TEST(Text, ComparesAndSearchesAsTheCLibrary)
{
    for (int i = 0; i < 20000; ++i) {
        const std::string a = randomText(i % 2 == 0 ? "aAbB" : "aAzZ@[`{\x80\xC4\xE4\xFF", 6);
        const std::string b = randomText(i % 2 == 0 ? "aAbB" : "aAzZ@[`{\x80\xC4\xE4\xFF", 3);
        const auto count = static_cast<uint32_t>(i % 5);
        SCOPED_TRACE(testing::PrintToString(a) + " " + testing::PrintToString(b) + " " +
                     std::to_string(count));
        ASSERT_EQ(QX_OS_StrCmp(a.c_str(), b.c_str()), sign(std::strcmp(a.c_str(), b.c_str())));
        ASSERT_EQ(QX_OS_StrNCmp(a.c_str(), b.c_str(), count),
                  sign(std::strncmp(a.c_str(), b.c_str(), count)));
        ASSERT_EQ(QX_OS_StrCaseCmp(a.c_str(), b.c_str()), sign(strcasecmp(a.c_str(), b.c_str())));
        ASSERT_EQ(QX_OS_StrStr(a.c_str(), b.c_str()), std::strstr(a.c_str(), b.c_str()));
        ASSERT_EQ(QX_OS_StrCaseStr(a.c_str(), b.c_str()), strcasestr(a.c_str(), b.c_str()));
        ASSERT_EQ(QX_OS_StrNLen(a.c_str(), count), std::min<size_t>(QX_OS_StrLen(a.c_str()), count));
    }
}

TEST(Text, SurvivesMissingTexts)
{
    char *save = nullptr;
    char out = '?';
    EXPECT_EQ(QX_OS_StrLen(nullptr) + QX_OS_StrNLen(nullptr, 9) + QX_OS_IsDigitStr(nullptr), 0U);
    EXPECT_EQ(QX_OS_StrCmp(nullptr, ""), -1);
    EXPECT_EQ(QX_OS_StrNCmp("", nullptr, 0), 1);
    EXPECT_EQ(QX_OS_StrCaseCmp(nullptr, nullptr), 0);
    EXPECT_EQ(QX_OS_StrStr(nullptr, ""), nullptr);
    EXPECT_EQ(QX_OS_StrCaseStr("", nullptr), nullptr);
    EXPECT_EQ(QX_OS_StrtokR(nullptr, ",", &save), nullptr);
    EXPECT_NE(QX_OS_StripSpace(nullptr, &out), QX_OK);
    EXPECT_NE(QX_OS_CmdEscape("a", nullptr, 3), QX_OK);
    EXPECT_EQ(out, '?') << "written although there is no text";
    EXPECT_NE(QX_OS_CmdEscape(nullptr, &out, 1), QX_OK);
    EXPECT_EQ(out, '\0');
}

TEST(Text, KnowsBlanksAndDigits)
{
    std::string inPlace = everyByte();
    EXPECT_EQ(QX_OS_StripSpace(inPlace.c_str(), inPlace.data()), QX_OK);
    EXPECT_EQ(std::strlen(inPlace.c_str()), 255U - 6U) << "all but the six blanks stay";
    EXPECT_EQ(std::string(inPlace.c_str()).find_first_of(" \t\n\v\f\r"), std::string::npos);
    for (const char byte : everyByte()) {
        const bool isDigit = byte >= '0' && byte <= '9';
        EXPECT_EQ(QX_OS_IsDigitStr((std::string("7") + byte).c_str()), isDigit ? 1U : 0U) << +byte;
    }
    EXPECT_EQ(QX_OS_IsDigitStr(""), 0U);
}

std::string escaped(const std::string &text)
{
    std::string out(2 * text.size() + 1, '?');
    EXPECT_EQ(QX_OS_CmdEscape(text.c_str(), out.data(), static_cast<uint32_t>(out.size())), QX_OK);
    return out.c_str();
}

// The words that the shell makes of a line, in a directory with entries for patterns to match.
std::vector<std::string> shellWords(const std::string &words)
{
    std::string directory = testing::TempDir() + "shell-words.XXXXXX";
    EXPECT_NE(mkdtemp(directory.data()), nullptr);
    for (const char *file : {"/a", "/ab", "/x!y", "/-"}) {
        std::ofstream(directory + file).put('\n');
    }
    const std::string line = "cd '" + directory + "' && printf '%s\\000' " + words;
    FILE *const output = popen(line.c_str(), "r"); // NOLINT(cert-env33-c): the shell is what this is about
    std::vector<std::string> result{""};
    for (int c = std::getc(output); c != EOF; c = std::getc(output)) {
        if (c == '\0') {
            result.emplace_back();
        } else {
            result.back() += static_cast<char>(c);
        }
    }
    EXPECT_EQ(pclose(output), 0);
    EXPECT_EQ(result.back(), "") << "something else was run as well";
    result.pop_back();
    std::filesystem::remove_all(directory);
    return result;
}

TEST(CmdEscape, MakesEveryTextOneWordOfTheShell)
{
    std::vector<std::string> texts{"~",      "~root", "*",        "[!b]", "{a,b}",  "$HOME",  "`id`", "$(id)",
                                   "a\n;id", "\n#id", "\\\nid",   "&&id", "|id",    "A=b",    "#",    "!!",
                                   "<a",     ">a",    "\xC3\xA9", "a\\",  "$'\\n'", "a\nid\n"};
    const std::string every = everyByte();
    for (const char byte : every) {
        const std::string one(1, byte);
        texts.insert(texts.end(), {one + "a", "a" + one, one + one + "-", "b" + one + "b", "[" + one + "]"});
    }
    for (int i = 0; i < 500; ++i) {
        texts.push_back("w" + randomText(i % 2 == 0 ? every : "\\\n'\"$`;&|#~*?[]{}()<>=! \ta", 40));
    }
    std::string line;
    for (std::string &text : texts) {
        line += escaped(text);
        line += ' ';
        text.erase(std::remove(text.begin(), text.end(), '\n'), text.end());
    }
    EXPECT_EQ(shellWords(line), texts);
}

TEST(CmdEscape, LeavesPlainNamesReadable)
{
    struct Row {
        const char *reason, *text, *wanted;
    };
    constexpr std::array kRows{
        Row{"a device name", "br-lan_0.100:1@eth2", "br-lan_0.100:1@eth2"},
        Row{"a path", "/var/a+b,c%d", "/var/a+b,c%d"},
        Row{"at the head of a line it would set a variable", "A=b", "A\\=b"},
        Row{"what only other shells than this machine's look at", "{a,b}^[", "\\{a,b\\}\\^\\["},
        Row{"no text", "", ""},
        Row{"a newline ends no command", "a\nb", "a\\\nb"},
    };
    for (const Row &row : kRows) {
        EXPECT_EQ(escaped(row.text), row.wanted) << row.reason;
    }
}

TEST(CmdEscape, FitsOrIsRefused)
{
    const std::string wanted = "a\\ b\\;\\\nc\\$";
    for (uint32_t size = 0; size <= wanted.size() + 2; ++size) {
        Guarded out(size);
        EXPECT_EQ(QX_OS_CmdEscape("a b;\nc$", out.data(), size) == QX_OK, wanted.size() < size) << size;
        EXPECT_TRUE(out.holdsOrIsEmpty(wanted)) << size;
    }
}

} // namespace
