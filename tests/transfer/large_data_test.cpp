// Large blocks: what is done for each, in which order, and what is left of one that fails.
#include "zema/large_data.h"

#include "qx/compress.h"
#include "qx/memory.h"
#include "qx/vdata.h"
#include "tests/support/platform_double.h"

#include <algorithm>
#include <cstring>

using namespace zema::test;

namespace {

std::map<uint32_t, std::string> gShm; // blocks by identifier

} // namespace

// Five bytes stand for any number of equal ones.
uint32_t QX_OS_Compress(const void *src, uint32_t n, void *dst, uint32_t capacity, uint32_t *written)
{
    return watched({"compress", {n, capacity}, {}}, [&] {
        std::memcpy(dst, &n, sizeof n);
        std::memcpy(static_cast<char *>(dst) + sizeof n, src, 1);
        *written = sizeof n + 1;
        return 0U;
    });
}

uint32_t QX_OS_Decompress(const void *src, uint32_t n, void *dst, uint32_t rawSize)
{
    return watched({"decompress", {n, rawSize}, {}}, [&] {
        if (n != sizeof rawSize + 1 || std::memcmp(src, &rawSize, sizeof rawSize) != 0) {
            return 1U;
        }
        std::memset(dst, static_cast<const char *>(src)[sizeof rawSize], rawSize);
        return 0U;
    });
}

uint32_t QX_VDATA_CreShm(uint32_t size, uint32_t *id)
{
    return watched({"create", {size}, {}}, [&] {
        *id = 0x51;
        gShm[*id] = std::string(size, '\0');
        return 0U;
    });
}

uint32_t QX_VDATA_UpdateData(uint32_t id, uint32_t size, const void *data)
{
    return watched({"fill", {id, size}, {}}, [&] {
        gShm[id].assign(static_cast<const char *>(data), size);
        return 0U;
    });
}

uint32_t QX_VDATA_ReadData(uint32_t id, uint32_t size, void *data)
{
    return watched({"read", {id, size}, {}}, [&] {
        const auto block = gShm.find(id);
        if (block == gShm.end() || block->second.size() != size) {
            return QX_ERR;
        }
        std::memcpy(data, block->second.data(), size);
        return QX_OK;
    });
}

uint32_t QX_VDATA_FreeShm(uint32_t id)
{
    return watched({"free", {id}, {}}, [&] { return gShm.erase(id) > 0 ? 0U : QX_ERR_NOT_FOUND; });
}
namespace {

constexpr uint32_t kId = 0x51;
const std::string kText(4096, 't');

class LargeData : public PlatformTest {
protected:
    LargeData() { gShm.clear(); }
    std::string deeds() { return textOf(std::exchange(platform.journal, {}), {}); }

    LargeDataDesc desc = {7, 7, 7};
    void *out = &desc;

    // What a read brings, which is given back.
    std::string take(uint32_t size)
    {
        if (out == nullptr) {
            return "nothing";
        }
        std::string bytes(static_cast<const char *>(out), size);
        QX_OS_MemFreeD(std::exchange(out, nullptr));
        return bytes;
    }
};

TEST_F(LargeData, ComesBackAsItWas)
{
    struct Row {
        const char *reason;
        uint32_t size;
        uint32_t (*write)(LargeDataDesc *, const void *, uint32_t);
        uint32_t (*read)(const LargeDataDesc *, void **);
        const char *writing;
        const char *reading;
    };
    const Row rows[] = {
        {"nothing", 0, QX_LargeDataWrite, QX_LargeDataRead, "create 0; fill 51 0",
         "MemMallocD 0; MemMallocD 0; read 51 0; free 51; MemFreeD"},
        {"the most that stays as it is", 2048, QX_LargeDataWrite, QX_LargeDataReadNoDecompress,
         "create 800; fill 51 800", "MemMallocD 800; MemMallocD 800; read 51 800; free 51; MemFreeD"},
        {"and the other way", 2048, QX_LargeDataWriteNoCompress, QX_LargeDataRead, "create 800; fill 51 800",
         "MemMallocD 800; MemMallocD 800; read 51 800; free 51; MemFreeD"},
        {"the least that is compressed", 2049, QX_LargeDataWrite, QX_LargeDataRead,
         "MemMallocSet b05; compress 801 b05; create 5; fill 51 5; MemFreeD",
         "MemMallocD 5; MemMallocD 801; read 51 5; free 51; decompress 5 801; MemFreeD"},
        {"not compressed", 2049, QX_LargeDataWriteNoCompress, QX_LargeDataReadNoDecompress,
         "create 801; fill 51 801", "MemMallocD 801; MemMallocD 801; read 51 801; free 51; MemFreeD"},
    };
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(row.write(&desc, kText.data(), row.size), 0U) << row.reason;
        EXPECT_EQ(deeds(), row.writing) << row.reason;
        EXPECT_EQ(desc.ulRawLen, row.size) << row.reason;
        EXPECT_EQ(desc.ulStoredLen, gShm.at(kId).size()) << row.reason;
        EXPECT_EQ(row.read(&desc, &out), 0U) << row.reason;
        EXPECT_EQ(deeds(), row.reading) << row.reason;
        EXPECT_EQ(take(row.size), kText.substr(0, row.size)) << row.reason;
        EXPECT_TRUE(gShm.empty()) << row.reason;
        EXPECT_EQ(row.read(&desc, &out), QX_ERR) << "a second time";
        EXPECT_EQ(out, nullptr);
    }
}

