/*
 * The packet tunnel: packets between a process of the service and the service's kernel module, over the
 * generic netlink family "QXPKT".
 *
 * A process creates one link for each link type it serves, sends and receives packets on it, and releases it.
 * What the 30 link types mean is between the process and the module. Every message is one attribute behind a
 * netlink and a generic netlink header, all of it in host byte order.
 *
 * The caller owns the descriptor and the socket in it; the library keeps nothing between calls. A link is not
 * locked: one thread at a time uses it. A missing argument is recorded (1) and gives 1. Failures are recorded
 * under qx_pkt_tunnel.cpp with 1 as first value and answered with 1, but for what RecvPkgBuf says of counts.
 */
#ifndef ZEMA_PKT_TUNNEL_H
#define ZEMA_PKT_TUNNEL_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define PKT_TUNNEL_LINK_TYPES 30U    /* link types are 0 to 29 */
#define PKT_TUNNEL_PACKET_MAX 2048U  /* bytes of the largest packet */
#define PKT_TUNNEL_HEAD_SIZE 24U     /* bytes in front of a received packet */
#define PKT_TUNNEL_BUFFER_SIZE 2072U /* bytes that hold any message received */

typedef struct PktTunnelLink {
    uint32_t
        ulPortId; /* the creating thread, as QX_OS_PthreadSelf names it; the sender port of every message */
    uint32_t ulFamilyId; /* what the kernel calls the family; messages carry the low 16 bits */
    int32_t lSockFd;
    uint32_t ulLinkType;
} PktTunnelLink;

/*
 * Opens a socket, asks the kernel for the family and registers the link type with the module. The module does
 * not confirm: if it refuses, what is received first is its refusal.
 *
 * 0 and the descriptor filled in. 1, the socket closed and the descriptor untouched: for a link type above 29
 * (recorded with it) or a missing descriptor before anything is opened; when the socket cannot be opened or
 * bound (recorded with the result); and, each with a record of what failed if there is something to say, then
 * a second one of the creation, when there is no memory, the family cannot be looked up (the count of bytes
 * received; the type or the value of an attribute that is not the family's identifier), or the registration
 * cannot be sent (the second record: 1, the family, the socket, the port, the link type).
 */
ZEMA_API uint32_t QX_PKT_TUNNEL_CreateLinkSocket(uint32_t ulLinkType, PktTunnelLink *pstLink);

/* Closes the link's socket; the descriptor keeps its values. The first argument is not used. 0, or 1 and
 * recorded with the result when it cannot be closed. */
ZEMA_API uint32_t QX_PKT_TUNNEL_ReleaseLinkSocket(uint32_t ulReserved, const PktTunnelLink *pstLink);

/*
 * Sends a packet of at most 2048 bytes, of 0 too. While the socket cannot take it, the call tries again
 * without end. 0 when the kernel has it. 1 when it is too long (recorded with its length), without memory
 * (recorded), or when the sending fails (recorded with its result); the latter two are recorded once more by
 * the call itself.
 */
ZEMA_API uint32_t QX_PKT_TUNNEL_SendPkg(const PktTunnelLink *pstLink, const void *pvPacket,
                                        uint32_t ulLength);

/*
 * Receives one message into pvBuffer of ulBufferSize bytes, at least 24, and shows the packet inside it:
 * nothing is copied, the packet lives as long as the buffer is left alone. Waits as long as the socket does.
 *
 * 0 with a packet. The count of bytes received as an unsigned number, the out values untouched and nothing
 * recorded, for what is no packet: a failed receive (0xFFFFFFFF), a message that is cut short or lies about
 * its length, a kernel's error. The count is 0 when an empty message came, so a caller that must tell it from
 * a packet sets *ppucPacket to null before. 1, recorded with the type, when the attribute is not a packet's
 * or not there (type 0). 1, recorded with the packet's length and the bound, when the packet would end behind
 * the buffer or behind what was received; the out values are written then.
 */
ZEMA_API uint32_t QX_PKT_TUNNEL_RecvPkgBuf(const PktTunnelLink *pstLink, void *pvBuffer,
                                           uint32_t ulBufferSize, uint8_t **ppucPacket, uint32_t *pulLength);

QX_END_DECLS

#endif
