// The operator's terminal: what processes print on it, and the standard output on which it appears.
#pragma once

#include <cstdint>
#include <functional>
#include <string_view>

struct QxPrint;

namespace zemash {

using Listener = std::function<void(uint32_t pid, std::string_view text)>;

class Terminal {
public:
    explicit Terminal(uint32_t number) : number_(number) {}
    ~Terminal();
    Terminal(const Terminal &) = delete;
    Terminal &operator=(const Terminal &) = delete;

    // Takes the terminal's role on the bus; 0 or the platform's result. What arrives without a listener is
    // shown.
    uint32_t serve();
    uint32_t number() const { return number_; }

    // Shows text as it comes from processes: zero bytes dropped, other control characters escaped.
    void show(std::string_view text);
    // Begins a new line unless one was just begun.
    void finishLine();

private:
    friend class Listening;
    static uint32_t write(void *context, const QxPrint *print);

    uint32_t number_;
    bool atLineStart_ = true;
    Listener listener_;
};

// While it lives, what arrives goes to a listener.
class Listening {
public:
    Listening(Terminal &terminal, Listener listener);
    ~Listening();
    Listening(const Listening &) = delete;
    Listening &operator=(const Listening &) = delete;

private:
    Terminal &terminal_;
    Listener before_;
};

} // namespace zemash
