#include "terminal.h"

#include "qx/host.h"
#include "text.h"

#include <cstdio>
#include <utility>

namespace zemash {

Terminal::~Terminal()
{
    QxHost_ServeTerminal(number_, nullptr, nullptr);
}

uint32_t Terminal::serve()
{
    return QxHost_ServeTerminal(number_, write, this);
}

uint32_t Terminal::write(void *context, const QxPrint *print)
{
    auto &terminal = *static_cast<Terminal *>(context);
    std::string text(print->pcBytes, print->ulSize);
    std::erase(text, '\0'); // some printers send the terminating zero too
    if (terminal.listener_) {
        terminal.listener_(print->ulPid, text);
    } else {
        terminal.show(text);
    }
    return QX_OK;
}

void Terminal::show(std::string_view text)
{
    if (text.empty()) {
        return;
    }
    const std::string shown = tools::harmless(text, "\n\r\t");
    std::fwrite(shown.data(), 1, shown.size(), stdout);
    std::fflush(stdout);
    atLineStart_ = shown.back() == '\n';
}

void Terminal::finishLine()
{
    if (!atLineStart_) {
        show("\n");
    }
}

Listening::Listening(Terminal &terminal, Listener listener)
    : terminal_(terminal), before_(std::exchange(terminal.listener_, std::move(listener)))
{
}

Listening::~Listening()
{
    terminal_.listener_ = std::move(before_);
}

} // namespace zemash
