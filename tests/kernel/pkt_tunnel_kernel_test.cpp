// The tunnel against a real kernel: runs as root of a machine of its own, which ./dev kernel boots, with the
// module's file as first argument.
#include "zema/pkt_tunnel.h"

#include "examples/qxpkt_module/qxpkt.h"
#include "tests/support/processes.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/netlink.h>
#include <random>
#include <sys/socket.h>
#include <sys/syscall.h>

namespace {

using zema::test::inChild;
using zema::test::inThreads;
using zema::test::Shared;

const char *gModule = "qxpkt.ko";
thread_local std::array<uint8_t, PKT_TUNNEL_BUFFER_SIZE> gBuffer;

bool insertModule()
{
    const int file = open(gModule, O_RDONLY | O_CLOEXEC);
    const bool done = syscall(SYS_finit_module, file, "", 0) == 0;
    close(file);
    return done;
}

bool removeModule()
{
    return syscall(SYS_delete_module, "qxpkt", O_NONBLOCK) == 0;
}

struct Received {
    uint32_t result;
    std::string packet;

    bool operator==(const Received &) const = default;
};

// A link that waits for no answer longer than five seconds.
class Link {
public:
    explicit Link(uint32_t type) : made_(QX_PKT_TUNNEL_CreateLinkSocket(type, &link))
    {
        const timeval patience = {.tv_sec = 5, .tv_usec = 0};
        setsockopt(link.lSockFd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    }
    ~Link()
    {
        if (made_ == ZEMA_OK) {
            EXPECT_EQ(QX_PKT_TUNNEL_ReleaseLinkSocket(0, &link), ZEMA_OK);
        }
    }
    Link(const Link &) = delete;
    Link &operator=(const Link &) = delete;

    bool made() const { return made_ == ZEMA_OK; }
    uint32_t send(const std::string &packet) const
    {
        return QX_PKT_TUNNEL_SendPkg(&link, packet.data(), static_cast<uint32_t>(packet.size()));
    }
    Received receive() const
    {
        uint8_t *packet = nullptr;
        uint32_t length = 0;
        const uint32_t result =
            QX_PKT_TUNNEL_RecvPkgBuf(&link, gBuffer.data(), gBuffer.size(), &packet, &length);
        return {result, packet == nullptr ? "" : std::string(reinterpret_cast<char *>(packet), length)};
    }
    bool echoes(const std::string &packet) const
    {
        return send(packet) == ZEMA_OK && receive() == Received{ZEMA_OK, packet};
    }
    // The kernel answers with its error's number and the message that it refuses.
    bool isRefused(const std::string &packet, int error) const
    {
        const auto size = static_cast<uint32_t>(16 + 4 + 28 + (packet.size() + 3) / 4 * 4);
        return send(packet) == ZEMA_OK && receive() == Received{size, ""} && lastError() == error;
    }
    static int lastError()
    {
        int error = 0;
        std::memcpy(&error, gBuffer.data() + sizeof(nlmsghdr), sizeof error);
        return -error;
    }

    PktTunnelLink link = {7, 7, -1, 7};

private:
    uint32_t made_;
};

std::string numbered(uint32_t number, uint32_t second, size_t size)
{
    std::string packet(size, 'p');
    std::memcpy(packet.data(), &number, sizeof number);
    std::memcpy(packet.data() + sizeof number, &second, sizeof second);
    return packet;
}

std::string burstOf(uint32_t count, size_t size)
{
    return numbered(QXPKT_BURST_MAGIC, count, size);
}

class Kernel : public zema::test::Scratch {
protected:
    Kernel() { EXPECT_TRUE(insertModule()) << strerror(errno); }
    ~Kernel() override { EXPECT_TRUE(removeModule()) << strerror(errno); }
};

TEST_F(Kernel, ALinkWithoutTheFamilyIsRefusedAndLeavesNoDescriptor)
{
    ASSERT_TRUE(removeModule());
    const int before = dup(0);
    for (int i = 0; i < 100; ++i) {
        const Link link(3);
        EXPECT_FALSE(link.made());
        EXPECT_EQ(link.link.ulFamilyId, 7U);
    }
    const int after = dup(0);
    EXPECT_EQ(after, before + 1);
    close(before);
    close(after);
    ASSERT_TRUE(insertModule());
}

TEST_F(Kernel, EveryLinkTypeBelow30CarriesPacketsOfEverySize)
{
    for (const uint32_t type : {0U, 3U, 29U}) {
        const Link link(type);
        ASSERT_TRUE(link.made()) << type;
        for (const size_t size : {0U, 1U, 5U, 2047U, 2048U}) {
            EXPECT_TRUE(link.echoes(std::string(size, 'p'))) << type << ": " << size;
        }
        EXPECT_EQ(link.send(std::string(2049, 'p')), ZEMA_ERR) << type;
        EXPECT_TRUE(link.echoes("nothing of the refused packet is underway")) << type;
    }
    EXPECT_FALSE(Link(30).made());
    Link link(29);
    link.link.ulLinkType = 30;
    EXPECT_TRUE(link.isRefused("", ERANGE));
}

TEST_F(Kernel, ABurstArrivesInOrderAndAFullQueueIsTold)
{
    const Link link(1);
    for (const uint32_t count : {0U, 1U, 60U}) {
        EXPECT_EQ(link.send(burstOf(count, 100)), ZEMA_OK);
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(link.receive(), (Received{ZEMA_OK, numbered(i, count, 100)})) << i;
        }
    }
    EXPECT_EQ(link.send(burstOf(QXPKT_BURST_MAX, 2048)), ZEMA_OK);
    EXPECT_EQ(link.receive(), (Received{UINT32_MAX, ""})) << "packets were lost, and the link says so";
    for (uint32_t i = 0; i < 10; ++i) {
        ASSERT_EQ(link.receive(), (Received{ZEMA_OK, numbered(i, QXPKT_BURST_MAX, 2048)})) << i;
    }
    const Link fresh(1);
    EXPECT_TRUE(fresh.isRefused(burstOf(QXPKT_BURST_MAX + 1, 8), ERANGE));
}

TEST_F(Kernel, TwoProcessesOnTwoLinkTypesGetTheirOwnPackets)
{
    const Shared<std::atomic<uint32_t>> ready;
    const auto talk = [&](uint32_t type) {
        const Link link(type);
        ++*ready;
        bool right = zema::test::eventually([&] { return *ready == 2; });
        for (uint32_t i = 0; i < 500; ++i) {
            right = right && link.echoes(numbered(type, i, 8 + i));
        }
        return right;
    };
    inThreads(2, [&](uint32_t n) { EXPECT_TRUE(inChild([&] { return talk(4 + n); })); });
}

TEST_F(Kernel, ALinkTypeIsItsLastSocketsAsLongAsThatLives)
{
    const Link first(2);
    EXPECT_TRUE(first.echoes("first"));
    PktTunnelLink stale{};
    {
        const Link second(2);
        EXPECT_TRUE(second.echoes("second"));
        EXPECT_TRUE(first.isRefused("late", EPERM));
        sockaddr_nl own{};
        socklen_t size = sizeof own;
        getsockname(second.link.lSockFd, reinterpret_cast<sockaddr *>(&own), &size);
        stale = second.link;
        stale.ulPortId = own.nl_pid;
    }
    // A later socket with the same port does not inherit the link type.
    Link heir(9);
    const int fd = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_GENERIC);
    const sockaddr_nl same = {.nl_family = AF_NETLINK, .nl_pad = 0, .nl_pid = stale.ulPortId, .nl_groups = 0};
    ASSERT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&same), sizeof same), 0);
    close(std::exchange(heir.link.lSockFd, fd));
    heir.link.ulLinkType = 2;
    EXPECT_TRUE(heir.isRefused("not mine", EPERM));
    EXPECT_TRUE(inChild([] {
        return setuid(65534) == 0 && Link(6).receive() == Received{16 + 4 + 32, ""} &&
               Link::lastError() == EPERM;
    })) << "who may not administer the network may not take a link type";
}

