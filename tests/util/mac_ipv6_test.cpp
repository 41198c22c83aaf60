// Ethernet addresses, and IPv6 addresses and masks.
#include "tests/support/platform_double.h"
#include "zema/ipv6.h"
#include "zema/mac.h"

#include <algorithm>
#include <arpa/inet.h>
#include <dlfcn.h>
#include <optional>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_util_common.cpp";

std::optional<uint32_t> bitLengthFailure;

} // namespace

// A host may take the place of the library's own functions too.
uint32_t QX_UTL_GetIPv6MaskBitLen(uint32_t ulMaskByte, uint8_t *pucBits)
{
    static const auto real =
        reinterpret_cast<decltype(&QX_UTL_GetIPv6MaskBitLen)>(dlsym(RTLD_NEXT, "QX_UTL_GetIPv6MaskBitLen"));
    return bitLengthFailure ? *bitLengthFailure : real(ulMaskByte, pucBits);
}

namespace {

class Mac : public PlatformTest {};
class Ipv6 : public PlatformTest {};

TEST_F(Mac, ValidatesTexts)
{
    struct Row {
        const char *reason;
        const char *text;
        uint32_t result;
        bool recorded = false;
    };
    const Row rows[] = {
        {"lower and upper case", "aa:BB:cc:DD:ee:FF", 0},
        {"one digit a part", "0:1:2:3:4:5", 0},
        {"leading zeros", "000a:b:c:d:e:f", 0},
        {"a prefix", "0xA:B:C:D:E:F", 0},
        {"a prefix in upper case", "0:1:2:3:4:0XFf", 0},
        {"broadcast", "FF:FF:FF:FF:FF:FF", 0},
        {"all zeros", "00:00:00:00:00:00", 0},
        {"blanks before a part", " 0:\t1:2:3:4:5", 0},
        {"five parts", "00:11:22:33:44", 1},
        {"seven", "0:1:2:3:4:5:6", 1},
        {"a missing part", "00::11:22:33:44", 1},
        {"a colon first", ":0:1:2:3:4:5", 1},
        {"a colon last", "0:1:2:3:4:5:", 1},
        {"hyphens", "00-11-22-33-44-55", 1},
        {"a part above 255", "100:1:2:3:4:5", 1},
        {"no digit", "00:11:22:33:44:5g", 1},
        {"a sign", "0:1:2:3:4:-5", 1},
        {"a sign behind a blank", "0:1:2:3:4: +5", 1},
        {"a blank behind a part", "0:1:2:3:4:5 ", 1},
        {"only a blank", "0:1:2:3:4: ", 1},
        {"a prefix without digits", "0:1:2:3:4:0x", 1},
        {"a prefix twice", "0x0x1:2:3:4:5:6", 1},
        {"seventeen characters", "00001:1:2:3:44:55", 0},
        {"eighteen", "000001:1:2:3:44:55", 1},
        {"no part at all", "", 1, true},
        {"colons only", ":::::", 1, true},
        {"more colons than there may be", "::::::", 1},
        {"missing", nullptr, 1},
    };
    for (const Row &row : rows) {
        for (const auto validate : {QX_UTL_ValidateMacAddress, QX_UTL_ValidateMacAddress_Inner}) {
            platform.reset();
            EXPECT_EQ(validate(row.text), row.result) << row.reason;
            EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(row.recorded ? 1 : 0, Values{1})))
                << row.reason;
        }
    }
}

using MacBytes = std::array<uint8_t, ZEMA_MAC_SIZE>;

