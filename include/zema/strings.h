/*
 * Helpers for numbers and strings.
 *
 * Texts are NUL-terminated. All state is local: any thread, at once. Failures are recorded under
 * qx_util_common.cpp.
 */
#ifndef ZEMA_STRINGS_H
#define ZEMA_STRINGS_H

#include "zema/result.h"

QX_BEGIN_DECLS

/* Reads a text of decimal digits only, modulo 2^32; an empty one is 0. 0 and the number in *pulValue; 1, not
 * recorded, and *pulValue untouched, when the text holds any other byte or an argument is missing. */
ZEMA_API uint32_t QX_UTL_ATOI(const char *pcText, uint32_t *pulValue);

/*
 * The Internet checksum (RFC 1071) of lLen bytes, aligned to two: the complement of the sum of their 16-bit
 * words in the machine's byte order, which is how it is stored into a header. An odd last byte is the first
 * one of a word that ends with 0. 0xFFFF when lLen is 0 or below. The sum is kept in 32 bits, which 128 KiB
 * cannot exceed. pData is not tested.
 */
ZEMA_API uint32_t QX_UTL_Checksum(const void *pData, int32_t lLen);

/*
 * Replaces the first occurrence of pcSearch in pcSource, found ignoring the case of letters, and writes the
 * result into pcOut of ulSize bytes, which is separate memory. An empty pcSearch occurs at the start. 255
 * bytes are the most for pcSource and pcSearch; pcReplace counts as at most 256 when the room is looked at.
 *
 * 0 when written. 1, and pcOut untouched, when an argument is missing or pcSearch does not occur (neither is
 * recorded), a text is too long (recorded: 1), or the result and its terminating zero do not fit (a trace
 * line with the result's length). An append that does not fit after all, or fails, is recorded (1, its
 * result, ulSize and, of pcReplace, its counted length), leaves what it was to append to empty, and the
 * result is still 0.
 */
ZEMA_API uint32_t QX_StrReplaceSubStr(const char *pcSource, const char *pcSearch, const char *pcReplace,
                                      char *pcOut, uint32_t ulSize);

QX_END_DECLS

#endif
