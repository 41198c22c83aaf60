// What the validators of addresses, masks, names and ranges accept, record and ask for.
#include "qx/feature.h"
#include "qx/text.h"
#include "tests/platform/surroundings.h"
#include "tests/support/platform_double.h"
#include "tests/util/text_models.h"
#include "zema/ipv6.h"

#include <arpa/inet.h>
#include <optional>
#include <random>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_util_common.cpp";
constexpr const char *kAskFeature = "QX_Feature_IsSupportByFeatureName";
constexpr uint32_t kNoNumber = 77; // what this host's conversion yields for a text that is no number

std::optional<uint32_t> bitLengthFailure;

} // namespace

// ---- This host's own functions; it may take the place of the library's too ----

uint32_t QX_Feature_IsSupportByFeatureName(const char *name)
{
    return static_cast<uint32_t>(PlatformDouble::instance().enter({kAskFeature, {}, name}).value_or(0));
}

uint32_t QX_OS_StrToInt32(const char *text, int32_t *out)
{
    return real(QX_OS_StrToInt32, "QX_OS_StrToInt32")(text, out) == 0 ? 0 : kNoNumber;
}

uint32_t QX_UTL_GetIPv6MaskBitLen(uint32_t ulMaskByte, uint8_t *pucBits)
{
    return bitLengthFailure ? *bitLengthFailure
                            : real(QX_UTL_GetIPv6MaskBitLen, "QX_UTL_GetIPv6MaskBitLen")(ulMaskByte, pucBits);
}

