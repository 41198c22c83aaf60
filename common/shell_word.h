// A text as a word of a shell command that the shell takes for nothing more than that text.
#pragma once

#include "common/platform_buffer.h"
#include "qx/text.h"

namespace zema {

class ShellWord {
public:
    // Takes the memory for it.
    explicit ShellWord(const char *text)
        : text_(text), buffer_(PlatformBuffer::zeroed(2 * QX_OS_StrLen(text) + 1))
    {
    }

    explicit operator bool() const { return static_cast<bool>(buffer_); }

    // The word, with its memory there; valid as long as this is.
    const char *escape()
    {
        auto *const word = static_cast<char *>(buffer_.data());
        (void)QX_OS_CmdEscape(text_, word, buffer_.size());
        return word;
    }

private:
    const char *text_;
    PlatformBuffer buffer_;
};

} // namespace zema
