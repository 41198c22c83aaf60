// Maps of any bytes, names, texts and rules, against plain statements of what is found and allowed.
#include "qx/diag.h"
#include "zema/data_validator.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <strings.h>
#include <vector>

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

class Input {
public:
    Input(const uint8_t *data, size_t size) : data_(data), size_(size) {}

    uint32_t byte()
    {
        if (size_ == 0) {
            return 0;
        }
        --size_;
        return *data_++;
    }

    // In a block of its own, so that a read behind its end is seen.
    std::unique_ptr<char[]> text()
    {
        std::string bytes;
        for (uint32_t left = byte() % 48; left > 0; --left) {
            bytes += static_cast<char>(byte());
        }
        const size_t size = std::strlen(bytes.c_str()) + 1;
        auto block = std::make_unique<char[]>(size);
        std::memcpy(block.get(), bytes.c_str(), size);
        return block;
    }

private:
    const uint8_t *data_;
    size_t size_;
};

bool isAllowed(const char *text, const char *forbidden)
{
    for (; *text != '\0'; ++text) {
        if (*text < 0x20 || *text > 0x7E || std::strchr(forbidden, *text) != nullptr) {
            return false;
        }
    }
    return true;
}

void checkMap(const std::vector<NameValueMapEntry> &map, const char *name, uint32_t size)
{
    const auto count = static_cast<uint32_t>(map.size());
    uint32_t first = 0;
    while (first < count && (memchr(map[first].acName, '\0', sizeof map[first].acName) == nullptr ||
                             strcasecmp(map[first].acName, name) != 0)) {
        ++first;
    }
    uint32_t value = 77;
    require(NameValueMap_GetValue(map.data(), count, name, &value) == (first < count ? 0U : 1U));
    require(value == (first < count ? map[first].ulValue : 77));

    const auto out = std::make_unique<char[]>(size);
    if (NameValueMap_GetName(map.data(), count, value, out.get(), size) == 0) {
        require(std::strlen(out.get()) < size);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Input input(data, size);
    std::vector<NameValueMapEntry> map(input.byte() % 6);
    for (NameValueMapEntry &entry : map) {
        const auto name = input.text();
        std::memset(entry.acName, static_cast<int>(input.byte()), sizeof entry.acName);
        std::memcpy(entry.acName, name.get(), std::min(std::strlen(name.get()) + 1, sizeof entry.acName));
        entry.ulValue = input.byte() % 4;
    }
    const auto name = input.text();
    const auto forbidden = input.text();
    checkMap(map, name.get(), input.byte() % 40);

    const uint32_t min = input.byte() % 48;
    const uint32_t max = input.byte() % 48;
    const size_t length = std::strlen(name.get());
    require(DataValidator_IsLengthInRangeOf(name.get(), min, max) ==
            (length < min || length > max ? 1U : 0U));
    require(DataValidator_IsValidateString2(name.get(), forbidden.get()) ==
            (isAllowed(name.get(), forbidden.get()) ? 0U : 1U));

    std::vector<DataValidatorCheckOnlyRule> rules(input.byte() % 8);
    std::vector<DataValidatorRule> stopping;
    for (DataValidatorCheckOnlyRule &rule : rules) {
        const uint32_t type = input.byte() % 3;
        rule = {.stRule = {.ulType = type,
                           .ulValue = input.byte(),
                           .ulLower = input.byte(),
                           .ulUpper = input.byte(),
                           .ulErrCode = input.byte()},
                .ulUser = 0,
                .ulFailed = 0};
        if (type == DATAVALIDATOR_TYPE_ELEMENT) {
            rule.stRule.pcName = rule.stRule.ulValue % 4 == 0 ? nullptr : name.get();
            rule.stRule.pstMap = map.data();
            rule.stRule.ulCount = map.size();
        }
        stopping.push_back(rule.stRule);
    }
    const auto count = static_cast<uint32_t>(rules.size());
    require(DataValidator_CheckOnlyValidate(rules.data(), count) == 0);
    uintptr_t first = 0;
    for (const DataValidatorCheckOnlyRule &rule : rules) {
        first = first == 0 && rule.ulFailed == 1 ? rule.stRule.ulErrCode : first;
    }
    require(DataValidator_CheckValidate(stopping.data(), count) == first);
    return 0;
}
