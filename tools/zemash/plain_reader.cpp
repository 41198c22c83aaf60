#include "line_reader.h"
#include "qx/host.h"
#include "signals.h"

#include <array>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace zemash {
namespace {

class PlainReader : public LineReader {
public:
    PlainReader(Terminal &terminal, bool prompts) : terminal_(terminal), prompts_(prompts) {}
    std::optional<std::string> read(const std::string &prompt) override;

private:
    bool fill();
    std::string takeLine(size_t end);

    Terminal &terminal_;
    bool prompts_;
    std::string buffer_;
};

// False at the end of the input.
bool PlainReader::fill()
{
    std::array<char, 4096> bytes{};
    const ssize_t got = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got > 0) {
        buffer_.append(bytes.data(), static_cast<size_t>(got));
    }
    return got > 0;
}

std::string PlainReader::takeLine(size_t end)
{
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return line;
}

std::optional<std::string> PlainReader::read(const std::string &prompt)
{
    if (prompts_) {
        terminal_.finishLine();
        std::fputs(prompt.c_str(), stdout); // the line's end is the operator's
        std::fflush(stdout);
    }
    for (;;) {
        const size_t end = buffer_.find('\n');
        if (end != std::string::npos) {
            return takeLine(end);
        }
        if (!serveUntilInput([] {})) {
            terminal_.show(prompts_ ? "\n" : "");
            buffer_.clear();
            return endSignal() != 0 ? std::nullopt : std::optional(std::string());
        }
        if (!fill()) {
            return buffer_.empty() ? std::nullopt : std::optional(takeLine(buffer_.size()));
        }
    }
}

} // namespace

std::unique_ptr<LineReader> makePlainReader(Terminal &terminal, bool prompts)
{
    return std::make_unique<PlainReader>(terminal, prompts);
}

bool serveUntilInput(const std::function<void()> &woken)
{
    for (;;) {
        std::array<pollfd, 2> sources = {{{.fd = STDIN_FILENO, .events = POLLIN, .revents = 0},
                                          {.fd = QxHost_Fd(), .events = POLLIN, .revents = 0}}};
        poll(sources.data(), sources.size(), -1);
        if (sources[1].revents != 0 && QxHost_Dispatch(0) == QX_ERR_STOPPED) {
            return false;
        }
        woken();
        if (sources[0].revents != 0) {
            return true;
        }
    }
}

} // namespace zemash
