#include "check.h"

#include "command.h"
#include "json.h"
#include "text.h"
#include "zema/zema.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <dlfcn.h>
#include <string_view>
#include <vector>

namespace zemash {
namespace {

struct Record {
    std::string file;
    uint32_t line;
    std::array<uint32_t, 5> values;
};

// Where records go instead of the record file while a value is checked: a value that an operator tries is no
// fault of the service.
std::vector<Record> *collected = nullptr;

bool isOk(uint32_t result)
{
    return result == ZEMA_OK;
}

// The address and the mask are looked at by themselves first: their relation says nothing of a text that is
// neither.
bool isHostWithMask(const char *value)
{
    const std::string text = value;
    const size_t slash = text.find('/');
    if (slash == std::string::npos) {
        return false;
    }
    const std::string address = text.substr(0, slash);
    const std::string mask = text.substr(slash + 1);
    return isOk(QX_UTL_ValidateHostIpAddress(address.c_str())) &&
           isOk(QX_UTL_ValidateSubnetMask(mask.c_str())) &&
           isOk(QX_UTL_ValidateHostIpWithSubnetMask(address.c_str(), mask.c_str()));
}

bool isIpv6Mask(const char *value)
{
    uint32_t prefix = 0;
    return isOk(QX_UTL_ValidateIpv6Mask(value, &prefix));
}

struct Kind {
    std::string_view name;
    bool (*accepts)(const char *value);
    std::string_view wanted;
};

constexpr Kind kKinds[] = {
    {"ipv4", [](const char *value) { return isOk(QX_UTL_ValidateIpAddress(value)); },
     "four numbers of 0 to 255 with single dots between them"},
    {"host", [](const char *value) { return isOk(QX_UTL_ValidateHostIpAddress(value)); },
     "an IPv4 address that a host may have: 1 to 223 in front, but not 127"},
    {"mask", [](const char *value) { return isOk(QX_UTL_ValidateSubnetMask(value)); },
     "an IPv4 mask of ones and then zeros, but not 0.0.0.0"},
    {"host-with-mask", isHostWithMask,
     "ADDRESS/MASK: a host's address that is neither its network's nor the broadcast address"},
    {"ipv6", [](const char *value) { return isOk(QX_UTL_ValidateIpv6Address(value)); },
     "an IPv6 address that is not unspecified, loopback or multicast"},
    {"ipv6-mask", isIpv6Mask, "an IPv6 mask of ones and then zeros"},
    {"mac", [](const char *value) { return isOk(QX_UTL_ValidateMacAddress(value)); },
     "six hexadecimal numbers up to ff with colons between them, 17 characters at most"},
    {"domain", [](const char *value) { return QX_UTL_ISDomainValid(value) == 1; },
     "labels of letters, digits and hyphens with dots between them, 63 characters each, 255 in all"},
    {"range", [](const char *value) { return QX_UTL_IsIpRange(value) == 1; },
     "START-END: two IPv4 addresses in order that share their first three numbers"},
    {"number", [](const char *value) { return isOk(QX_UTL_ValidateNumber(value)); }, "decimal digits"},
};

std::string textOf(const Record &record)
{
    std::string text = "recorded: " + tools::harmless(record.file) + ":" + std::to_string(record.line);
    for (const uint32_t value : record.values) {
        text += " " + std::to_string(value);
    }
    return text;
}

std::string jsonOf(const Record &record)
{
    return JsonObject()
        .text("file", record.file)
        .number("line", record.line)
        .json("values", jsonArray(record.values, [](uint32_t value) { return std::to_string(value); }))
        .str();
}

void tell(const Kind &kind, bool accepted, const std::vector<Record> &records)
{
    std::puts(accepted ? "accepted" : ("rejected: wanted is " + std::string(kind.wanted)).c_str());
    for (const Record &record : records) {
        std::puts(textOf(record).c_str());
    }
}

void tellJson(const Kind &kind, const std::string &value, bool accepted, const std::vector<Record> &records)
{
    std::puts(JsonObject()
                  .text("kind", kind.name)
                  .text("value", value)
                  .json("accepted", accepted ? "true" : "false")
                  .text("wanted", kind.wanted)
                  .json("records", jsonArray(records, jsonOf))
                  .str()
                  .c_str());
}

} // namespace

int checkValue(const std::string &kind, const std::string &value, bool json)
{
    const auto *const row = std::ranges::find(kKinds, kind, &Kind::name);
    if (row == std::end(kKinds)) {
        std::fprintf(stderr, "zemash: unknown kind \"%s\"; see zemash --help\n",
                     tools::harmless(kind).c_str());
        return kUsage;
    }
    std::vector<Record> records;
    collected = &records;
    const bool accepted = row->accepts(value.c_str());
    collected = nullptr;
    if (json) {
        tellJson(*row, value, accepted, records);
    } else {
        tell(*row, accepted, records);
    }
    return accepted ? kAccepted : kRejected;
}

} // namespace zemash

// Takes the place of the platform's, as any host may, and hands on what is not of a check.
uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                              uint32_t value3, uint32_t value4, uint32_t value5)
{
    if (zemash::collected != nullptr) {
        zemash::collected->push_back({file, line, {value1, value2, value3, value4, value5}});
        return QX_OK;
    }
    using Store = decltype(QX_PROC_DBG_LastWord);
    static auto *const store = reinterpret_cast<Store *>(dlsym(RTLD_NEXT, "QX_PROC_DBG_LastWord"));
    return store == nullptr ? QX_ERR : store(file, line, value1, value2, value3, value4, value5);
}
