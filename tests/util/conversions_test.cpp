// Conversions of addresses and numbers from text and to text, the checksum, and the replacement in a text.
#include "qx/diag.h"
#include "qx/memory.h"
#include "tests/platform/surroundings.h"
#include "tests/support/platform_double.h"
#include "zema/domain.h"
#include "zema/ipv4.h"
#include "zema/ipv6.h"
#include "zema/mac.h"
#include "zema/strings.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdarg>
#include <cstring>
#include <random>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_util_common.cpp";

} // namespace

// ---- This host's own functions ----

uint32_t QX_PROC_DBG_TraceN(uint32_t module, const char *file, uint32_t line, const char *format, ...)
{
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    (void)vsnprintf_s(text, sizeof text, sizeof text - 1, format, arguments);
    va_end(arguments);
    PlatformDouble::instance().enter({"trace", {module, line != 0}, std::string(file) + " " + text});
    return 0;
}

int32_t strncat_s(char *dst, size_t dstSize, const char *src, size_t count)
{
    return watched({"strncat_s", {dstSize, count}, src},
                   [&] { return real(strncat_s, "strncat_s")(dst, dstSize, src, count); });
}

namespace {

class Conversions : public PlatformTest {};

// What a conversion leaves of a buffer of 700 bytes when it writes a text, or nothing.
std::string filled(const std::string &written)
{
    return written + std::string(700 - written.size(), '#');
}

// A record as nobody has touched it, but for the address of a text, of the kinds of a host or of the sockets.
IpAddrRecord recordOf(const char *text, bool isHost)
{
    IpAddrRecord record;
    std::memset(&record, 0xEE, sizeof record);
    if (text != nullptr) {
        const bool isIpv6 = std::strchr(text, ':') != nullptr;
        inet_pton(isIpv6 ? AF_INET6 : AF_INET, text, isIpv6 ? record.aucIpv6 : record.aucIpv4);
        record.ulFamily = isHost ? (isIpv6 ? 2 : 1) : (isIpv6 ? 10 : 2);
    }
    return record;
}

TEST_F(Conversions, FillAddressRecords)
{
    const char *const rows[][3] = {
        // the text, its address, and its address as a host's
        {"192.168.1.1", "192.168.1.1", "192.168.1.1"},
        {"2001:db8::1", "2001:db8::1", "2001:db8::1"},
        {"::ffff:1.2.3.4", "::ffff:1.2.3.4", "::ffff:1.2.3.4"},
        {"0.0.0.0", "0.0.0.0", nullptr},
        {"255.255.255.255", "255.255.255.255", "255.255.255.255"},
        {"010.1.2.3", nullptr, "8.1.2.3"},
        {" 1.2.3.4", nullptr, "255.255.255.255"},
        {"1.2.3", nullptr, nullptr},
        {"example.com", nullptr, nullptr},
        {nullptr, nullptr, nullptr},
    };
    for (const auto &[text, address, host] : rows) {
        IpAddrRecord record = recordOf(nullptr, false);
        IpAddrRecord expected = recordOf(address, false);
        EXPECT_EQ(QX_UTL_IpStrToAddr(text, &record), address == nullptr ? nullptr : &record) << text;
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0) << text;
        record = recordOf(nullptr, true);
        expected = recordOf(host, true);
        EXPECT_EQ(QX_UTL_ConvHostNameToIpAddr(text, &record), host == nullptr ? 1U : 0U) << text;
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0) << text;
    }
    EXPECT_EQ(QX_UTL_IpStrToAddr("::1", nullptr), nullptr);
    EXPECT_TRUE(platform.recorded(kFile, {{1}})) << "only the missing host";
}

