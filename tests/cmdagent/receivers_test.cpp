// What answers a compiled command in each process: the registered words and the command tree. And the agent's
// start and stop.
#include "tests/support/platform_double.h"
#include "zema/cmd_tree.h"
#include "zema/cmdagent.h"

#include <algorithm>
#include <cstring>

using namespace zema::test;
using namespace std::string_literals;

namespace {

constexpr const char *kFile = "qx_zema_cmdagent.cpp";

ZemaCmdMsg messageOf(const std::vector<std::string> &strings)
{
    ZemaCmdMsg message = {.ulArgc = static_cast<uint32_t>(strings.size()), .acArgs = {}};
    std::string area;
    for (const std::string &text : strings) {
        area += text + '\0';
    }
    EXPECT_LE(area.size(), sizeof message.acArgs);
    std::memcpy(message.acArgs, area.data(), std::min(area.size(), sizeof message.acArgs));
    return message;
}

std::string words(uint32_t count, const char *const *strings)
{
    std::string joined;
    for (uint32_t i = 0; i < count; ++i) {
        joined += (i > 0 ? "," : "") + std::string(strings[i]);
    }
    return joined + (strings[count] == nullptr ? "" : "!");
}

// Gives a message to the one receiver that is subscribed.
uint32_t receive(const std::vector<std::string> &strings)
{
    ZemaCmdMsg message = messageOf(strings);
    const std::vector<uint32_t> results = PlatformDouble::instance().deliver(ZEMA_EVENT_CMD, &message);
    EXPECT_EQ(results.size(), 1U);
    return results.at(0);
}

// What the handlers and nodes of the tests did, in order.
std::vector<std::string> deeds;
uint32_t result = 0;             // of all of them
std::vector<std::string> raised; // by the next of them, before it looks at its own strings

uint32_t act(const std::string &who, uint32_t count, const char *const *strings)
{
    if (!raised.empty()) {
        EXPECT_EQ(receive(std::exchange(raised, {})), 0U);
    }
    deeds.push_back(who + words(count, strings));
    return result;
}

const auto firstHandler = [](uint32_t n, const char *const *strings) { return act("first ", n, strings); };
const auto secondHandler = [](uint32_t n, const char *const *strings) { return act("second ", n, strings); };

class Receiver : public PlatformTest {
protected:
    Receiver()
    {
        deeds.clear();
        raised.clear();
        result = 0;
    }

