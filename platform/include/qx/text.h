/*
 * Text and conversion.
 *
 * Texts are NUL-terminated. Digits, letters and blanks are those of ASCII whatever the locale of the process.
 * All functions may be called from any thread; none keeps state between calls.
 */
#ifndef QX_TEXT_H
#define QX_TEXT_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* Length in bytes, without the terminating zero; a missing text has length 0. QX_OS_StrNLen reads at most max
 * bytes. */
QX_API uint32_t QX_OS_StrLen(const char *text);
QX_API uint32_t QX_OS_StrNLen(const char *text, uint32_t max);

/* As strcmp, strncmp and strcasecmp: 0 when equal, else the sign of the first difference. A
 * missing text comes before every other one. */
QX_API int32_t QX_OS_StrCmp(const char *a, const char *b);
QX_API int32_t QX_OS_StrNCmp(const char *a, const char *b, uint32_t count);
QX_API int32_t QX_OS_StrCaseCmp(const char *a, const char *b);

/* As strstr, strcasestr and strtok_r: null when there is none. QX_OS_StrtokR writes zeros into text. */
QX_API char *QX_OS_StrStr(const char *text, const char *find);
QX_API char *QX_OS_StrCaseStr(const char *text, const char *find);
QX_API char *QX_OS_StrtokR(char *text, const char *separators, char **save);

/* Copies text to out without its blanks (space, tab, newline, vertical tab, form feed, carriage return). out
 * has room for the whole text and may be text itself. 0, or nonzero when one of them is missing. */
QX_API uint32_t QX_OS_StripSpace(const char *text, char *out);

/* 1 when text is not empty and holds decimal digits only, else 0. */
QX_API uint32_t QX_OS_IsDigitStr(const char *text);

/*
 * The whole text must be a decimal number, digits only, for the signed one with one leading '-' allowed;
 * leading zeros are read as decimal. 0 and the number in *out; nonzero and *out untouched when the text is no
 * number; nonzero and *out at the nearest limit of its type when the number is out of range.
 */
QX_API uint32_t QX_OS_StrToUInt32(const char *text, uint32_t *out);
QX_API uint32_t QX_OS_StrToInt32(const char *text, int32_t *out);

/* The number in decimal, without leading zeros. A number that does not fit size bytes with its terminating
 * zero: nonzero and the empty text. */
QX_API uint32_t QX_OS_UInt32ToStr_S(uint32_t value, char *out, uint32_t size);

/* As strtol. */
QX_API long QX_OS_Strtol(const char *text, char **end, int32_t base);

/* As inet_addr, inet_pton and inet_ntop; family is 2 (IPv4) or 10 (IPv6); addresses are in network byte
 * order. A missing argument gives all ones, -1 and null. */
QX_API uint32_t QX_OS_InetAddr(const char *text);
QX_API int32_t QX_OS_InetPton(int32_t family, const char *text, void *out);
QX_API const char *QX_OS_InetNtop(int32_t family, const void *address, char *out, uint32_t size);

/* Four decimal parts of 0 to 255 joined by dots, to an address in network byte order and back; leading zeros
 * change nothing (010 is ten). 0 when converted; nonzero and out untouched (for the text: empty) when not. */
QX_API uint32_t QX_OS_StrToIpAddr(const char *text, uint32_t *out);
QX_API uint32_t QX_OS_IpAddrToStr(uint32_t address, char *out, uint32_t size);

/*
 * Puts a backslash before every byte that the shell could take as more than itself: all but ASCII letters,
 * digits and "%+,-./:@_". The shell reads the result, as an unquoted word, as the text, but for newlines: one
 * with a backslash before it ends no command and is no part of the word either. The empty text stays empty,
 * which is no word. out is not text itself and needs twice the text's length and one byte. A result that does
 * not fit size: nonzero and the empty text.
 */
QX_API uint32_t QX_OS_CmdEscape(const char *text, char *out, uint32_t size);

QX_END_DECLS

#endif
