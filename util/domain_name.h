// The syntax of domain names. It is stricter at the ends of a name than at those of its labels.
//
// A name is classified a word of bytes at a time; only its dots are looked at one by one.
#pragma once

#include "util/text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

namespace zema {

inline constexpr size_t kDomainNameLength = 255;
inline constexpr size_t kLabelLength = 63;

constexpr bool isLabelCharacter(char c)
{
    return isLetter(c) || isDigit(c) || c == '-';
}

constexpr bool isLabel(std::string_view text)
{
    return text.size() <= kLabelLength && std::ranges::all_of(text, isLabelCharacter);
}

// The bytes of a word. Each mask has the high bit of a byte set where that byte is of the class; a byte that
// is not ASCII is of none.
class NameBytes {
public:
    using Word = uintptr_t;
    static constexpr size_t kCount = sizeof(Word);
    static_assert(std::endian::native == std::endian::little, "the first byte is the lowest one");

    // Fewer than kCount bytes are followed by letters.
    constexpr NameBytes(const char *text, size_t count)
    {
        std::array<char, kCount> bytes = {};
        if (count >= kCount) {
            std::copy_n(text, kCount, bytes.begin());
        } else {
            bytes.fill('a');
            std::copy_n(text, count, bytes.begin());
        }
        word_ = std::bit_cast<Word>(bytes);
    }

    constexpr Word dots() const { return inRange(word_, '.', '.'); }
    constexpr bool areOfAName() const
    {
        const Word letters = inRange(word_ | all(0x20), 'a', 'z');
        const Word digits = inRange(word_, '0', '9');
        const Word marks = inRange(word_, '-', '.');
        return (letters | digits | marks) == all(0x80);
    }

private:
    // The same byte in every place of a word.
    static constexpr Word all(unsigned char byte) { return ~Word{0} / 0xFF * byte; }

    // The sums stay within their bytes: their high bits tell whether the low seven bits are at least the
    // lower and above the upper limit.
    static constexpr Word inRange(Word word, unsigned char lower, unsigned char upper)
    {
        const Word low = word & all(0x7F);
        const Word atLeast = low + all(static_cast<unsigned char>(0x80 - lower));
        const Word above = low + all(static_cast<unsigned char>(0x7F - upper));
        return (atLeast ^ above) & ~word & all(0x80);
    }

    Word word_;
};

// A name begins and ends with a letter or a digit, its labels are not empty.
constexpr bool isDomainName(std::string_view text)
{
    if (text.empty() || text.size() > kDomainNameLength || !isLabelCharacter(text.front()) ||
        !isLabelCharacter(text.back()) || text.front() == '-' || text.back() == '-') {
        return false;
    }
    size_t label = 0; // where it starts
    for (size_t at = 0; at < text.size(); at += NameBytes::kCount) {
        const NameBytes bytes(text.data() + at, text.size() - at);
        if (!bytes.areOfAName()) {
            return false;
        }
        for (NameBytes::Word dots = bytes.dots(); dots != 0; dots &= dots - 1) {
            const size_t dot = at + static_cast<size_t>(std::countr_zero(dots)) / 8;
            if (dot == label || dot - label > kLabelLength) {
                return false;
            }
            label = dot + 1;
        }
    }
    return text.size() - label <= kLabelLength;
}

} // namespace zema