    std::vector<std::string> printed(uint32_t terminal) const
    {
        std::vector<std::string> texts;
        for (const Call &call : platform.calls({"QX_CLI_AsynPrint", "QX_CLI_SynPrint"})) {
            EXPECT_EQ(call, (Call{"QX_CLI_AsynPrint", {terminal}, call.bytes}));
            texts.push_back(call.bytes);
        }
        return texts;
    }
};

// ---- Registered words ----

const std::vector<std::string> kFw = {"3", "Zemacmd", "fw", "show"};

class Registry : public Receiver {
protected:
    Registry() { CMDAgent_Init(); }
};

TEST_F(Registry, CallsTheHandlerOfTheThirdString)
{
    EXPECT_EQ(qx_ker_zema_cmd_reg("fw", firstHandler), 0U);
    EXPECT_EQ(qx_ker_zema_cmd_reg("fw", secondHandler), 0U);
    EXPECT_EQ(qx_ker_zema_cmd_reg("FW", secondHandler), 0U);
    raised = {"4", "Zemacmd", "FW"};
    EXPECT_EQ(receive(kFw), 0U);
    const std::vector<std::string> expected = {"second 4,Zemacmd,FW", "first 3,Zemacmd,fw,show"};
    EXPECT_EQ(deeds, expected) << "the first registration of a word stays, and case matters";
    EXPECT_TRUE(platform.recorded(kFile, {}));

    EXPECT_EQ(qx_ker_zema_cmd_unreg("fw"), 0U);
    EXPECT_EQ(receive(kFw), 0U) << "a word that nobody registered is no failure";
    EXPECT_EQ(qx_ker_zema_cmd_unreg("fw"), 1U);
    EXPECT_EQ(deeds, expected);
    EXPECT_TRUE(platform.recorded(kFile, {{QX_ERR_NOT_FOUND}, {1}}));
}

TEST_F(Registry, StoresTheFirst31Characters)
{
    const std::string word(40, 'w');
    const std::string longest(31, 'x');
    EXPECT_EQ(qx_ker_zema_cmd_reg(word.c_str(), firstHandler), 0U);
    EXPECT_EQ(qx_ker_zema_cmd_reg(word.c_str(), firstHandler), 0U);
    EXPECT_EQ(qx_ker_zema_cmd_reg(longest.c_str(), firstHandler), 0U);
    EXPECT_EQ(qx_ker_zema_cmd_reg(longest.c_str(), firstHandler), 0U);
    EXPECT_EQ(platform.calls({"ArrayList.add"}).at(0).values.at(0), 32 + sizeof(void *));
    EXPECT_EQ(receive({"3", "Zemacmd", word}), 0U);
    EXPECT_TRUE(deeds.empty());
    const std::string cut = word.substr(0, 31);
    EXPECT_EQ(receive({"3", "Zemacmd", cut}), 0U);
    EXPECT_EQ(receive({"3", "Zemacmd", longest}), 0U);
    EXPECT_EQ(deeds.size(), 2U);
    EXPECT_EQ(receive({"65535", "Zemacmd"}), 0U);
    EXPECT_EQ(printed(65535), (std::vector{cut + "\n", cut + "\n", longest + "\n"}))
        << "the cut word is not found again, the one that fits is";
    EXPECT_EQ(platform.calls({"snprintf_s"}).at(0), (Call{"snprintf_s", {34, 33}, "%s\n"}));
    EXPECT_EQ(platform.visited.size(), 3U);
    platform.journal.clear();
    EXPECT_EQ(qx_ker_zema_cmd_unreg(cut.c_str()), 0U);
    EXPECT_EQ(receive({"x", "Zemacmd"}), 0U);
    EXPECT_EQ(printed(0), (std::vector{cut + "\n", longest + "\n"})) << "a terminal that is no number is 0";
}

TEST_F(Registry, RecordsEachFailure)
{
    struct Row {
        const char *reason, *failing;
        int64_t failure;
        uint32_t (*act)();
        uint32_t result;
        std::vector<Values> records;
    };
    static const auto reg = [] { return qx_ker_zema_cmd_reg("mac", firstHandler); };
    static const auto unreg = [] { return qx_ker_zema_cmd_unreg("fw"); };
    static const auto call = [] { return receive(kFw); };
    static const auto failingCall = [] { return result = 0xBAD, receive(kFw); };
    static const auto list = [] { return receive({"3", "Zemacmd"}); };
    static const auto hollowList = [] {
        PlatformDouble::instance().visitMissingElement = true;
        return list();
    };
    static const auto hollowEntry = [] {
        std::string &entry = PlatformDouble::instance().elements.begin()->second.front();
        entry.replace(32, sizeof(void *), sizeof(void *), '\0');
        return call();
    };
    const Row rows[] = {
        {"no word", "", 0, [] { return qx_ker_zema_cmd_reg(nullptr, firstHandler); }, 1, {{1}}},
        {"no handler", "", 0, [] { return qx_ker_zema_cmd_reg("mac", nullptr); }, 1, {{1}}},
        {"no list is only returned", "ArrayList_GetArrayList", 0, reg, 1, {}},
        {"the addition's result", "ArrayList.add", 0xBAD, reg, 1, {{1, 0xBAD}}},
        {"no word to remove", "", 0, [] { return qx_ker_zema_cmd_unreg(nullptr); }, 1, {{1}}},
        {"no list to remove from", "ArrayList_GetArrayList", 0, unreg, 1, {{1}}},
        {"a failed removal", "ArrayList.remove", 0xBAD, unreg, 1, {{1}}},
        {"no list to search", "ArrayList_GetArrayList", 0, call, 1, {{1}}},
        {"the search's result", "ArrayList.find", 0xBAD, call, 0, {{0xBAD}}},
        {"an entry without a handler", "", 0, hollowEntry, 0, {}},
        {"no list to print", "ArrayList_GetArrayList", 0, list, 1, {{1}}},
        {"a failed iteration, then its receiver", "ArrayList.forEach", 0xBAD, list, 1, {{1}, {1}}},
        {"a line that cannot be formatted fails nothing", "snprintf_s", -1, list, 0, {{1}}},
        {"a failed print is not looked at", "QX_CLI_AsynPrint", 0xBAD, list, 0, {}},
        {"a missing element", "", 0, hollowList, 1, {{1}, {1}, {1}}},
        {"a handler's failure", "", 0, failingCall, 1, {{1}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        result = 0;
        CMDAgent_Init();
        qx_ker_zema_cmd_reg("fw", firstHandler);
        platform.fail(row.failing, 1, row.failure);
        EXPECT_EQ(row.act(), row.result) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    EXPECT_EQ(platform.places.size(), 10U);
}

// ---- The command tree ----

template <char kName>
void helpOf(uint32_t terminal)
{
    deeds.push_back("help "s + kName + " " + std::to_string(terminal));
}

template <char kName>
uint32_t execOf(uint32_t terminal, uint32_t count, const char *const *arguments)
{
    return act("exec "s + kName + " " + std::to_string(terminal) + " ", count, arguments);
}

class Tree : public Receiver {
protected:
    // alpha (inner (deep), mute), beta, bare: inner and mute without help, beta for two words, bare without
    // both.
    Tree()
    {
        CMDAgent_Reg();
        Usr_Root.pstChild = &alpha;
    }
    ~Tree() override { Usr_Root.pstChild = nullptr; }

    CmdTreeNode deep = {"deep", helpOf<'D'>, execOf<'D'>, 0, nullptr, nullptr};
    CmdTreeNode mute = {"mute", nullptr, execOf<'M'>, 0, nullptr, nullptr};
    CmdTreeNode inner = {"inner", nullptr, execOf<'I'>, 1, &mute, &deep};
    CmdTreeNode bare = {"bare", nullptr, nullptr, 0, nullptr, nullptr};
    CmdTreeNode beta = {"beta", helpOf<'B'>, execOf<'B'>, 2, &bare, nullptr};
    CmdTreeNode alpha = {"alpha", helpOf<'A'>, execOf<'A'>, 0, &beta, &inner};
};

TEST_F(Tree, AnswersByTheWordsBehindUsr)
{
    const std::string rootLines = "Zemacmd usr [alpha]\nZemacmd usr [beta]\nZemacmd usr [bare]\n";
    const std::string alphaLines = "Zemacmd usr alpha [inner]\nZemacmd usr alpha [mute]\n";
    const std::string innerLine = "Zemacmd usr alpha inner [deep]\n";
    struct Row {
        const char *reason;
        std::vector<std::string> words; // behind 3, Zemacmd
        std::vector<std::string> deeds;
        std::string printed;
        uint32_t result = 0; // of an exec that raises another command first
    };
    const Row rows[] = {
        {"not for the tree", {"fw", "alpha", "?"}, {}, ""},
        {"usr alone", {"usr"}, {}, rootLines},
        {"usr and one word", {"usr", "beta"}, {}, rootLines},
        {"a leaf's help", {"usr", "BETA", "?"}, {"help B 3"}, ""},
        {"a leaf without help: its parent's children", {"usr", "bare", "?"}, {}, rootLines},
        {"the same one level down", {"usr", "alpha", "mute", "?"}, {}, alphaLines},
        {"a leaf with the wanted number of words", {"usr", "beta", "x", "y"}, {"exec B 3 x,y"}, ""},
        {"with another number", {"usr", "beta", "x"}, {}, ""},
        {"a leaf of any number", {"usr", "alpha", "mute", "x", "y", "z"}, {"exec M 3 x,y,z"}, ""},
        {"? among several words is a word", {"usr", "beta", "?", "y"}, {"exec B 3 ?,y"}, ""},
        {"help when refused", {"usr", "beta", "x", "y"}, {"exec M 4 z", "exec B 3 x,y", "help B 3"}, "", 5},
        {"no help to show after them", {"usr", "alpha", "mute", "x"}, {"exec M 4 z", "exec M 3 x"}, "", 5},
        {"a leaf without exec", {"usr", "bare", "x"}, {}, ""},
        {"a node's help", {"usr", "alpha", "?"}, {"help A 3"}, ""},
        {"a node without help: its children", {"usr", "alpha", "inner", "?"}, {}, innerLine},
        {"a node's exec, without words", {"usr", "alpha", "mute"}, {"exec A 3 "}, ""},
        {"a node that needs a word gets none", {"usr", "alpha", "inner", "x"}, {}, ""},
        {"an unknown word, then ?", {"usr", "nothing", "?"}, {}, rootLines},
        {"the same below a node", {"usr", "alpha", "nothing", "?"}, {}, alphaLines},
        {"an unknown word, then another", {"usr", "nothing", "x"}, {}, ""},
        {"an unknown word, then ? not at once", {"usr", "nothing", "x", "?"}, {}, ""},
        {"two levels down, whatever the case", {"USR", "Alpha", "Inner", "Deep", "x"}, {"exec D 3 x"}, ""},
    };
    for (const Row &row : rows) {
        platform.journal.clear();
        deeds.clear();
        result = row.result;
        if (result != 0) {
            raised = {"4", "Zemacmd", "usr", "alpha", "mute", "z"};
        }
        std::vector<std::string> strings = {"3", "Zemacmd"};
        strings.insert(strings.end(), row.words.begin(), row.words.end());
        EXPECT_EQ(receive(strings), 0U) << row.reason;
        EXPECT_EQ(deeds, row.deeds) << row.reason;
        const auto lines = row.printed.empty() ? std::vector<std::string>() : std::vector{row.printed};
        EXPECT_EQ(printed(3), lines) << row.reason;
    }
    EXPECT_TRUE(platform.recorded(kFile, {}));
    EXPECT_STREQ(Usr_Root.acName, "usr_root");
}

// 32 strings are the most; a chain of nodes takes all but the last.
TEST_F(Tree, WalksAsDeepAsAMessageGoes)
{
    std::vector<CmdTreeNode> chain(29, CmdTreeNode{"n", nullptr, execOf<'N'>, 0, nullptr, nullptr});
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
        chain[i].pstChild = &chain[i + 1];
    }
    Usr_Root.pstChild = chain.data();
    std::vector<std::string> strings(32, "n");
    strings[0] = "65535";
    strings[2] = "usr";
    EXPECT_EQ(receive(strings), 0U);
    EXPECT_EQ(deeds, std::vector<std::string>{"exec N 65535 "}) << "the 28th node, without words";
    strings[31] = "?";
    EXPECT_EQ(receive(strings), 0U);
    std::string listing = "n usr ";
    while (listing.size() < 6 + 2 * 28) {
        listing += "n ";
    }
    EXPECT_EQ(printed(65535), std::vector{listing + "[n]\n"});
}

TEST_F(Tree, CutsALongListing)
{
    std::vector<CmdTreeNode> children(40,
                                      CmdTreeNode{"fifteen-letters", nullptr, nullptr, 0, nullptr, nullptr});
    for (size_t i = 0; i + 1 < children.size(); ++i) {
        children[i].pstNext = &children[i + 1];
    }
    const CmdTreeNode root = {"root", nullptr, nullptr, 0, nullptr, children.data()};
    const std::string giant(70, 'p');
    const char *const prefix[] = {giant.c_str(), "more", nullptr};
    EXPECT_EQ(CmdTree_PrintHelp(5, prefix, 3, &root), 0U);
    std::string listing;
    while (listing.size() < 511) {
        listing += giant.substr(0, 63) + "[fifteen-letters]\n";
    }
    EXPECT_EQ(printed(5), std::vector{listing.substr(0, 511)});

    platform.journal.clear();
    const CmdTreeNode childless = {"none", nullptr, nullptr, 0, nullptr, nullptr};
    EXPECT_EQ(CmdTree_PrintHelp(5, prefix, 2, &childless), 0U);
    platform.fail("QX_OS_Snprintf_S", 0, -1);
    EXPECT_EQ(CmdTree_PrintHelp(5, nullptr, 2, &root), 0U);
    EXPECT_TRUE(printed(5).empty()) << "nothing to list, nothing printed";
    EXPECT_EQ(CmdTree_PrintHelp(5, prefix, 2, nullptr), 1U);
    EXPECT_TRUE(platform.recorded("include/zema/cmd_tree.h", {{1}}));
}

// ---- Messages from a hostile process ----

class Hostile : public Receiver {
protected:
    Hostile()
    {
        CMDAgent_Init();
        CMDAgent_Reg();
        qx_ker_zema_cmd_reg("", firstHandler);
    }

    std::vector<uint32_t> deliver(void *message) { return platform.deliver(ZEMA_EVENT_CMD, message); }
};

TEST_F(Hostile, TooManyStringsOrNoMessageAreRefused)
{
    std::vector<std::string> strings(33, "x");
    strings[2] = "usr";
    ZemaCmdMsg message = messageOf(strings);
    const auto address = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(&message));
    EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{1, 1}));
    message.ulArgc = 0xFFFFFFFF;
    EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{1, 1}));
    EXPECT_EQ(deliver(nullptr), (std::vector<uint32_t>{1, 1}));
    EXPECT_TRUE(
        platform.recorded(kFile, {{1, address}, {1, address}, {1, address}, {1, address}, {1, 0}, {1, 0}}));
    EXPECT_EQ(platform.places.size(), 2U);
    for (uint32_t count : {0U, 1U}) {
        message.ulArgc = count;
        EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{0, 0}))
            << "nothing to do for " << count << " strings";
    }
    EXPECT_TRUE(deeds.empty());
}

