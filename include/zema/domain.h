/*
 * Domain names, ranges of IPv4 addresses, and hosts given as an address.
 *
 * The first three functions are predicates: 1 is valid, 0 is not. QX_UTL_ConvHostNameToIpAddr returns a
 * result code. Texts are NUL-terminated, never changed, and present unless a function says otherwise. All
 * state is local: any thread, at once. Failures are recorded under qx_util_common.cpp with the code 1.
 */
#ifndef ZEMA_DOMAIN_H
#define ZEMA_DOMAIN_H

#include "zema/ipv4.h"

QX_BEGIN_DECLS

/* A label of a name: at most 63 letters, digits and hyphens, in any order. The empty label is valid. Not
 * recorded. */
ZEMA_API uint32_t QX_UTL_ISDomainSplitValid(const char *pcLabel);

/*
 * A name of at most 255 bytes: valid labels, none empty, with single dots between them, of which the first
 * byte and the last are a letter or a digit. 0 for a missing text (recorded: 1), for a longer one (recorded:
 * 1, its length), and, not recorded, for all others that are not valid.
 */
ZEMA_API uint32_t QX_UTL_ISDomainValid(const char *pcName);

/*
 * A range "start-end" of at most 255 bytes: two texts that QX_UTL_ValidateIpAddress accepts, in one block of
 * 24 bits that is not 255.255.255.0, the start not above the end, and neither 0.0.0.0. Hyphens before the
 * start are skipped. Addresses are read with QX_OS_InetAddr, which takes a leading zero for octal. Everything
 * that is not valid is recorded (1), at a line for each reason.
 */
ZEMA_API uint32_t QX_UTL_IsIpRange(const char *pcText);

#define IPADDR_KIND_IPV4 1U /* not the families of zema/ipv4.h */
#define IPADDR_KIND_IPV6 2U

/*
 * Reads a host given as an address, never as a name. A text that QX_UTL_ValidateIpAddress accepts and that
 * QX_OS_InetAddr does not read as 0 sets the record's IPv4 field and the kind IPADDR_KIND_IPV4 in its family
 * field; any other IPv6 text sets the IPv6 field and IPADDR_KIND_IPV6. 0; 1, and the record untouched, when
 * the text is neither. Only a missing text is recorded, by IPv6Address_ConvertFromString. QX_OS_InetAddr has
 * its own view of what the first function accepts: 010.1.1.1 is 8.1.1.1, and 1.2.3.08 is 255.255.255.255.
 * pstAddr is not tested.
 */
ZEMA_API uint32_t QX_UTL_ConvHostNameToIpAddr(const char *pcText, IpAddrRecord *pstAddr);

QX_END_DECLS

#endif
