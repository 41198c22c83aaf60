/*
 * Name-value maps: short names and 32-bit values, read in both directions.
 *
 * A map is an array of entries and a count, both the caller's; the library only reads it, keeps nothing and
 * allocates nothing, so any thread may call at once while nobody changes the map. Entries are searched from
 * the first to the last: of two with the same name, or the same value, the earlier one counts. Names are
 * compared ignoring the case of ASCII letters, values for equality only.
 *
 * Results are result codes: 0 is found. Pointers are not tested: the map holds ulCount entries, and what is
 * searched for and the out values are there. Failures are recorded under name_value_map.cpp.
 */
#ifndef ZEMA_NAME_VALUE_MAP_H
#define ZEMA_NAME_VALUE_MAP_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define NAMEVALUEMAP_NAME_SIZE 32U

typedef struct NameValueMapEntry {
    char acName[NAMEVALUEMAP_NAME_SIZE]; /* at most 31 characters, NUL-terminated */
    uint32_t ulValue;
} NameValueMapEntry;

/* Looks a name up. 0 and the value in *pulValue; 1, recorded (1, the count), and *pulValue untouched, when no
 * entry has the name. */
ZEMA_API uint32_t NameValueMap_GetValue(const NameValueMapEntry *pstMap, uint32_t ulCount, const char *pcName,
                                        uint32_t *pulValue);

/*
 * Looks a value up and copies its name, cut to ulSize - 1 characters and always terminated, into pcName of
 * ulSize bytes. 0 when found; 1, recorded (1, the count), and pcName untouched, when ulSize is 0 or no entry
 * has the value.
 */
ZEMA_API uint32_t NameValueMap_GetName(const NameValueMapEntry *pstMap, uint32_t ulCount, uint32_t ulValue,
                                       char *pcName, uint32_t ulSize);

QX_END_DECLS

#endif
