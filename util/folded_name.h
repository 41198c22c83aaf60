// A name to be found among the names of a map, ignoring the case of ASCII letters.
//
// The name is folded once, and compared with each entry a word at a time: an entry is 32 bytes, however short
// its name is, so its words can be read whole, and what stands behind the name's end is masked out.
#pragma once

#include "zema/name_value_map.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <string_view>

namespace zema {

class FoldedName {
public:
    constexpr explicit FoldedName(const char *text)
    {
        std::array<char, kSize> bytes = {};
        std::array<char, kSize> mask = {};
        size_t length = 0;
        while (length < kSize && text[length] != '\0') {
            bytes[length] = text[length];
            ++length;
        }
        fits_ = length < kSize;
        // The terminating zero is compared too: that is where a longer entry differs.
        std::fill_n(mask.begin(), fits_ ? length + 1 : 0, static_cast<char>(0xFF));
        words_ = std::bit_cast<Words>(bytes);
        mask_ = std::bit_cast<Words>(mask);
        used_ = length / sizeof(Word) + 1;
        for (Word &word : words_) {
            word = fold(word);
        }
    }

    // A name too long for an entry is in no map.
    constexpr bool fits() const { return fits_; }

    constexpr bool equals(const char (&entry)[NAMEVALUEMAP_NAME_SIZE]) const
    {
        const auto words = std::bit_cast<Words>(std::to_array(entry));
        // Most names differ in more than case, which takes no folding to see.
        for (size_t i = 0; i < used_; ++i) {
            if (((words[i] ^ words_[i]) & mask_[i] & ~all(kCaseBit)) != 0) {
                return false;
            }
        }
        for (size_t i = 0; i < used_; ++i) {
            if (((fold(words[i]) ^ words_[i]) & mask_[i]) != 0) {
                return false;
            }
        }
        return true;
    }

private:
    using Word = uintptr_t;
    static constexpr size_t kSize = NAMEVALUEMAP_NAME_SIZE;
    static constexpr unsigned char kCaseBit = 'a' - 'A';
    using Words = std::array<Word, kSize / sizeof(Word)>;

    // The same byte in every place of a word.
    static constexpr Word all(unsigned char byte) { return ~Word{0} / 0xFF * byte; }

    // Each byte of A to Z becomes lower case. The sums stay within their bytes, and the high bit of each
    // tells whether the byte's low seven bits are at least the limit.
    static constexpr Word fold(Word word)
    {
        const Word low = word & all(0x7F);
        const Word fromA = low + all(0x80 - 'A');
        const Word aboveZ = low + all(0x7F - 'Z');
        const Word upper = (fromA ^ aboveZ) & ~word & all(0x80);
        return word | upper / 0x80 * kCaseBit;
    }

    Words words_ = {};
    Words mask_ = {};
    size_t used_ = 0;
    bool fits_ = false;
};

} // namespace zema
