#include "devices.h"

#include "command.h"
#include "device_service.h"
#include "json.h"
#include "qx/host.h"
#include "text.h"
#include "zema/mac.h"
#include "zema/netdev.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ifaddrs.h>
#include <optional>
#include <string>
#include <vector>

namespace zemash {
namespace {

// What the system says there is. A device without an address is not asked for it: each such question would
// leave a record of a failure that is none.
struct Listed {
    std::string name;
    bool hasAddress;
};

struct Device {
    std::string name;
    std::optional<int32_t> index;
    std::optional<bool> isUp;
    std::optional<std::string> mac;
    std::optional<std::string> address;
    std::optional<std::string> mask;
    std::optional<uint32_t> flag;
};

std::optional<std::vector<Listed>> listDevices()
{
    ifaddrs *addresses = nullptr;
    if (getifaddrs(&addresses) != 0) {
        return std::nullopt;
    }
    std::vector<Listed> listed;
    for (const ifaddrs *each = addresses; each != nullptr; each = each->ifa_next) {
        if (each->ifa_addr != nullptr && each->ifa_addr->sa_family == AF_PACKET) { // one a device
            listed.push_back({each->ifa_name, false});
        }
    }
    // An address under another label than the device's name is not what the kernel answers with.
    for (const ifaddrs *each = addresses; each != nullptr; each = each->ifa_next) {
        const auto found = std::ranges::find(listed, each->ifa_name, &Listed::name);
        if (found != listed.end() && each->ifa_addr != nullptr) {
            found->hasAddress |= each->ifa_addr->sa_family == AF_INET;
        }
    }
    freeifaddrs(addresses);
    return listed;
}

std::string dotted(uint32_t address)
{
    std::array<char, INET_ADDRSTRLEN> text{};
    inet_ntop(AF_INET, &address, text.data(), text.size());
    return text.data();
}

// The flag that the main process keeps; none when it has none or cannot be asked.
std::optional<uint32_t> askFlag(const std::string &name)
{
    static bool answers = true; // a process that does not costs its time once
    uint32_t flag = 0;
    answers = answers && QxHost_CallRpc(tools::kDeviceFlagProcedure, 0, name.c_str(), &flag) == QX_OK;
    return answers && (flag & tools::kHasFlag) != 0 ? std::optional(flag & 0xFFFFU) : std::nullopt;
}

// A device may go away meanwhile: what is not learnt is left out.
Device inspect(const Listed &listed)
{
    Device device;
    device.name = listed.name;
    const char *const name = listed.name.c_str();
    int32_t index = 0;
    if (NETDEV_GetIndexByDevName(name, &index) == ZEMA_OK) {
        device.index = index;
    }
    uint32_t status = 0;
    if (NETDEV_GetNetDevStatus(name, &status) == ZEMA_OK) {
        device.isUp = status == ZEMA_NETDEV_UP;
    }
    std::array<char, ZEMA_MAC_TEXT_SIZE> mac{};
    if (NETDEV_GetMacByDeviceName(name, mac.data(), mac.size()) == ZEMA_OK) {
        device.mac = mac.data();
    }
    uint32_t address = 0;
    uint32_t mask = 0;
    if (listed.hasAddress && NETDEV_GetIpAddByDeviceName(name, &address, &mask) == ZEMA_OK) {
        device.address = dotted(address);
        device.mask = dotted(mask);
    }
    device.flag = askFlag(listed.name);
    return device;
}

std::string statusOf(const Device &device)
{
    return !device.isUp ? "-" : *device.isUp ? "up" : "down";
}

template <typename Number>
std::string numberOr(const std::optional<Number> &number, const char *otherwise)
{
    return number ? std::to_string(*number) : otherwise;
}

std::string jsonOr(const std::optional<std::string> &text)
{
    return text ? quoted(*text) : "null";
}

std::string jsonOf(const Device &device)
{
    return JsonObject()
        .text("name", device.name)
        .json("index", numberOr(device.index, "null"))
        .json("status", device.isUp ? quoted(statusOf(device)) : "null")
        .json("mac", jsonOr(device.mac))
        .json("address", jsonOr(device.address))
        .json("mask", jsonOr(device.mask))
        .json("flag", numberOr(device.flag, "null"))
        .str();
}

void printRow(const std::string &name, const std::string &index, const std::string &status,
              const std::string &mac, const std::string &address, const std::string &mask,
              const std::string &flag)
{
    std::printf("%-15s %5s %-6s %-17s %-15s %-15s %s\n", name.c_str(), index.c_str(), status.c_str(),
                mac.c_str(), address.c_str(), mask.c_str(), flag.c_str());
}

} // namespace

int showDevices(bool json)
{
    const std::optional<std::vector<Listed>> listed = listDevices();
    if (!listed) {
        std::fprintf(stderr, "zemash: cannot list the devices: %s\n", std::strerror(errno));
        return kNoAnswer;
    }
    if (!json) {
        printRow("DEVICE", "INDEX", "STATUS", "MAC", "ADDRESS", "MASK", "FLAG");
    }
    for (const Listed &each : *listed) {
        const Device device = inspect(each);
        if (json) {
            std::puts(jsonOf(device).c_str());
        } else {
            printRow(tools::harmless(device.name), numberOr(device.index, "-"), statusOf(device),
                     device.mac.value_or("-"), device.address.value_or("-"), device.mask.value_or("-"),
                     numberOr(device.flag, "-"));
        }
    }
    return kAnswered;
}

} // namespace zemash
