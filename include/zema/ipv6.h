/*
 * IPv6 addresses and masks.
 *
 * An address is ZEMA_IPV6_SIZE bytes in network byte order; texts are NUL-terminated, never changed, and read
 * and written by QX_OS_InetPton and QX_OS_InetNtop. Results are result codes: 0 is accepted or done, anything
 * else rejected. All state is local: any thread, at once. Failures are recorded under qx_util_common.cpp with
 * their result, which is 1.
 */
#ifndef ZEMA_IPV6_H
#define ZEMA_IPV6_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_IPV6_SIZE 16U

/* ---- Conversions ---- */

/* 0, or 1: recorded when an argument is missing, not recorded when the text is no IPv6 address. */
ZEMA_API uint32_t IPv6Address_ConvertFromString(const char *pcText, uint8_t *pucAddr);

/* 0, or 1: recorded when an argument is missing, not recorded when the text does not fit ulSize bytes. */
ZEMA_API uint32_t IPv6Address_ConvertToString(const uint8_t *pucAddr, char *pcText, uint32_t ulSize);

/* ---- Addresses ---- */

/* An address that an interface may have: any but the unspecified address, the loopback address and multicast
 * (ff00::/8). Every rejection is recorded. */
ZEMA_API uint32_t QX_UTL_ValidateIpv6Address(const char *pcText);

/* 1, recorded, when the text is no address or begins with one of the 12-bit prefixes fe8 and fec; 0 for all
 * other addresses, fe90::1 and fed0::1 among them. */
ZEMA_API uint32_t QX_UTL_CheckIPV6_FE8_AND_FEC(const char *pcText);

/* ---- Masks ---- */

/*
 * A contiguous mask, :: included. 0 and the prefix length, 0 to 128, in *pulPrefix; pulPrefix is not tested.
 * 1 and *pulPrefix untouched for a text that does not parse, which is recorded (a missing one by
 * IPv6Address_ConvertFromString first), and for a mask that is not contiguous, which is not.
 */
ZEMA_API uint32_t QX_UTL_ValidateIpv6Mask(const char *pcMask, uint32_t *pulPrefix);

/* 0 when the value is one in which a mask may end its ones: 0x00, 0x80, 0xC0, 0xE0, 0xF0, 0xF8, 0xFC, 0xFE.
 * 0xFF is none of them. Not recorded. */
ZEMA_API uint32_t QX_UTL_CheckIPv6MaskNum(uint32_t ulValue);

/* The number of ones in a value that QX_UTL_CheckIPv6MaskNum accepts. 0; 1, not recorded, and *pucBits
 * untouched, for all other values and when pucBits is missing. */
ZEMA_API uint32_t QX_UTL_GetIPv6MaskBitLen(uint32_t ulMaskByte, uint8_t *pucBits);

QX_END_DECLS

#endif
