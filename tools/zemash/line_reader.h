// Where the console's lines come from: an editor on a terminal, or plain lines.
#pragma once

#include "complete.h"
#include "terminal.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace zemash {

class LineReader {
public:
    LineReader() = default;
    virtual ~LineReader() = default;
    LineReader(const LineReader &) = delete;
    LineReader &operator=(const LineReader &) = delete;

    // The next line, empty when it was abandoned; nothing at the end. Meanwhile the bus is served, and what
    // arrives on the terminal appears at once.
    virtual std::optional<std::string> read(const std::string &prompt) = 0;
};

// What the operator is told of a text that is not complete yet.
struct Assistance {
    std::function<std::vector<Candidate>(std::string_view)> complete;
    std::function<std::string(std::string_view)> help;
};

// An editor with history and completion; null where there is none: no such terminal, or built without
// libedit.
std::unique_ptr<LineReader> makeEditingReader(Terminal &terminal, const Assistance &assistance);

// Lines as they are. Prompts are for people.
std::unique_ptr<LineReader> makePlainReader(Terminal &terminal, bool prompts);

// Serves the bus until standard input has something to read; calls `woken` each time that something else
// happened. False when a signal that ends or abandons came instead.
bool serveUntilInput(const std::function<void()> &woken);

} // namespace zemash
