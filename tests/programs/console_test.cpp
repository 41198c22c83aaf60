// What the console offers, asks and shows.
#include "command.h"
#include "complete.h"
#include "json.h"
#include "terminal.h"
#include "tests/support/processes.h"
#include "text.h"
#include "tree.h"
#include "zema/zema.h"

namespace zemash {
namespace {

std::string wordsIn(const std::vector<Candidate> &candidates)
{
    std::string words;
    for (const Candidate &each : candidates) {
        words += (each.word.empty() ? "(" + each.help + ")" : each.word) + (each.more ? "+ " : " ");
    }
    return words;
}

TEST(Complete, OffersWhatTheServiceWouldTake)
{
    struct {
        const char *reason;
        const char *text;
        bool debug;
        const char *offered;
    } rows[] = {
        {"a word of several rows", "fw", false, "fw+ "},
        {"nothing follows: no space may", "fw show all", false, "all "},
        {"a word that both ends one row and begins another", "user_flow show", false, "show+ "},
        {"words and a parameter", "user_flow show ", false, "ctp+ (a number from 1 to 1024) "},
        {"only the first row's parameter", "user_flow show ctp ", false, "(a number from 1 to 32) "},
        {"keywords", "route show f", false, "fib4 fib6 "},
        {"one keyword only", "route show all f", false, ""},
        {"the other class", "cpu", false, ""},
        {"its own class", "cpu", true, "cpu+ "},
        {"two spaces are no command", "fw  sh", false, ""},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(wordsIn(nextWords(row.text, row.debug)), row.offered) << row.reason;
    }
}

TEST(Text, HostileBytesAreShownNotObeyed)
{
    struct {
        const char *reason;
        std::string_view bytes;
        const char *shown;
        const char *json;
    } rows[] = {
        {"escape sequence", "\x1b[2J", "\\x1b[2J", R"("\u001b[2J")"},
        {"letters of any language", "\xc3\xa4\xe2\x82\xac", "\xc3\xa4\xe2\x82\xac",
         "\"\xc3\xa4\xe2\x82\xac\""},
        {"a control character of two bytes", "\xc2\x9b", "\\xc2\\x9b", R"("\u009b")"},
        {"overlong", "\xc0\xaf", "\\xc0\\xaf", R"("\ufffd\ufffd")"},
        {"surrogate", "\xed\xa0\x80", "\\xed\\xa0\\x80", R"("\ufffd\ufffd\ufffd")"},
        {"above the last code point", "\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80",
         R"("\ufffd\ufffd\ufffd\ufffd")"},
        {"cut short", "\xe2\x82", "\\xe2\\x82", R"("\ufffd\ufffd")"},
        {"what ends a string", "\"\\\n", "\"\\\n", R"("\"\\\u000a")"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(tools::harmless(row.bytes, "\n"), row.shown) << row.reason;
        EXPECT_EQ(quoted(row.bytes), row.json) << row.reason;
    }
}

// A tree in another process that counts what is executed: usr wan mtu, usr wan link set, usr told below.
class Tree : public zema::test::Scratch {
protected:
    static void serve(zema::test::Shared<std::atomic<int>> &executed)
    {
        static std::atomic<int> *counter;
        static CmdTreeNode below, told, set, link, mtu, wan;
        counter = &*executed;
        const auto execute = [](uint32_t, uint32_t, const char *const *) -> uint32_t {
            return ++*counter > 0 ? 0 : 1;
        };
        const auto help = [](uint32_t terminal) { QX_CLI_AsynPrint(terminal, "help\n", 5); };
        below = {"below", nullptr, execute, 0, nullptr, nullptr};
        told = {"told", help, execute, 0, nullptr, &below};
        set = {"set", nullptr, execute, 0, nullptr, nullptr};
        link = {"link", nullptr, execute, 0, nullptr, &set};
        mtu = {"mtu", nullptr, execute, 0, &link, nullptr};
        wan = {"wan", nullptr, execute, 0, &told, &mtu};
        Usr_Root.pstChild = &wan;
        CMDAgent_Reg();
    }
};

TEST_F(Tree, IsAskedWithoutExecutingAnything)
{
    zema::test::Shared<std::atomic<int>> executed;
    const zema::test::Child child([&] { serve(executed); });
    Terminal terminal(3);
    ASSERT_EQ(terminal.serve(), QX_OK);
    TreeGuide guide(terminal, 5000);
    struct {
        const char *reason;
        const char *path;
        const char *beginning;
        const char *names;
        bool asked;
    } rows[] = {
        {"the first level", "usr", "", "wan+ told+ ", true},
        {"a level below", "usr wan", "", "mtu+ link+ ", true},
        {"a beginning, ignoring case", "usr wan", "L", "link+ ", true},
        {"two levels below", "usr wan link", "", "set+ ", true},
        {"a leaf lists its siblings, which are not its children", "usr wan mtu", "", "", true},
        {"below a leaf, where words are arguments", "usr wan mtu 1", "", "", false},
        {"far below a leaf", "usr wan mtu 1 2 3", "", "", false},
        {"below a node with help of its own, which may be a leaf", "usr told below", "", "", false},
        {"below a name that is not there", "usr nothing x y", "", "", true},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(wordsIn(guide.children(row.path, row.beginning)), row.names) << row.reason;
        EXPECT_EQ(guide.ask(row.path).has_value(), row.asked) << row.reason;
    }
    EXPECT_EQ(executed->load(), 0);
}

} // namespace
} // namespace zemash