TEST_F(Mac, ConvertsTexts)
{
    struct Row {
        const char *reason;
        const char *text;
        MacBytes bytes;
        std::vector<Values> records;
    };
    const Row rows[] = {
        {"in the order of the text", "00:1a:2B:3c:4D:5e", {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, {}},
        {"what is not there is 0", "1a:2b", {0x1A, 0x2B}, {}},
        {"the low bits of a field", "1ff:2", {0xFF, 0x02}, {}},
        {"signs, prefixes and blanks", " -1:0x2: 3", {0xFF, 0x02, 0x03}, {}},
        {"up to the first mismatch", "1:2-3:4", {0x01, 0x02}, {}},
        {"no field", "xyz", {}, {{1, 0}}},
        {"no text", "", {}, {{1, 0xFFFFFFFF}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        MacBytes bytes;
        bytes.fill(0xEE);
        EXPECT_EQ(QX_UTL_MacStrToArr(row.text, bytes.data()), 0U) << row.reason;
        EXPECT_EQ(bytes, row.bytes) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    MacBytes bytes = {1, 2};
    EXPECT_EQ(QX_UTL_MacStrToArr(nullptr, bytes.data()), 1U);
    EXPECT_EQ(QX_UTL_MacStrToArr("1:2:3:4:5:6", nullptr), 1U);
    EXPECT_EQ(bytes, (MacBytes{1, 2}));
}

TEST_F(Mac, PrintsTheLastByteFirst)
{
    const MacBytes bytes = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
    for (uint32_t size = 0; size < 20; ++size) {
        platform.reset();
        std::string text(24, '#');
        EXPECT_EQ(QX_UTL_MacArrToStr(bytes.data(), text.data(), size), 0U);
        EXPECT_EQ(text.find_first_not_of('#', size), std::string::npos) << "written behind the buffer";
        EXPECT_TRUE(size == 0 ||
                    text.c_str() == std::string(size < ZEMA_MAC_TEXT_SIZE ? "" : "5E:4D:3C:2B:1A:00"));
        EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(size < 18 ? 1 : 0, Values{1, 0xFFFFFFFF})))
            << size;
    }
    platform.reset();
    char text[18] = "#";
    platform.fail("snprintf_s", 1, 0);
    EXPECT_EQ(QX_UTL_MacArrToStr(bytes.data(), text, sizeof text), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {{1, 0}})) << "nothing formatted is a failure too";
    EXPECT_EQ(platform.calls({"snprintf_s"}).at(0).values, (std::vector<uint64_t>{18, 18}));
    EXPECT_EQ(QX_UTL_MacArrToStr(nullptr, text, sizeof text), 1U);
    EXPECT_EQ(QX_UTL_MacArrToStr(bytes.data(), nullptr, sizeof text), 1U);
    EXPECT_EQ(text[0], '#');
}

TEST_F(Ipv6, Converts)
{
    std::array<uint8_t, 16> address = {};
    char text[46] = "#";
    EXPECT_EQ(IPv6Address_ConvertFromString("2001:db8::1", address.data()), 0U);
    EXPECT_EQ(address, (std::array<uint8_t, 16>{0x20, 0x01, 0x0D, 0xB8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), text, 11), 1U) << "no room for the zero";
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), text, 12), 0U);
    EXPECT_STREQ(text, "2001:db8::1");
    EXPECT_EQ(IPv6Address_ConvertFromString("1.2.3.4", address.data()), 1U);
    EXPECT_TRUE(platform.recordCount == 0);
    EXPECT_EQ(IPv6Address_ConvertFromString(nullptr, address.data()), 1U);
    EXPECT_EQ(IPv6Address_ConvertFromString("::1", nullptr), 1U);
    EXPECT_EQ(IPv6Address_ConvertToString(nullptr, text, sizeof text), 1U);
    EXPECT_EQ(IPv6Address_ConvertToString(address.data(), nullptr, sizeof text), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}, {1}, {1}}));
}

