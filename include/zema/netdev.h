/*
 * Network devices of the kernel: looked up, queried and set by name.
 *
 * A device name is a NUL-terminated text. What goes into a request of the kernel is its first 15 characters:
 * a longer name is cut, not refused. A kernel index is the kernel's number of a device, not an interface
 * index of the component. Addresses and masks are in network byte order.
 *
 * Each query opens a socket of its own and closes it before it returns; nothing is kept between calls, and
 * any thread may call at any time. Out values are written on success only, but for one that
 * NETDEV_GetIpAddByDeviceName names. A missing pointer is ZEMA_ERR_NETDEV_PARA, recorded, where nothing else
 * is said; a socket that cannot be opened is ZEMA_ERR_NETDEV_SOCKET, recorded; a request that the kernel
 * refuses is ZEMA_ERR_NETDEV_IOCTL, recorded with its result. Failures are recorded under
 * common/userapp/netdevice/qx_netdev_api.cpp, those of get_dev_mac under qx_util_common.cpp. Trace lines
 * carry ZEMA_MODULE_ID.
 */
#ifndef ZEMA_NETDEV_H
#define ZEMA_NETDEV_H

#include "zema/result.h"

QX_BEGIN_DECLS

/* ---- Names, indexes, states ---- */

/* The kernel index of a device, in *plIndex. 0; else as above. */
ZEMA_API uint32_t NETDEV_GetIndexByDevName(const char *pcName, int32_t *plIndex);

/* The name of the device with a kernel index, cut to ulSize - 1 characters and terminated; a size of 0 takes
 * nothing. 0, also for a name that was cut; else as above. */
ZEMA_API uint32_t NETDEV_GetDevNameByIndex(uint32_t ulIndex, char *pcName, uint32_t ulSize);

#define ZEMA_NETDEV_UP 0U
#define ZEMA_NETDEV_NOT_UP 1U

/* Whether a device is up, in *pulStatus: mind that 0 is up. 0 either way; else as above. */
ZEMA_API uint32_t NETDEV_GetNetDevStatus(const char *pcName, uint32_t *pulStatus);

/* ---- Addresses ---- */

/*
 * The IPv4 address of a device and its mask. 0; 1 when an argument is missing (not recorded), the socket
 * cannot be opened or the kernel refuses one of the two requests, as for a device without an address:
 * recorded (what the call returned, the system's error number), with a trace line. When only the second one
 * is refused, *pulAddress has been written.
 */
ZEMA_API uint32_t NETDEV_GetIpAddByDeviceName(const char *pcName, uint32_t *pulAddress, uint32_t *pulMask);

/* The hardware address of a device as six pairs of upper-case digits with colons between them, in the order
 * on the wire. ulSize is at least 18; less is ZEMA_ERR_NETDEV_PARA, recorded with the size. 0; else as above.
 */
ZEMA_API uint32_t NETDEV_GetMacByDeviceName(const char *pcName, char *pcMac, uint32_t ulSize);
ZEMA_API uint32_t NETDEV_GetMacByDeviceName_Inner(const char *pcName, char *pcMac, uint32_t ulSize);

/* The hardware address of a device as six bytes. Mind the results: 1 on success; -1 when pucMac is missing
 * (not recorded), no socket can be opened or the kernel refuses, as for a missing name (recorded: 1). */
ZEMA_API int32_t get_dev_mac(const char *pcName, uint8_t *pucMac);

/*
 * Sets the hardware address of a device from a text, which is converted as QX_UTL_MacStrToArr does, without
 * being validated. The device is neither taken down nor brought up for it. 0; the conversion's nonzero
 * result, recorded; else as above, a missing socket recorded with the system's error number, a refused
 * request with its result, the descriptor and that number, both with a trace line.
 */
ZEMA_API uint32_t NETDEV_SetNetDevMac(const char *pcName, const char *pcMac);

/* ---- States set by the system's commands ---- */

/*
 * Brings a device up (ulUp is not 0) or down with "ifconfig NAME up". To the shell the name is nothing but a
 * name; to ifconfig one that begins with "-" is an option. The command's result (QX_OS_ExecShellCmd); 1,
 * recorded, when the name is missing or there is no memory to escape it for the shell.
 */
ZEMA_API uint32_t NETDEV_ConfigDevIntfUpDown(const char *pcName, uint32_t ulUp);

/*
 * Lets a device generate IPv6 link-local addresses (ulEnable is not 0), or takes IPv6 off it altogether, with
 * "sysctl -w net.ipv6.conf.NAME.disable_ipv6=0", for which "=" and white space end a name. The name is not
 * tested. 0 whatever becomes of the command; 1, recorded, when there is no memory to escape the name for the
 * shell.
 */
ZEMA_API uint32_t NETDEV_EnableGenerateLinkLocalAddr(const char *pcName, uint32_t ulEnable);

/* ---- Changes that the owner of the data makes ---- */

/* Raised within the process with the kernel index as its parameter, before the deletion is asked for. */
#define ZEMA_EVENT_NETDEV_DELETED 8850U

/* Requests of DataSync_SyncData, with what they carry in the machine's byte order. */
#define ZEMA_SYNC_NETDEV_PRIV_FLAG 7U /* NetDevPrivFlagRecord */
#define ZEMA_SYNC_NETDEV_DELETE 30U   /* the kernel index, 32 bits */

typedef struct NetDevPrivFlagRecord {
    char acName[32]; /* NUL-terminated, the rest 0 */
    uint8_t aucReserved1[8];
    uint16_t usFlag;
    uint8_t aucReserved2[6];
} NetDevPrivFlagRecord;

/* Raises ZEMA_EVENT_NETDEV_DELETED and asks the owner to delete the device, whatever became of the event. 0,
 * or the nonzero result of the request, recorded. */
ZEMA_API uint32_t NETDEV_DeleteNetDeviceByIndex(uint32_t ulIndex);

/* Asks the owner to set the private flag of a device to the low 16 bits of ulFlag. Of the name, which is not
 * tested, 31 characters are sent. 0, or the nonzero result of the request, recorded. */
ZEMA_API uint32_t NETDEV_SetNetDevPrivFlag(const char *pcName, uint32_t ulFlag);

QX_END_DECLS

#endif