namespace {

class Validators : public PlatformTest {};

TEST_F(Validators, TellQuadsApart)
{
    // Of the validator, the host's, the one of any class, the splitter and the mask's: 0 is accepted, n
    // refused by the conversion of a part.
    const std::pair<std::string, const char *> rows[] = {
        {"00001", "192.168.1.1|1.0.0.0|223.255.255.255|01.002.3.4"},
        {"01101", "0.0.0.0|127.0.0.1|255.1.2.3|0.1.2.3|1.2.3.0004|1.2.3.000000004|255.0.255.0|255.255.255.1"},
        {"01100", "255.255.255.255|255.255.255.0|255.255.254.0|000.0.0.0"},
        {"01001", "224.0.0.1|254.1.2.3"},
        {"11111", "1.2.3.256|1.2.3|1..256.x|.1.2.3|1.2.3.|-1.2.3.4|1.2.3.0000000004|255.255.255.000000x|"
                  "99999999999.0.0.0|"},
        {"11101", "1.2.3.4.5|1..2.3.4"},
        {"1nn11", "1..2.3|1.0.x.1|1.x.256.1|1.2.3.4 |1. .3.4| -1.2.3.4|+1.2.3.4|0x1.2.3.4|99999999999...1"},
        {"0nn11", " 1.2.3.4|1.\t2.\r3.4"},
        {"00000", "128.0.0.0"},
        {"11100", "255.255.255.0.7|255..255.255.0"},
        {"11110", ".255.255.255.0.|255.255.255.00000000|255.255.255.0000000x"},
    };
    const auto results = [](const char *text) {
        uint32_t octets[4];
        std::string all;
        for (const uint32_t result : {QX_UTL_ValidateIpAddress(text), QX_UTL_ValidateHostIpAddress(text),
                                      QX_UTL_CheckIpAddressIsValid(text), QX_UTL_IpAddrSplit(text, octets),
                                      QX_UTL_ValidateSubnetMask(text)}) {
            all += result == kNoNumber ? "n" : std::to_string(result);
        }
        return all;
    };
    for (const auto &[expected, texts] : rows) {
        for (const std::string &text : split(texts)) {
            EXPECT_EQ(results(text.c_str()), expected) << text;
        }
    }
    EXPECT_EQ(results(nullptr), "11111");
    EXPECT_EQ(QX_UTL_IpAddrSplit("1.2.3.4", nullptr), 1U);
    EXPECT_EQ(platform.recordCount, 0U);
}

using Validator = uint32_t (*)(const char *);

TEST_F(Validators, AcceptAndRefuse)
{
    const Validator mac = QX_UTL_ValidateMacAddress, ipv6 = QX_UTL_ValidateIpv6Address;
    const Validator prefix = QX_UTL_CheckIPV6_FE8_AND_FEC, isName = QX_UTL_ISDomainValid;
    const Validator isLabel = QX_UTL_ISDomainSplitValid, isRange = QX_UTL_IsIpRange;
    const std::string label(63, 'a');
    const std::string name = label + "." + label + "." + label + "." + label; // of 255
    const std::string range = "1.1.1.1-1.1.1.2" + std::string(240, '0');      // of 255
    struct Row {
        Validator validate;
        uint32_t result;
        std::string texts;
        size_t places = 0; // that have not recorded before
        std::vector<Values> records = {};
    };
    const std::vector<Values> one = {{1}};
    const Row rows[] = {
        {mac, 0,
         "aa:BB:cc:DD:ee:FF|0:1:2:3:4:5|000a:b:c:d:e:f|0xA:B:C:D:E:F|0:1:2:3:4:0XFf|FF:FF:FF:FF:FF:FF"},
        {mac, 0, "00:00:00:00:00:00| 0:\t1:2:3:4:5|00001:1:2:3:44:55"},
        {mac, 1, "00:11:22:33:44|0:1:2:3:4:5:6|00::11:22:33:44|:0:1:2:3:4:5|0:1:2:3:4:5:|00-11-22-33-44-55"},
        {mac, 1, "100:1:2:3:4:5|00:11:22:33:44:5g|0:1:2:3:4:-5|0:1:2:3:4: +5|0:1:2:3:4:5 |0:1:2:3:4: "},
        {mac, 1, "0:1:2:3:4:0x|0x0x1:2:3:4:5:6|000001:1:2:3:44:55|::::::"},
        {mac, 1, "|:::::", 1, one},
        {QX_UTL_ValidateMacAddress_Inner, 0, "aa:BB:cc:DD:ee:FF"},
        {QX_UTL_ValidateMacAddress_Inner, 1, "", 0, one},
        {ipv6, 0, "2001:db8::1|::ffff:192.0.2.1|::2|1::|100::1|fe80::1|fec0::1"},
        {ipv6, 1, "2001:db8::zz|::|::1|ff02::1", 4, one},
        {ipv6, 1, "1.2.3.4||ff80::1", 0, one},
        {prefix, 0, "2001:db8::1|fe90::1|febf::1|fed0::1|fd80::1|8efe::1|::1"},
        {prefix, 1, "2001:db8::zz|fe80::1|fec0::1", 3, one},
        {prefix, 1, "1.2.3.4||fe8f::1|fecf::1", 0, one},
        {isName, 1, "example.com|a.b|localhost|1.2.3.4|a-.-b|xn--bcher-kva.example|Zz.Aa.09|" + name},
        {isName, 0,
         "|-a.b|a.b-|.a.b|a.b.|a..b|abcdefg..b|a_b.com|b\xFC.example|" + label + "a.b|b.a" + label},
        {isName, 0, name + "a", 1, {{1, 256}}},
        {isLabel, 1, "|-abc-|" + label},
        {isLabel, 0, label + "a"},
        {isRange, 1, "192.168.1.10-192.168.1.20|192.168.1.5-192.168.1.5|--1.1.1.1-1.1.1.2|0.0.0.1-0.0.0.9"},
        {isRange, 1, "8.1.1.1-010.1.1.2"},
        {isRange, 0, "192.168.1.10||" + range + "0", 1, one},
        {isRange, 0, "192.168.1.10-|-|-192.168.1.10", 1, one},
        {isRange, 0, "192.168.1.10 - 192.168.1.20|x-192.168.1.20", 1, one},
        {isRange, 0, "1.1.1.1--1.1.1.2|1.1.1.1-1.1.1.2-1.1.1.3|" + range, 1, one},
        {isRange, 0, "192.168.1.10-192.168.2.10|192.168.1.10- 192.168.1.20", 1, one},
        {isRange, 0, "192.168.1.20-192.168.1.10", 1, one},
        {isRange, 0, "255.255.255.1-255.255.255.9", 1, one},
        {isRange, 0, "0.0.0.0-0.0.0.9", 1, one},
    };
    size_t places = 0;
    for (const Row &row : rows) {
        places += row.places;
        for (const std::string &text : split(row.texts)) {
            platform.reset();
            EXPECT_EQ(row.validate(model::Exact(text)), row.result) << text;
            EXPECT_TRUE(platform.recorded(kFile, row.records)) << text;
        }
        EXPECT_EQ(platform.places.size(), places) << row.texts;
    }
    platform.reset();
    for (const Validator validate : {mac, ipv6, prefix, QX_UTL_ValidateNumber, QX_UTL_ValidateThreeNumber}) {
        EXPECT_EQ(validate(nullptr), 1U);
    }
    EXPECT_EQ(QX_UTL_ISDomainValid(nullptr), 0U);
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}, {1}}));
    EXPECT_EQ(platform.places.size(), places + 3);
}

