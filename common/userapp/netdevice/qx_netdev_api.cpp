#include "zema/netdev.h"

#include "common/record.h"
#include "common/shell_word.h"
#include "common/socket_guard.h"
#include "qx/data_sync.h"
#include "qx/event.h"
#include "qx/process.h"
#include "zema/mac.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <net/if.h>
#include <net/if_arp.h>
#include <netinet/in.h>
#include <string_view>
#include <sys/ioctl.h>
#include <sys/socket.h>

static_assert(sizeof(NetDevPrivFlagRecord) == 48 && offsetof(NetDevPrivFlagRecord, usFlag) == 40);
static_assert(sizeof(ifreq) == IFNAMSIZ + (sizeof(void *) == 8 ? 24 : 16));

namespace {

// The file's path in the build: its records are told apart from those of other files by more than a name.
constexpr const char *kFile = "common/userapp/netdevice/qx_netdev_api.cpp";
static_assert(std::string_view(__FILE__).ends_with(kFile));

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, 0, 0, 0, 0);
}

void report(uint32_t line, uint32_t code, uint32_t detail)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, detail, 0, 0, 0);
}

ifreq emptyRequest()
{
    ifreq request;
    std::memset(&request, 0, sizeof request); // all of it: {} may leave the rest of a union as it was
    return request;
}

ifreq requestFor(const char *name)
{
    ifreq request = emptyRequest();
    (void)strncpy_s(request.ifr_name, IFNAMSIZ, name, IFNAMSIZ - 1);
    return request;
}

zema::SocketGuard openSocket()
{
    return zema::SocketGuard(QX_OS_Socket(AF_INET, SOCK_DGRAM, 0));
}

// Issues the one request that a socket was opened for, and closes it whatever comes.
int32_t ask(zema::SocketGuard socket, unsigned long number, ifreq &request)
{
    return QX_OS_IoctlSocket(socket.fd(), number, &request);
}

void traceError(uint32_t line, int32_t error)
{
    (void)QX_PROC_DBG_TraceN(ZEMA_MODULE_ID, kFile, line, "socek error %s\n", QX_OS_StrError(error));
}

} // namespace

// ---- Names, indexes, states ----

uint32_t NETDEV_GetIndexByDevName(const char *pcName, int32_t *plIndex)
{
    if (pcName == nullptr || plIndex == nullptr) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA);
        return ZEMA_ERR_NETDEV_PARA;
    }
    ifreq request = requestFor(pcName);
    zema::SocketGuard socket = openSocket();
    if (!socket) {
        report(__LINE__, ZEMA_ERR_NETDEV_SOCKET);
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    const int32_t result = ask(std::move(socket), SIOCGIFINDEX, request);
    if (result < 0) {
        report(__LINE__, ZEMA_ERR_NETDEV_IOCTL, static_cast<uint32_t>(result));
        return ZEMA_ERR_NETDEV_IOCTL;
    }
    *plIndex = request.ifr_ifindex;
    return ZEMA_OK;
}

uint32_t NETDEV_GetDevNameByIndex(uint32_t ulIndex, char *pcName, uint32_t ulSize)
{
    if (pcName == nullptr) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA);
        return ZEMA_ERR_NETDEV_PARA;
    }
    ifreq request = emptyRequest();
    request.ifr_ifindex = static_cast<int32_t>(ulIndex);
    zema::SocketGuard socket = openSocket();
    if (!socket) {
        report(__LINE__, ZEMA_ERR_NETDEV_SOCKET);
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    const int32_t result = ask(std::move(socket), SIOCGIFNAME, request);
    if (result < 0) {
        report(__LINE__, ZEMA_ERR_NETDEV_IOCTL, static_cast<uint32_t>(result));
        return ZEMA_ERR_NETDEV_IOCTL;
    }
    (void)strncpy_s(pcName, ulSize, request.ifr_name, std::min<uint32_t>(ulSize - 1, IFNAMSIZ - 1));
    return ZEMA_OK;
}

