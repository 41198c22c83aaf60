#include "qx/process.h"

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <poll.h>
#include <unistd.h>

namespace {

constexpr size_t kShortText = 1024;
constexpr int kStuckMs = 5000;

// One write may not take a long text whole, so the pieces are written under the lock that printf() of the
// host holds too. The C library frees that lock in a child made by fork.
class ConsoleLock {
public:
    ConsoleLock() { flockfile(stdout); }
    ~ConsoleLock() { funlockfile(stdout); }
    ConsoleLock(const ConsoleLock &) = delete;
    ConsoleLock &operator=(const ConsoleLock &) = delete;
};

// Whoever gave the process its standard output may have made it non-blocking.
bool waitForConsole()
{
    pollfd console{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&console, 1, kStuckMs) > 0 || errno == EINTR;
}

uint32_t writeWhole(const char *text, size_t size)
{
    const ConsoleLock lock;
    while (size > 0) {
        const ssize_t written = write(STDOUT_FILENO, text, size);
        if (written > 0) {
            text += written;
            size -= static_cast<size_t>(written);
        } else if (written == 0 || (errno != EINTR && (errno != EAGAIN || !waitForConsole()))) {
            return QX_ERR;
        }
    }
    return QX_OK;
}

// What fits the short text is written when there is no memory for all of it.
uint32_t printLong(const char *shortText, size_t length, const char *format, va_list arguments)
{
    auto *const text = static_cast<char *>(std::malloc(length + 1));
    if (text == nullptr) {
        writeWhole(shortText, std::strlen(shortText));
        return QX_ERR_NO_MEMORY;
    }
    std::vsnprintf(text, length + 1, format, arguments);
    const uint32_t result = writeWhole(text, length);
    std::free(text);
    return result;
}

uint32_t print(const char *format, va_list arguments)
{
    std::array<char, kShortText> text;
    va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(text.data(), text.size(), format, arguments);
    uint32_t result = QX_ERR;
    if (length >= 0) {
        const auto size = static_cast<size_t>(length);
        result =
            size < text.size() ? writeWhole(text.data(), size) : printLong(text.data(), size, format, again);
    }
    va_end(again);
    return result;
}

// The lines of a call stack, as many as fit, so that they are written in one piece.
class TraceText {
public:
    const char *data() const { return text_.data(); }
    size_t size() const { return used_; }

    // False when the line does not fit whole.
    QX_PRINTF(2, 3) bool addLine(const char *format, ...)
    {
        va_list arguments;
        va_start(arguments, format);
        const size_t room = text_.size() - used_;
        const int length = std::vsnprintf(text_.data() + used_, room, format, arguments);
        va_end(arguments);
        if (length < 0 || static_cast<size_t>(length) >= room) {
            return false;
        }
        used_ += static_cast<size_t>(length);
        return true;
    }

private:
    std::array<char, 4096> text_;
    size_t used_ = 0;
};

// An object and the offset in it are what addr2line needs; the symbol serves the reader who has no debug data
// at hand.
bool addFrame(TraceText &text, const void *returnAddress)
{
    // The call stands before the address to which it returns, which may belong to the next function already.
    const char *const call = static_cast<const char *>(returnAddress) - 1;
    Dl_info info{};
    if (dladdr(call, &info) == 0 || info.dli_fname == nullptr) {
        return text.addLine("  %p\n", returnAddress);
    }
    const auto offset = static_cast<size_t>(call - static_cast<const char *>(info.dli_fbase));
    return text.addLine("  %s+0x%zx %s\n", info.dli_fname, offset,
                        info.dli_sname != nullptr ? info.dli_sname : "?");
}

} // namespace

uint32_t QX_OS_Printf(const char *format, ...)
{
    if (format == nullptr) {
        return QX_ERR;
    }
    va_list arguments;
    va_start(arguments, format);
    const uint32_t result = print(format, arguments);
    va_end(arguments);
    return result;
}

uint32_t QX_OS_BackTrace(const char *file, uint32_t line)
{
    std::array<void *, 32> frames;
    auto count = static_cast<size_t>(backtrace(frames.data(), static_cast<int>(frames.size())));
    // The first frame is this function, the second its caller: known even where there is nothing to unwind
    // with.
    if (count < 2) {
        frames[1] = __builtin_return_address(0);
        count = 2;
    }
    TraceText text;
    bool fits =
        text.addLine("Call stack of thread %d at %.256s:%u\n", gettid(), file != nullptr ? file : "?", line);
    for (size_t i = 1; fits && i < count; ++i) {
        fits = addFrame(text, frames[i]);
    }
    return writeWhole(text.data(), text.size());
}
