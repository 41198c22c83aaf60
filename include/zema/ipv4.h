/*
 * IPv4 addresses and masks as text, and records that hold an address of either family.
 *
 * Texts are NUL-terminated and never changed; digits and blanks are those of ASCII. Unless a function says
 * otherwise, results are result codes (0 is accepted), and a missing argument is rejected. Nothing here is
 * recorded. All state is local: any thread, at once.
 *
 * The validators differ on purpose. A strict quad is at most 15 characters with exactly three single dots. A
 * text that is split, by contrast, is split as strtok_r does: a run of dots counts as one, and what follows
 * the fourth part is not looked at.
 *
 *                                  192.168.1.1  " 1.2.3.4"  1.2.3.0004  1.2.3.4.5  224.0.0.1  255.1.2.3
 *   QX_UTL_ValidateIpAddress       0            0           0           1          0          0
 *   QX_UTL_ValidateHostIpAddress   0            nonzero     nonzero     1          1          1
 *   QX_UTL_CheckIpAddressIsValid   0            nonzero     nonzero     1          0          1
 *   QX_UTL_IpAddrSplit             0            1           0           0          0          0
 */
#ifndef ZEMA_IPV4_H
#define ZEMA_IPV4_H

#include "zema/result.h"

QX_BEGIN_DECLS

/* ---- Numbers ---- */

/* Decimal digits only, one or more of them; of QX_UTL_ValidateThreeNumber, one to three. */
ZEMA_API uint32_t QX_UTL_ValidateNumber(const char *pcText);
ZEMA_API uint32_t QX_UTL_ValidateThreeNumber(const char *pcText);

/* 0 when the value is one in which a mask may end its ones: 0, 128, 192, 224, 240, 248, 252, 254. 255 is none
 * of them. */
ZEMA_API uint32_t QX_UTL_CheckNum(uint32_t ulValue);

/* ---- Addresses ---- */

#define ZEMA_IPV4_OCTETS 4U

/*
 * Splits a text of at most 15 characters into ZEMA_IPV4_OCTETS octets, the first one first. The text neither
 * begins nor ends with a dot; each of its first four parts is digits only, with a value of at most 255.
 * Octets are written one by one: of a text that is rejected later, the first ones are written too.
 */
ZEMA_API uint32_t QX_UTL_IpAddrSplit(const char *pcText, uint32_t *pulOctets);

/* A strict quad whose parts are 0 to 255. A part may begin with blanks and leading zeros, which change
 * nothing (010 is ten), but has no sign and no blank behind it. */
ZEMA_API uint32_t QX_UTL_ValidateIpAddress(const char *pcText);

/*
 * A strict quad of one to three digits each that a host can have: the first octet is 1 to 223 and not 127,
 * the others are 0 to 255. QX_UTL_CheckIpAddressIsValid takes a first octet up to 254. A part that is no
 * number at all gives the nonzero result of QX_OS_StrToInt32 for it; everything else that is rejected gives
 * 1.
 */
ZEMA_API uint32_t QX_UTL_ValidateHostIpAddress(const char *pcText);
ZEMA_API uint32_t QX_UTL_CheckIpAddressIsValid(const char *pcText);

/* Writes a text that QX_UTL_ValidateIpAddress accepts, and the platform can read, without its leading zeros:
 * 010.001.002.003 becomes 10.1.2.3. An empty text is accepted and becomes the empty text. A result that does
 * not fit ulSize bytes leaves the empty text and gives 0. 1 when the text is rejected, pcOut untouched. */
ZEMA_API uint32_t QX_UTL_ConvertIpAddrToStandard(const char *pcText, char *pcOut, uint32_t ulSize);

/* ---- Masks ---- */

/*
 * A contiguous mask: parts of 255, then at most one that QX_UTL_CheckNum accepts, then parts of 0. The text
 * is split; only its first 19 characters are looked at, in a copy from the platform's allocator, and without
 * memory for it the text is rejected. "0.0.0.0" is rejected; other spellings of it are not.
 */
ZEMA_API uint32_t QX_UTL_ValidateSubnetMask(const char *pcText);

#define ZEMA_FEATURE_CLASS_A_IP "ZEMA_FT_SUPPORT_CLASS_A_IP"

/* 0 when the first three octets of a text that QX_UTL_IpAddrSplit accepts are 255, whatever the fourth; with
 * the feature ZEMA_FEATURE_CLASS_A_IP on, also when the first one is. */
ZEMA_API uint32_t QX_UTL_IsMask24BitOrMore(const char *pcMask);

/* The prefix length of a mask in host byte order, which is 32 less its trailing zeros; of 0 it is 0. Always
 * 0. *pulCount is not tested. */
ZEMA_API uint32_t QX_UTL_GetSubNetMaskNum(uint32_t ulMask, uint32_t *pulCount);

/* 0 when the address is neither the network's own nor the broadcast address of its subnet. Both texts are
 * read with QX_OS_InetAddr; one that it cannot read is all ones, which is rejected. */
ZEMA_API uint32_t QX_UTL_ValidateHostIpWithSubnetMask(const char *pcAddress, const char *pcMask);

/* 0 when two addresses, each under its own mask, are equal. All four are ZEMA_IPV4_OCTETS octets. */
ZEMA_API uint32_t QX_UTL_ValidateIpSameSubNet(const uint32_t *pulFirst, const uint32_t *pulFirstMask,
                                              const uint32_t *pulSecond, const uint32_t *pulSecondMask);

/* ---- Records ---- */

#define IPADDR_FAMILY_IPV4 2U /* the socket interface's AF_INET and AF_INET6 */
#define IPADDR_FAMILY_IPV6 10U

/* An address of either family, in network byte order. Only the field that the family names is meaningful. */
typedef struct IpAddrRecord {
    uint8_t aucIpv6[16];
    uint8_t aucIpv4[4];
    uint32_t ulFamily; /* IPADDR_FAMILY_; QX_UTL_ConvHostNameToIpAddr (zema/domain.h) has kinds of its own */
} IpAddrRecord;

/* 1 when the record holds an IPv4 or IPv6 address, else 0: a predicate. */
ZEMA_API uint32_t QX_UTL_IsIpAddrValid(const IpAddrRecord *pstAddr);

/* Reads an IPv4 or else an IPv6 address as QX_OS_InetPton does, and sets the family and its own field. The
 * record; null, and nothing set, when the text is neither. */
ZEMA_API IpAddrRecord *QX_UTL_IpStrToAddr(const char *pcText, IpAddrRecord *pstAddr);

/* Writes the record's address as text. pcText; null when the family is neither or the text does not fit
 * ulSize bytes. */
ZEMA_API const char *QX_UTL_GetIpAddrStr(const IpAddrRecord *pstAddr, char *pcText, uint32_t ulSize);

QX_END_DECLS

#endif
