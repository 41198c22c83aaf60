// Shared-memory blocks, and the compressor.
#include "qx/compress.h"
#include "qx/host.h"
#include "qx/vdata.h"
#include "tests/platform/surroundings.h"
#include "tests/support/processes.h"

#include <cstring>
#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <sys/stat.h>

namespace {

using namespace zema::test;
namespace fs = std::filesystem;

// ---- Compression ----

std::vector<uint8_t> randomBytes(size_t size)
{
    std::mt19937 generator(static_cast<uint32_t>(size));
    std::vector<uint8_t> bytes(size);
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<uint8_t>(generator()); });
    return bytes;
}

TEST(Compress, RestoresWhatItWasGivenAndNeverGrowsByMoreThanAByte)
{
    for (const uint32_t size : {0U, 1U, 2U, 12U, 13U, 300U, 2049U, 65536U, 5U << 20U}) {
        std::vector<uint8_t> noise = randomBytes(size);
        std::vector<uint8_t> half = noise;
        std::fill(half.begin() + size / 2, half.end(), uint8_t{7});
        for (const auto &[reason, raw] :
             {std::pair{"noise", noise}, {"half noise", half}, {"zeros", std::vector<uint8_t>(size)}}) {
            SCOPED_TRACE(std::string(reason) + std::to_string(size));
            Guarded packed(size + 772U);
            uint32_t written = 0;
            ASSERT_EQ(QX_OS_Compress(raw.data(), size, packed.data(), size + 772, &written), QX_OK);
            EXPECT_TRUE(packed.guardsHold());
            EXPECT_LE(written, size + 1);
            EXPECT_TRUE(size < 300 || reason == std::string("noise") || written < size * 3 / 4);
            Guarded restored(size);
            EXPECT_EQ(QX_OS_Decompress(packed.data(), written, restored.data(), size), QX_OK);
            EXPECT_TRUE(std::equal(raw.begin(), raw.end(), reinterpret_cast<uint8_t *>(restored.data())));
            EXPECT_TRUE(restored.guardsHold());
            Guarded exact(written);
            uint32_t again = 0;
            EXPECT_EQ(QX_OS_Compress(raw.data(), size, exact.data(), written, &again), QX_OK);
            EXPECT_EQ(again, std::exchange(written, 4711));
            EXPECT_EQ(QX_OS_Compress(raw.data(), size, exact.data(), again - 1, &written) != QX_OK,
                      written == 4711);
            EXPECT_TRUE(exact.guardsHold());
        }
    }
}

TEST(Compress, RefusesWhatIsNone)
{
    const std::vector<uint8_t> raw(1000, 'r');
    std::vector<uint8_t> packed(1772);
    uint32_t written = 0;
    ASSERT_EQ(QX_OS_Compress(raw.data(), 1000, packed.data(), 1772, &written), QX_OK);
    struct Row {
        const char *reason;
        const char *bytes;
        uint32_t n;
        uint32_t rawSize;
    };
    const char *const good = reinterpret_cast<const char *>(packed.data());
    const Row rows[] = {
        {"nothing", "", 0, 0},
        {"an unknown method", "\2abc", 4, 3},
        {"stored bytes, one short", "\0ab", 3, 3},
        {"stored bytes, one more", "\0abcd", 5, 3},
        {"a block to be one shorter", good, written, 999},
        {"a block to be one longer", good, written, 1001},
        {"a block that is cut", good, written - 1, 1000},
        {"a copy from before the start", "\1\x1F\141\xFF\xFF\0", 6, 64},
        {"literals beyond the end", "\1\xFF\xFF\xFF", 4, 64},
    };
    for (const Row &row : rows) {
        Guarded out(row.rawSize);
        EXPECT_EQ(QX_OS_Decompress(row.bytes, row.n, out.data(), row.rawSize), QX_ERR) << row.reason;
        EXPECT_TRUE(out.guardsHold()) << row.reason;
    }
    EXPECT_EQ(QX_OS_Compress(nullptr, 1, packed.data(), 9, &written), QX_ERR);
    EXPECT_EQ(QX_OS_Compress("", 1, nullptr, 9, &written), QX_ERR);
    EXPECT_EQ(QX_OS_Compress("", 1, packed.data(), 9, nullptr), QX_ERR);
    EXPECT_EQ(QX_OS_Decompress(nullptr, 1, packed.data(), 9), QX_ERR);
    EXPECT_EQ(QX_OS_Decompress("\0a", 2, nullptr, 1), QX_ERR);
}

