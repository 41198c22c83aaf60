// IPv4 addresses and masks as text: parts of decimal digits with dots between them.
#pragma once

#include "util/mask_octet.h"
#include "util/text.h"

#include <algorithm>
#include <optional>
#include <string_view>

namespace zema {

inline constexpr size_t kQuadLength = 15; // of "255.255.255.255"
inline constexpr size_t kQuadParts = 4;
inline constexpr uint32_t kOctetMax = 255;

constexpr bool isDecimal(std::string_view text)
{
    return !text.empty() && std::ranges::all_of(text, isDigit);
}

// A part of one to three decimal digits, whatever their value.
constexpr std::optional<uint32_t> threeDigits(std::string_view part)
{
    if (part.size() > 3 || !isDecimal(part)) {
        return std::nullopt;
    }
    uint32_t value = 0;
    for (const char c : part) {
        value = value * 10 + digitValue(c);
    }
    return value;
}

// What is demanded of a whole text before its parts are looked at. Two dots side by side pass: they leave too
// few parts.
constexpr bool hasQuadShape(std::string_view text)
{
    return !text.empty() && text.size() <= kQuadLength && text.front() != '.' && text.back() != '.' &&
           std::ranges::count(text, '.') == kQuadParts - 1;
}

// How the number of a part is written.
enum class PartForm {
    kScanned, // as number scanners take it: blanks before any number of digits
    kDigits,  // any number of digits
    kPlain,   // one to three digits
};

// The value of the digit that stands here, something above 9 when there is none.
constexpr uint32_t digitAt(const char *at, const char *end)
{
    return at != end ? digitValue(*at) : kOctetMax;
}

// Reads an octet and returns where its digits end; null when there is none or its value is above 255.
template <PartForm kForm>
constexpr const char *readOctet(const char *at, const char *end, uint32_t &octet)
{
    uint32_t value = digitAt(at, end);
    while (kForm == PartForm::kScanned && value > 9 && at != end && isBlank(*at)) {
        value = digitAt(++at, end);
    }
    if (value > 9) {
        return nullptr;
    }
    ++at;
    for (int more = 0; more < 2; ++more) {
        const uint32_t digit = digitAt(at, end);
        if (digit > 9) {
            break;
        }
        value = value * 10 + digit;
        ++at;
    }
    if constexpr (kForm != PartForm::kPlain) {
        for (; value <= kOctetMax && digitAt(at, end) <= 9; ++at) {
            value = value * 10 + digitAt(at, end);
        }
    }
    if (value > kOctetMax) {
        return nullptr;
    }
    octet = value;
    return at;
}

// The address, in host byte order, of four octets with single dots between them.
template <PartForm kForm>
constexpr std::optional<uint32_t> readQuad(std::string_view text)
{
    uint32_t address = 0;
    const char *at = text.data();
    const char *const end = at + text.size();
    for (size_t part = 0; part < kQuadParts; ++part) {
        if (part > 0 && (at == end || *at++ != '.')) {
            return std::nullopt;
        }
        uint32_t octet = 0;
        at = readOctet<kForm>(at, end, octet);
        if (at == nullptr) {
            return std::nullopt;
        }
        address = address << 8U | octet;
    }
    return at == end && text.size() <= kQuadLength ? std::optional(address) : std::nullopt;
}

// Reads the next part of a text that is split at dots, runs of them included, and returns where it ends; null
// when there is no part or it is no octet of digits only.
constexpr const char *readSplitOctet(const char *at, const char *end, uint32_t &octet)
{
    while (at != end && *at == '.') {
        ++at;
    }
    at = readOctet<PartForm::kDigits>(at, end, octet);
    return at == end || (at != nullptr && *at == '.') ? at : nullptr;
}

// Octets of 255, then at most one of the mask octets, then zeros. What follows the fourth part is not looked
// at.
constexpr bool isContiguousMask(std::string_view text)
{
    size_t part = 0;
    for (; part < kQuadParts - 1 && beginsWith(text, "255."); ++part) { // four characters in one comparison
        text.remove_prefix(4);
    }
    const char *at = text.data();
    const char *const end = at + text.size();
    bool partialSeen = false;
    for (; part < kQuadParts; ++part) {
        uint32_t octet = 0;
        at = readSplitOctet(at, end, octet);
        if (at == nullptr || (partialSeen && octet != 0)) {
            return false;
        }
        if (octet != kOctetMax) {
            if (findMaskOctet(octet) == nullptr) {
                return false;
            }
            partialSeen = true;
        }
    }
    return true;
}

} // namespace zema