TEST_F(Hostile, WhatDoesNotEndInsideTheAreaIsEmpty)
{
    ZemaCmdMsg message = messageOf({"3", "Zemacmd"});
    message.ulArgc = 5;
    EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{0, 0}));
    std::memset(message.acArgs, 'x', sizeof message.acArgs);
    EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{0, 0}));
    message.ulArgc = 32;
    message.acArgs[253] = message.acArgs[255] = '\0';
    message.acArgs[0] = message.acArgs[1] = '\0'; // "", "", 251 characters, one, then none
    message.acArgs[2] = '\0';
    EXPECT_EQ(deliver(&message), (std::vector<uint32_t>{0, 0}));
    const std::vector<std::string> expected = {"first 3,Zemacmd,,,", "first ,,,,",
                                               "first ,,," + std::string(250, 'x') + ",x" +
                                                   std::string(27, ',')};
    EXPECT_EQ(deeds, expected);
}

// ---- Start and stop ----

class Lifecycle : public PlatformTest {};

TEST_F(Lifecycle, InitRegistersThenSubscribes)
{
    EXPECT_EQ(CMDAgent_Init(), 0U);
    const std::vector<Call> expected = {{"QX_OS_MemSet_S", {4096, 255, 4096}, {}},
                                        {"QX_MSG_RegOverWriteRpcCalls", {}, {}},
                                        {"EventCenter_SubscribeEvent", {8853}, {}}};
    EXPECT_EQ(platform.journal, expected);
    ASSERT_EQ(platform.rpcRows.size(), 2U);
    EXPECT_EQ(platform.rpcRows[0].ulId, 0x4710203EU);
    EXPECT_EQ(platform.rpcRows[1].ulId, 0x4830514FU);
    const auto call = [this](size_t row, std::string text) {
        return platform.rpcRows[row].pfnHandler(3 << 16, text.data(), 0, 0, 0);
    };
    EXPECT_EQ(call(1, "fw show all"), 0U);
    EXPECT_EQ(call(0, "fw show all"), 0xF7202001U);
    EXPECT_EQ(call(0, "cpu dbg on"), 0U);
    EXPECT_EQ(call(1, "cpu dbg on"), 0xF7202001U);
}

