// What the validators of texts are measured against, by tests and fuzz targets: regular expressions of the
// texts that each of them accepts.
#pragma once

#include "zema/domain.h"
#include "zema/ipv4.h"
#include "zema/mac.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <regex.h>
#include <string>
#include <vector>

namespace zema::test::model {

// Of whole texts.
class Pattern {
public:
    explicit Pattern(const std::string &text)
    {
        regcomp(&compiled_, ("^(" + text + ")$").c_str(), REG_EXTENDED | REG_NOSUB);
    }
    ~Pattern() { regfree(&compiled_); }
    Pattern(const Pattern &) = delete;
    Pattern &operator=(const Pattern &) = delete;

    bool matches(const std::string &text) const
    {
        return regexec(&compiled_, text.c_str(), 0, nullptr, 0) == 0;
    }

private:
    regex_t compiled_{};
};

inline const std::string kOctet = "0*(25[0-5]|2[0-4][0-9]|1?[0-9]?[0-9])";
inline const std::string kPartial = "0*(0|128|192|224|240|248|252|254)"; // the last octet of a mask's ones
inline const std::string kHex = "\\s*(0[xX])?0*[0-9A-Fa-f]{1,2}";
inline const std::string kUnicast = "0?0?[1-9]|0?[1-9][0-9]|1[013-9][0-9]|12[0-689]|2[01][0-9]|22[0-3]";
inline const std::string kThree = "(\\.(0?[0-9]?[0-9]|1[0-9][0-9]|2[0-4][0-9]|25[0-5])){3}"; // short octets

inline const Pattern kDecimal("[0-9]+");
inline const Pattern kQuad("\\s*" + kOctet + "(\\.\\s*" + kOctet + "){3}");
inline const Pattern kHost("(" + kUnicast + ")" + kThree);
inline const Pattern kAnyClass("(" + kUnicast + "|22[4-9]|2[34][0-9]|25[0-4])" + kThree);
inline const Pattern kSplits(kOctet + "(\\.+" + kOctet + "){3}(\\..*[^.])?");
inline const Pattern kMask("\\.*((0*255\\.+){3}(0*255|" + kPartial + ")|(0*255\\.+){2}" + kPartial +
                           "\\.+0+|0*255\\.+" + kPartial + "(\\.+0+){2}|" + kPartial +
                           "(\\.+0+){3})(\\..*)?");
inline const Pattern kMac(kHex + "(:" + kHex + "){5}");
inline const Pattern kLabel("[A-Za-z0-9-]*");
inline const Pattern kDomain("[A-Za-z0-9]([A-Za-z0-9.-]*[A-Za-z0-9])?");

inline bool isDomain(const std::string &text)
{
    size_t label = 0; // its length
    size_t longest = 0;
    for (const char c : text) {
        label = c == '.' ? 0 : label + 1;
        longest = std::max(longest, label);
    }
    return kDomain.matches(text) && text.size() <= 255 && longest <= 63 && text.find("..") == text.npos;
}

// A text with nothing behind its terminating zero, for the sanitizer to watch.
class Exact {
public:
    explicit Exact(const std::string &text) : bytes_(text.c_str(), text.c_str() + text.size() + 1) {}
    operator const char *() const { return bytes_.data(); }

private:
    std::vector<char> bytes_;
};

// The validator that does not agree with its model on a text, or null.
inline const char *disagreement(const std::string &plain)
{
    const Exact text(plain);
    const bool isShort = plain.size() <= 15;
    std::array<uint32_t, 4> octets = {}, split = {};
    const bool splits = isShort && kSplits.matches(plain);
    if (splits) {
        std::sscanf(text, "%u%*[.]%u%*[.]%u%*[.]%u", &octets[0], &octets[1], &octets[2], &octets[3]);
    }
    const std::pair<const char *, bool> rows[] = {
        {"IpAddrSplit",
         (QX_UTL_IpAddrSplit(text, split.data()) == 0) == splits && (!splits || split == octets)},
        {"ValidateIpAddress", (QX_UTL_ValidateIpAddress(text) == 0) == (isShort && kQuad.matches(plain))},
        {"ValidateHostIpAddress", (QX_UTL_ValidateHostIpAddress(text) == 0) == kHost.matches(plain)},
        {"CheckIpAddressIsValid", (QX_UTL_CheckIpAddressIsValid(text) == 0) == kAnyClass.matches(plain)},
        {"ValidateSubnetMask", (QX_UTL_ValidateSubnetMask(text) == 0) ==
                                   (plain != "0.0.0.0" && kMask.matches(plain.substr(0, 19)))},
        {"ValidateNumber", (QX_UTL_ValidateNumber(text) == 0) == kDecimal.matches(plain)},
        {"ValidateThreeNumber",
         (QX_UTL_ValidateThreeNumber(text) == 0) == (plain.size() <= 3 && kDecimal.matches(plain))},
        {"ValidateMacAddress",
         (QX_UTL_ValidateMacAddress(text) == 0) == (plain.size() <= 17 && kMac.matches(plain))},
        {"ISDomainValid", (QX_UTL_ISDomainValid(text) == 1) == isDomain(plain)},
        {"ISDomainSplitValid",
         (QX_UTL_ISDomainSplitValid(text) == 1) == (plain.size() <= 63 && kLabel.matches(plain))},
    };
    const auto *const row = std::ranges::find(rows, false, &std::pair<const char *, bool>::second);
    return row != std::end(rows) ? row->first : nullptr;
}

} // namespace zema::test::model
