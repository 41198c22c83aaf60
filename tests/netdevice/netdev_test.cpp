// Network devices, each platform call watched: the kernel's and the owner's answers are the test's.
#include "tests/support/platform_double_system.h"
#include "zema/netdev.h"

using namespace zema::test;
using namespace std::string_literals;

namespace {

constexpr uint32_t kPara = ZEMA_ERR_NETDEV_PARA;
constexpr uint32_t kSocket = ZEMA_ERR_NETDEV_SOCKET;
constexpr uint32_t kIoctl = ZEMA_ERR_NETDEV_IOCTL;
constexpr const char *kLong = "0123456789abcdefgh";
const std::string longest(300, 'x');

alignas(8) char out[32]; // what the calls yield
int32_t *const number = reinterpret_cast<int32_t *>(out);
uint32_t *const word = reinterpret_cast<uint32_t *>(out);

struct Failure {
    const char *function = "";
    int64_t result = -1;
    uint32_t nth = 1;
};

template <typename Number>
std::string bytesOf(Number value)
{
    return {reinterpret_cast<const char *>(&value), sizeof value};
}

// A name in a field of a fixed size, and what stands behind it.
std::string field(std::string name, size_t size, const std::string &rest)
{
    name.resize(size);
    return name + rest;
}

class Netdev : public PlatformTest {
protected:
    using Function = uint32_t (*)();