TEST_F(Conversions, PrintAddressRecords)
{
    const IpAddrRecord ipv4 = recordOf("10.20.30.40", false);
    const IpAddrRecord ipv6 = recordOf("2001:db8::1", false);
    const IpAddrRecord host = recordOf("10.20.30.40", true);
    const std::tuple<const IpAddrRecord *, uint32_t, const char *, uint32_t> rows[] = {
        {&ipv4, 12, "10.20.30.40", 1}, {&ipv4, 11, nullptr, 1},   {&ipv6, 12, "2001:db8::1", 1},
        {&host, 64, nullptr, 0},       {nullptr, 64, nullptr, 0},
    };
    for (const auto &[record, size, expected, isValid] : rows) {
        char text[64];
        EXPECT_STREQ(QX_UTL_GetIpAddrStr(record, text, size), expected) << size;
        EXPECT_EQ(QX_UTL_IsIpAddrValid(record), isValid);
    }
    EXPECT_EQ(QX_UTL_GetIpAddrStr(&ipv4, nullptr, 64), nullptr);
}

TEST_F(Conversions, ToAStandardText)
{
    const std::string end(1, '\0'); // of what is written
    const std::tuple<const char *, uint32_t, uint32_t, std::string> rows[] = {
        {"010.001.002.003", 16, 0, "10.1.2.3" + end},
        {"1.2.3.4", 8, 0, "1.2.3.4" + end},
        {"1.2.3.4", 7, 0, end},
        {"1.2.3.4", 0, 0, ""},
        {"", 1, 0, end},
        {"", 0, 0, ""},
        {"1.2.3.256", 16, 1, ""},
        {" 1.2.3.4", 16, 1, ""},
        {"1.2.3.0000000004", 16, 1, ""},
    };
    for (const auto &[text, size, result, expected] : rows) {
        std::string out = filled("");
        EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard(text, out.data(), size), result) << text;
        EXPECT_EQ(out, filled(expected)) << text << " into " << size;
    }
    EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard("", nullptr, 8), 1U);
}

using MacBytes = std::array<uint8_t, ZEMA_MAC_SIZE>;

TEST_F(Conversions, OfEthernetTexts)
{
    const std::tuple<const char *, const char *, MacBytes, std::vector<Values>> rows[] = {
        {"in the order of the text", "00:1a:2B:3c:4D:5e", {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {}},
        {"what is not there is 0", "1a:2b", {0x1A, 0x2B}, {}},
        {"the low bits of a field", "1ff:2", {0xFF, 0x02}, {}},
        {"signs, prefixes and blanks", " -1:0x2: 3", {0xFF, 0x02, 0x03}, {}},
        {"up to the first mismatch", "1:2-3:4", {0x01, 0x02}, {}},
        {"no field", "xyz", {}, {{1, 0}}},
        {"no text", "", {}, {{1, 0xFFFFFFFF}}},
    };
    for (const auto &[reason, text, expected, records] : rows) {
        platform.reset();
        MacBytes bytes;
        bytes.fill(0xEE);
        EXPECT_EQ(QX_UTL_MacStrToArr(text, bytes.data()), 0U) << reason;
        EXPECT_EQ(bytes, expected) << reason;
        EXPECT_TRUE(platform.recorded(kFile, records)) << reason;
    }
    MacBytes bytes = {1, 2};
    EXPECT_EQ(QX_UTL_MacStrToArr(nullptr, bytes.data()), 1U);
    EXPECT_EQ(QX_UTL_MacStrToArr("1:2:3:4:5:6", nullptr), 1U);
    EXPECT_EQ(bytes, (MacBytes{1, 2}));
}

TEST_F(Conversions, OfEthernetAddressesTheLastByteFirst)
{
    const MacBytes bytes = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    for (const uint32_t size : {0U, 1U, 17U, 18U, 64U}) {
        platform.reset();
        std::string out = filled("");
        EXPECT_EQ(QX_UTL_MacArrToStr(bytes.data(), out.data(), size), 0U);
        EXPECT_LE(out.find_last_not_of('#') + 1, size) << "it writes into its buffer only";
        EXPECT_TRUE(size == 0 || std::string(out.c_str()) == (size < 18 ? "" : "5E:4D:3C:2B:1A:00")) << size;
        EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(size < 18 ? 1 : 0, Values{1, 0xFFFFFFFF})));
        EXPECT_EQ(platform.calls({"snprintf_s"}).at(0).values, (std::vector<uint64_t>{size, size}));
    }
    char out[18] = "#";
    platform.reset();
    platform.fail("snprintf_s", 1, 0);
    EXPECT_EQ(QX_UTL_MacArrToStr(bytes.data(), out, sizeof out), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {{1, 0}})) << "nothing formatted is a failure too";
    EXPECT_EQ(QX_UTL_MacArrToStr(nullptr, out, sizeof out) + QX_UTL_MacArrToStr(bytes.data(), nullptr, 18),
              2U);
    EXPECT_EQ(out[0], '#');
}

