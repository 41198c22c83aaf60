// What the command tree of the processes tells of itself. A leaf takes the words behind it as arguments, "?"
// among them, so asking must never go below a node that could be one.
#pragma once

#include "complete.h"
#include "terminal.h"

#include <optional>

namespace zemash {

// Whether the text is a walk of the tree: its first word is usr.
bool isTreeText(std::string_view text);

class TreeGuide {
public:
    TreeGuide(Terminal &terminal, uint32_t waitMs) : terminal_(terminal), waitMs_(waitMs) {}

    // What the node at a path ("usr wan link") prints for "?"; nothing when it cannot be asked safely.
    std::optional<std::string> ask(std::string_view path);

    // The names below the node at a path that begin so, ignoring case.
    std::vector<Candidate> children(std::string_view path, std::string_view beginning);

private:
    Terminal &terminal_;
    uint32_t waitMs_;
};

} // namespace zemash
