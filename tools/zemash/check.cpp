#include "check.h"

#include "command.h"
#include "json.h"
#include "qx/diag.h"
#include "text.h"
#include "zema/domain.h"
#include "zema/ipv4.h"
#include "zema/ipv6.h"
#include "zema/mac.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <string_view>
#include <utility>

namespace zemash {
namespace {

struct Record {
    std::string file;
    uint32_t line;
    std::array<uint32_t, 5> values;
};

std::vector<Record> *listener = nullptr; // takes what the validators record

uint32_t validateIpv6Mask(const char *text)
{
    uint32_t prefix = 0;
    return QX_UTL_ValidateIpv6Mask(text, &prefix);
}

struct HostWithMask {
    std::string host;
    std::string mask;
};

HostWithMask splitAtSlash(std::string_view text)
{
    const size_t slash = std::min(text.find('/'), text.size());
    return {.host = std::string(text.substr(0, slash)),
            .mask = std::string(text.substr(std::min(slash + 1, text.size())))};
}

// The function that relates the two takes any texts, so each is looked at on its own before.
uint32_t validateHostWithMask(const char *text)
{
    const auto [host, mask] = splitAtSlash(text);
    if (QX_UTL_ValidateHostIpAddress(host.c_str()) != ZEMA_OK ||
        QX_UTL_ValidateSubnetMask(mask.c_str()) != ZEMA_OK) {
        return ZEMA_ERR;
    }
    return QX_UTL_ValidateHostIpWithSubnetMask(host.c_str(), mask.c_str());
}

struct Kind {
    std::string_view name;
    uint32_t (*validate)(const char *);
    uint32_t accepted; // the result that means so
    const char *decidedBy;
    const char *takes;
};

constexpr std::array kKinds = {
    Kind{"ipv4", QX_UTL_ValidateIpAddress, 0, "QX_UTL_ValidateIpAddress",
         "four decimal numbers up to 255 with single dots between them"},
    Kind{"host", QX_UTL_ValidateHostIpAddress, 0, "QX_UTL_ValidateHostIpAddress",
         "an IPv4 address from 1.0.0.0 to 223.255.255.255 outside of 127.0.0.0/8, up to three digits a "
         "number"},
    Kind{"mask", QX_UTL_ValidateSubnetMask, 0, "QX_UTL_ValidateSubnetMask",
         "an IPv4 mask of ones and then zeros; what is behind its fourth number does not count"},
    Kind{"host-with-mask", validateHostWithMask, 0, "QX_UTL_ValidateHostIpWithSubnetMask",
         "HOST/MASK, the host neither the subnet's own nor its broadcast address"},
    Kind{"ipv6", QX_UTL_ValidateIpv6Address, 0, "QX_UTL_ValidateIpv6Address",
         "an IPv6 address other than ::, ::1 and multicast ones"},
    Kind{"ipv6-mask", validateIpv6Mask, 0, "QX_UTL_ValidateIpv6Mask",
         "an IPv6 mask of ones and then zeros, written as an address"},
    Kind{"mac", QX_UTL_ValidateMacAddress, 0, "QX_UTL_ValidateMacAddress",
         "six hexadecimal numbers up to ff with single colons between them, up to 17 characters"},
    Kind{"domain", QX_UTL_ISDomainValid, 1, "QX_UTL_ISDomainValid",
         "a name of labels: up to 63 letters, digits or hyphens each, 255 characters in all, no hyphen at "
         "either end"},
    Kind{"range", QX_UTL_IsIpRange, 1, "QX_UTL_IsIpRange",
         "START-END, two IPv4 addresses in order that differ in their last number at most"},
    Kind{"number", QX_UTL_ValidateNumber, 0, "QX_UTL_ValidateNumber", "decimal digits only"},
};

const Kind *kindNamed(std::string_view name)
{
    const auto *const kind =
        std::find_if(kKinds.begin(), kKinds.end(), [&](const Kind &each) { return each.name == name; });
    return kind != kKinds.end() ? kind : nullptr;
}

struct Verdict {
    bool accepted;
    std::vector<Record> records;
};

Verdict judge(const Kind &kind, const char *text)
{
    Verdict verdict{};
    listener = &verdict.records;
    verdict.accepted = kind.validate(text) == kind.accepted;
    listener = nullptr;
    return verdict;
}

// A value for each reason that has a place of its own in the library. Another value that is refused at the
// same place is so for the same reason: the reasons follow the library without a line number being written
// down.
struct Sample {
    std::string_view kind;
    const char *text;
    const char *reason;
};

constexpr std::array kSamples = {
    Sample{"ipv6", "no", "no IPv6 address"},
    Sample{"ipv6", "::", "the unspecified address"},
    Sample{"ipv6", "::1", "the loopback address"},
    Sample{"ipv6", "ff02::1", "a multicast address"},
    Sample{"ipv6-mask", "no", "no IPv6 address"},
    Sample{"mac", "", "no number at all"},
    Sample{"range", "1.1.1.1", "no hyphen, or more than 255 characters"},
    Sample{"range", "1.1.1.1-", "no start or no end"},
    Sample{"range", "no-1.1.1.1", "the start is no IPv4 address"},
    Sample{"range", "1.1.1.1-no", "the end is no IPv4 address"},
    Sample{"range", "1.1.1.1-1.1.2.1", "start and end differ in more than their last numbers"},
    Sample{"range", "1.1.1.2-1.1.1.1", "the start is above the end"},
    Sample{"range", "255.255.255.1-255.255.255.1", "in 255.255.255.0/24, where there is no host"},
    Sample{"range", "0.0.0.0-0.0.0.0", "it begins with 0.0.0.0"},
};

bool isOfSamePlace(const std::vector<Record> &a, const std::vector<Record> &b)
{
    return !a.empty() && !b.empty() && a[0].file == b[0].file && a[0].line == b[0].line;
}

std::string whyRejected(const Kind &kind, const std::string &value, const Verdict &verdict)
{
    if (kind.validate == validateHostWithMask) {
        const auto [host, mask] = splitAtSlash(value);
        for (const auto &[part, text] : {std::pair("host", host), std::pair("mask", mask)}) {
            if (!judge(*kindNamed(part), text.c_str()).accepted) {
                return "the " + std::string(part) + " is not " + kindNamed(part)->takes;
            }
        }
        return "the subnet's own address, or its broadcast address";
    }
    const auto *const sample = std::find_if(kSamples.begin(), kSamples.end(), [&](const Sample &each) {
        return each.kind == kind.name && isOfSamePlace(judge(kind, each.text).records, verdict.records);
    });
    return sample != kSamples.end() ? sample->reason : std::string("not ") + kind.takes;
}

std::string lineOf(const Record &record)
{
    std::string line = "  " + record.file + ":" + std::to_string(record.line) + " ";
    for (const uint32_t value : record.values) {
        line += " " + std::to_string(value);
    }
    return line;
}

std::string jsonOf(const Record &record)
{
    return JsonObject()
        .text("file", record.file)
        .number("line", record.line)
        .json("values", jsonArray(record.values, [](uint32_t value) { return std::to_string(value); }))
        .str();
}

std::string jsonOf(const Kind &kind, const std::string &value, const Verdict &verdict)
{
    return JsonObject()
        .text("kind", kind.name)
        .text("value", value)
        .json("accepted", verdict.accepted ? "true" : "false")
        .json("reason", verdict.accepted ? "null" : quoted(whyRejected(kind, value, verdict)))
        .json("records", jsonArray(verdict.records, [](const Record &record) { return jsonOf(record); }))
        .str();
}

void print(const Kind &kind, const std::string &value, const Verdict &verdict)
{
    std::puts(verdict.accepted ? "accepted" : ("rejected: " + whyRejected(kind, value, verdict)).c_str());
    for (const Record &record : verdict.records) {
        std::puts(lineOf(record).c_str());
    }
}

} // namespace

std::string kindsForHelp()
{
    std::string lines;
    for (const Kind &kind : kKinds) {
        const std::string name = "  " + std::string(kind.name);
        lines += name + std::string(18 - name.size(), ' ') + kind.decidedBy + ":\n    " + kind.takes + "\n";
    }
    return lines;
}

int showCheck(const std::vector<std::string> &words, bool json)
{
    const std::string &value = words[1];
    const Kind *const kind = kindNamed(words[0]);
    if (kind == nullptr) {
        std::fprintf(stderr, "zemash: unknown kind \"%s\"; see zemash --help\n",
                     tools::harmless(words[0]).c_str());
        return kUsage;
    }
    const Verdict verdict = judge(*kind, value.c_str());
    json ? void(std::puts(jsonOf(*kind, value, verdict).c_str())) : print(*kind, value, verdict);
    return verdict.accepted ? kAnswered : kRefused;
}

} // namespace zemash

// The validators run in this process, so it takes their records itself: a value that somebody tries is no
// fault for operators to find among the records.
uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                              uint32_t value3, uint32_t value4, uint32_t value5)
{
    if (zemash::listener != nullptr) {
        zemash::listener->push_back({file, line, {value1, value2, value3, value4, value5}});
        return 0;
    }
    static void *const platforms = dlsym(RTLD_NEXT, "QX_PROC_DBG_LastWord");
    return reinterpret_cast<decltype(&QX_PROC_DBG_LastWord)>(platforms)(file, line, value1, value2, value3,
                                                                        value4, value5);
}
