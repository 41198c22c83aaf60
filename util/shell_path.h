// A text as a part of a path in a shell command.
#pragma once

#include "util/text.h"

namespace zema {

// What the shell takes as itself wherever it stands in a path behind a letter.
constexpr bool isPlainInPath(char c)
{
    return isDigit(c) || isLetter(c) || std::string_view("#%+,-./:=@_").find(c) != std::string_view::npos;
}

// The text as it is while the shell takes it so, and in quotes as soon as one character needs them: the path
// that the shell opens is then the text's own. What exceeds the longest command is left out, and its quotes
// stay open, so that the shell refuses the command.
class ShellPathPart {
public:
    explicit ShellPathPart(const char *text) : text_(text)
    {
        const std::string_view view = text;
        if (!std::all_of(view.begin(), view.end(), isPlainInPath)) {
            quote(view);
            text_ = quoted_;
        }
    }
    ShellPathPart(const ShellPathPart &) = delete;
    ShellPathPart &operator=(const ShellPathPart &) = delete;

    const char *text() const { return text_; }

private:
    void quote(std::string_view text)
    {
        put("'");
        for (const char &c : text) {
            put(c == '\'' ? std::string_view("'\\''") : std::string_view(&c, 1));
        }
        put("'");
    }

    void put(std::string_view piece)
    {
        const size_t size = std::min(piece.size(), sizeof quoted_ - 1 - used_);
        std::memcpy(quoted_ + used_, piece.data(), size);
        used_ += size;
    }

    const char *text_;
    char quoted_[512] = {};
    size_t used_ = 0;
};

} // namespace zema
