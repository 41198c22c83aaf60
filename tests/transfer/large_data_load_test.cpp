// Blocks of random sizes from a writer that is killed again and again. ZEMA_LOAD_BLOCKS and ZEMA_LOAD_KILLS
// say how many.
#include "qx/host.h"
#include "qx/memory.h"
#include "qx/vdata.h"
#include "tests/support/processes.h"
#include "zema/large_data.h"

#include <algorithm>
#include <random>
#include <set>
#include <sys/socket.h>
#include <vector>

namespace {

using namespace zema::test;

constexpr uint32_t kMostBytes = 300'000;

struct Parcel {
    LargeDataDesc desc;
    uint32_t seed;
    uint32_t compress;
};

uint32_t settingOr(const char *name, uint32_t otherwise)
{
    const char *const text = std::getenv(name);
    return text == nullptr ? otherwise : static_cast<uint32_t>(std::strtoul(text, nullptr, 10));
}

// Sizes of all magnitudes, contents that shrink more or less or not at all.
std::vector<uint32_t> contentOf(uint32_t seed)
{
    std::mt19937 generator(seed);
    const uint32_t words = static_cast<uint32_t>(generator() % kMostBytes >> generator() % 18U) / 4;
    std::vector<uint32_t> content(words + 1);
    const uint32_t mask = UINT32_MAX >> generator() % 33U % 32U;
    std::generate(content.begin(), content.end(), [&] { return static_cast<uint32_t>(generator()) & mask; });
    return content;
}

uint32_t sizeOf(const std::vector<uint32_t> &content, uint32_t seed)
{
    return static_cast<uint32_t>(content.size() * sizeof content[0]) - seed % 5;
}

[[noreturn]] void write(int fd)
{
    std::mt19937 seeds(std::random_device{}());
    for (;;) {
        Parcel parcel = {.desc = {}, .seed = static_cast<uint32_t>(seeds()), .compress = 0};
        parcel.compress = parcel.seed >> 16U & 1U;
        const std::vector<uint32_t> content = contentOf(parcel.seed);
        const uint32_t size = sizeOf(content, parcel.seed);
        if (QX_LargeDataWriteInner(&parcel.desc, content.data(), size, parcel.compress) != ZEMA_OK ||
            send(fd, &parcel, sizeof parcel, MSG_NOSIGNAL) != sizeof parcel) {
            _exit(1);
        }
    }
}

// Whether the parcel's block holds what it should.
bool isIntact(const Parcel &parcel)
{
    const std::vector<uint32_t> content = contentOf(parcel.seed);
    const uint32_t size = sizeOf(content, parcel.seed);
    void *data = nullptr;
    const bool intact = QX_LargeDataReadInner(&parcel.desc, &data, parcel.compress) == ZEMA_OK &&
                        parcel.desc.ulRawLen == size && memcmp(data, content.data(), size) == 0;
    QX_OS_MemFreeD(data);
    return intact;
}

struct Leavings {
    std::set<uint32_t> writers;
    uint32_t count = 0;
};

uint32_t clear(void *context, const QxBlock *block)
{
    auto &leavings = *static_cast<Leavings *>(context);
    if (leavings.writers.contains(block->ulPid)) {
        EXPECT_EQ(block->ulAlive, 0U);
        ++leavings.count;
        return QX_VDATA_FreeShm(block->ulId);
    }
    return QX_OK;
}

// What killed writers had just begun to make.
uint32_t clearBegun()
{
    uint32_t count = 0;
    for (const auto &entry : std::filesystem::directory_iterator("/dev/shm")) {
        const bool isBlock =
            entry.path().filename().string().starts_with("zema-" + std::to_string(geteuid()));
        if (isBlock && entry.file_size() == 0) {
            count += std::filesystem::remove(entry.path()) ? 1 : 0;
        }
    }
    return count;
}

class LargeDataLoad : public Scratch {};

TEST_F(LargeDataLoad, NoByteIsWrongAndNoBlockLeftButThoseInFlightAtAKill)
{
    clearBegun();
    const uint32_t blocks = settingOr("ZEMA_LOAD_BLOCKS", 500);
    const uint32_t kills = settingOr("ZEMA_LOAD_KILLS", 10);
    std::array<int, 2> ends{};
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()), 0);
    Leavings leavings;
    pid_t writer = 0;
    const auto renew = [&] {
        EXPECT_TRUE(writer == 0 || (kill(writer, SIGKILL) == 0 && waitpid(writer, nullptr, 0) == writer));
        writer = fork();
        if (writer == 0) {
            write(ends[1]);
        }
        leavings.writers.insert(static_cast<uint32_t>(writer));
    };
    renew();
    for (uint32_t n = 0, killed = 0; n < blocks; ++n) {
        Parcel parcel = {};
        ASSERT_EQ(recv(ends[0], &parcel, sizeof parcel, 0), static_cast<ssize_t>(sizeof parcel)) << n;
        ASSERT_TRUE(isIntact(parcel)) << n;
        if (killed < kills && n >= uint64_t{blocks} * (killed + 1) / (kills + 1)) {
            ++killed;
            renew();
        }
    }
    kill(writer, SIGKILL);
    waitpid(writer, nullptr, 0);
    Parcel parcel = {};
    while (recv(ends[0], &parcel, sizeof parcel, MSG_DONTWAIT) > 0) { // what was sent is in nobody's way
        EXPECT_TRUE(isIntact(parcel));
    }
    for (const int fd : ends) {
        close(fd);
    }
    EXPECT_EQ(QxHost_ListBlocks(clear, &leavings), QX_OK);
    leavings.count += clearBegun();
    EXPECT_LE(leavings.count, kills + 1) << "at most one for each kill";
    printf("%u blocks, %u kills, %u left of the killed\n", blocks, kills, leavings.count);
}

} // namespace
