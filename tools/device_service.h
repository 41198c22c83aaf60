// What the main process does for network devices at other processes' request. All on the thread that
// dispatches.
#pragma once

#include <cstdint>

namespace tools {

/*
 * Answers the requests of zema/netdev.h: ZEMA_SYNC_NETDEV_DELETE deletes the device in the kernel, which
 * takes the right to (CAP_NET_ADMIN); ZEMA_SYNC_NETDEV_PRIV_FLAG keeps the flag of a device as long as that
 * device is there. 0 when done; QX_ERR for another code, a size that is not the request's, and a name or
 * index that no device can have; QX_ERR_NOT_FOUND when there is no such device; ZEMA_ERR_NETDEV_SOCKET and
 * ZEMA_ERR_NETDEV_IOCTL when the kernel could not be asked, or refused.
 */
uint32_t deviceService(uint32_t code, const void *request, uint32_t size);

// The remote procedure that tells a device's flag by its name: kHasFlag and the flag, or 0 when none was set.
constexpr uint32_t kDeviceFlagProcedure = 0x5A444647;
constexpr uint32_t kHasFlag = 0x10000;

// Registers it; 0, or why it does not stand.
uint32_t serveDeviceFlags();

} // namespace tools
