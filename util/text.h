// Characters of ASCII, whatever the locale of the process, and views of callers' texts.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace zema {

constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool isLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

// The number that a decimal digit stands for.
constexpr uint32_t digitValue(char c)
{
    return static_cast<uint32_t>(c - '0');
}

// As starts_with, which without optimisation brings in the C++ runtime for an exception it cannot throw.
constexpr bool beginsWith(std::string_view text, std::string_view start)
{
    return text.size() >= start.size() && std::equal(start.begin(), start.end(), text.begin());
}

// Copies a text of a few words, without a call: the last word overlaps the one before it.
inline void copyFew(std::string_view text, char *out)
{
    constexpr size_t kWord = sizeof(uint64_t);

    if (text.size() < kWord) {
        std::copy(text.begin(), text.end(), out);
        return;
    }
    for (size_t at = 0; at + kWord < text.size(); at += kWord) {
        std::memcpy(out + at, text.data() + at, kWord);
    }
    std::memcpy(out + text.size() - kWord, text.data() + text.size() - kWord, kWord);
}

// A text as far as it matters: of a longer one, limit + 1 characters, and no byte behind them is read.
inline std::string_view viewUpTo(const char *text, size_t limit)
{
    return {text, strnlen(text, limit + 1)};
}

} // namespace zema