TEST_F(Conversions, OfIpv6Addresses)
{
    std::array<uint8_t, 16> address = {};
    char text[46] = "#";
    EXPECT_EQ(IPv6Address_ConvertFromString("2001:db8::1", address.data()), 0U);
    EXPECT_EQ(address, (std::array<uint8_t, 16>{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), text, 11), 1U) << "no room for the zero";
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), text, 12), 0U);
    EXPECT_STREQ(text, "2001:db8::1");
    EXPECT_EQ(IPv6Address_ConvertFromString("1.2.3.4", address.data()), 1U);
    EXPECT_EQ(platform.recordCount, 0U);
    EXPECT_EQ(IPv6Address_ConvertFromString(nullptr, address.data()), 1U);
    EXPECT_EQ(IPv6Address_ConvertFromString("::1", nullptr), 1U);
    EXPECT_EQ(IPv6Address_ConvertToString(nullptr, text, sizeof text), 1U);
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), nullptr, sizeof text), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}, {1}, {1}}));
}

TEST_F(Conversions, OfNumbers)
{
    uint32_t value = 77;
    for (const std::string &text : split("-1|+1| 1|12a|1.5|1\xB1")) {
        EXPECT_TRUE(QX_UTL_ATOI(text.c_str(), &value) == 1 && value == 77) << text;
    }
    EXPECT_TRUE(QX_UTL_ATOI(nullptr, &value) == 1 && value == 77);
    for (const std::string &text : split("0|007|4294967295|4294967296|4294967297|")) {
        EXPECT_EQ(QX_UTL_ATOI(text.c_str(), &value), 0U) << text;
        EXPECT_EQ(value, static_cast<uint32_t>(std::strtoull(text.c_str(), nullptr, 10))) << "the low bits";
    }
    EXPECT_EQ(QX_UTL_ATOI("1", nullptr), 1U);
}

