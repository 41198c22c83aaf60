/*
 * What the module "qxpkt" and processes say to each other over the generic netlink family "QXPKT". All fields
 * are in host byte order.
 */
#ifndef QXPKT_H
#define QXPKT_H

#include <linux/types.h>

#define QXPKT_FAMILY "QXPKT"
#define QXPKT_VERSION 1
#define QXPKT_LINK_TYPES 30
#define QXPKT_PACKET_MAX 2048

enum qxpkt_command {
    QXPKT_CMD_REGISTER = 1, /* with QXPKT_ATTR_LINK_TYPE: the sending socket is the link type's from now on */
    QXPKT_CMD_DATA = 2,     /* with QXPKT_ATTR_DATA: a packet, in either direction */
};

enum qxpkt_attribute {
    QXPKT_ATTR_LINK_TYPE = 1, /* the link type in the first 4 bytes */
    /* To the kernel: the link type in the first 4 bytes, then the packet; to the process: the packet. */
    QXPKT_ATTR_DATA = 2,
};

/* A packet that begins so is answered by ulCount packets in place of one: each begins with its own number,
 * from 0, in place of the magic, and goes on as the request does. */
#define QXPKT_BURST_MAGIC 0x54535242 /* "BRST" on a little-endian machine */
#define QXPKT_BURST_MAX 4096

struct qxpkt_burst {
    __u32 ulMagic;
    __u32 ulCount; /* at most QXPKT_BURST_MAX */
};

#endif
