// Domain names, and the helpers for numbers and strings.
#include "qx/diag.h"
#include "qx/memory.h"
#include "tests/support/platform_double.h"
#include "tests/util/text_models.h"
#include "zema/domain.h"
#include "zema/strings.h"

#include <cstdarg>
#include <cstdio>
#include <deque>
#include <dlfcn.h>
#include <random>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_util_common.cpp";

std::vector<std::string> traces;
std::deque<int32_t> appendResults; // of the next appends; 0 is done

} // namespace

// ---- This host's own functions ----

uint32_t QX_PROC_DBG_TraceN(uint32_t module, const char *file, uint32_t line, const char *format, ...)
{
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf_s(text, sizeof text, sizeof text - 1, format, arguments);
    va_end(arguments);
    traces.push_back(std::to_string(module) + " " + file + (line != 0 ? " " : "?") + text);
    return 0;
}

int32_t strncat_s(char *dst, size_t dstSize, const char *src, size_t count)
{
    static const auto real = reinterpret_cast<decltype(&strncat_s)>(dlsym(RTLD_NEXT, "strncat_s"));
    const int32_t due = appendResults.empty() ? 0 : appendResults.front();
    if (!appendResults.empty()) {
        appendResults.pop_front();
    }
    return due != 0 ? due : real(dst, dstSize, src, count);
}

namespace {

class Domain : public PlatformTest {};
class Strings : public PlatformTest {
protected:
    Strings()
    {
        traces.clear();
        appendResults.clear();
    }
};

std::string labels(size_t length, size_t label)
{
    std::string name;
    for (size_t i = 0; i < length; ++i) {
        name += i % (label + 1) == label ? '.' : 'a';
    }
    return name;
}

TEST_F(Domain, ValidatesNames)
{
    struct Row {
        const char *reason;
        std::string text;
        bool isValid;
        std::vector<Values> records = {};
    };
    const Row rows[] = {
        {"a name", "example.com", true},
        {"short labels", "a.b", true},
        {"one label", "localhost", true},
        {"digits only", "1.2.3.4", true},
        {"a hyphen at an inner end of a label", "a-.-b", true},
        {"hyphens side by side", "xn--bcher-kva.example", true},
        {"both cases", "Zz.Aa.09", true},
        {"empty", "", false},
        {"a hyphen first", "-a.b", false},
        {"a hyphen last", "a.b-", false},
        {"a dot first", ".a.b", false},
        {"a dot last", "a.b.", false},
        {"two dots", "a..b", false},
        {"two dots across words", "abcdefg..b", false},
        {"an underscore", "a_b.com", false},
        {"not ASCII",
         "b\xFC"
         "cher.example",
         false},
        {"the longest label", labels(63, 63) + ".b", true},
        {"a longer one", labels(64, 64) + ".b", false},
        {"a longer one at the end", "b." + labels(64, 64), false},
        {"the longest name", labels(255, 63), true},
        {"a longer one", labels(256, 62), false, {{1, 256}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(QX_UTL_ISDomainValid(row.text.c_str()), row.isValid ? 1U : 0U)
            << row.reason << ": " << row.text;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    platform.reset();
    EXPECT_EQ(QX_UTL_ISDomainValid(nullptr), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}}));
}

// Names are looked at a word of bytes at a time.
TEST_F(Domain, SeesEveryByteAtEveryPlace)
{
    for (unsigned byte = 1; byte < 256; ++byte) {
        for (size_t at = 0; at < 20; ++at) {
            std::string text(20, 'b');
            text[at] = static_cast<char>(byte);
            ASSERT_EQ(QX_UTL_ISDomainValid(text.c_str()), model::isDomain(text) ? 1U : 0U) << text;
            ASSERT_EQ(QX_UTL_ISDomainSplitValid(text.c_str()), model::isLabel(text) ? 1U : 0U) << text;
        }
    }
    EXPECT_EQ(QX_UTL_ISDomainSplitValid(""), 1U);
    EXPECT_EQ(QX_UTL_ISDomainSplitValid("-abc-"), 1U);
    EXPECT_EQ(QX_UTL_ISDomainSplitValid(std::string(63, 'a').c_str()), 1U);
    EXPECT_EQ(QX_UTL_ISDomainSplitValid(std::string(64, 'a').c_str()), 0U);
}

TEST_F(Strings, ReadsNumbers)
{
    constexpr uint32_t kUntouched = 77;
    const std::tuple<const char *, uint32_t, uint32_t> rows[] = {
        {"0", 0, 0},
        {"007", 0, 7},
        {"4294967295", 0, 4294967295U},
        {"4294967296", 0, 0},
        {"4294967297", 0, 1},
        {"", 0, 0},
        {"-1", 1, kUntouched},
        {"+1", 1, kUntouched},
        {" 1", 1, kUntouched},
        {"12a", 1, kUntouched},
        {"1.5", 1, kUntouched},
        {"1\xB1", 1, kUntouched},
        {nullptr, 1, kUntouched},
    };
    for (const auto &[text, result, expected] : rows) {
        uint32_t value = kUntouched;
        EXPECT_EQ(QX_UTL_ATOI(text, &value), result) << text;
        EXPECT_EQ(value, expected) << text;
    }
    EXPECT_EQ(QX_UTL_ATOI("1", nullptr), 1U);
}

// The checksum as its definition has it, kept in 32 bits.
uint32_t plainChecksum(const uint8_t *bytes, size_t size)
{
    uint32_t sum = 0;
    for (size_t i = 0; i < size; i += 2) {
        const uint8_t word[2] = {
            bytes[i],
            i + 1 < size ? bytes[i + 1] : uint8_t{0},
        };
        uint16_t value;
        std::memcpy(&value, word, sizeof value);
        sum += value;
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

TEST_F(Strings, SumsUp)
{
    // RFC 1071: the words 0001 f203 f4f5 f6f7 sum up to ddf2.
    const uint8_t example[] = {0x00, 0x01, 0xF2, 0x03, 0xF4, 0xF5, 0xF6, 0xF7};
    const auto sum = static_cast<uint16_t>(~QX_UTL_Checksum(example, sizeof example));
    EXPECT_EQ(std::memcmp(&sum, "\xDD\xF2", 2), 0);
    const uint8_t header[] = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                              0xB8, 0x61, 0xC0, 0xA8, 0x00, 0x01, 0xC0, 0xA8, 0x00, 0xC7};
    EXPECT_EQ(QX_UTL_Checksum(header, sizeof header), 0U) << "a header with its own checksum in it";
    EXPECT_EQ(QX_UTL_Checksum("\xFF\xFF", 2), 0U);
    EXPECT_EQ(QX_UTL_Checksum(example, 0), 0xFFFFU);
    EXPECT_EQ(QX_UTL_Checksum(example, -3), 0xFFFFU);

    std::mt19937 engine(10); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in every run
    const auto compare = [](const std::vector<uint8_t> &bytes) {
        ASSERT_EQ(QX_UTL_Checksum(bytes.data(), static_cast<int32_t>(bytes.size())),
                  plainChecksum(bytes.data(), bytes.size()))
            << bytes.size();
    };
    for (size_t size = 0; size < 1600; ++size) {
        std::vector<uint8_t> bytes(size);
        std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(engine()); });
        compare(bytes);
        std::ranges::fill(bytes, uint8_t{0xFF});
        compare(bytes);
        std::ranges::fill(bytes, uint8_t{0});
        compare(bytes);
    }
    compare(std::vector<uint8_t>(131072, 0xFF));
    compare(std::vector<uint8_t>(1'000'003, 0xFE)); // where 32 bits wrap
}

