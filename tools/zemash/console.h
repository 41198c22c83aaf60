// The interactive console, and the same for lines from a pipe.
#pragma once

#include "command.h"
#include "line_reader.h"
#include "tree.h"

namespace zemash {

// Says on standard error what is wrong.
void complain(const Outcome &outcome);

// Runs one command, shows what comes back and what is wrong. The exit code.
int runShown(Terminal &terminal, const Command &command, uint32_t waitMs);

class Console {
public:
    Console(Terminal &terminal, bool debug, uint32_t waitMs);

    // Reads and runs lines to the end; the exit code of the last one.
    int run();

private:
    std::unique_ptr<LineReader> makeReader();
    std::string prompt() const;
    int execute(const std::string &line);
    int setDebug(bool debug);
    std::vector<Candidate> complete(std::string_view text);
    std::string help(std::string_view text);

    Terminal &terminal_;
    bool debug_;
    uint32_t waitMs_;
    TreeGuide tree_;
    bool attended_ = false; // by a person
    int lastExit_ = kAnswered;
};

} // namespace zemash