// ---- Blocks ----

using Listed = std::map<uint32_t, QxBlock>;

Listed list()
{
    Listed listed;
    const auto keep = [](void *context, const QxBlock *block) {
        return static_cast<Listed *>(context)->emplace(block->ulId, *block).second ? 0U : 1U;
    };
    EXPECT_EQ(QxHost_ListBlocks(keep, &listed), QX_OK);
    return listed;
}

std::string pathOf(uint32_t id)
{
    char path[64];
    snprintf(path, sizeof path, "/dev/shm/zema-%u-%08x", geteuid(), id);
    return path;
}

TEST(Blocks, HoldAndReturnBytesOfTheirSizeOnly)
{
    for (const uint32_t size : {0U, 1U, 4096U, 65536U, 1U << 20U}) {
        const std::vector<uint8_t> bytes = randomBytes(size);
        uint32_t id = 0;
        ASSERT_EQ(QX_VDATA_CreShm(size, &id), QX_OK) << size;
        ASSERT_NE(id, 0U);
        Guarded out(size);
        EXPECT_EQ(QX_VDATA_ReadData(id, size, out.data()), QX_OK);
        EXPECT_EQ(std::count(out.data(), out.data() + size, 0), static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(QX_VDATA_UpdateData(id, size, bytes.data()), QX_OK);
        for (const uint32_t wrong : {size + 1, size - 1, size + 32, UINT32_MAX}) {
            EXPECT_EQ(QX_VDATA_UpdateData(id, wrong, bytes.data()), QX_ERR) << wrong;
            EXPECT_EQ(QX_VDATA_ReadData(id, wrong, out.data()), QX_ERR) << wrong;
        }
        EXPECT_EQ(QX_VDATA_ReadData(id, size, out.data()), QX_OK);
        EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t *>(out.data()))) << size;
        EXPECT_TRUE(out.guardsHold());
        EXPECT_EQ(QX_VDATA_FreeShm(id), QX_OK);
        EXPECT_EQ(QX_VDATA_FreeShm(id), QX_ERR_NOT_FOUND);
        EXPECT_EQ(QX_VDATA_ReadData(id, size, out.data()), QX_ERR_NOT_FOUND);
        EXPECT_EQ(QX_VDATA_UpdateData(id, size, bytes.data()), QX_ERR_NOT_FOUND);
    }
    EXPECT_EQ(QX_VDATA_CreShm(1, nullptr), QX_ERR);
    EXPECT_EQ(QX_VDATA_UpdateData(1, 1, nullptr), QX_ERR);
    EXPECT_EQ(QX_VDATA_ReadData(1, 1, nullptr), QX_ERR);
    EXPECT_EQ(QX_VDATA_FreeShm(0), QX_ERR);
}

TEST(Blocks, NamesNothingWhenItFails)
{
    rlimit before{};
    getrlimit(RLIMIT_NOFILE, &before);
    const rlimit none{.rlim_cur = 0, .rlim_max = before.rlim_max};
    setrlimit(RLIMIT_NOFILE, &none);
    uint32_t id = 7;
    const uint32_t result = QX_VDATA_CreShm(1, &id);
    setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_EQ(result, QX_ERR_NO_MEMORY);
    EXPECT_EQ(id, 0U);
    const rlimit small{.rlim_cur = 4096, .rlim_max = RLIM_INFINITY};
    getrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &small);
    const auto blocks = list().size();
    EXPECT_NE(QX_VDATA_CreShm(1 << 20, &id), QX_OK) << "no room";
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(id, 0U);
    EXPECT_EQ(list().size(), blocks) << "and nothing is left of it";
}

