#include "zema/data_validator.h"

#include "common/record.h"
#include "util/byte_set.h"

#include <algorithm>
#include <string_view>

static_assert(sizeof(DataValidatorRule) == 5 * sizeof(uintptr_t) &&
              offsetof(DataValidatorRule, pcName) == sizeof(uintptr_t) &&
              offsetof(DataValidatorRule, pstMap) == 2 * sizeof(uintptr_t) &&
              offsetof(DataValidatorRule, ulCount) == 3 * sizeof(uintptr_t) &&
              offsetof(DataValidatorRule, ulErrCode) == 4 * sizeof(uintptr_t));
static_assert(sizeof(DataValidatorCheckOnlyRule) == 7 * sizeof(uintptr_t) &&
              offsetof(DataValidatorCheckOnlyRule, ulUser) == 5 * sizeof(uintptr_t) &&
              offsetof(DataValidatorCheckOnlyRule, ulFailed) == 6 * sizeof(uintptr_t));

namespace {

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, 0, 0, 0, 0);
}

void report(uint32_t line, uint32_t code, uint32_t detail)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail, 0, 0, 0);
}

// The number in a field of a rule.
constexpr uint32_t number(uintptr_t word)
{
    return static_cast<uint32_t>(word);
}

constexpr bool isInRange(uint32_t value, uint32_t lower, uint32_t upper)
{
    return lower <= value && value <= upper;
}

uint32_t lengthOf(std::string_view text)
{
    return static_cast<uint32_t>(std::min<size_t>(text.size(), UINT32_MAX));
}

bool failsRange(const DataValidatorRule &rule)
{
    return number(rule.ulType) == DATAVALIDATOR_TYPE_RANGE &&
           !isInRange(number(rule.ulValue), number(rule.ulLower), number(rule.ulUpper));
}

bool failsElement(const DataValidatorRule &rule)
{
    return number(rule.ulType) == DATAVALIDATOR_TYPE_ELEMENT &&
           DataValidator_IsElementOf(rule.pcName, rule.pstMap, number(rule.ulCount)) != ZEMA_OK;
}

void reportRule(uint32_t line, const DataValidatorRule &rule, uint32_t index, uint32_t subject)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, number(rule.ulErrCode), index, subject, 0, 0);
}

} // namespace

uint32_t DataValidator_IsInRangeOf(uint32_t ulValue, uint32_t ulLower, uint32_t ulUpper)
{
    return isInRange(ulValue, ulLower, ulUpper) ? ZEMA_OK : ZEMA_ERR;
}

uint32_t DataValidator_IsElementOf(const char *pcName, const NameValueMapEntry *pstMap, uint32_t ulCount)
{
    if (pcName == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pstMap == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    uint32_t value = 0;
    const uint32_t result = NameValueMap_GetValue(pstMap, ulCount, pcName, &value);
    if (result != ZEMA_OK) {
        report(__LINE__, result, ulCount);
    }
    return result;
}

uint32_t DataValidator_IsLengthInRangeOf(const char *pcText, uint32_t ulMin, uint32_t ulMax)
{
    if (pcText == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return DataValidator_IsInRangeOf(lengthOf(pcText), ulMin, ulMax);
}

uint32_t DataValidator_IsValidateString1(const char *pcText, uint32_t ulMin, uint32_t ulMax,
                                         const char *pcForbidden)
{
    if (pcText == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pcForbidden == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const std::string_view text = pcText;
    if (!isInRange(lengthOf(text), ulMin, ulMax)) {
        (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, ulMin, ulMax, lengthOf(text),
                                   0);
        return ZEMA_ERR;
    }
    zema::ByteSet refused = zema::kNotPrintable;
    refused.insert(pcForbidden);
    return refused.meets(text) ? ZEMA_ERR : ZEMA_OK;
}

uint32_t DataValidator_IsValidateString2(const char *pcText, const char *pcForbidden)
{
    return DataValidator_IsValidateString1(pcText, 0, UINT32_MAX, pcForbidden);
}

uint32_t DataValidator_CheckValidate(const DataValidatorRule *pstRules, uint32_t ulCount)
{
    if (pstRules == nullptr && ulCount > 0) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    for (uint32_t i = 0; i < ulCount; ++i) {
        const DataValidatorRule &rule = pstRules[i];
        if (failsRange(rule)) {
            reportRule(__LINE__, rule, i, number(rule.ulValue));
        } else if (failsElement(rule)) {
            reportRule(__LINE__, rule, i, zema::addressValue(rule.pcName));
        } else {
            continue;
        }
        if (number(rule.ulErrCode) != 0) {
            return number(rule.ulErrCode);
        }
    }
    return ZEMA_OK;
}

uint32_t DataValidator_CheckOnlyValidate(DataValidatorCheckOnlyRule *pstRules, uint32_t ulCount)
{
    if (pstRules == nullptr && ulCount > 0) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_OK;
    }
    for (uint32_t i = 0; i < ulCount; ++i) {
        const DataValidatorRule &rule = pstRules[i].stRule;
        if (failsRange(rule)) {
            reportRule(__LINE__, rule, i, number(rule.ulValue));
        } else if (failsElement(rule)) {
            reportRule(__LINE__, rule, i, zema::addressValue(rule.pcName));
        } else {
            continue;
        }
        if (number(rule.ulErrCode) != 0) {
            pstRules[i].ulFailed = 1;
        }
    }
    return ZEMA_OK;
}
