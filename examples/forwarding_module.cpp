// A forwarding module as a process of its own: answers operators' commands and hangs a tree under Usr_Root.
//
// What it needs is in main: start the agent, register words, link nodes, serve the tree, run. The rest is
// answers, from a little state that stands for what a real module reads from the kernel.
#include <qx/cli.h>
#include <qx/host.h>
#include <qx/text.h>
#include <zema/zema.h>

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <sys/prctl.h>

namespace {

// ---- Answering ----

// The strings of a command: the terminal, "Zemacmd", the words. They come from another process, which may
// send fewer than the console would: a missing one is empty.
class Strings {
public:
    Strings(uint32_t count, const char *const *strings) : count_(count), strings_(strings) {}

    const char *at(uint32_t index) const { return index < count_ ? strings_[index] : ""; }
    bool is(uint32_t index, std::string_view wanted) const { return at(index) == wanted; }
    const char *last() const { return at(count_ - 1); }

private:
    uint32_t count_;
    const char *const *strings_;
};

// Collects an answer and prints it in one piece on the operator's terminal.
class Answer {
public:
    explicit Answer(uint32_t terminal) : terminal_(terminal) {}
    // What is no number gets no answer.
    explicit Answer(const Strings &strings) : known_(QX_OS_StrToUInt32(strings.at(0), &terminal_) == 0) {}
    ~Answer()
    {
        if (known_ && !text_.empty()) {
            QX_CLI_AsynPrint(terminal_, text_.data(), static_cast<uint32_t>(text_.size()));
        }
    }
    Answer(const Answer &) = delete;
    Answer &operator=(const Answer &) = delete;