TEST_F(LargeData, AFailedWriteLeavesNothing)
{
    struct Row {
        const char *fails;
        const char *fillsToo;
        uint32_t compress;
        uint32_t result;
        const char *deeds;
    };
    const Row rows[] = {
        {"QX_OS_MemMallocSet", "", 1, 0xF7108001, "MemMallocSet 1304; record f7108001 1000"},
        {"compress", "", 1, 0x54, "MemMallocSet 1304; compress 1000 1304; record 54 abcdabcd 1000; MemFreeD"},
        {"create", "", 0, 0x54, "create 1000; fill 7 1000; record 54 1000 7 1000; free 7"},
        {"fill", "", 0, 0x54, "create 1000; fill 51 1000; record 54 1000 51 1000; free 51"},
        {"create", "fill", 0, 0x57, "create 1000; fill 7 1000; record 57 1000 7 1000; free 7"},
        {"fill", "", 1, 0x54,
         "MemMallocSet 1304; compress 1000 1304; create 5; fill 51 5; record 54 5 51 1000; free 51; "
         "MemFreeD"},
    };
    for (const Row &row : rows) {
        platform.reset();
        platform.fail(row.fails, 1, 0x54);
        platform.fail(row.fillsToo, 1, 0x53);
        desc = {7, 7, 7};
        EXPECT_EQ(QX_LargeDataWriteInner(&desc, kText.data(), 4096, row.compress), row.result) << row.deeds;
        for (Call &call : platform.journal) {
            if (row.fails == std::string("compress") && call.function == "record") {
                EXPECT_EQ(call.values[1], reinterpret_cast<uintptr_t>(kText.data()) & UINT32_MAX);
                call.values[1] = kSomeAddress;
            }
        }
        EXPECT_EQ(deeds(), row.deeds);
        gShm.erase(7);
        EXPECT_TRUE(gShm.empty()) << row.deeds;
    }
    EXPECT_EQ(QX_LargeDataWriteInner(&desc, kText.data(), UINT32_MAX - 771, 1), 0xF7108001);
    EXPECT_EQ(QX_LargeDataWrite(nullptr, "", 0), 1U);
    EXPECT_EQ(QX_LargeDataWriteNoCompress(&desc, nullptr, 0), 1U);
    EXPECT_EQ(deeds(), "record f7108001 fffffcfc; record 1; record 1");
    EXPECT_EQ(platform.places.size(), 4U);
}

TEST_F(LargeData, AFailedReadReleasesAll)
{
    const std::string start = "MemMallocD 5; MemMallocD 1000; ";
    const std::string ends = "MemFreeD; MemFreeD";
    struct Row {
        const char *fails;
        uint32_t nth;
        uint32_t result;
        std::string deeds;
    };
    const Row rows[] = {
        {"QX_OS_MemMallocD", 1, 0xF7108001, "MemMallocD 5; record f7108001 51 5; free 51"},
        {"QX_OS_MemMallocD", 2, 0xF7108001, start + "record f7108001 51 1000; MemFreeD; free 51"},
        {"read", 1, 0x54, start + "read 51 5; record 54 51 5; free 51; " + ends},
        {"free", 1, 0x54, start + "read 51 5; free 51; record 54 51; " + ends},
        {"decompress", 1, 0x54,
         start + "read 51 5; free 51; decompress 5 1000; " + ends + "; record 54 1000"},
    };
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(QX_LargeDataWrite(&desc, kText.data(), 4096), 0U);
        deeds();
        platform.fail(row.fails, row.nth, 0x54);
        out = &desc;
        EXPECT_EQ(QX_LargeDataRead(&desc, &out), row.result) << row.deeds;
        EXPECT_EQ(deeds(), row.deeds);
        EXPECT_EQ(out, nullptr) << row.deeds;
        EXPECT_EQ(gShm.erase(kId), row.fails == std::string("free") ? 1U : 0U) << row.deeds;
    }
    EXPECT_EQ(platform.places.size(), 5U);
}

TEST_F(LargeData, AWrongDescriptorHarmsNobody)
{
    EXPECT_EQ(QX_LargeDataWriteNoCompress(&desc, kText.data(), 4096), 0U);
    EXPECT_EQ(QX_LargeDataRead(&desc, nullptr), 1U);
    EXPECT_EQ(gShm.size(), 1U) << "without a place for the data, the block stays";
    EXPECT_EQ(QX_LargeDataRead(nullptr, &out), 1U);
    EXPECT_EQ(out, nullptr);
    struct Row {
        const char *reason;
        LargeDataDesc desc;
        uint32_t (*read)(const LargeDataDesc *, void **);
        std::string data;
    };
    const Row rows[] = {
        {"a shorter block", {kId, 9, 4}, QX_LargeDataRead, std::string("tttt\0\0\0\0\0", 9)},
        {"a longer block", {kId, 3, 4}, QX_LargeDataRead, "ttt"},
        {"not compressed", {kId, 4096, 4}, QX_LargeDataRead, "nothing"},
        {"not to be restored",
         {kId, 4096, 4},
         QX_LargeDataReadNoDecompress,
         "tttt" + std::string(4092, '\0')},
        {"another length", {kId, 4096, 5}, QX_LargeDataReadNoDecompress, "nothing"},
        {"another block", {8, 4, 4}, QX_LargeDataRead, "nothing"},
    };
    for (const Row &row : rows) {
        gShm = {{kId, "tttt"}};
        EXPECT_EQ(row.read(&row.desc, &out) == 0, row.data != "nothing") << row.reason;
        EXPECT_EQ(take(row.desc.ulRawLen), row.data) << row.reason;
        EXPECT_EQ(gShm.count(row.desc.ulShmId), 0U) << row.reason;
    }
}

} // namespace