TEST_F(Ipv6, RefusesWhatMayNotBeConfigured)
{
    struct Row {
        uint32_t policy;
        uint32_t prefix;
        std::vector<const char *> texts;
    };
    const Row rows[] = {
        {0,
         0,
         {"2001:db8::1", "::ffff:192.0.2.1", "::2", "1::", "100::1", "fe90::1", "febf::1", "fed0::1",
          "fd80::1", "8efe::1"}},
        {0, 1, {"fe80::1", "fe8f::1", "fec0::1", "fecf::1"}},
        {1, 0, {"::", "::1", "ff02::1", "ff80::1"}},
        {1, 1, {"2001:db8::zz", "1.2.3.4", "", nullptr}},
    };
    for (const Row &row : rows) {
        for (const char *text : row.texts) {
            platform.reset();
            EXPECT_EQ(QX_UTL_ValidateIpv6Address(text), row.policy) << text;
            EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(row.policy, Values{1}))) << text;
            platform.reset();
            EXPECT_EQ(QX_UTL_CheckIPV6_FE8_AND_FEC(text), row.prefix) << text;
            EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(row.prefix, Values{1}))) << text;
        }
    }
    platform.places.clear();
    for (const char *text : {static_cast<const char *>(nullptr), "x", "::", "::1", "ff02::1"}) {
        (void)QX_UTL_ValidateIpv6Address(text);
    }
    for (const char *text : {static_cast<const char *>(nullptr), "x", "fe80::", "fec0::"}) {
        (void)QX_UTL_CheckIPV6_FE8_AND_FEC(text);
    }
    EXPECT_EQ(platform.places.size(), 9U) << "a line for each reason";
}

TEST_F(Ipv6, AcceptsContiguousMasksOnly)
{
    const auto validate = [](const std::array<uint8_t, 16> &mask, uint32_t &prefix) {
        char text[46];
        return QX_UTL_ValidateIpv6Mask(inet_ntop(AF_INET6, mask.data(), text, sizeof text), &prefix);
    };
    for (uint32_t expected = 0; expected <= 128; ++expected) {
        std::array<uint8_t, 16> mask = {};
        for (uint32_t bit = 0; bit < expected; ++bit) {
            mask[bit / 8] = static_cast<uint8_t>(mask[bit / 8] | 0x80U >> bit % 8);
        }
        uint32_t prefix = 999;
        EXPECT_EQ(validate(mask, prefix), 0U);
        EXPECT_EQ(prefix, expected);
        // Any other bit behind the run's end makes a hole.
        for (uint32_t bit = expected + 1; bit < 128; ++bit) {
            std::array<uint8_t, 16> holed = mask;
            holed[bit / 8] = static_cast<uint8_t>(holed[bit / 8] | 0x80U >> bit % 8);
            prefix = 999;
            ASSERT_EQ(validate(holed, prefix), 1U) << expected << " and " << bit;
            ASSERT_EQ(prefix, 999U);
        }
    }
    EXPECT_TRUE(platform.recordCount == 0);
}

TEST_F(Ipv6, RecordsMasksThatCannotBeRead)
{
    uint32_t prefix = 999;
    EXPECT_EQ(QX_UTL_ValidateIpv6Mask("ffff::zz", &prefix), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}}));
    platform.reset();
    EXPECT_EQ(QX_UTL_ValidateIpv6Mask(nullptr, &prefix), 1U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}})) << "the parser's record, then its caller's";
    platform.reset();
    bitLengthFailure = 5;
    EXPECT_EQ(QX_UTL_ValidateIpv6Mask("ffff::", &prefix), 5U);
    bitLengthFailure.reset();
    EXPECT_TRUE(platform.recorded(kFile, {{5}}));
    EXPECT_EQ(prefix, 999U);
}

TEST_F(Ipv6, KnowsTheMaskOctets)
{
    for (uint32_t value = 0; value < 1024; ++value) {
        uint32_t bits = 0;
        while (bits < 8 && value != (0xFF00U >> bits & 0xFFU)) {
            ++bits;
        }
        uint8_t count = 99;
        EXPECT_EQ(QX_UTL_CheckIPv6MaskNum(value), bits < 8 ? 0U : 1U) << value;
        EXPECT_EQ(QX_UTL_GetIPv6MaskBitLen(value, &count), bits < 8 ? 0U : 1U) << value;
        EXPECT_EQ(count, bits < 8 ? bits : 99U) << value;
    }
    EXPECT_EQ(QX_UTL_GetIPv6MaskBitLen(0x80, nullptr), 1U);
}

} // namespace