TEST_F(Lifecycle, EachFailureIsPassedOn)
{
    struct Row {
        const char *failing;
        uint32_t (*act)();
        std::vector<Values> records;
        size_t calls; // and records
        bool levelsSet;
    };
    const Row rows[] = {
        {"QX_MSG_RegOverWriteRpcCalls", CMDAgent_Init, {{0xBAD}}, 3, true},
        {"EventCenter_SubscribeEvent", CMDAgent_Init, {{0xBAD}}, 4, true},
        {"EventCenter_RemoveEvent", CMDAgent_UnInit, {{0xBAD}}, 2, false},
        {"EventCenter_SubscribeEvent", CMDAgent_Reg, {}, 1, false},
    };
    for (const Row &row : rows) {
        platform.reset();
        std::fill(std::begin(g_mid_dbg_level), std::end(g_mid_dbg_level), uint8_t{0});
        platform.fail(row.failing, 1, 0xBAD);
        EXPECT_EQ(row.act(), 0xBADU) << row.failing;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.failing;
        EXPECT_EQ(platform.journal.size(), row.calls) << row.failing << ": what follows is not done";
        EXPECT_EQ(std::count(std::begin(g_mid_dbg_level), std::end(g_mid_dbg_level), 255),
                  row.levelsSet ? 4096 : 0)
            << row.failing;
    }
    EXPECT_EQ(platform.places.size(), 3U);
}

TEST_F(Lifecycle, UnInitEndsTheDispatchButNotTheTree)
{
    deeds.clear();
    CMDAgent_Init();
    CMDAgent_Reg();
    qx_ker_zema_cmd_reg("usr", firstHandler);
    CmdTreeNode leaf = {"leaf", helpOf<'L'>, nullptr, 0, nullptr, nullptr};
    Usr_Root.pstChild = &leaf;
    ZemaCmdMsg message = messageOf({"3", "Zemacmd", "usr", "leaf", "?"});
    platform.deliver(ZEMA_EVENT_CMD, &message);
    EXPECT_EQ(CMDAgent_UnInit(), 0U);
    platform.deliver(ZEMA_EVENT_CMD, &message);
    EXPECT_EQ(deeds, (std::vector<std::string>{"first 3,Zemacmd,usr,leaf,?", "help L 3", "help L 3"}));
    EXPECT_EQ(platform.rpcRows.size(), 2U) << "the remote procedures stay";
    Usr_Root.pstChild = nullptr;
}

} // namespace