// Texts of the bytes that matter to one validator or another, most of them a little beside a good one.
TEST_F(Validators, AgreeWithTheirModels)
{
    const std::string label(60, 'a');
    const std::tuple<std::string, size_t, std::vector<std::string>> kinds[] = {
        {"00112255...  +-x\t9", 24, split("192.168.1.1|255.255.254.0|255.255.255.255|240.0.0.0|255.192.0.0")},
        {"0123456789/: -", 6, split("0000000000|000|999|1000")},
        {"0019aFx:::: +-g\n", 19, split("00:1a:2B:3c:4D:5e|0:1:2:3:4:5|aa:0xb:c:d:e:00f")},
        {"-..aZ09z_/:@[`{\x80\xE1", 40,
         split("www.example.com|" + label + "aaa.b." + label + "aaaa.c|" + label + "." + label + "." + label +
               "." + label + ".abcdefg.hij")},
    };
    platform.watching = false;
    std::mt19937 engine(4); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    size_t accepted = 0;
    for (int i = 0; i < 300'000; ++i) {
        const auto &[bytes, limit, good] = kinds[engine() % std::size(kinds)];
        std::string text = engine() % 4 != 0 ? good[engine() % good.size()] : "";
        for (size_t changes = engine() % (text.empty() ? limit : 4); changes > 0; --changes) {
            const size_t at = engine() % (text.size() + 1);
            text.replace(at, engine() % 2, 1, bytes[engine() % bytes.size()]);
        }
        ASSERT_EQ(model::disagreement(text), nullptr) << text;
        accepted += model::kQuad.matches(text) || model::kMac.matches(text) || model::isDomain(text) ? 1 : 0;
    }
    EXPECT_GT(accepted, 90'000U) << "the texts test nothing";
    for (size_t i = 0; i < 5120; ++i) { // names are looked at a word of bytes at a time
        std::string text(20, 'b');
        text[i / 256] = static_cast<char>(i % 256);
        ASSERT_EQ(model::disagreement(text.c_str()), nullptr) << text;
    }
}

// ---- Masks ----

TEST_F(Validators, KnowTheMaskOctets)
{
    for (uint32_t value = 0; value < 1024; ++value) {
        uint32_t bits = 0;
        while (bits < 8 && value != (0xFF00U >> bits & 0xFFU)) {
            ++bits;
        }
        uint8_t count = 99;
        EXPECT_EQ(QX_UTL_CheckNum(value), bits < 8 ? 0U : 1U) << value;
        EXPECT_EQ(QX_UTL_CheckIPv6MaskNum(value), bits < 8 ? 0U : 1U) << value;
        EXPECT_EQ(QX_UTL_GetIPv6MaskBitLen(value, &count), bits < 8 ? 0U : 1U) << value;
        EXPECT_EQ(count, bits < 8 ? bits : 99U) << value;
        const std::string mask = "255." + std::to_string(value) + ".0.0";
        EXPECT_EQ(QX_UTL_ValidateSubnetMask(mask.c_str()), bits < 8 || value == 255 ? 0U : 1U) << mask;
    }
    EXPECT_EQ(QX_UTL_GetIPv6MaskBitLen(0x80, nullptr), 1U);
    for (const auto &[mask, expected] :
         {std::pair(0U, 0U), {0x80000000U, 1U}, {0xFF00FF00U, 24U}, {~0U, 32U}}) {
        uint32_t count = 99;
        EXPECT_EQ(QX_UTL_GetSubNetMaskNum(mask, &count), 0U);
        EXPECT_EQ(count, expected) << mask;
    }
}

TEST_F(Validators, CopyAMaskToTheHeap)
{
    const std::pair<const char *, std::vector<uint64_t>> rows[] = {
        {"0.0.0.0", {}},
        {"", {1}},
        {"255.255.0.0", {12}},
        {"255.255.255.0000000", {20}},
        {"255.255.255.00000000000", {20}},
    };
    for (const auto &[text, size] : rows) {
        platform.reset();
        (void)QX_UTL_ValidateSubnetMask(text);
        const std::vector<Call> copy = {{"QX_OS_MemMallocD", size, {}}, {"QX_OS_MemFreeD", {}, {}}};
        EXPECT_EQ(platform.journal, size.empty() ? std::vector<Call>{} : copy) << text;
    }
    platform.fail("QX_OS_MemMallocD", 1);
    EXPECT_EQ(QX_UTL_ValidateSubnetMask("255.0.0.0"), 1U) << "no memory";
}

TEST_F(Validators, AskTheFeatureForEachMaskThatSplits)
{
    const std::tuple<const char *, uint32_t, uint32_t, size_t> rows[] = {
        // off, on, how often it is asked
        {"255.255.255.0", 0, 0, 1}, {"255.255.255.7", 0, 0, 1},   {"255.255.0.0", 1, 0, 1},
        {"255.0.0.0", 1, 0, 1},     {"255.255.254.255", 1, 0, 1}, {"128.0.0.0", 1, 1, 1},
        {"0.255.255.255", 1, 1, 1}, {"255.0.0", 1, 1, 0},         {nullptr, 1, 1, 0},
    };
    for (const auto &[mask, off, on, asked] : rows) {
        for (const auto &[answer, expected] : {std::pair(0U, off), std::pair(2U, on)}) {
            platform.reset();
            platform.fail(kAskFeature, 0, answer);
            EXPECT_EQ(QX_UTL_IsMask24BitOrMore(mask), expected) << mask << " with " << answer;
            EXPECT_EQ(platform.journal,
                      std::vector<Call>(asked, {kAskFeature, {}, "ZEMA_FT_SUPPORT_CLASS_A_IP"}));
        }
    }
}

TEST_F(Validators, RelateAddressesToMasks)
{
    const std::tuple<const char *, const char *, uint32_t> rows[] = {
        {"192.168.1.0", "255.255.255.0", 1},
        {"192.168.1.255", "255.255.255.0", 1},
        {"192.168.1.1", "255.255.255.0", 0},
        {"192.168.1.255", "255.255.0.0", 0},
        {"192.168.1.1", "255.255.255.255", 1},
        {"192.168.1.1", "nothing", 1},
        {"nothing", "255.255.255.0", 1},
        {nullptr, "255.0.0.0", 1},
        {"1.2.3.4", nullptr, 1},
    };
    for (const auto &[address, mask, result] : rows) {
        EXPECT_EQ(QX_UTL_ValidateHostIpWithSubnetMask(address, mask), result) << address << " " << mask;
    }
    const uint32_t first[] = {10, 1, 2, 3}, second[] = {10, 1, 9, 3};
    const uint32_t wide[] = {255, 255, 0, 0}, narrow[] = {255, 255, 255, 0}, last[] = {255, 255, 255, 3};
    const uint32_t *const quads[][4] = {
        {first, wide, second, wide},  {first, narrow, second, narrow}, {first, narrow, second, wide},
        {first, narrow, first, last}, {nullptr, wide, first, wide},    {first, nullptr, first, wide},
        {first, wide, nullptr, wide}, {first, wide, first, nullptr},
    };
    for (const auto &quad : quads) {
        EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(quad[0], quad[1], quad[2], quad[3]), &quad == quads ? 0U : 1U)
            << &quad - quads;
    }
}

