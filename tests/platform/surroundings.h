// Surroundings that catch what a function must not do.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <gtest/gtest.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <utility>
#include <vector>

// A destination of an exact size between bytes that nobody may change.
class Guarded {
public:
    explicit Guarded(size_t size) : bytes_(size + 2 * kGuard, kFill), size_(size) {}

    char *data() { return bytes_.data() + kGuard; }

    bool guardsHold() const
    {
        const auto isFill = [](char c) { return c == kFill; };
        const auto end = bytes_.end() - kGuard;
        return std::all_of(bytes_.begin(), bytes_.begin() + kGuard, isFill) &&
               std::all_of(end, bytes_.end(), isFill);
    }

    // It holds the text when that fits with its end, else the empty text when there is room for one.
    bool holdsOrIsEmpty(const std::string &text)
    {
        return guardsHold() && (size_ == 0 || data() == (text.size() < size_ ? text : ""));
    }

private:
    static constexpr std::ptrdiff_t kGuard = 16;
    static constexpr char kFill = '\x5A';

    std::vector<char> bytes_;
    size_t size_;
};

inline size_t below(size_t limit)
{
    static std::mt19937 random(static_cast<unsigned>(testing::UnitTest::GetInstance()->random_seed()));
    return random() % limit;
}

inline std::string randomText(std::string_view alphabet, size_t mostLetters)
{
    std::string text(below(mostLetters + 1), '\0');
    std::generate(text.begin(), text.end(), [&] { return alphabet[below(alphabet.size())]; });
    return text;
}

// The texts between bars.
inline std::vector<std::string> split(const std::string &list)
{
    std::vector<std::string> texts;
    std::istringstream stream(list + "|");
    for (std::string text; std::getline(stream, text, '|');) {
        texts.push_back(text);
    }
    return texts;
}

// While it lives there is no large block to be had. The sanitizers need memory of their own, and the emulator
// of the 32-bit machine knows no limit.
class NoMemory {
public:
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    static constexpr bool kWorks = false;
#else
    static constexpr bool kWorks = sizeof(void *) == 8;
#endif
    NoMemory()
    {
        getrlimit(RLIMIT_AS, &before_);
        const rlimit none{.rlim_cur = 1, .rlim_max = before_.rlim_max};
        setrlimit(RLIMIT_AS, &none);
        // The allocator keeps address space in reserve for each thread that ever lived.
        for (size_t size = 64U << 20U; size >= 64U << 10U; size /= 2) {
            while (auto *const block = static_cast<void **>(std::malloc(size))) {
                *block = std::exchange(taken_, block);
            }
        }
    }
    ~NoMemory()
    {
        while (taken_ != nullptr) {
            std::free(std::exchange(taken_, static_cast<void **>(*taken_)));
        }
        setrlimit(RLIMIT_AS, &before_);
    }
    NoMemory(const NoMemory &) = delete;
    NoMemory &operator=(const NoMemory &) = delete;

private:
    rlimit before_{};
    void **taken_ = nullptr;
};
