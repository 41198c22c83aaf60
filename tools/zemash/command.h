// One command, from the operator's text to the end of all work on it.
#pragma once

#include "terminal.h"

#include <optional>
#include <string>
#include <vector>

namespace zemash {

constexpr int kAnswered = 0;
constexpr int kRefused = 1;
constexpr int kUsage = 2;
constexpr int kNoAnswer = 3;

// The ways in: both remote procedures, and the messages that no row of the whitelist lets through them.
enum class Entry { display, debug, words, tree };

struct Command {
    Entry entry;
    std::string text;
};

// `words` and `usr ...` are the console's; everything else is for the service, as a debug command or a
// display one.
Command commandOf(std::string_view text, bool debug);

struct Answer {
    uint32_t pid;
    std::string process;
    std::string state; // done, waiting, died; other: it printed but was not sent the command
    std::string text;
};

struct Outcome {
    int exit = kNoAnswer;
    std::optional<uint32_t> result; // of the remote procedure, when it came
    std::string output;             // all that was printed on the terminal meanwhile
    std::vector<Answer> answers;
    std::vector<std::string> complaints; // what is wrong, for people
};

// Sends the command and waits until every process that received it is done with it. What arrives on the
// terminal meanwhile is given to `listener`.
Outcome runCommand(Terminal &terminal, const Command &command, uint32_t waitMs, const Listener &listener);

// One line.
std::string toJson(const Terminal &terminal, const Command &command, const Outcome &outcome);

} // namespace zemash