    void line(const char *format, ...) QX_PRINTF(2, 3)
    {
        char text[160] = {};
        va_list values;
        va_start(values, format);
        std::vsnprintf(text, sizeof text, format, values);
        va_end(values);
        text_ += text;
        text_ += '\n';
    }

private:
    uint32_t terminal_ = 0;
    bool known_ = true;
    std::string text_;
};

// ---- State ----

struct Translation {
    const char *protocol;
    const char *inside;
    const char *outside;
    const char *remote;
    uint32_t lifetime;
};

constexpr Translation kTranslations[] = {
    {"tcp", "192.168.1.20:51514", "203.0.113.7:40001", "198.51.100.10:443", 1800},
    {"udp", "192.168.1.31:5060", "203.0.113.7:40002", "198.51.100.44:5060", 300},
    {"udp", "192.168.1.20:41641", "203.0.113.7:40003", "192.0.2.9:3478", 120},
};

struct Route {
    const char *table;
    const char *text;
};

constexpr Route kRoutes[] = {
    {"neigh", "192.168.1.20 dev br0 lladdr 02:00:00:00:01:20 reachable"},
    {"neigh", "203.0.113.1 dev wan1 lladdr 02:00:00:00:ff:01 stale"},
    {"fib4", "0.0.0.0/0 via 203.0.113.1 dev wan1"},
    {"fib4", "192.168.1.0/24 dev br0"},
    {"fib6", "::/0 via fe80::1 dev wan1"},
    {"fib6", "2001:db8:1::/64 dev br0"},
};

struct UserFlow {
    uint32_t number;
    const char *match;
    const char *action;
};

constexpr UserFlow kFlows[] = {
    {1, "vlan 100, any", "to wan1"},
    {3, "vlan 200, 802.1p 5", "to voice, priority 5"},
    {17, "vlan 300, multicast", "copy to lan1, lan2"},
};

struct Bridge {
    const char *kind;
    const char *text;
};

constexpr Bridge kBridges[] = {
    {"bridge-info", "bridge 1: br0, 4 ports, learning on"},
    {"uni-binding", "lan1, lan2, lan3 to bridge 1"},
    {"nni-binding", "none"},
    {"uplink-binding", "wan1 to bridge 1"},
    {"port-binding", "port 1 lan1, port 2 lan2, port 3 lan3, port 5 wan1"},
};

constexpr const char *kTraces[] = {"timer", "event", "lsw", "napt", "fwd"};

struct State {
    std::string name = "forwarding_module";
    std::time_t started = std::time(nullptr);
    uint32_t queries = 0;
    uint32_t tracedPackets = 0;
    bool traced[std::size(kTraces)] = {};
    bool cpuWatched = false;
    uint32_t mtu = 1500;
    bool linkUp = true;
};

State gState;

// Counters that grow as those of a quiet line do.
uint32_t packets(uint32_t perSecond)
{
    return static_cast<uint32_t>(std::time(nullptr) - gState.started + 1) * perSecond;
}

// ---- The command words ----

uint32_t answerFw(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    if (strings.is(3, "dbg")) { // "info 5" or "info5"
        const std::string_view info = strings.at(5);
        const char *const number = info.size() > 4 ? info.data() + 4 : strings.at(6);
        if (QX_OS_StrToUInt32(number, &gState.tracedPackets) != 0) {
            return 1;
        }
        answer.line("%s: tracing the next %u packets", gState.name.c_str(), gState.tracedPackets);
        return 0;
    }
    answer.line("%s: %u queries, %u packets to trace", gState.name.c_str(), ++gState.queries,
                gState.tracedPackets);
    answer.line("  received %u  forwarded %u  dropped %u", packets(1250), packets(1249), packets(1));
    if (strings.is(4, "all")) {
        answer.line("  lan1 up 1000  lan2 up 100  lan3 down  wan1 %s mtu %u", gState.linkUp ? "up" : "down",
                    gState.mtu);
    }
    return 0;
}

uint32_t answerNapt(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    answer.line("%-5s %-22s %-20s %-20s %s", "proto", "inside", "outside", "remote", "seconds");
    for (const Translation &each : kTranslations) {
        answer.line("%-5s %-22s %-20s %-20s %u", each.protocol, each.inside, each.outside, each.remote,
                    each.lifetime);
    }
    return 0;
}

uint32_t answerRoute(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    for (const Route &each : kRoutes) {
        if ((strings.is(4, "all") || strings.is(4, each.table))) {
            answer.line("%-5s %s", each.table, each.text);
        }
    }
    return 0;
}

uint32_t answerUserFlow(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    uint32_t number = 0;
    if (QX_OS_StrToUInt32(strings.last(), &number) != 0) {
        return 1;
    }
    const auto *const flow = std::find_if(std::begin(kFlows), std::end(kFlows),
                                          [&](const UserFlow &each) { return each.number == number; });
    if (!strings.is(3, "show") || flow == std::end(kFlows)) {
        answer.line("user_flow %u: not in use", number);
    } else {
        answer.line("user_flow %u: %s, %s, %u packets", number, flow->match, flow->action, packets(number));
    }
    return 0;
}

uint32_t answerFfwd(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    if (strings.is(3, "show")) {
        answer.line("fast path: on, %u packets, %u exceptions", packets(1100), packets(2));
    }
    for (size_t i = 0; i < std::size(kTraces); ++i) {
        if (strings.is(3, "dbg") && (strings.is(4, "all") || strings.is(4, kTraces[i]))) {
            gState.traced[i] = !gState.traced[i];
        }
        answer.line("  trace of %-6s %s", kTraces[i], gState.traced[i] ? "on" : "off");
    }
    return 0;
}

uint32_t answerVbridge(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    for (const Bridge &each : kBridges) {
        if (strings.is(3, each.kind)) {
            answer.line("%s: %s", each.kind, each.text);
        }
    }
    return 0;
}

uint32_t answerAcl(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    answer.line("chain input   accept 3 rules, %u hits", packets(9));
    answer.line("chain forward drop   5 rules, %u hits", packets(4));
    return 0;
}

uint32_t answerCpu(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    gState.cpuWatched = strings.is(4, "on");
    answer.line("cpu watch %s", gState.cpuWatched ? "on" : "off");
    return 0;
}

uint32_t answerDbg(uint32_t count, const char *const *words)
{
    const Strings strings(count, words);
    Answer answer(strings);
    uint32_t module = 0;
    uint32_t level = 0;
    const bool read = count == 5 && QX_OS_StrToUInt32(strings.at(3), &module) == 0 &&
                      QX_OS_StrToUInt32(strings.at(4), &level) == 0;
    if (!read || module >= ZEMA_DBG_LEVEL_COUNT || level > UINT8_MAX) {
        answer.line("dbg: module 1 to %u, level 0 to %u", ZEMA_DBG_LEVEL_COUNT - 1, UINT8_MAX);
        return 1;
    }
    answer.line("debug level of module %u: %u, was %u", module, level, g_mid_dbg_level[module]);
    g_mid_dbg_level[module] = static_cast<uint8_t>(level);
    return 0;
}

struct CommandWord {
    const char *word;
    ZemaCmdHandler handler;
};

// Nobody answers wan and mac here.
constexpr CommandWord kWords[] = {
    {"fw", answerFw},           {"napt", answerNapt}, {"route", answerRoute}, {"user_flow", answerUserFlow},
    {"ffwd", answerFfwd},       {"acl", answerAcl},   {"cpu", answerCpu},     {"dbg", answerDbg},
    {"vbridge", answerVbridge},
};

// ---- The tree: usr wan mtu BYTES, usr wan link set up|down, usr wan link now, usr uptime now ----

void helpMtu(uint32_t terminal)
{
    Answer(terminal).line("usr wan mtu BYTES    sets the largest packet, 576 to 9000; now %u", gState.mtu);
}

uint32_t setMtu(uint32_t terminal, uint32_t /*count*/, const char *const *words)
{
    uint32_t mtu = 0;
    if (QX_OS_StrToUInt32(words[0], &mtu) != 0 || mtu < 576 || mtu > 9000) {
        return 1; // the help appears
    }
    gState.mtu = mtu;
    Answer(terminal).line("wan1 mtu %u", mtu);
    return 0;
}

void helpSet(uint32_t terminal)
{
    Answer(terminal).line("usr wan link set up|down");
}

uint32_t showLink(uint32_t terminal, uint32_t /*count*/, const char *const * /*words*/)
{
    Answer(terminal).line("wan1 is %s", gState.linkUp ? "up" : "down");
    return 0;
}

uint32_t setLink(uint32_t terminal, uint32_t count, const char *const *words)
{
    const std::string_view wanted = words[0]; // ulArgNum says that there is one
    if (wanted != "up" && wanted != "down") {
        return 1;
    }
    gState.linkUp = wanted == "up";
    return showLink(terminal, count, words);
}

uint32_t showUptime(uint32_t terminal, uint32_t /*count*/, const char *const * /*words*/)
{
    Answer(terminal).line("%s: up for %lld s", gState.name.c_str(),
                          static_cast<long long>(std::time(nullptr) - gState.started));
    return 0;
}

CmdTreeNode gSet = {.acName = "set",
                    .pfnHelp = helpSet,
                    .pfnExec = setLink,
                    .ulArgNum = 1,
                    .pstNext = nullptr,
                    .pstChild = nullptr};
CmdTreeNode gLink = {.acName = "link",
                     .pfnHelp = nullptr,
                     .pfnExec = showLink,
                     .ulArgNum = 0,
                     .pstNext = nullptr,
                     .pstChild = &gSet};
CmdTreeNode gMtu = {.acName = "mtu",
                    .pfnHelp = helpMtu,
                    .pfnExec = setMtu,
                    .ulArgNum = 1,
                    .pstNext = &gLink,
                    .pstChild = nullptr};
CmdTreeNode gUptime = {.acName = "uptime",
                       .pfnHelp = nullptr,
                       .pfnExec = showUptime,
                       .ulArgNum = 0,
                       .pstNext = nullptr,
                       .pstChild = nullptr};
CmdTreeNode gWan = {.acName = "wan",
                    .pfnHelp = nullptr,
                    .pfnExec = nullptr,
                    .ulArgNum = 0,
                    .pstNext = &gUptime,
                    .pstChild = &gMtu};

// ---- The host ----

constexpr char kHelp[] = R"(usage: forwarding_module [--name NAME] [--words WORD,WORD...]

Answers the command words fw, napt, route, user_flow, ffwd, acl, cpu, dbg and vbridge, and serves a tree
under usr. --words chooses some of them ("usr" for the tree), --name the name in its answers.
)";

