#include "qx/memory.h"

#include "tests/platform/surroundings.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace {

constexpr size_t kMost = 9;
const std::string kLetters = "abcdefghij";
const char *const volatile gMissing = nullptr;

struct CopyCase {
    size_t size, used, length, count;

    // What a copy of at most count characters of the source leaves behind the used ones, as the C library
    // says.
    std::string wanted() const
    {
        std::array<char, 64> text{};
        std::snprintf(text.data(), text.size(), "%s%.*s", std::string(used, 'u').c_str(),
                      static_cast<int>(count), kLetters.substr(0, length).c_str());
        return text.data();
    }
    // The source has no end of its own where the count ends the copy: reading on is a fault.
    std::vector<char> source() const
    {
        const std::string text = kLetters.substr(0, length);
        return {text.c_str(), text.c_str() + std::min(length + 1, std::max<size_t>(count, 1))};
    }
    Guarded destination() const
    {
        Guarded dst(size);
        std::fill_n(dst.data(), std::min(used + 1, size), '\0');
        std::fill_n(dst.data(), used, 'u');
        return dst;
    }
};

void forEachCase(const std::function<void(const CopyCase &)> &check)
{
    for (size_t i = 0; i < (kMost + 1) * (kMost + 1) * (kMost + 1); ++i) {
        const size_t size = i % (kMost + 1);
        for (size_t used = 0; used <= size; ++used) {
            const CopyCase c{size, used, i / 10 % 10, i / 100};
            SCOPED_TRACE(testing::Message() << "size " << c.size << ", used " << c.used << ", length "
                                            << c.length << ", count " << c.count);
            check(c);
        }
    }
}

TEST(Bounded, TextIsCutToTheCountOrRefused)
{
    forEachCase([](const CopyCase &c) {
        const bool fits = c.used < c.size && c.wanted().size() < c.size;
        Guarded appended = c.destination();
        EXPECT_EQ(strncat_s(appended.data(), c.size, c.source().data(), c.count) == 0, fits);
        EXPECT_TRUE(appended.holdsOrIsEmpty(c.wanted()));
        if (c.used > 0) {
            return;
        }
        Guarded copied(c.size);
        EXPECT_EQ(strncpy_s(copied.data(), c.size, c.source().data(), c.count) == 0, fits);
        EXPECT_TRUE(copied.holdsOrIsEmpty(c.wanted()));
        for (auto *format : {snprintf_s, QX_OS_Snprintf_S}) {
            Guarded formatted(c.size);
            const int32_t written =
                format(formatted.data(), c.size, c.count, "%.*s", static_cast<int>(c.length), "abcdefghi");
            EXPECT_EQ(written, fits ? static_cast<int32_t>(c.wanted().size()) : -1);
            EXPECT_TRUE(formatted.holdsOrIsEmpty(c.wanted()));
        }
    });
}

TEST(Bounded, BytesAreWrittenWholeOrNotAtAll)
{
    forEachCase([](const CopyCase &c) {
        Guarded copied(c.size);
        Guarded filled(c.size);
        const std::string before(copied.data(), c.size);
        const size_t done = c.count <= c.size ? c.count : 0;
        EXPECT_EQ(memcpy_s(copied.data(), c.size, kLetters.data(), c.count) == 0, c.count <= c.size);
        EXPECT_EQ(memset_s(filled.data(), c.size, 'f', c.count) == 0, c.count <= c.size);
        EXPECT_EQ(std::string(copied.data(), c.size), kLetters.substr(0, done) + before.substr(done));
        EXPECT_EQ(std::string(filled.data(), c.size), std::string(done, 'f') + before.substr(done));
        EXPECT_TRUE(copied.guardsHold() && filled.guardsHold());
    });
}

TEST(Bounded, TakesOddArguments)
{
    struct Row {
        const char *reason;
        std::function<bool(char *)> isRight;
        const char *left;
    };
    const std::array rows{
        Row{"a fill of nowhere", [](char *) { return memset_s(nullptr, 4, 0, 0) != 0; }, "ini"},
        Row{"the fill with 32-bit sizes", [](char *d) { return QX_OS_MemSet_S(d, 4, 0, 5) != 0; }, "ini"},
        Row{"a copy to nowhere", [](char *) { return memcpy_s(nullptr, 4, "a", 1) != 0; }, "ini"},
        Row{"a copy from nowhere", [](char *d) { return memcpy_s(d, 4, nullptr, 1) != 0; }, "ini"},
        Row{"nothing needs no pointers", [](char *) { return memcpy_s(nullptr, 0, nullptr, 0) == 0; }, "ini"},
        Row{"a text from nowhere", [](char *d) { return strncpy_s(d, 4, nullptr, 1) != 0; }, ""},
        Row{"a text to nowhere", [](char *) { return strncpy_s(nullptr, 4, "a", 1) != 0; }, "ini"},
        Row{"an appended text from nowhere", [](char *d) { return strncat_s(d, 4, nullptr, 1) != 0; }, ""},
        Row{"an appended text to nowhere", [](char *) { return strncat_s(nullptr, 4, "a", 1) != 0; }, "ini"},
        Row{"no format", [](char *d) { return snprintf_s(d, 4, 3, gMissing, 1) == -1; }, ""},
        Row{"a format to nowhere", [](char *) { return snprintf_s(nullptr, 4, 3, "%d", 1) == -1; }, "ini"},
        Row{"a wide character without bytes",
            [](char *d) { return snprintf_s(d, 4, 3, "%lc", wint_t{0x7FFFFFFF}) == -1; }, ""},
        Row{"a copy within a block", [](char *d) { return memcpy_s(d + 1, 7, d, 4) == 0; }, "iini"},
        Row{"a text moved within itself", [](char *d) { return strncpy_s(d, 8, d + 1, 9) == 0; }, "ni"},
        Row{"a text behind itself", [](char *d) { return strncat_s(d, 8, d, 9) == 0; }, "iniini"},
        Row{"no text to scan", [](char *d) { return sscanf_s(nullptr, "%c", d) == EOF; }, "ini"},
        Row{"scanned up to a mismatch", [](char *d) { return sscanf_s("ab:c", "a%c;%c", d, d + 1) == 1; },
            "bni"},
    };
    for (const Row &row : rows) {
        std::array<char, 8> dst{"ini"};
        EXPECT_TRUE(row.isRight(dst.data())) << row.reason;
        EXPECT_STREQ(dst.data(), row.left) << row.reason;
    }
}

TEST(Memory, BlocksAreThereForEverySizeAndZeroFilledOnRequest)
{
    for (const uint32_t size : {0U, 1U, 4096U}) {
        void *const dirty = QX_OS_MemMallocD(size);
        ASSERT_NE(dirty, nullptr);
        std::memset(dirty, 0xFF, size);
        EXPECT_EQ(QX_OS_MemFreeD(dirty), QX_OK);
        auto *const zeroed = static_cast<char *>(QX_OS_MemMallocSet(size));
        ASSERT_NE(zeroed, nullptr);
        EXPECT_TRUE(std::all_of(zeroed, zeroed + size, [](char c) { return c == '\0'; }));
        EXPECT_EQ(QX_OS_MemFreeD(zeroed), QX_OK);
    }
}

} // namespace
