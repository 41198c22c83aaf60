// The operator's console: options, and what they ask for.
#include "blocks.h"
#include "check.h"
#include "console.h"
#include "devices.h"
#include "monitor.h"
#include "options.h"
#include "qx/host.h"
#include "records.h"
#include "signals.h"
#include "status.h"
#include "tables.h"
#include "text.h"

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cstdio>
#include <getopt.h>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

namespace zemash {
namespace {

constexpr char kHelp[] = R"(usage: zemash [-t N] [-d] [--wait MS]              a console on terminal N
       zemash [-t N] [-d] [--wait MS] [--json] -c COMMAND
       zemash [-t N] [--wait MS] [--json] words
       zemash [-t N] [--wait MS] [--json] usr [WORD]...
       zemash status [--json]
       zemash monitor [--kind KINDS] [--process PROCESS] [--count N] [--json]
       zemash records [-f] [--json]
       zemash tables [--layer] [--json] [TABLE [INDEX]]
       zemash devices [--json]
       zemash blocks [--remove-orphans] [--json]
       zemash options [--json] WAN [NAME]
       zemash check [--json] KIND VALUE

The operator's console of the zema service. It is terminal N: commands are sent in its name, and what processes
print on terminal N appears here, whenever it comes.

  -t, --terminal N   the terminal, 0 to 65534; 0 when not given
  -c, --command CMD  runs one command and exits with its result
  -d, --debug        debug commands instead of display commands
  -w, --wait MS      how long a command waits for processes that do not finish; 2000 when not given
  -j, --json         JSON instead of text
  -f, --follow       records: goes on with new ones until Ctrl-C
  -l, --layer        tables: items are layer records, whose headers are decoded
  -k, --kind KINDS   monitor: only these, separated by commas: event, call, print, hlp, request, message
  -p, --process P    monitor: only what comes from or goes to this process, a name or an identifier
  -n, --count N      monitor: ends after so many
  -r, --remove-orphans  blocks: removes those whose maker is gone
  -h, --help         this text
  -V, --version      the version

words lists the command words that modules have registered. usr walks the command tree: usr alone lists its first
level, "usr WORD... ?" tells what a node takes, "usr WORD... ARGUMENT..." executes one. records shows what failures
left in every process, dead ones too: time, process, its identifier, source line, five values of which the first is
the failure's code.

status shows the service at a glance: its processes with their roles, how many frames each has handled, how many bytes
wait there, and the records that it has left; then tables, blocks and records. A process that does not answer within
200 ms is said not to.

monitor shows what passes on the bus, when its receiver is done with it: time, kind, number (of the event, procedure,
terminal, HLP message, operation or module), sender and receiver, size, how long the receiver took, its result when
that is not 0, and the beginning of what was sent. It begins with what comes next and goes on until Ctrl-C; then it
says how many it has shown and how many it missed, because they came faster than it could print: nobody waits for a
monitor. As everything here it is for the service's user only.

tables looks into the shared tables, which the service's main process owns, and changes nothing: all tables with the
number of their items, the items of one with their lengths, or one item's bytes.

devices shows the machine's network devices as the library sees them: name, kernel index, up or down, hardware
address, IPv4 address and mask, and the private flag that zemad keeps. options shows the options of the connection
WAN, from the file /var/wan/WAN/config, with their values; with NAME only that one's values, one a line.

blocks lists the blocks of shared memory that this user's processes have left for a reader: identifier, size, age,
and who made them. A maker may be gone and its block still be awaited; --remove-orphans removes those blocks all the
same, and lists them.

check asks the library whether it accepts a VALUE of the configuration, and says accepted, or rejected and why; then
what the library recorded, source line and values. A value that begins with a hyphen stands behind --. Nobody else needs
to run. The kinds are listed at the end.

A command ends when every process that received it is done with it. A process that does not finish in time, or dies,
is named on standard error.

In the console, Tab completes, ? tells what may follow (^V ? types one), Ctrl-C abandons the line or the wait,
Ctrl-D, exit and quit leave. enable and disable switch between debug commands (prompt #) and display commands
(prompt >); words, usr and records work as above. The history is kept in $XDG_STATE_HOME/zema/history, else
~/.local/state/zema/history. When standard input is no terminal, each line is a command, and the exit status is the
last one's.

Exit status: 0 answered, or accepted; 1 the service refused the command, there is no such table, item or option, or the
value is rejected; 2 wrong use; 3 no answer, or not all of it: nobody there, no process printed anything, one did not
finish or died.

With --json a command prints one object: command, terminal, entry (display, debug, words, tree), result (of the
remote procedure, null when there is none), exit, output (all that was printed on the terminal meanwhile), answers
(for each process that received the command or printed: pid, process, state, text; the state is done, waiting, died,
or other for one that only printed). The others print one object a line. records: time (UTC), process, pid, thread,
alive, number, file, line, values. tables: table, items; or table, index, length; or table, index, length, hex; with
--layer also layer (index, state, state2Jiffies, state3Jiffies, table, visible; null for a shorter item). devices:
name, index, status (up, down), mac, address, mask, flag (null for what a device has not). options: option, values.
blocks: id, size, age (seconds), process, pid, alive, removed. monitor: time, kind, number, from and to (process,
pid), size, tookNs, result, missed (by this receiver, before), content. status is one object: processes (pid, process,
answering, handled, waiting, connections, records, roles with the seconds for which each is held), tables (tables,
items; null without an owner), blocks (blocks, bytes, orphans), records (records, newest).
check: kind, value, accepted, reason (null when accepted), records (file,
line, values). Bytes that are no UTF-8 appear as U+FFFD.

Processes meet in a runtime directory: $ZEMA_RUNTIME_DIR, else /run/zema for root, else $XDG_RUNTIME_DIR/zema.
)";
constexpr uint32_t kMaxTerminal = 65534;
constexpr uint32_t kMaxWaitMs = 3'600'000;

struct Options {
    uint32_t terminal = 0;
    uint32_t waitMs = 2000;
    bool debug = false;
    bool json = false;
    bool follow = false;
    bool layer = false;
    bool removeOrphans = false;
    MonitorQuery monitor;                 // but for json
    const struct Verb *listing = nullptr; // what needs no terminal
    std::vector<std::string> words;       // behind it
    std::optional<std::string> command;
    std::optional<int> exit; // nothing more to do
};

constexpr option kOptions[] = {
    {"terminal", required_argument, nullptr, 't'}, {"command", required_argument, nullptr, 'c'},
    {"debug", no_argument, nullptr, 'd'},          {"wait", required_argument, nullptr, 'w'},
    {"json", no_argument, nullptr, 'j'},           {"follow", no_argument, nullptr, 'f'},
    {"layer", no_argument, nullptr, 'l'},          {"remove-orphans", no_argument, nullptr, 'r'},
    {"kind", required_argument, nullptr, 'k'},     {"process", required_argument, nullptr, 'p'},
    {"count", required_argument, nullptr, 'n'},    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},        {nullptr, 0, nullptr, 0},
};

int misuse(const std::string &what)
{
    std::fprintf(stderr, "zemash: %s; see zemash --help\n", what.c_str());
    return kUsage;
}

std::optional<uint32_t> numberUpTo(std::string_view text, uint32_t most)
{
    uint32_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    return whole && number <= most ? std::optional(number) : std::nullopt;
}

void takeNumber(Options &options, uint32_t &number, const char *name, uint32_t most)
{
    const std::optional<uint32_t> given = numberUpTo(optarg, most);
    if (!given) {
        options.exit = misuse(std::string(name) + " takes a number up to " + std::to_string(most));
    }
    number = given.value_or(0);
}

int tell(const std::string &text)
{
    std::fputs(text.c_str(), stdout);
    return kAnswered;
}

void takeOption(Options &options, int letter)
{
    switch (letter) {
    case 't':
        return takeNumber(options, options.terminal, "--terminal", kMaxTerminal);
    case 'w':
        return takeNumber(options, options.waitMs, "--wait", kMaxWaitMs);
    case 'c':
        options.command = optarg;
        return;
    case 'd':
        options.debug = true;
        return;
    case 'j':
        options.json = true;
        return;
    case 'f':
        options.follow = true;
        return;
    case 'l':
        options.layer = true;
        return;
    case 'r':
        options.removeOrphans = true;
        return;
    case 'k':
        options.monitor.kinds = optarg;
        options.exit = areKinds(optarg) ? options.exit : misuse("--kind takes some of " + allKinds());
        return;
    case 'p':
        options.monitor.process = optarg;
        return;
    case 'n':
        return takeNumber(options, options.monitor.count, "--count", UINT32_MAX);
    case 'h':
        options.exit = tell(kHelp + kindsForHelp());
        return;
    case 'V':
        options.exit = tell("zemash " ZEMA_VERSION "\n");
        return;
    default: // getopt has said what is wrong
        options.exit = misuse("wrong option");
    }
}

void takeOptions(Options &options, int argc, char **argv)
{
    for (int letter = 0; !options.exit && letter >= 0;) {
        letter = getopt_long(argc, argv, "+t:c:dw:jflrk:p:n:hV", kOptions, nullptr);
        if (letter >= 0) {
            takeOption(options, letter);
        }
    }
}

int showAllRecords(const Options &options)
{
    return showRecords(options.json, options.follow);
}

int showWhole(const Options &options)
{
    return showStatus(options.json);
}

int showPassages(const Options &options)
{
    MonitorQuery query = options.monitor;
    query.json = options.json;
    return showMonitor(query);
}

int showAllDevices(const Options &options)
{
    return showDevices(options.json);
}

int showAllBlocks(const Options &options)
{
    return showBlocks(options.json, options.removeOrphans);
}

int showSomeOptions(const Options &options)
{
    return showOptions(options.words, options.json);
}

int checkGiven(const Options &options)
{
    return showCheck(options.words, options.json);
}

int showSomeTables(const Options &options)
{
    TableQuery query{.table = {}, .index = {}, .layer = options.layer, .json = options.json};
    std::optional<uint32_t> *const places[] = {&query.table, &query.index};
    for (size_t i = 0; i < options.words.size(); ++i) {
        *places[i] = numberUpTo(options.words[i], UINT32_MAX);
        if (!*places[i]) {
            return misuse("tables takes numbers");
        }
    }
    return showTables(query);
}

// What may stand behind the options: a word, with so many others behind it, between options of its own.
struct Verb {
    std::string_view word;
    size_t least;
    size_t most;
    const char *use;
    int (*show)(const Options &options); // null: it is a command
};

constexpr size_t kAnyNumber = SIZE_MAX;

constexpr Verb kVerbs[] = {
    {"words", 0, 0, "takes no words", nullptr},
    {"usr", 0, kAnyNumber, "", nullptr},
    {"status", 0, 0, "takes no words", showWhole},
    {"monitor", 0, 0, "takes no words", showPassages},
    {"records", 0, 0, "takes no words", showAllRecords},
    {"tables", 0, 2, "takes a table and an index at most", showSomeTables},
    {"devices", 0, 0, "takes no words", showAllDevices},
    {"blocks", 0, 0, "takes no words", showAllBlocks},
    {"options", 1, 2, "takes a connection and at most one name", showSomeOptions},
    {"check", 2, 2, "takes a kind and a value", checkGiven},
};

// Words with options among them, but none behind --.
void takeWords(Options &options, int argc, char **argv)
{
    bool more = true;
    do {
        if (more) {
            takeOptions(options, argc, argv);
            more = std::string_view(argv[optind - 1]) != "--";
        }
        if (!options.exit && optind < argc) {
            options.words.emplace_back(argv[optind++]);
        }
    } while (!options.exit && optind < argc);
}

void takeVerb(Options &options, int argc, char **argv)
{
    const std::string_view verb = argv[optind];
    const auto *const row = std::find_if(std::begin(kVerbs), std::end(kVerbs),
                                         [&](const Verb &each) { return each.word == verb; });
    if (row == std::end(kVerbs)) {
        options.exit = misuse("unknown word \"" + tools::harmless(verb) + "\"");
        return;
    }
    if (options.command) {
        options.exit = misuse("-c and " + std::string(verb) + " exclude each other");
        return;
    }
    if (verb == "usr") {
        for (options.command = "usr"; ++optind < argc;) {
            *options.command += " " + std::string(argv[optind]);
        }
        return;
    }
    ++optind;
    takeWords(options, argc, argv);
    if (!options.exit && (options.words.size() < row->least || options.words.size() > row->most)) {
        options.exit = misuse(std::string(verb) + " " + row->use);
    }
    if (row->show != nullptr) {
        options.listing = row;
    } else {
        options.command = verb;
    }
}

Options parse(int argc, char **argv)
{
    Options options;
    takeOptions(options, argc, argv);
    if (!options.exit && optind < argc) {
        takeVerb(options, argc, argv);
    }
    const std::string_view listing = options.listing != nullptr ? options.listing->word : "";
    if (!options.exit && options.follow && listing != "records") {
        options.exit = misuse("-f goes with records");
    }
    if (!options.exit && options.layer && listing != "tables") {
        options.exit = misuse("--layer goes with tables");
    }
    if (!options.exit && options.removeOrphans && listing != "blocks") {
        options.exit = misuse("--remove-orphans goes with blocks");
    }
    const MonitorQuery &asked = options.monitor;
    if (!options.exit && (!asked.kinds.empty() || !asked.process.empty() || asked.count != 0) &&
        listing != "monitor") {
        options.exit = misuse("--kind, --process and --count go with monitor");
    }
    if (!options.exit && options.json && !options.command && listing.empty()) {
        options.exit = misuse("--json goes with a command or a listing");
    }
    return options;
}

int runCommandLine(Terminal &terminal, const Options &options)
{
    const Command command = commandOf(*options.command, options.debug);
    if (!options.json) {
        return runShown(terminal, command, options.waitMs);
    }
    const Outcome outcome = runCommand(terminal, command, options.waitMs, [](uint32_t, std::string_view) {});
    std::puts(toJson(terminal, command, outcome).c_str());
    complain(outcome);
    return outcome.exit;
}

int runOnTerminal(const Options &options)
{
    catchSignals(!options.command && isatty(STDIN_FILENO) != 0);
    QxHost_SetTimeout(std::max(options.waitMs, 1U));
    Terminal terminal(options.terminal);
    const uint32_t served = terminal.serve();
    if (served != QX_OK) {
        std::fprintf(stderr, "zemash: cannot be terminal %u: %s\n", options.terminal,
                     tools::reasonOf(served).c_str());
        return kNoAnswer;
    }
    return options.command ? runCommandLine(terminal, options)
                           : Console(terminal, options.debug, options.waitMs).run();
}

int showListing(const Options &options)
{
    QxHost_SetTimeout(std::max(options.waitMs, 1U));
    return options.listing->show(options);
}

} // namespace
} // namespace zemash

int main(int argc, char **argv)
{
    using namespace zemash;
    std::setlocale(LC_CTYPE, "");
    const Options options = parse(argc, argv);
    if (options.exit) {
        return *options.exit;
    }
    const int exit = options.listing == nullptr ? runOnTerminal(options) : showListing(options);
    QxHost_Leave();
    if (endSignal() != 0) {
        dieBy(endSignal());
    }
    if (std::ferror(stdout) != 0 || std::fflush(stdout) != 0) {
        std::fputs("zemash: cannot write to standard output\n", stderr);
        return kNoAnswer;
    }
    return exit;
}
