/*
 * Options of a WAN connection, and the parameters of the configuration database that go with it.
 *
 * The options of connection WAN stand in the file /var/wan/WAN/config, a line NAME=VALUES each. The library
 * reads it anew at every call and keeps nothing; any thread. Names are compared byte by byte, blanks
 * included; the first line with the name counts, and "=" before a name is skipped. Values are separated by
 * blanks (nothing else is a separator); the newline behind the last one does not belong to it. A line of more
 * than 1199 characters counts as several. Failures are recorded under qx_util_common.cpp.
 */
#ifndef ZEMA_WAN_OPTIONS_H
#define ZEMA_WAN_OPTIONS_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_OPTION_VALUES 32U
#define ZEMA_OPTION_VALUE_SIZE 256U

typedef struct OptionValueList {
    uint8_t ucState; /* 0 once the option's line was found */
    uint8_t ucCount; /* of the values, 1 to ZEMA_OPTION_VALUES */
    char aacValue[ZEMA_OPTION_VALUES][ZEMA_OPTION_VALUE_SIZE];
} OptionValueList;

/*
 * All values of an option, each cut to 255 characters; those behind the 32nd are left out. For the option
 * "tr069srv", whose first value has two characters, the first two values become one with "!" between them and
 * the second character lowered by one, which is printed on the console (QX_OS_Printf).
 *
 * 0 and the values. 1, and *pstValues untouched, when an argument is missing, there is no file or no such
 * option (none of them recorded), or no memory for a line (recorded: 1). 1 when the line holds no value
 * (recorded: 1): ucState is then 0 and the rest untouched. A path that cannot be formatted is recorded (1,
 * the formatting's result).
 */
ZEMA_API uint32_t QX_UTL_GetOptionValue(const char *pcWan, const char *pcOption, OptionValueList *pstValues);

/*
 * The first value of an option, cut to 255 characters, as it is written. With its newline it must fit ulSize,
 * or pcValue becomes the empty text, and the result is still 0. Otherwise the results and records of
 * QX_UTL_GetOptionValue; a line before the option's that has no name, being "=" only, ends the search: 1,
 * recorded (1).
 */
ZEMA_API uint32_t QX_UTL_GetDhcpHdrOptValue(const char *pcWan, const char *pcOption, char *pcValue,
                                            uint32_t ulSize);

typedef struct DbAppendRow {
    uint32_t ulFirst;
    uint32_t ulSecond;
    uint32_t ulThird;
} DbAppendRow;

/*
 * Appends the parameters that each of the rows in ulSize bytes selects to a list of the configuration
 * database (QX_XML_DBAppendAllParaToParaList with first, 0, third, 0, second, 0). A rest of less than a row
 * is ignored. 0; 1, recorded (the list's address), when an argument is missing or ulSize is 0xFFFFFFFF; the
 * first nonzero result of an append, recorded, and in a second record the row's ulFirst: the rows before it
 * stay appended.
 */
ZEMA_API uint32_t QX_UTL_DBAppendAllList(const DbAppendRow *pstRows, uint32_t ulSize, void *pList);

QX_END_DECLS

#endif