TEST(Blocks, AreTheirUsersOwn)
{
    uint32_t id = 0;
    ASSERT_EQ(QX_VDATA_CreShm(4, &id), QX_OK);
    struct stat status {};
    ASSERT_EQ(stat(pathOf(id).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    QX_VDATA_FreeShm(id);
    struct Row {
        const char *reason;
        std::function<bool(const std::string &)> spoil; // whether it could
    };
    const Row rows[] = {
        {"open to others", [](const auto &path) { return chmod(path.c_str(), 0640) == 0; }},
        {"another user's", [](const auto &path) { return chown(path.c_str(), 65534, 65534) == 0; }},
        {"a link",
         [](const auto &path) { return fs::remove(path), symlink("/etc/hosts", path.c_str()) == 0; }},
        {"a pipe", [](const auto &path) { return fs::remove(path), mkfifo(path.c_str(), 0600) == 0; }},
        {"shorter than its end", [](const auto &path) { return fs::resize_file(path, 35), true; }},
        {"cut to nothing", [](const auto &path) { return fs::resize_file(path, 0), true; }},
    };
    char out[4];
    for (const Row &row : rows) {
        ASSERT_EQ(QX_VDATA_CreShm(4, &id), QX_OK);
        if (!row.spoil(pathOf(id))) {
            EXPECT_TRUE(geteuid() != 0 && QX_VDATA_FreeShm(id) == QX_OK) << "only root can give a file away";
            continue;
        }
        EXPECT_EQ(QX_VDATA_ReadData(id, 4, out), QX_ERR) << row.reason;
        EXPECT_EQ(QX_VDATA_UpdateData(id, 4, "data"), QX_ERR) << row.reason;
        EXPECT_EQ(list().count(id), 0U) << row.reason;
        fs::remove(pathOf(id));
    }
}

using BlocksOfProcesses = Scratch;

TEST_F(BlocksOfProcesses, TellWhoMadeThemAndWhetherThatLives)
{
    Shared<std::atomic<uint32_t>> id;
    const auto age = [&] { return list().at(*id).ullAgeNs; };
    {
        Child child([&] {
            uint32_t made = 0;
            EXPECT_EQ(QX_VDATA_CreShm(1234, &made), QX_OK);
            id->store(made);
        });
        const QxBlock block = list().at(*id);
        EXPECT_EQ(block.ulSize, 1234U);
        EXPECT_EQ(block.ulPid, child.pid());
        EXPECT_EQ(block.ulAlive, 1U);
        EXPECT_STREQ(block.acProcess, std::string(program_invocation_short_name).substr(0, 15).c_str());
        EXPECT_LT(block.ullAgeNs, 60'000'000'000U);
        EXPECT_TRUE(eventually([&, first = block.ullAgeNs] { return age() > first; }));
    }
    EXPECT_EQ(list().at(*id).ulAlive, 0U);
    // As if a later process had that identifier: this one made it before it was started.
    const int fd = open(pathOf(*id).c_str(), O_RDWR | O_CLOEXEC);
    const auto self = static_cast<uint32_t>(getpid());
    const uint64_t early = 1;
    EXPECT_EQ(pwrite(fd, &self, 4, 1238), 4);
    EXPECT_EQ(list().at(*id).ulAlive, 1U);
    EXPECT_EQ(pwrite(fd, &early, 8, 1242), 8);
    EXPECT_EQ(list().at(*id).ulAlive, 0U);
    EXPECT_EQ(list().at(*id).ulPid, self);
    EXPECT_EQ(ftruncate(fd, 1265), 0);
    EXPECT_EQ(list().count(*id), 0U) << "without its end it is none";
    close(fd);
    EXPECT_EQ(QX_VDATA_FreeShm(*id), QX_OK);
}

TEST(Blocks, IdentifiersAreNotGuessedFromOneAnother)
{
    constexpr size_t kCount = 300;
    std::vector<uint32_t> ids(kCount);
    for (uint32_t &id : ids) {
        ASSERT_EQ(QX_VDATA_CreShm(0, &id), QX_OK);
    }
    EXPECT_GE(list().size(), kCount);
    std::set<uint32_t> gaps;
    for (size_t i = 1; i < kCount; ++i) {
        gaps.insert(ids[i] - ids[i - 1]);
    }
    EXPECT_EQ(std::set(ids.begin(), ids.end()).size(), kCount) << "each its own";
    EXPECT_GT(gaps.size(), kCount - 5) << "and none a step from another";
    for (const uint32_t id : ids) {
        EXPECT_EQ(QX_VDATA_FreeShm(id), QX_OK);
    }
    EXPECT_EQ(QxHost_ListBlocks(nullptr, nullptr), QX_ERR);
}

} // namespace
