#include "console.h"

#include "records.h"
#include "signals.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <optional>
#include <unistd.h>
#include <utility>

namespace zemash {
namespace {

constexpr uint32_t kHelpWaitMs = 500; // how long Tab and ? wait for the tree

const Candidate kOwnWords[] = {
    {.word = "words", .help = "lists the command words that are registered", .more = false},
    {.word = "usr", .help = "walks the command tree", .more = true},
    {.word = "records", .help = "shows the last-word records of all processes", .more = false},
    {.word = "enable", .help = "goes to the debug commands", .more = false},
    {.word = "disable", .help = "goes back to the display commands", .more = false},
    {.word = "help", .help = "shows this", .more = false},
    {.word = "exit", .help = "leaves; so do quit and Ctrl-D", .more = false},
    {.word = "quit", .help = "leaves", .more = false},
};

constexpr char kHelp[] = "Commands of the service: press ? or Tab. Of the console:\n";

} // namespace

void complain(const Outcome &outcome)
{
    for (const std::string &complaint : outcome.complaints) {
        std::fprintf(stderr, "zemash: %s\n", complaint.c_str());
    }
}

int runShown(Terminal &terminal, const Command &command, uint32_t waitMs)
{
    const Outcome outcome =
        runCommand(terminal, command, waitMs, [&](uint32_t, std::string_view text) { terminal.show(text); });
    if (!outcome.complaints.empty()) {
        terminal.finishLine();
    }
    complain(outcome);
    return outcome.exit;
}

Console::Console(Terminal &terminal, bool debug, uint32_t waitMs)
    : terminal_(terminal), debug_(debug), waitMs_(waitMs), tree_(terminal, std::min(waitMs, kHelpWaitMs))
{
}

std::unique_ptr<LineReader> Console::makeReader()
{
    attended_ = isatty(STDIN_FILENO) != 0;
    std::unique_ptr<LineReader> reader =
        makeEditingReader(terminal_, {.complete = [this](std::string_view text) { return complete(text); },
                                      .help = [this](std::string_view text) { return help(text); }});
    return reader != nullptr ? std::move(reader) : makePlainReader(terminal_, attended_);
}

std::string Console::prompt() const
{
    return "zema:" + std::to_string(terminal_.number()) + (debug_ ? "# " : "> ");
}

int Console::run()
{
    const std::unique_ptr<LineReader> reader = makeReader();
    while (endSignal() == 0) {
        const std::optional<std::string> line = reader->read(prompt());
        if (!line || *line == "exit" || *line == "quit") {
            break;
        }
        takeInterrupt(); // if one came, the reader has abandoned for it what there was
        if (line->find_first_not_of(" \t") != std::string::npos) {
            lastExit_ = execute(*line);
            terminal_.show(takeInterrupt() ? "\n" : ""); // the terminal has echoed ^C
        }
    }
    return lastExit_;
}

int Console::setDebug(bool debug)
{
    debug_ = debug;
    return kAnswered;
}

int Console::execute(const std::string &line)
{
    if (line == "enable" || line == "disable") {
        return setDebug(line == "enable");
    }
    if (line == "records") {
        return showRecords(false, false);
    }
    if (line == "help") {
        terminal_.show(kHelp + listOf({std::begin(kOwnWords), std::end(kOwnWords)}));
        return kAnswered;
    }
    // Without an editor the question mark comes with the line. The tree takes it as a word of its own.
    if (attended_ && line.back() == '?' && !isTreeText(line)) {
        terminal_.show(help(std::string_view(line).substr(0, line.size() - 1)));
        return kAnswered;
    }
    return runShown(terminal_, commandOf(line, debug_), waitMs_);
}

std::vector<Candidate> Console::complete(std::string_view text)
{
    const std::string_view last = lastWord(text);
    if (isTreeText(text) && last.size() < text.size()) {
        return tree_.children(text.substr(0, text.size() - last.size() - 1), last);
    }
    std::vector<Candidate> candidates = nextWords(text, debug_);
    std::copy_if(std::begin(kOwnWords), std::end(kOwnWords), std::back_inserter(candidates),
                 [&](const Candidate &own) { return own.word.compare(0, text.size(), text) == 0; });
    return candidates;
}

std::string Console::help(std::string_view text)
{
    if (isTreeText(text) && text.back() == ' ') {
        const std::optional<std::string> told = tree_.ask(text);
        return !told           ? "  cannot be asked: a node above it may be a leaf, which would execute\n"
               : told->empty() ? "  nothing of that name\n"
                               : *told;
    }
    const std::string list = listOf(complete(text));
    return list.empty() ? "  no such command\n" : list;
}

} // namespace zemash