uint32_t NETDEV_GetNetDevStatus(const char *pcName, uint32_t *pulStatus)
{
    if (pcName == nullptr || pulStatus == nullptr) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA);
        return ZEMA_ERR_NETDEV_PARA;
    }
    ifreq request = requestFor(pcName);
    zema::SocketGuard socket = openSocket();
    if (!socket) {
        report(__LINE__, ZEMA_ERR_NETDEV_SOCKET);
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    const int32_t result = ask(std::move(socket), SIOCGIFFLAGS, request);
    if (result < 0) {
        report(__LINE__, ZEMA_ERR_NETDEV_IOCTL, static_cast<uint32_t>(result));
        return ZEMA_ERR_NETDEV_IOCTL;
    }
    *pulStatus = (request.ifr_flags & IFF_UP) != 0 ? ZEMA_NETDEV_UP : ZEMA_NETDEV_NOT_UP;
    return ZEMA_OK;
}

// ---- Addresses ----

namespace {

// What a failed call of an address query leaves behind; the error is the system's at that call.
void reportAddress(uint32_t line, const char *name, int32_t result, int32_t error)
{
    report(line, static_cast<uint32_t>(result), static_cast<uint32_t>(error));
    (void)QX_PROC_DBG_TraceN(ZEMA_MODULE_ID, kFile, line, "%s:socek error %s\n", name, QX_OS_StrError(error));
}

uint32_t ipv4Of(const sockaddr &address)
{
    uint32_t ipv4 = 0;
    std::memcpy(&ipv4, reinterpret_cast<const char *>(&address) + offsetof(sockaddr_in, sin_addr),
                sizeof ipv4);
    return ipv4;
}

} // namespace

uint32_t NETDEV_GetIpAddByDeviceName(const char *pcName, uint32_t *pulAddress, uint32_t *pulMask)
{
    if (pcName == nullptr || pulAddress == nullptr || pulMask == nullptr) {
        return ZEMA_ERR;
    }
    ifreq request = requestFor(pcName);
    zema::SocketGuard socket = openSocket();
    if (!socket) {
        reportAddress(__LINE__, pcName, socket.fd(), QX_OS_GetLastErr());
        return ZEMA_ERR;
    }
    int32_t result = QX_OS_IoctlSocket(socket.fd(), SIOCGIFADDR, &request);
    if (result < 0) {
        const int32_t error = QX_OS_GetLastErr();
        socket.close();
        reportAddress(__LINE__, pcName, result, error);
        return ZEMA_ERR;
    }
    *pulAddress = ipv4Of(request.ifr_addr);
    request = requestFor(pcName);
    result = QX_OS_IoctlSocket(socket.fd(), SIOCGIFNETMASK, &request);
    if (result < 0) {
        const int32_t error = QX_OS_GetLastErr();
        socket.close();
        reportAddress(__LINE__, pcName, result, error);
        return ZEMA_ERR;
    }
    *pulMask = ipv4Of(request.ifr_netmask);
    return ZEMA_OK;
}

uint32_t NETDEV_GetMacByDeviceName(const char *pcName, char *pcMac, uint32_t ulSize)
{
    return NETDEV_GetMacByDeviceName_Inner(pcName, pcMac, ulSize);
}

uint32_t NETDEV_GetMacByDeviceName_Inner(const char *pcName, char *pcMac, uint32_t ulSize)
{
    if (pcName == nullptr || pcMac == nullptr) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA);
        return ZEMA_ERR_NETDEV_PARA;
    }
    if (ulSize < ZEMA_MAC_TEXT_SIZE) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA, ulSize);
        return ZEMA_ERR_NETDEV_PARA;
    }
    ifreq request = requestFor(pcName);
    zema::SocketGuard socket = openSocket();
    if (!socket) {
        report(__LINE__, ZEMA_ERR_NETDEV_SOCKET);
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    const int32_t result = ask(std::move(socket), SIOCGIFHWADDR, request);
    if (result < 0) {
        report(__LINE__, ZEMA_ERR_NETDEV_IOCTL, static_cast<uint32_t>(result));
        return ZEMA_ERR_NETDEV_IOCTL;
    }
    uint8_t mac[ZEMA_MAC_SIZE];
    std::memcpy(mac, request.ifr_hwaddr.sa_data, sizeof mac);
    (void)snprintf_s(pcMac, ulSize, ulSize - 1, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2],
                     mac[3], mac[4], mac[5]);
    return ZEMA_OK;
}