struct Options {
    std::string_view words; // all when empty
    int exit = -1;
};

Options parse(int argc, char **argv)
{
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string_view option = argv[i];
        if (option == "--help") {
            std::fputs(kHelp, stdout);
            options.exit = 0;
        } else if (option == "--name" && i + 1 < argc) {
            gState.name = argv[i + 1];
        } else if (option == "--words" && i + 1 < argc) {
            options.words = argv[i + 1];
        } else {
            std::fputs(kHelp, stderr);
            options.exit = 2;
        }
    }
    return options;
}

bool isChosen(std::string_view words, std::string_view word)
{
    const std::string list = "," + std::string(words) + ",";
    return words.empty() || list.find("," + std::string(word) + ",") != std::string::npos;
}

// The first failure, or 0.
uint32_t start(std::string_view words)
{
    uint32_t result = CMDAgent_Init();
    for (const CommandWord &each : kWords) {
        if (result == 0 && isChosen(words, each.word)) {
            result = qx_ker_zema_cmd_reg(each.word, each.handler);
        }
    }
    if (result == 0 && isChosen(words, "usr")) {
        Usr_Root.pstChild = &gWan;
        result = CMDAgent_Reg();
    }
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    const Options options = parse(argc, argv);
    if (options.exit >= 0) {
        return options.exit;
    }
    prctl(PR_SET_NAME, gState.name.c_str()); // the name under which a console shows this process
    std::signal(SIGTERM, [](int) { QxHost_Stop(); });
    std::signal(SIGINT, [](int) { QxHost_Stop(); });

    const uint32_t started = start(options.words);
    if (started != 0) {
        std::fprintf(stderr, "%s: cannot start (0x%08X)\n", gState.name.c_str(), started);
        return 1;
    }
    std::printf("%s: ready\n", gState.name.c_str());
    std::fflush(stdout);
    const uint32_t ran = QxHost_Run();
    return CMDAgent_UnInit() == 0 && QxHost_Leave() == 0 && ran == 0 ? 0 : 1;
}
