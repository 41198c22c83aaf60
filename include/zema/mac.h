/*
 * Ethernet (MAC) addresses: as text and as six bytes.
 *
 * The three operations are independent: the conversion does not validate, so callers validate first. Texts
 * are NUL-terminated and never changed; digits and blanks are those of ASCII. Results are result codes: 0 is
 * accepted or done. All state is local: any thread, at once. Failures are recorded under qx_util_common.cpp.
 *
 * Mind the two byte orders: QX_UTL_MacStrToArr fills byte 0, the first one on the wire, from the first pair
 * of the text, while QX_UTL_MacArrToStr prints byte 5 first. There and back again reverses the pairs.
 */
#ifndef ZEMA_MAC_H
#define ZEMA_MAC_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_MAC_SIZE 6U
#define ZEMA_MAC_TEXT_SIZE 18U /* of what QX_UTL_MacArrToStr writes, with its terminating zero */

/*
 * Six hexadecimal parts with single colons between them, at most 17 characters in all. A part has any number
 * of digits of either case, a value of at most 255, and may begin with blanks and then 0x; it has no sign.
 * All zeros, broadcast and multicast are accepted. 0 when accepted, else 1; recorded (1) only when there is
 * no part at all: an empty text, or up to five colons and nothing else.
 */
ZEMA_API uint32_t QX_UTL_ValidateMacAddress(const char *pcText);
ZEMA_API uint32_t QX_UTL_ValidateMacAddress_Inner(const char *pcText);

/*
 * Scans a text as %x:%x:%x:%x:%x:%x into ZEMA_MAC_SIZE bytes: the low eight bits of each field, 0 for fields
 * that the scan did not reach. 0, also when it reached none, which is recorded (1, the scan's result); 1 when
 * an argument is missing.
 */
ZEMA_API uint32_t QX_UTL_MacStrToArr(const char *pcText, uint8_t *pucMac);

/*
 * Writes ZEMA_MAC_SIZE bytes, the last one first, as six pairs of upper-case digits with colons between them.
 * 0, also when they do not fit ulSize bytes, which is recorded (1, the formatting's result) and leaves the
 * empty text; 1 when an argument is missing.
 */
ZEMA_API uint32_t QX_UTL_MacArrToStr(const uint8_t *pucMac, char *pcText, uint32_t ulSize);

QX_END_DECLS

#endif