// The checksum as its definition has it, kept in 32 bits.
uint32_t plainChecksum(std::vector<uint8_t> bytes)
{
    bytes.resize((bytes.size() + 1) / 2 * 2);
    uint32_t sum = 0;
    for (size_t i = 0; i < bytes.size(); i += 2) {
        uint16_t word;
        std::memcpy(&word, &bytes[i], sizeof word);
        sum += word;
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

TEST_F(Conversions, SumUp)
{
    const uint8_t header[] = {0x45, 0x00, 0x00, 0x73, 0x00, 0x00, 0x40, 0x00, 0x40, 0x11,
                              0xB8, 0x61, 0xC0, 0xA8, 0x00, 0x01, 0xC0, 0xA8, 0x00, 0xC7};
    EXPECT_EQ(QX_UTL_Checksum(header, sizeof header), 0U) << "a header with its own checksum in it";
    EXPECT_EQ(QX_UTL_Checksum(header, -3), 0xFFFFU);

    std::mt19937 engine(10); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same bytes in every run
    for (size_t i = 0; i < 4802; ++i) {
        const size_t size = i < 4800 ? i / 3 : 131072 + i % 2 * 868'931; // to where 32 bits wrap, and beyond
        std::vector<uint8_t> bytes(size, i % 3 == 0 ? 0x00 : 0xFF);
        if (i % 3 == 2) {
            std::ranges::generate(bytes, [&] { return static_cast<uint8_t>(engine()); });
        }
        ASSERT_EQ(QX_UTL_Checksum(bytes.data(), static_cast<int32_t>(size)), plainChecksum(bytes)) << size;
    }
}

TEST_F(Conversions, ReplaceTheFirstOccurrence)
{
    const std::string longest(255, 'x');
    const auto trace = [](const std::string &length) {
        return std::vector<Call>{{"trace", {49, 1}, kFile + (" QX_StrReplaceSubStr Len is err :" + length)}};
    };
    const auto recorded = [](const Values &values) {
        return std::vector{zema::test::recordOf(kFile, values)};
    };
    struct Row {
        const char *reason;
        std::string source, search, replacement;
        uint32_t size;
        uint32_t result; // 1: nothing is written
        std::string out;
        std::vector<Call> journal = {};
        uint32_t failing = 0; // which of the appends
    };
    const Row rows[] = {
        {"ignoring case", "Hello World", "WORLD", "there", 32, 0, "Hello there"},
        {"only the first", "world world", "world", "there", 32, 0, "there world"},
        {"in the middle", "a-B-c", "b", "longer", 11, 0, "a-longer-c"},
        {"just no room for the zero", "a-B-c", "b", "longer", 10, 1, "", trace("10")},
        {"no room at all", "a", "a", "", 0, 1, "", trace("0")},
        {"to nothing", "abc", "abc", "", 1, 0, ""},
        {"an empty search is at the start", "abc", "", "x", 8, 0, "xabc"},
        {"an empty source", "", "", "x", 8, 0, "x"},
        {"no occurrence", "abc", "abd", "x", 8, 1, ""},
        {"a search longer than the source", "ab", "abc", "x", 8, 1, ""},
        {"the longest source and search", longest, longest, "y", 8, 0, "y"},
        {"a source too long", longest + "x", "x", "y", 400, 1, "", recorded({1})},
        {"a search too long", "x", longest + "x", "y", 400, 1, "", recorded({1})},
        {"a long replacement, whole", "-x-", "x", longest + longest, 600, 0, "-" + longest + longest + "-"},
        {"that does not fit after all", "-x-", "x", longest + longest, 300, 0, "-",
         recorded({1, ERANGE, 300, 256})},
        {"no replacement appended", "a-b-c", "b", "xyz", 32, 0, "a--c", recorded({1, 34, 32, 3}), 1},
        {"no rest appended", "a-b-c", "b", "xyz", 32, 0, "a-xyz", recorded({1, 34, 32}), 2},
    };
    for (const Row &row : rows) {
        platform.reset();
        platform.fail(row.failing != 0 ? "strncat_s" : "", row.failing, 34);
        std::string out = filled("");
        EXPECT_EQ(QX_StrReplaceSubStr(row.source.c_str(), row.search.c_str(), row.replacement.c_str(),
                                      out.data(), row.size),
                  row.result)
            << row.reason;
        const std::string expected(row.out.c_str(), row.result != 0 ? 0 : row.out.size() + 1);
        EXPECT_EQ(out, filled(expected)) << row.reason;
        EXPECT_EQ(platform.calls({"record", "trace"}), row.journal) << row.reason;
    }
    EXPECT_EQ(platform.places.size(), 3U);
    char out[8];
    for (const uint32_t result :
         {QX_StrReplaceSubStr(nullptr, "a", "b", out, 8), QX_StrReplaceSubStr("a", nullptr, "b", out, 8),
          QX_StrReplaceSubStr("a", "a", nullptr, out, 8), QX_StrReplaceSubStr("a", "a", "b", nullptr, 8)}) {
        EXPECT_EQ(result, 1U);
    }
}

} // namespace
