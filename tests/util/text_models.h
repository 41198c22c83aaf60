// What the validators of texts are measured against, by tests and fuzz targets: the same contracts told with
// the C library's own splitting and numbers, on copies of the text. Slow and plain on purpose.
#pragma once

#include "zema/domain.h"
#include "zema/ipv4.h"
#include "zema/mac.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace zema::test::model {

inline std::vector<std::string> split(std::string text, const char *separator)
{
    std::vector<std::string> parts;
    char *save = nullptr;
    for (const char *part = strtok_r(text.data(), separator, &save); part != nullptr;
         part = strtok_r(nullptr, separator, &save)) {
        parts.emplace_back(part);
    }
    return parts;
}

inline bool isDecimal(const std::string &text)
{
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// A number without a sign, at most 255, that strtol reads to its end.
inline bool isOctet(const std::string &part, int base)
{
    const size_t start = part.find_first_not_of(" \t\n\v\f\r");
    if (start == std::string::npos || part[start] == '+' || part[start] == '-') {
        return false;
    }
    char *end = nullptr;
    const long value = std::strtol(part.c_str(), &end, base);
    return *end == '\0' && value <= 255;
}

inline bool isBoundedQuad(const std::string &text)
{
    return !text.empty() && text.size() <= 15 && text.front() != '.' && text.back() != '.';
}

inline bool isStrictQuad(const std::string &text)
{
    const std::vector<std::string> parts = split(text, ".");
    return isBoundedQuad(text) && std::ranges::count(text, '.') == 3 && parts.size() == 4 &&
           std::ranges::all_of(parts, [](const std::string &part) { return isOctet(part, 10); });
}

// The result for a host address where the conversion of a part fails with a code.
inline uint32_t host(const std::string &text, uint32_t bound, uint32_t code)
{
    if (!isBoundedQuad(text) || std::ranges::count(text, '.') != 3 || text == "0.0.0.0" ||
        text == "255.255.255.255") {
        return 1;
    }
    std::vector<std::string> parts = split(text, ".");
    parts.resize(4);
    for (size_t i = 0; i < 4; ++i) {
        const std::string &part = parts[i];
        const bool isNegative = part.starts_with('-');
        if (!isDecimal(part.substr(isNegative ? 1 : 0)) || part.size() > 10) {
            return code;
        }
        const long value = std::strtol(part.c_str(), nullptr, 10);
        if (value != static_cast<int32_t>(value)) {
            return code;
        }
        if (isNegative || part.size() > 3 || value > 255 ||
            (i == 0 && (value < 1 || value >= static_cast<long>(bound) || value == 127))) {
            return 1;
        }
    }
    return 0;
}

// How many octets are written before a part is refused; 4 is accepted.
inline size_t octets(const std::string &text, std::vector<uint32_t> &out)
{
    out.clear();
    if (!isBoundedQuad(text)) {
        return 0;
    }
    for (const std::string &part : split(text, ".")) {
        if (out.size() == 4 || !isDecimal(part) || std::strtoull(part.c_str(), nullptr, 10) > 255) {
            break;
        }
        out.push_back(static_cast<uint32_t>(std::strtoull(part.c_str(), nullptr, 10)));
    }
    return out.size();
}

inline bool isMask(const std::string &text)
{
    const std::vector<std::string> parts = split(text.substr(0, 19), ".");
    std::string bits;
    for (size_t i = 0; i < 4; ++i) {
        if (i >= parts.size() || !isDecimal(parts[i]) || std::strtoull(parts[i].c_str(), nullptr, 10) > 255) {
            return false;
        }
        const auto octet = std::strtoull(parts[i].c_str(), nullptr, 10);
        for (int bit = 7; bit >= 0; --bit) {
            bits += (octet >> bit & 1) != 0 ? '1' : '0';
        }
    }
    return text != "0.0.0.0" && bits.find("01") == std::string::npos;
}

inline bool isMac(const std::string &text)
{
    const std::vector<std::string> parts = split(text, ":");
    return text.size() <= 17 && std::ranges::count(text, ':') <= 5 && parts.size() >= 6 &&
           std::ranges::all_of(parts, [](const std::string &part) { return isOctet(part, 16); });
}

inline bool isLabel(const std::string &text)
{
    return text.size() <= 63 &&
           text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-") ==
               std::string::npos;
}

inline bool isDomain(const std::string &text)
{
    const auto isEnd = [](char c) { return isLabel(std::string(1, c)) && c != '-'; };
    return !text.empty() && text.size() <= 255 && isEnd(text.front()) && isEnd(text.back()) &&
           text.find("..") == std::string::npos && std::ranges::all_of(split(text, "."), isLabel);
}

// A text with nothing behind its terminating zero, for the sanitizer to watch.
class Exact {
public:
    explicit Exact(const std::string &text) : bytes_(text.c_str(), text.c_str() + text.size() + 1) {}
    operator const char *() const { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

// The validator that does not agree with its model on a text, or null. Conversions of this process's platform
// fail with a code.
inline const char *disagreement(const std::string &plain, uint32_t code)
{
    const Exact text(plain);
    std::vector<uint32_t> written(4, 999);
    std::vector<uint32_t> expected;
    const bool splits = octets(plain, expected) == 4;
    expected.resize(4, 999);
    in_addr address;
    const std::pair<const char *, bool> rows[] = {
        {"IpAddrSplit", (QX_UTL_IpAddrSplit(text, written.data()) == 0) == splits && written == expected},
        {"ValidateIpAddress", (QX_UTL_ValidateIpAddress(text) == 0) == isStrictQuad(plain)},
        {"inet_pton", inet_pton(AF_INET, text, &address) != 1 || QX_UTL_ValidateIpAddress(text) == 0},
        {"ValidateHostIpAddress", QX_UTL_ValidateHostIpAddress(text) == host(plain, 224, code)},
        {"CheckIpAddressIsValid", QX_UTL_CheckIpAddressIsValid(text) == host(plain, 255, code)},
        {"ValidateSubnetMask", (QX_UTL_ValidateSubnetMask(text) == 0) == isMask(plain)},
        {"ValidateNumber", (QX_UTL_ValidateNumber(text) == 0) == isDecimal(plain)},
        {"ValidateThreeNumber",
         (QX_UTL_ValidateThreeNumber(text) == 0) == (isDecimal(plain) && plain.size() <= 3)},
        {"ValidateMacAddress", (QX_UTL_ValidateMacAddress(text) == 0) == isMac(plain)},
        {"ISDomainValid", (QX_UTL_ISDomainValid(text) == 1) == isDomain(plain)},
        {"ISDomainSplitValid", (QX_UTL_ISDomainSplitValid(text) == 1) == isLabel(plain)},
    };
    const auto *const row = std::ranges::find(rows, false, &std::pair<const char *, bool>::second);
    return row != std::end(rows) ? row->first : nullptr;
}

} // namespace zema::test::model
