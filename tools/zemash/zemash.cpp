// The operator's console: options, and what they ask for.
#include "check.h"
#include "console.h"
#include "qx/host.h"
#include "records.h"
#include "signals.h"
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
       zemash records [-f] [--json]
       zemash check [--json] KIND VALUE

The operator's console of the zema service. It is terminal N: commands are sent in its name, and what processes
print on terminal N appears here, whenever it comes.

  -t, --terminal N   the terminal, 0 to 65534; 0 when not given
  -c, --command CMD  runs one command and exits with its result
  -d, --debug        debug commands instead of display commands
  -w, --wait MS      how long a command waits for processes that do not finish; 2000 when not given
  -j, --json         one JSON object instead of text
  -f, --follow       records: goes on with new ones until Ctrl-C
  -h, --help         this text
  -V, --version      the version

words lists the command words that modules have registered. usr walks the command tree: usr alone lists its first
level, "usr WORD... ?" tells what a node takes, "usr WORD... ARGUMENT..." executes one. records shows what failures
left in every process, dead ones too: time, process, its identifier, source line, five values of which the first is
the failure's code.

check asks the library whether it accepts a VALUE of the configuration, and says accepted, or rejected and why; then
what the library recorded of it: source line, five values. It asks no other process and leaves no record. The KINDs
stand at the end. A value that begins with - goes behind --.

A command ends when every process that received it is done with it. A process that does not finish in time, or dies,
is named on standard error.

In the console, Tab completes, ? tells what may follow (^V ? types one), Ctrl-C abandons the line or the wait,
Ctrl-D, exit and quit leave. enable and disable switch between debug commands (prompt #) and display commands
(prompt >); words, usr and records work as above. The history is kept in $XDG_STATE_HOME/zema/history, else
~/.local/state/zema/history. When standard input is no terminal, each line is a command, and the exit status is the
last one's.

Exit status: 0 answered or accepted; 1 the service refused the command, or the library the value; 2 wrong use; 3 no
answer, or not all of it: nobody there, no process printed anything, one did not finish or died.

With --json a command prints one object: command, terminal, entry (display, debug, words, tree), result (of the
remote procedure, null when there is none), exit, output (all that was printed on the terminal meanwhile), answers
(for each process that received the command or printed: pid, process, state, text; the state is done, waiting, died,
or other for one that only printed). records prints one object a line: time (UTC), process, pid, thread, alive,
number, file, line, values. check prints one object: kind, value, accepted, reason (null when accepted), records (file,
line, values). Bytes that are no UTF-8 appear as U+FFFD.

Processes meet in a runtime directory: $ZEMA_RUNTIME_DIR, else /run/zema for root, else $XDG_RUNTIME_DIR/zema.

The kinds of values, the function of the library that decides, and what it takes:

)";

constexpr uint32_t kMaxTerminal = 65534;
constexpr uint32_t kMaxWaitMs = 3'600'000;

struct Options {
    uint32_t terminal = 0;
    uint32_t waitMs = 2000;
    bool debug = false;
    bool json = false;
    bool follow = false;
    std::string listing; // records or check, which need no terminal
    std::vector<std::string> words;
    std::optional<std::string> command;
    std::optional<int> exit; // nothing more to do
};

constexpr option kOptions[] = {
    {"terminal", required_argument, nullptr, 't'},
    {"command", required_argument, nullptr, 'c'},
    {"debug", no_argument, nullptr, 'd'},
    {"wait", required_argument, nullptr, 'w'},
    {"json", no_argument, nullptr, 'j'},
    {"follow", no_argument, nullptr, 'f'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
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
        letter = getopt_long(argc, argv, "+t:c:dw:jfhV", kOptions, nullptr);
        if (letter >= 0) {
            takeOption(options, letter);
        }
    }
}

// What may stand behind the options: a word, with so many others behind it, between options of its own.
struct Verb {
    std::string_view word;
    size_t least;
    size_t most;
    bool isListing;
    const char *use;
};

constexpr size_t kAnyNumber = SIZE_MAX;

constexpr Verb kVerbs[] = {
    {"words", 0, 0, false, "takes no words"},
    {"usr", 0, kAnyNumber, false, ""},
    {"records", 0, 0, true, "takes no words"},
    {"check", 2, 2, true, "takes a kind and a value"},
};

// The words behind a verb, and the options between them. Behind "--" everything is a word; getopt, asked
// again, would begin anew there.
void takeWords(Options &options, int argc, char **argv)
{
    for (bool wordsOnly = false; !options.exit;) {
        if (!wordsOnly) {
            takeOptions(options, argc, argv);
            wordsOnly = argv[optind - 1] == std::string_view("--");
        }
        if (optind >= argc) {
            return;
        }
        options.words.emplace_back(argv[optind++]);
    }
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
    if (row->isListing) {
        options.listing = verb;
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
    if (!options.exit && options.follow && options.listing != "records") {
        options.exit = misuse("-f goes with records");
    }
    if (!options.exit && options.json && !options.command && options.listing.empty()) {
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
    if (options.listing == "check") {
        return showCheck(options.words, options.json);
    }
    return showRecords(options.json, options.follow);
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
    const int exit = options.listing.empty() ? runOnTerminal(options) : showListing(options);
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