TEST_F(Validators, AcceptContiguousIpv6MasksOnly)
{
    // A run of ones, and one more: a hole before it unless it is the next one, or behind the mask.
    for (uint32_t i = 0; i < 129 * 129; ++i) {
        const uint32_t run = i % 129, more = i / 129;
        std::array<uint8_t, 17> mask = {};
        for (uint32_t bit = 0; bit <= run; ++bit) {
            const uint32_t at = bit < run ? bit : more;
            mask[at / 8] = static_cast<uint8_t>(mask[at / 8] | 0x80U >> at % 8);
        }
        const uint32_t expected = more < run || more == 128 ? run : more == run ? run + 1 : 999;
        char text[INET6_ADDRSTRLEN];
        uint32_t prefix = 999;
        inet_ntop(AF_INET6, mask.data(), text, sizeof text);
        ASSERT_EQ(QX_UTL_ValidateIpv6Mask(text, &prefix), expected == 999 ? 1U : 0U) << text;
        ASSERT_EQ(prefix, expected) << text;
    }
    EXPECT_EQ(platform.recordCount, 0U);
    const std::tuple<const char *, uint32_t, std::vector<Values>> rows[] = {
        {"ffff::zz", 1, {{1}}}, {"ffff::", 5, {{5}}}, {nullptr, 1, {{1}, {1}}}};
    bitLengthFailure = 5;
    for (const auto &[text, result, records] : rows) {
        uint32_t prefix = 999;
        platform.reset();
        EXPECT_EQ(QX_UTL_ValidateIpv6Mask(text, &prefix), result) << text;
        EXPECT_TRUE(platform.recorded(kFile, records)) << text;
        EXPECT_EQ(prefix, 999U) << text;
    }
    bitLengthFailure.reset();
    EXPECT_EQ(platform.places.size(), 3U) << "the parser's, and two of the mask";
}

} // namespace