TEST_F(Strings, ReplacesTheFirstOccurrence)
{
    const std::string longest(255, 'x');
    struct Row {
        const char *reason;
        std::string source;
        std::string search;
        std::string replacement;
        uint32_t size;
        uint32_t result;
        std::string out; // "#" is untouched
        std::vector<Values> records = {};
        std::vector<std::string> traces = {};
    };
    const auto trace = [](const char *length) {
        return std::vector<std::string>{"49 qx_util_common.cpp QX_StrReplaceSubStr Len is err :" +
                                        std::string(length)};
    };
    const Row rows[] = {
        {"ignoring case", "Hello World", "WORLD", "there", 32, 0, "Hello there"},
        {"only the first", "world world", "world", "there", 32, 0, "there world"},
        {"in the middle", "a-B-c", "b", "longer", 11, 0, "a-longer-c"},
        {"just no room for the zero", "a-B-c", "b", "longer", 10, 1, "#", {}, trace("10")},
        {"no room at all", "a", "a", "", 0, 1, "#", {}, trace("0")},
        {"to nothing", "abc", "abc", "", 1, 0, ""},
        {"an empty search is at the start", "abc", "", "x", 8, 0, "xabc"},
        {"an empty source", "", "", "x", 8, 0, "x"},
        {"no occurrence", "abc", "abd", "x", 8, 1, "#"},
        {"a search longer than the source", "ab", "abc", "x", 8, 1, "#"},
        {"the longest source and search", longest, longest, "y", 8, 0, "y"},
        {"a source too long", longest + "x", "x", "y", 400, 1, "#", {{1}}},
        {"a search too long", "x", longest + "x", "y", 400, 1, "#", {{1}}},
        {"a long replacement, whole", "-x-", "x", longest + longest, 600, 0, "-" + longest + longest + "-"},
        {"that does not fit after all", "-x-", "x", longest + longest, 300, 0, "-", {{1, ERANGE, 300, 256}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        traces.clear();
        std::string out(700, '#');
        EXPECT_EQ(QX_StrReplaceSubStr(row.source.c_str(), row.search.c_str(), row.replacement.c_str(),
                                      out.data(), row.size),
                  row.result)
            << row.reason;
        const size_t written = row.out == "#" ? 0 : row.out.size() + 1;
        EXPECT_EQ(out, row.out.substr(0, written) + std::string(written == 0 ? 0 : 1, '\0') +
                           std::string(700 - written, '#'))
            << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
        EXPECT_EQ(traces, row.traces) << row.reason;
    }
}

TEST_F(Strings, RecordsAFailedAppendAndGoesOn)
{
    char out[32];
    appendResults = {34, 0};
    EXPECT_EQ(QX_StrReplaceSubStr("a-b-c", "b", "xyz", out, sizeof out), 0U);
    EXPECT_STREQ(out, "a--c");
    appendResults = {0, 22};
    EXPECT_EQ(QX_StrReplaceSubStr("a-b-c", "b", "xyz", out, sizeof out), 0U);
    EXPECT_STREQ(out, "a-xyz");
    EXPECT_TRUE(platform.recorded(kFile, {{1, 34, 32, 3}, {1, 22, 32}}));
    for (size_t missing = 0; missing < 4; ++missing) {
        const char *texts[] = {"a", "a", "b", out};
        texts[missing] = nullptr;
        EXPECT_EQ(QX_StrReplaceSubStr(texts[0], texts[1], texts[2], texts[3] == nullptr ? nullptr : out, 8),
                  1U)
            << missing;
    }
    EXPECT_EQ(platform.recordCount, 2U);
}

} // namespace