// The kernel gives the port of a released socket away before it tells the module of the release.
TEST_F(Kernel, AReleaseInOneThreadTakesNothingFromALinkOfAnother)
{
    std::atomic<uint32_t> failures{0};
    inThreads(4, [&failures](uint32_t n) {
        for (int round = 0; round < 500; ++round) {
            failures += Link(10 + n).echoes("mine") ? 0 : 1;
        }
    });
    EXPECT_EQ(failures, 0U);
}

TEST_F(Kernel, TheModuleMayGoWhileALinkIsOpen)
{
    const Link open(8);
    EXPECT_TRUE(open.echoes("here"));
    ASSERT_TRUE(removeModule());
    EXPECT_TRUE(open.isRefused("gone", ENOENT));
    ASSERT_TRUE(insertModule());
    const Link anew(8);
    EXPECT_TRUE(anew.echoes("back"));
}

// The kernel's log, which the machine looks through at its end, tells what the module could not take.
TEST_F(Kernel, TheModuleOutlivesHostileMessagesAndItsOwnComingAndGoing)
{
    const Shared<std::atomic<bool>> done;
    std::thread hostile([&] {
        EXPECT_TRUE(inChild([&] {
            std::mt19937 engine(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in every run
            const auto any = [&engine] { return static_cast<uint32_t>(engine()); };
            while (!*done) {
                const Link link(any() % 30);
                std::array<uint32_t, 64> words{};
                for (uint32_t &word : words) {
                    word = any() % 4 == 0 ? any() : any() % 40;
                }
                words[0] = any() % static_cast<uint32_t>(sizeof words);
                words[1] = link.link.ulFamilyId | 1U << 16U;
                words[4] = any() % 4 | 1U << 8U;
                words[5] = any() % 64 | (any() % 4) << 16U;
                ::send(link.link.lSockFd, words.data(), std::max(words[0], 16U), MSG_DONTWAIT);
            }
            return true;
        }));
    });
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(3);
    for (uint32_t i = 0; std::chrono::steady_clock::now() < end; ++i) {
        const bool back = removeModule() && insertModule();
        EXPECT_TRUE(back) << i << ": " << strerror(errno);
        if (!back) {
            break;
        }
        const Link link(i % 30);
        (void)link.send(burstOf(i, 200));
    }
    done->store(true);
    hostile.join();
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    gModule = argc > 1 ? argv[1] : gModule;
    return RUN_ALL_TESTS();
}
