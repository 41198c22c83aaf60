#include "zema/name_value_map.h"

#include "common/record.h"
#include "qx/memory.h"
#include "util/folded_name.h"

#include <algorithm>
#include <span>

static_assert(sizeof(NameValueMapEntry) == 36 && offsetof(NameValueMapEntry, ulValue) == 32);

uint32_t NameValueMap_GetValue(const NameValueMapEntry *pstMap, uint32_t ulCount, const char *pcName,
                               uint32_t *pulValue)
{
    const zema::FoldedName name(pcName);
    if (name.fits()) {
        for (const NameValueMapEntry &entry : std::span(pstMap, ulCount)) {
            if (name.equals(entry.acName)) {
                *pulValue = entry.ulValue;
                return ZEMA_OK;
            }
        }
    }
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, ulCount, 0, 0, 0);
    return ZEMA_ERR;
}

uint32_t NameValueMap_GetName(const NameValueMapEntry *pstMap, uint32_t ulCount, uint32_t ulValue,
                              char *pcName, uint32_t ulSize)
{
    if (ulSize == 0) {
        (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, ulCount, 0, 0, 0);
        return ZEMA_ERR;
    }
    for (const NameValueMapEntry &entry : std::span(pstMap, ulCount)) {
        if (entry.ulValue == ulValue) {
            // A name ends within its entry, terminated or not.
            (void)strncpy_s(pcName, ulSize, entry.acName, std::min(ulSize, NAMEVALUEMAP_NAME_SIZE) - 1);
            return ZEMA_OK;
        }
    }
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, ZEMA_ERR, ulCount, 0, 0, 0);
    return ZEMA_ERR;
}
