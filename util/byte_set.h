// A set of byte values.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

namespace zema {

class ByteSet {
public:
    constexpr void insert(unsigned char byte) { words_[byte / 32U] |= 1U << byte % 32U; }
    // Every byte of a NUL-terminated text.
    constexpr void insert(const char *text)
    {
        for (; *text != '\0'; ++text) {
            insert(static_cast<unsigned char>(*text));
        }
    }
    constexpr bool contains(char c) const
    {
        const auto byte = static_cast<unsigned char>(c);
        return (words_[byte / 32U] >> byte % 32U & 1U) != 0;
    }
    // Whether a byte of the text is in the set.
    constexpr bool meets(std::string_view text) const
    {
        return std::ranges::any_of(text, [this](char c) { return contains(c); });
    }

private:
    std::array<uint32_t, 8> words_ = {};
};

// Control characters, DEL, and all that is not ASCII.
inline constexpr ByteSet kNotPrintable = [] {
    ByteSet set;
    for (unsigned byte = 0; byte < 256; ++byte) {
        if (byte < 0x20 || byte > 0x7E) {
            set.insert(static_cast<unsigned char>(byte));
        }
    }
    return set;
}();

} // namespace zema
