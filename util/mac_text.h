// Ethernet addresses as text: six hexadecimal parts with colons between them.
#pragma once

#include "util/text.h"

#include <array>
#include <string_view>

namespace zema {

inline constexpr size_t kMacTextLength = 17;
inline constexpr size_t kMacParts = 6;

inline constexpr uint8_t kNoHexDigit = 0xFF;

inline constexpr std::array<uint8_t, 256> kHexValues = [] {
    std::array<uint8_t, 256> values = {};
    values.fill(kNoHexDigit);
    for (uint8_t i = 0; i < 16; ++i) {
        values[static_cast<unsigned char>("0123456789abcdef"[i])] = i;
        values[static_cast<unsigned char>("0123456789ABCDEF"[i])] = i;
    }
    return values;
}();

// The value of the digit that stands here, or kNoHexDigit.
constexpr uint32_t hexAt(const char *at, const char *end)
{
    return at != end ? kHexValues[static_cast<unsigned char>(*at)] : kNoHexDigit;
}

// The end of the part that begins here, read as number scanners do, blanks and 0x before its digits included;
// null when it is no number or above 255.
constexpr const char *readHexPart(const char *at, const char *end)
{
    uint32_t digit = hexAt(at, end);
    while (digit == kNoHexDigit && at != end && isBlank(*at)) {
        digit = hexAt(++at, end);
    }
    if (digit == 0 && end - at > 2 && (at[1] == 'x' || at[1] == 'X') && hexAt(at + 2, end) != kNoHexDigit) {
        at += 2;
        digit = hexAt(at, end);
    }
    if (digit == kNoHexDigit) {
        return nullptr;
    }
    uint32_t value = digit;
    for (digit = hexAt(++at, end); digit != kNoHexDigit && value <= 0xFF; digit = hexAt(++at, end)) {
        value = value << 4U | digit;
    }
    return value <= 0xFF ? at : nullptr;
}

constexpr bool isMacText(std::string_view text)
{
    const char *at = text.data();
    const char *const end = at + text.size();
    for (size_t part = 0; part < kMacParts; ++part) {
        if (part > 0 && (at == end || *at++ != ':')) {
            return false;
        }
        at = readHexPart(at, end);
        if (at == nullptr) {
            return false;
        }
    }
    return at == end && text.size() <= kMacTextLength;
}

} // namespace zema
