/*
 * The data validator: checks of configuration values, alone and as tables of rules.
 *
 * All results are result codes, whatever the names of the functions: 0 is passed, 1 is failed, but for the
 * error codes that DataValidator_CheckValidate takes from its rules. Numbers are unsigned, limits inclusive;
 * a lower limit above the upper one lets nothing pass. Texts are NUL-terminated, their lengths are in bytes.
 *
 * Texts, maps and tables belong to the caller and are only read, but for the failed flags that
 * DataValidator_CheckOnlyValidate sets. Nothing is kept or allocated: any thread may call at once while
 * nobody changes a table. Failures are recorded under data_validator.cpp; a value out of its range
 * (DataValidator_IsInRangeOf, DataValidator_IsLengthInRangeOf) and a byte that is not allowed are not
 * recorded by the function that finds them.
 */
#ifndef ZEMA_DATA_VALIDATOR_H
#define ZEMA_DATA_VALIDATOR_H

#include "zema/name_value_map.h"
#include "zema/result.h"

QX_BEGIN_DECLS

/* ---- Checks of one value ---- */

/* 0 when ulLower <= ulValue <= ulUpper, else 1. */
ZEMA_API uint32_t DataValidator_IsInRangeOf(uint32_t ulValue, uint32_t ulLower, uint32_t ulUpper);

/*
 * 0 when the map of ulCount entries holds the name (see zema/name_value_map.h). 1, recorded (1), when the
 * name or the map is missing; the lookup's result, recorded (that result, the count) behind the lookup's own
 * record, when the map does not hold it.
 */
ZEMA_API uint32_t DataValidator_IsElementOf(const char *pcName, const NameValueMapEntry *pstMap,
                                            uint32_t ulCount);

/* 0 when the text's length is in the range, else 1; 1, recorded (1), when the text is missing. */
ZEMA_API uint32_t DataValidator_IsLengthInRangeOf(const char *pcText, uint32_t ulMin, uint32_t ulMax);

/*
 * 0 when the text's length is in the range and each of its bytes is printable ASCII (0x20 to 0x7E) and none
 * of pcForbidden; else 1. Recorded: a missing text or set (1), a length out of range (1, the two limits, the
 * length). An empty pcForbidden forbids nothing more.
 */
ZEMA_API uint32_t DataValidator_IsValidateString1(const char *pcText, uint32_t ulMin, uint32_t ulMax,
                                                  const char *pcForbidden);

/* The same for a text of any length. */
ZEMA_API uint32_t DataValidator_IsValidateString2(const char *pcText, const char *pcForbidden);

/* ---- Tables of rules ---- */

#define DATAVALIDATOR_TYPE_RANGE 0U   /* ulValue is between ulLower and ulUpper */
#define DATAVALIDATOR_TYPE_ELEMENT 1U /* pcName is a name of the map pstMap of ulCount entries */

/* One rule; a type of another number passes. Each field is a word wide; of one that is a number only the low
 * 32 bits count. */
typedef struct DataValidatorRule {
    uintptr_t ulType;
    union {
        uintptr_t ulValue;
        const char *pcName;
    };
    union {
        uintptr_t ulLower;
        const NameValueMapEntry *pstMap;
    };
    union {
        uintptr_t ulUpper;
        uintptr_t ulCount;
    };
    uintptr_t ulErrCode; /* what a failure of this rule means; 0: it is recorded and passed over */
} DataValidatorRule;

/* One rule of a table that is checked as a whole. */
typedef struct DataValidatorCheckOnlyRule {
    DataValidatorRule stRule;
    uintptr_t ulUser;  /* the caller's own */
    uint32_t ulFailed; /* set to 1 by a failure whose error code is not 0; never cleared */
} DataValidatorCheckOnlyRule;

/*
 * Applies the rules in order, up to the first that fails with an error code that is not 0. That code, or 0
 * when there is none. Each failure is recorded (the rule's error code, its index counted from 0, its ulValue
 * or the name's address), for a name behind the records of DataValidator_IsElementOf. A missing table of more
 * than 0 rules is 1, recorded (1).
 */
ZEMA_API uint32_t DataValidator_CheckValidate(const DataValidatorRule *pstRules, uint32_t ulCount);

/* Applies all rules in order, with the same records, and sets the failed flags of those that fail with an
 * error code that is not 0. Always 0. A missing table of more than 0 rules is recorded (1). */
ZEMA_API uint32_t DataValidator_CheckOnlyValidate(DataValidatorCheckOnlyRule *pstRules, uint32_t ulCount);

QX_END_DECLS

#endif