uint32_t NETDEV_SetNetDevMac(const char *pcName, const char *pcMac)
{
    if (pcName == nullptr || pcMac == nullptr) {
        report(__LINE__, ZEMA_ERR_NETDEV_PARA);
        return ZEMA_ERR_NETDEV_PARA;
    }
    ifreq request = requestFor(pcName);
    request.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    const uint32_t converted =
        QX_UTL_MacStrToArr(pcMac, reinterpret_cast<uint8_t *>(request.ifr_hwaddr.sa_data));
    if (converted != ZEMA_OK) {
        report(__LINE__, converted);
        return converted;
    }
    const zema::SocketGuard socket = openSocket();
    if (!socket) {
        const int32_t error = QX_OS_GetLastErr();
        report(__LINE__, ZEMA_ERR_NETDEV_SOCKET, static_cast<uint32_t>(error));
        traceError(__LINE__, error);
        return ZEMA_ERR_NETDEV_SOCKET;
    }
    const int32_t result = QX_OS_IoctlSocket(socket.fd(), SIOCSIFHWADDR, &request);
    if (result < 0) {
        const int32_t error = QX_OS_GetLastErr();
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR_NETDEV_IOCTL, static_cast<uint32_t>(result),
                                   static_cast<uint32_t>(socket.fd()), static_cast<uint32_t>(error), 0);
        traceError(__LINE__, error);
        return ZEMA_ERR_NETDEV_IOCTL;
    }
    return ZEMA_OK;
}

// ---- States set by the system's commands ----

namespace {

constexpr size_t kCommandSize = 256;

} // namespace

uint32_t NETDEV_ConfigDevIntfUpDown(const char *pcName, uint32_t ulUp)
{
    if (pcName == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    zema::ShellWord name(pcName);
    if (!name) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    char command[kCommandSize] = {};
    (void)snprintf_s(command, sizeof command, sizeof command - 1, "ifconfig %s %s", name.escape(),
                     ulUp != 0 ? "up" : "down");
    return QX_OS_ExecShellCmd(command);
}

uint32_t NETDEV_EnableGenerateLinkLocalAddr(const char *pcName, uint32_t ulEnable)
{
    zema::ShellWord name(pcName);
    if (!name) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    char command[kCommandSize] = {};
    (void)snprintf_s(command, sizeof command, sizeof command - 1,
                     "sysctl -w net.ipv6.conf.%s.disable_ipv6=%d", name.escape(), ulEnable != 0 ? 0 : 1);
    (void)QX_OS_ExecShellCmd(command);
    return ZEMA_OK;
}

// ---- Changes that the owner of the data makes ----

uint32_t NETDEV_DeleteNetDeviceByIndex(uint32_t ulIndex)
{
    (void)EventCenter_InvokeEvent(ZEMA_EVENT_NETDEV_DELETED, ulIndex, 0, 0);
    const uint32_t result = DataSync_SyncData(ZEMA_SYNC_NETDEV_DELETE, &ulIndex, sizeof ulIndex);
    if (result != ZEMA_OK) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t NETDEV_SetNetDevPrivFlag(const char *pcName, uint32_t ulFlag)
{
    NetDevPrivFlagRecord record = {};
    (void)strncpy_s(record.acName, sizeof record.acName, pcName, sizeof record.acName - 1);
    record.usFlag = static_cast<uint16_t>(ulFlag);
    const uint32_t result = DataSync_SyncData(ZEMA_SYNC_NETDEV_PRIV_FLAG, &record, sizeof record);
    if (result != ZEMA_OK) {
        report(__LINE__, result);
    }
    return result;
}