    // A call's result, what `out` then begins with (the rest stays as it was) and all that the call did.
    void check(const std::string &reason, Function call, const Failure &failure, uint32_t result,
               const std::string &yield, const std::string &calls)
    {
        platform.reset();
        platform.fail(failure.function, failure.nth, failure.result);
        std::fill_n(out, sizeof out, '#');
        EXPECT_EQ(call(), result) << reason;
        EXPECT_EQ(std::string(out, sizeof out), yield + std::string(sizeof out - yield.size(), '#'))
            << reason;
        EXPECT_EQ(textOf(platform.journal), calls) << reason;
        for (const auto &[file, line] : platform.places) {
            EXPECT_EQ(file, "common/userapp/netdevice/qx_netdev_api.cpp") << line;
        }
    }
};

TEST_F(Netdev, AsksTheKernelOnce)
{
    const std::string byIndex = "8910 " + field("", 16, bytesOf(0x80000005U));
    const std::string name = "wan-0123456789a\0"s;
    const std::string ether = "\1\0\0\x1a\x2b\x3c\x4d\x5e"s;
    const std::string text = "00:1A:2B:3C:4D:5E\0"s;
    const struct {
        const char *reason;
        Function call;
        std::string request;
        std::string answer;
        std::string yield;
    } queries[] = {
        {"an index", [] { return NETDEV_GetIndexByDevName("eth0", number); }, "8933 eth0", "\1\2\3\4",
         "\1\2\3\4"},
        {"cut", [] { return NETDEV_GetIndexByDevName(kLong, number); }, "8933 0123456789abcde", "1234",
         "1234"},
        {"a name", [] { return NETDEV_GetDevNameByIndex(0x80000005U, out, 32); }, byIndex, name, name},
        {"no end", [] { return NETDEV_GetDevNameByIndex(0x80000005U, out, 32); }, byIndex,
         "wan-0123456789abb", name},
        {"cut", [] { return NETDEV_GetDevNameByIndex(0x80000005U, out, 4); }, byIndex, name, "wan\0"s},
        {"to nothing", [] { return NETDEV_GetDevNameByIndex(0x80000005U, out, 1); }, byIndex, name, "\0"s},
        {"no room", [] { return NETDEV_GetDevNameByIndex(0x80000005U, out, 0); }, byIndex, name, ""},
        {"up", [] { return NETDEV_GetNetDevStatus("eth0", word); }, "8913 eth0", "\x43\x10", bytesOf(0)},
        {"down", [] { return NETDEV_GetNetDevStatus(kLong, word); }, "8913 0123456789abcde", "\x42\x10",
         bytesOf(1)},
        {"a MAC", [] { return NETDEV_GetMacByDeviceName("eth0", out, 18); }, "8927 eth0", ether, text},
        {"in any room", [] { return NETDEV_GetMacByDeviceName("eth0", out, UINT32_MAX); }, "8927 eth0", ether,
         text},
    };
    for (const auto &row : queries) {
        System::instance().answer = row.answer;
        const std::string asked = "Socket 2 2 0; IoctlSocket 7 " + row.request + "; CloseSocket 7";
        check(row.reason, row.call, {}, 0, row.yield, asked);
        check("not 0", row.call, {"QX_OS_IoctlSocket", 1}, 0, row.yield, asked);
        check("standard input's number", row.call, {"QX_OS_Socket", 0}, 0, row.yield,
              "Socket 2 2 0; IoctlSocket 0 " + row.request + "; CloseSocket 0");
        check(row.reason, row.call, {"QX_OS_Socket", -5}, kSocket, "", "Socket 2 2 0; record f730100a");
        check(row.reason, row.call, {"QX_OS_IoctlSocket", -2}, kIoctl, "",
              asked + "; record f7301015 fffffffe");
    }
    const Function small = [] { return NETDEV_GetMacByDeviceName("eth0", out, 17); };
    check("a byte too small", small, {}, kPara, "", "record f7301001 11");
    for (const Function call : {+[] { return NETDEV_GetIndexByDevName(nullptr, number); },
                                +[] { return NETDEV_GetIndexByDevName("eth0", nullptr); },
                                +[] { return NETDEV_GetDevNameByIndex(1, nullptr, 32); },
                                +[] { return NETDEV_GetNetDevStatus(nullptr, word); },
                                +[] { return NETDEV_GetNetDevStatus("eth0", nullptr); },
                                +[] { return NETDEV_GetMacByDeviceName(nullptr, out, 18); },
                                +[] { return NETDEV_GetMacByDeviceName_Inner("eth0", nullptr, 18); }}) {
        check("a missing argument", call, {}, kPara, "", "record f7301001");
    }
    EXPECT_EQ(platform.places.size(), 13U) << "each place of recording tells itself apart";
}

TEST_F(Netdev, AsksForAddressAndMaskThroughOneSocket)
{
    const Function query = [] { return NETDEV_GetIpAddByDeviceName(kLong, word, word + 1); };
    const std::string address = "Socket 2 2 0; IoctlSocket 7 8915 0123456789abcde; ";
    const std::string mask = address + "IoctlSocket 7 891b 0123456789abcde; ";
    const std::string trace = " 13; trace 31 0123456789abcdefgh:socek error No such device\n";
    System::instance().answer = "\2\0\0\0\xc0\xa8\1\1"s; // a family, a port, 192.168.1.1
    for (const uint32_t nth : {0U, 1U, 2U}) {
        check("both", query, {"QX_OS_IoctlSocket", 1, nth}, 0, "\xc0\xa8\1\1\xc0\xa8\1\1",
              mask + "CloseSocket 7");
    }
    for (const Function call : {+[] { return NETDEV_GetIpAddByDeviceName(nullptr, word, word); },
                                +[] { return NETDEV_GetIpAddByDeviceName("", nullptr, word); },
                                +[] { return NETDEV_GetIpAddByDeviceName("", word, nullptr); }}) {
        check("a missing argument", call, {}, 1, "", "");
    }
    check("no socket", query, {"QX_OS_Socket", -3}, 1, "", "Socket 2 2 0; record fffffffd" + trace);
    check("no address to be had", query, {"QX_OS_IoctlSocket", -4}, 1, "",
          address + "CloseSocket 7; record fffffffc" + trace);
    check("no mask: the address stays", query, {"QX_OS_IoctlSocket", -1, 2}, 1, "\xc0\xa8\1\1",
          mask + "CloseSocket 7; record ffffffff" + trace);
    EXPECT_EQ(platform.places.size(), 3U);
}

TEST_F(Netdev, SetsAnAddressWithoutJudgingIt)
{
    const Function set = [] { return NETDEV_SetNetDevMac("eth0", "00:1a:2B:3c:4D:5e"); };
    const std::string ask = "Socket 2 2 0; IoctlSocket 7 8924 ";
    const std::string asked = ask + field("eth0", 16, "\1\0\0\x1a\x2b\x3c\x4d\x5e"s);
    const std::string part = ask + field("0123456789abcde", 16, "\1\0\x1a\x2b"s);
    const std::string trace = " 13; trace 31 socek error No such device\n";
    check("a whole address", set, {}, 0, "", asked + "; CloseSocket 7");
    check("not 0", set, {"QX_OS_IoctlSocket", 1}, 0, "", asked + "; CloseSocket 7");
    const Function setPart = [] { return NETDEV_SetNetDevMac(kLong, "1a:2b"); };
    const Function noName = [] { return NETDEV_SetNetDevMac(nullptr, "0"); };
    const Function noText = [] { return NETDEV_SetNetDevMac("eth0", nullptr); };
    check("part of one", setPart, {}, 0, "", part + "; CloseSocket 7");
    check("no name", noName, {}, kPara, "", "record f7301001");
    check("no text", noText, {}, kPara, "", "record f7301001");
    check("no socket", set, {"QX_OS_Socket"}, kSocket, "", "Socket 2 2 0; record f730100a" + trace);
    check("refused", set, {"QX_OS_IoctlSocket", -9}, kIoctl, "",
          asked + "; record f7301015 fffffff7 7" + trace + "; CloseSocket 7");
}

TEST_F(Netdev, RunsTheSystemsCommands)
{
    const Function up = [] { return NETDEV_ConfigDevIntfUpDown("eth0", 256); };
    const Function enable = [] { return NETDEV_EnableGenerateLinkLocalAddr("eth0", 2); };
    const std::string sysctl = "sysctl -w net.ipv6.conf.";
    const std::tuple<Function, const char *, std::string, uint32_t, uint32_t> rows[] = {
        {up, "9", "ifconfig eth0 up", 0, 0},
        {up, "9", "ifconfig eth0 up", 42, 42},
        {[] { return NETDEV_ConfigDevIntfUpDown("br.4094", 0); }, "f", "ifconfig br.4094 down", 0, 0},
        {[] { return NETDEV_ConfigDevIntfUpDown("a;id", 1); }, "9", "ifconfig a\\;id up", 0, 0},
        {[] { return NETDEV_ConfigDevIntfUpDown(longest.c_str(), 1); }, "259",
         "ifconfig " + longest.substr(54), 0, 0},
        {enable, "9", sysctl + "eth0.disable_ipv6=0", 0, 0},
        {enable, "9", sysctl + "eth0.disable_ipv6=0", 42, 0},
        {[] { return NETDEV_EnableGenerateLinkLocalAddr("e$0", 0); }, "7", sysctl + "e\\$0.disable_ipv6=1", 0,
         0},
        {[] { return NETDEV_EnableGenerateLinkLocalAddr(nullptr, 1); }, "1", sysctl + ".disable_ipv6=0", 0,
         0},
    };
    for (const auto &[call, size, command, status, result] : rows) {
        check(command, call, {"QX_OS_ExecShellCmd", status}, result, "",
              "MemMallocSet "s + size + "; ExecShellCmd " + command + "; MemFreeD");
    }
    check("no memory", up, {"QX_OS_MemMallocSet"}, 1, "", "MemMallocSet 9; record 1");
    check("no memory", enable, {"QX_OS_MemMallocSet"}, 1, "", "MemMallocSet 9; record 1");
    const Function noName = [] { return NETDEV_ConfigDevIntfUpDown(nullptr, 1); };
    check("no name", noName, {}, 1, "", "record 1");
    EXPECT_EQ(platform.places.size(), 3U);
}

TEST_F(Netdev, AsksTheOwnerOfTheData)
{
    const Function remove = [] { return NETDEV_DeleteNetDeviceByIndex(0x01020304); };
    const Function flag = [] { return NETDEV_SetNetDevPrivFlag(longest.c_str(), 0xABCD0102U); };
    const std::string removed = "EventCenter_InvokeEvent 2292 1020304 0 0; DataSync_SyncData 1e \4\3\2\1";
    const std::string rest = field("\2\1", 8, "");
    const std::string set = "DataSync_SyncData 7 " + field(longest.substr(0, 31), 40, rest);
    check("the event first", remove, {}, 0, "", removed);
    check("whatever becomes of it", remove, {"EventCenter_InvokeEvent", 9}, 0, "", removed);
    check("refused", remove, {"DataSync_SyncData", 6}, 6, "", removed + "; record 6");
    check("31 characters and 16 bits", flag, {}, 0, "", set);
    const Function noName = [] { return NETDEV_SetNetDevPrivFlag(nullptr, 0x102); };
    check("no name", noName, {}, 0, "", "DataSync_SyncData 7 " + field("", 40, rest));
    check("refused", flag, {"DataSync_SyncData", 6}, 6, "", set + "; record 6");
    EXPECT_EQ(platform.places.size(), 2U);
}

} // namespace
