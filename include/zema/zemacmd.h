/*
 * The command whitelist and its parameter checks.
 *
 * All functions here are checks: 1 is accepted, 0 is rejected. Texts are NUL-terminated and never changed; a
 * length is the operator's text length as the caller measured it. The parameter text is what follows the
 * row's command text, split at spaces; no space is needed before the first parameter. Only the first 255
 * characters of a text are looked at for parameters. A missing pointer is rejected. Every rejection is
 * recorded under qx_zema_cmdagent.cpp; unless a function says otherwise the values are 1, the command text's
 * length and the operator's text length. The table is constant and all state is local: any thread, at once.
 */
#ifndef ZEMA_ZEMACMD_H
#define ZEMA_ZEMACMD_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_CMD_DISPLAY 0U /* the class of a row, and of the entry point through which a text came */
#define ZEMA_CMD_DEBUG 1U

typedef uint32_t (*ZemacmdCheck)(const char *pcCmd, const char *pcText, uint32_t ulLen);

typedef struct ZemacmdCheckItem {
    const char *pcCmd;
    ZemacmdCheck pfnCheck;
    uint32_t ulDbgFlag;
} ZemacmdCheckItem;

/*
 * Finds the first row of the given class with which the text begins and runs its check.
 *
 * Records, before it returns 0: (1, the text's address, the length) for a missing text or a length of 0; (1,
 * 38, the length) when no row matches; (1, the row counted from 0, the length, the check's result) when the
 * check rejects, after the check's own record.
 */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckPara(const char *pcText, uint32_t ulLen, uint32_t ulFlag);

/* No parameter text at all: the length is the command text's. */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_ComCheckPara(const char *pcCmd, const char *pcText, uint32_t ulLen);

/* One decimal parameter of 0 to 100, 1 to 16, 1 to 32, 1 to 1024. A rejection records also the result of
 * QX_ZEMA_Zemacmd_Check1DigPara, which records first, and the value. */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckForPktInfo(const char *pcCmd, const char *pcText, uint32_t ulLen);
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckForVbrFw(const char *pcCmd, const char *pcText, uint32_t ulLen);
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckForCtpDetail(const char *pcCmd, const char *pcText, uint32_t ulLen);
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckForDetail(const char *pcCmd, const char *pcText, uint32_t ulLen);

/* Two numbers, the first above 0, the second 0 or above. A rejection records (1, the command text's length,
 * the result of QX_ZEMA_Zemacmd_Check2DigPara, the two values). */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckForDbg(const char *pcCmd, const char *pcText, uint32_t ulLen);

/* One keyword: all, neigh, fib4 or fib6. A second one records also its address. */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CheckRouteShowPara(const char *pcCmd, const char *pcText, uint32_t ulLen);

/* Exactly one parameter of decimal digits. *pulValue is written when 1 is returned. */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_Check1DigPara(const char *pcCmd, const char *pcText, uint32_t ulLen,
                                                uint32_t *pulValue);

/*
 * Exactly two numeric parameters, the first of digits only. Each value is written as soon as it is converted,
 * also when 0 is returned then; what is no number counts as 0, what is out of range as the nearest limit. A
 * missing second parameter records also the first value, a third parameter both.
 */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_Check2DigPara(const char *pcCmd, const char *pcText, uint32_t ulLen,
                                                int32_t *plFirst, int32_t *plSecond);

QX_END_DECLS

#endif
