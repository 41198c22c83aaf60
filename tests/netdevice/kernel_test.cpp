// With nothing replaced: the kernel's devices, compared with what ip says of them, and processes.
#include "device_service.h"
#include "qx/host.h"
#include "tests/support/namespaces.h"
#include "tests/support/processes.h"
#include "zema/netdev.h"
#include "zema/process.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <filesystem>
#include <net/if.h>
#include <pty.h>
#include <sstream>

using namespace zema::test;

namespace {

std::string outputOf(const std::string &command)
{
    FILE *const output = popen(command.c_str(), "r"); // NOLINT(cert-env33-c): the programs are the oracles
    std::string text;
    for (int c = std::getc(output); c != EOF; c = std::getc(output)) {
        text += static_cast<char>(c);
    }
    EXPECT_EQ(pclose(output), 0) << command;
    return text;
}

// The devices as ip knows them, a line each: index, name, whether it is up, MAC, first address and prefix
// length.
std::string asIpSays()
{
    return outputOf(
        "ip -j addr show | jq -r '.[] | \"\\(.ifindex) \\(.ifname) \\(.flags | index(\"UP\") != null) "
        "\\(.address | ascii_upcase) \\([.addr_info[] | select(.family == \"inet\") | "
        "\"\\(.local)/\\(.prefixlen)\"][0] // \"-\")\"'");
}

std::string asWeSay(int32_t index)
{
    char name[16] = "?";
    char mac[18] = "?";
    char sameMac[18] = "";
    uint8_t bytes[6] = {};
    int32_t same = 0;
    uint32_t status = 9;
    uint32_t address = 0;
    uint32_t mask = 0;
    EXPECT_EQ(NETDEV_GetDevNameByIndex(static_cast<uint32_t>(index), name, sizeof name), 0U) << index;
    EXPECT_EQ(NETDEV_GetIndexByDevName(name, &same) + NETDEV_GetNetDevStatus(name, &status), 0U) << name;
    EXPECT_EQ(NETDEV_GetMacByDeviceName(name, mac, sizeof mac), 0U) << name;
    EXPECT_EQ(get_dev_mac(name, bytes), 1) << name;
    std::snprintf(sameMac, sizeof sameMac, "%02X:%02X:%02X:%02X:%02X:%02X", bytes[0], bytes[1], bytes[2],
                  bytes[3], bytes[4], bytes[5]);
    EXPECT_STREQ(mac, sameMac);
    const bool hasAddress = NETDEV_GetIpAddByDeviceName(name, &address, &mask) == 0;
    return std::to_string(same) + " " + name + (status == 0 ? " true " : " false ") + mac + " " +
           (hasAddress ? inet_ntoa({address}) + ("/" + std::to_string(__builtin_popcount(mask))) : "-") +
           "\n";
}

void expectWhatIpSays()
{
    const std::string expected = asIpSays();
    std::istringstream lines(expected);
    std::string ours;
    for (std::string line; std::getline(lines, line);) {
        ours += asWeSay(std::stoi(line));
    }
    EXPECT_EQ(ours, expected);
    EXPECT_FALSE(expected.empty());
}

TEST(Kernel, HasWhatWeSayAndDoesWhatWeAsk)
{
    inNamespaces("ip jq ifconfig sysctl", [] {
        ASSERT_TRUE(
            runs("ip link add name eth0 type veth peer name fifteen-letters && "
                 "ip addr add 192.168.1.1/24 dev eth0 && ip addr add 10.1.2.3/30 dev fifteen-letters && "
                 "ip link set lo up && ip link set eth0 up && ip link add name br0.7 type bridge"));
        expectWhatIpSays();
        int32_t index = -7;
        EXPECT_EQ(NETDEV_GetIndexByDevName("fifteen-lettersX", &index), 0U) << "16 letters are cut to 15";
        EXPECT_EQ(static_cast<uint32_t>(index), if_nametoindex("fifteen-letters"));

        EXPECT_EQ(NETDEV_SetNetDevMac("fifteen-lettersX", "02:1a:2B:3c:4D:5e"), 0U);
        EXPECT_EQ(NETDEV_SetNetDevMac("eth0", "01:00:00:00:00:00"), ZEMA_ERR_NETDEV_IOCTL)
            << "a group's address";
        EXPECT_EQ(NETDEV_ConfigDevIntfUpDown("fifteen-letters", 1) + NETDEV_ConfigDevIntfUpDown("eth0", 0),
                  0U);
        expectWhatIpSays();
        EXPECT_NE(asIpSays().find("fifteen-letters true 02:1A:2B:3C:4D:5E"), std::string::npos);
        EXPECT_NE(NETDEV_ConfigDevIntfUpDown("eth9; touch /var/harm; true", 1), 0U);
        EXPECT_FALSE(std::filesystem::exists("/var/harm"));

        for (const uint32_t enable : {0U, 1U}) {
            EXPECT_EQ(NETDEV_EnableGenerateLinkLocalAddr("eth0", enable), 0U);
            EXPECT_EQ(outputOf("cat /proc/sys/net/ipv6/conf/eth0/disable_ipv6"), enable == 0 ? "1\n" : "0\n");
        }
        EXPECT_EQ(NETDEV_EnableGenerateLinkLocalAddr("eth9", 1), 0U) << "whatever the command says";
    });
}

TEST(Kernel, ServesRequestsAboutDevices)
{
    inNamespaces("ip jq", [] {
        const auto request = [](uint32_t code, const std::string &bytes) {
            return tools::deviceService(code, bytes.data(), static_cast<uint32_t>(bytes.size()));
        };
        const auto indexOf = [](const char *device) {
            const uint32_t index = if_nametoindex(device);
            return std::string(reinterpret_cast<const char *>(&index), sizeof index);
        };
        const auto setting = [](std::string name, const std::string &flag) {
            name.resize(40);
            return name + flag + std::string(6, '\0');
        };
        const auto flagOf = [](const char *name) {
            uint32_t flag = 9;
            EXPECT_EQ(QxHost_CallRpc(tools::kDeviceFlagProcedure, 0, name, &flag), 0U);
            return flag;
        };
        ASSERT_EQ(setenv("ZEMA_RUNTIME_DIR", "/var/run", 1), 0);
        ASSERT_TRUE(runs("mkdir -m 700 /var/run && ip link add name eth0 type veth peer name eth1"));
        const std::tuple<const char *, uint32_t, std::string, uint32_t> rows[] = {
            {"a flag", 7, setting("eth0", "ab"), 0},
            {"another", 7, setting("eth0", "cd"), 0},
            {"of no device", 7, setting("eth9", "ab"), QX_ERR_NOT_FOUND},
            {"of a name that ends nowhere", 7, std::string(48, 'e'), QX_ERR},
            {"of a name too long", 7, setting("eth0567890123456", "ab"), QX_ERR},
            {"of a path", 7, setting("../x", "ab"), QX_ERR},
            {"of no name", 7, setting("", "ab"), QX_ERR},
            {"a byte short", 7, setting("eth0", "a"), QX_ERR},
            {"no request of ours", 8, setting("eth0", "ab"), QX_ERR},
            {"index 0", 30, std::string(4, '\0'), QX_ERR},
            {"a negative index", 30, std::string(4, '\xFF'), QX_ERR},
            {"an index too wide", 30, indexOf("eth0") + '\0', QX_ERR},
            {"an index of no device", 30, "\x7F\x7F\x7F\x7F", QX_ERR_NOT_FOUND},
            {"a device that stays", 30, indexOf("lo"), ZEMA_ERR_NETDEV_IOCTL},
        };
        EXPECT_EQ(tools::serveDeviceFlags(), 0U);
        for (const auto &[reason, code, bytes, result] : rows) {
            EXPECT_EQ(request(code, bytes), result) << reason;
        }
        EXPECT_EQ(tools::deviceService(7, nullptr, 48), QX_ERR);
        EXPECT_EQ(flagOf("eth0"), tools::kHasFlag | ('d' << 8U) | 'c');
        const size_t before = filesIn("/proc/self/fd");
        EXPECT_EQ(request(30, indexOf("eth1")), 0U);
        EXPECT_EQ(filesIn("/proc/self/fd"), before);
        EXPECT_EQ(if_nametoindex("eth0") + if_nametoindex("eth1"), 0U) << "and its peer with it";
        ASSERT_TRUE(
            runs("ip link add name eth0 type veth peer name eth1 && ip addr add 10.1.2.3/30 dev eth0"));
        EXPECT_EQ(flagOf("eth0"), 0U) << "another device of the name";
        EXPECT_EQ(QxHost_Leave(), QX_OK);
        const char *const filter =
            R"jq( | jq -r '"\(.index) \(.name) \(.status == "up") \(.mac) \(.address // "-")"')jq";
        EXPECT_EQ(
            outputOf(EMULATOR " " ZEMASH " devices --json" + std::string(filter) + " | sed 's,2.3$,2.3/30,'"),
            asIpSays());
    });
}

// ---- Processes ----

uint32_t lookUp(const std::string &process, const std::string &keyword)
{
    uint32_t pid = 0;
    return QX_UTL_GetPid(process.c_str(), keyword.c_str(), &pid) == 0 ? pid : 0;
}

// On a terminal of this process's own, for ps lists what runs on one. Their arguments are in no other column.
std::array<uint32_t, 3> startProcesses()
{
    int master = -1;
    int slave = -1;
    EXPECT_TRUE(setsid() > 0 && openpty(&master, &slave, nullptr, nullptr, nullptr) == 0);
    EXPECT_EQ(ioctl(slave, TIOCSCTTY, 0), 0);
    std::array<uint32_t, 3> pids{};
    for (const size_t i : {0U, 1U, 2U}) {
        const pid_t pid = fork();
        if (pid == 0) {
            execl("/bin/sleep", i == 2 ? "upsd" : "wanmgr", i == 0 ? "31s" : "32s", nullptr);
            _exit(1);
        }
        pids[i] = static_cast<uint32_t>(pid);
    }
    return pids;
}

TEST(Kernel, ListsProcessesToTheRealShell)
{
    inNamespaces("ps grep", [] {
        ASSERT_TRUE(runs("mkdir /var/here") && chdir("/var/here") == 0);
        const auto pids = startProcesses();
        EXPECT_TRUE(eventually([] { return lookUp("wanmgr", "31s") != 0 && lookUp("wanmgr", "32s") != 0; }));
        EXPECT_EQ(lookUp("wanmgr 3", "3[2]s"), pids[1]) << "a blank is part of a pattern";
        EXPECT_EQ(lookUp("upsd", "32s") + lookUp("wanmgr", "33s"), 0U) << "a line with ps in it, and none";
        inThreads(2, [&](uint32_t i) {
            for (int round = 0; round < 10; ++round) {
                EXPECT_EQ(lookUp("wanmgr", i == 0 ? "31s" : "32s"), pids[i]);
            }
        });
        std::string texts[6]; // with every byte but "/", which is no part of a file's name
        for (int byte = 1; byte < 256; ++byte) {
            texts[byte % 6] += byte == '/' ? '.' : static_cast<char>(byte);
        }
        for (const std::string &text : texts) {
            EXPECT_EQ(lookUp(text, "k") + lookUp("p", text), 0U);
        }
        EXPECT_EQ(lookUp("$(touch a)`touch b`;touch c>d&touch e\ntouch f", "'\\'';touch g;'"), 0U);
        EXPECT_TRUE(std::filesystem::is_empty("/var/here")) << "the shell obeyed a name";
        EXPECT_EQ(outputOf("ls /var"), "here\n") << "a list was written and not removed";
        for (const uint32_t pid : pids) {
            kill(static_cast<pid_t>(pid), SIGKILL);
        }
    });
}

} // namespace
