// IPv4 addresses, masks and records, and the ranges and hosts that are built on them.
#include "qx/feature.h"
#include "qx/text.h"
#include "tests/support/platform_double.h"
#include "tests/util/text_models.h"
#include "zema/domain.h"
#include "zema/ipv4.h"

#include <arpa/inet.h>
#include <bit>
#include <dlfcn.h>
#include <random>

using namespace zema::test;

namespace {

constexpr const char *kFile = "qx_util_common.cpp";
constexpr uint32_t kNoNumber = 77; // what this host's conversion yields for a text that is no number

std::vector<std::string> featuresAsked;
uint32_t featureAnswer = 0;

} // namespace

// ---- This host's own functions ----

uint32_t QX_Feature_IsSupportByFeatureName(const char *name)
{
    featuresAsked.emplace_back(name);
    return featureAnswer;
}

uint32_t QX_OS_StrToInt32(const char *text, int32_t *out)
{
    static const auto real =
        reinterpret_cast<decltype(&QX_OS_StrToInt32)>(dlsym(RTLD_NEXT, "QX_OS_StrToInt32"));
    return real(text, out) == 0 ? 0 : kNoNumber;
}

namespace {

class Ipv4 : public PlatformTest {
protected:
    Ipv4()
    {
        featuresAsked.clear();
        featureAnswer = 0;
    }
};

TEST_F(Ipv4, TellsTheValidatorsApart)
{
    struct Row {
        // Of the validator, the host's, the one of any class, the splitter and the mask's: 0 is accepted, n
        // refused by the conversion of a part.
        std::string results;
        std::vector<const char *> texts;
    };
    const Row rows[] = {
        {"00001", {"192.168.1.1", "1.0.0.0", "223.255.255.255", "01.002.3.4"}},
        {"01101",
         {"0.0.0.0", "127.0.0.1", "255.1.2.3", "0.1.2.3", "1.2.3.0004", "1.2.3.000000004", "255.0.255.0",
          "255.255.255.1"}},
        {"01100", {"255.255.255.255", "255.255.255.0", "255.255.254.0", "000.0.0.0"}},
        {"01001", {"224.0.0.1", "254.1.2.3"}},
        {"11111",
         {"1.2.3.256", "1.2.3", "1..256.x", ".1.2.3", "1.2.3.", "-1.2.3.4", "1.2.3.0000000004",
          "255.255.255.000000x", "99999999999.0.0.0", "", nullptr}},
        {"11101", {"1.2.3.4.5", "1..2.3.4"}},
        {"1nn11",
         {"1..2.3", "1.x.256.1", "1.2.3.4 ", "1. .3.4", " -1.2.3.4", "+1.2.3.4", "0x1.2.3.4",
          "99999999999...1"}},
        {"0nn11", {" 1.2.3.4", "1.\t2.\r3.4"}},
        {"00000", {"128.0.0.0"}},
        {"11100", {"255.255.255.0.7", "255..255.255.0"}},
        {"11110", {".255.255.255.0.", "255.255.255.00000000", "255.255.255.0000000x"}},
    };
    for (const Row &row : rows) {
        for (const char *text : row.texts) {
            uint32_t octets[4] = {};
            std::string results;
            for (const uint32_t result :
                 {QX_UTL_ValidateIpAddress(text), QX_UTL_ValidateHostIpAddress(text),
                  QX_UTL_CheckIpAddressIsValid(text), QX_UTL_IpAddrSplit(text, octets),
                  QX_UTL_ValidateSubnetMask(text)}) {
                results += result == kNoNumber ? "n" : std::to_string(result);
            }
            EXPECT_EQ(results, row.results) << (text == nullptr ? "a missing text" : text);
        }
    }
    EXPECT_EQ(QX_UTL_IpAddrSplit("1.2.3.4", nullptr), 1U);
    EXPECT_TRUE(platform.recordCount == 0);
}

// Texts of the bytes that matter to one validator or another, most of them a little beside a good one.
TEST_F(Ipv4, AgreesWithTheModelsAsAllValidatorsDo)
{
    const std::string label(60, 'a');
    const std::tuple<std::string, size_t, std::vector<std::string>> kinds[] = {
        {"00112255...  +-x\t9", 24, {"192.168.1.1", "255.255.254.0", "10.0.0.200", "255.255.255.255"}},
        {"0019aFx:::: +-g\n", 19, {"00:1a:2B:3c:4D:5e", "0:1:2:3:4:5", "aa:0xb:c:d:e:00f"}},
        {"-..aZ09z_/:@[`{\x80\xE1",
         40,
         {"www.example.com", label + "aaa.b." + label + "aaaa.c",
          label + "." + label + "." + label + "." + label + ".abcdefg.hij"}},
    };
    platform.watching = false;
    std::mt19937 engine(4); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    size_t accepted = 0;
    for (int i = 0; i < 1'000'000; ++i) {
        const auto &[bytes, limit, good] = kinds[engine() % std::size(kinds)];
        std::string text = engine() % 4 != 0 ? good[engine() % good.size()] : "";
        for (size_t changes = engine() % (text.empty() ? limit : 4); changes > 0; --changes) {
            const size_t at = engine() % (text.size() + 1);
            text.replace(at, engine() % 2, 1, bytes[engine() % bytes.size()]);
        }
        ASSERT_EQ(model::disagreement(text, kNoNumber), nullptr) << text;
        accepted += model::isStrictQuad(text) || model::isMac(text) || model::isDomain(text) ? 1 : 0;
    }
    EXPECT_GT(accepted, 300'000U) << "the texts test nothing";
}

TEST_F(Ipv4, AcceptsContiguousMasksOnly)
{
    platform.watching = false;
    const auto textOf = [](uint32_t mask) {
        char text[16];
        const uint32_t bytes = htonl(mask);
        return std::string(inet_ntop(AF_INET, &bytes, text, sizeof text));
    };
    for (uint32_t prefix = 0; prefix <= 32; ++prefix) {
        const auto mask = static_cast<uint32_t>(0xFFFFFFFF00000000ULL >> prefix);
        uint32_t count = 99;
        EXPECT_EQ(QX_UTL_ValidateSubnetMask(textOf(mask).c_str()), prefix == 0 ? 1U : 0U) << prefix;
        EXPECT_EQ(QX_UTL_GetSubNetMaskNum(mask, &count), 0U);
        EXPECT_EQ(count, prefix);
    }
    uint32_t count = 99;
    EXPECT_EQ(QX_UTL_GetSubNetMaskNum(0xFF00FF00, &count), 0U);
    EXPECT_EQ(count, 24U);
    for (uint64_t mask = 1; mask <= UINT32_MAX; mask += 9973) {
        const auto word = static_cast<uint32_t>(mask);
        ASSERT_EQ(QX_UTL_ValidateSubnetMask(textOf(word).c_str()) == 0, std::has_single_bit(~word + 1U))
            << word;
    }
}

TEST_F(Ipv4, CopiesAMaskToTheHeap)
{
    const std::pair<const char *, uint32_t> sizes[] = {
        {"", 1},
        {"255.255.0.0", 12},
        {"255.255.255.0000000", 20},
        {"255.255.255.00000000000", 20},
    };
    for (const auto &[text, size] : sizes) {
        platform.reset();
        (void)QX_UTL_ValidateSubnetMask(text);
        EXPECT_EQ(platform.calls({"QX_OS_MemMallocD", "QX_OS_MemFreeD"}),
                  (std::vector<Call>{{"QX_OS_MemMallocD", {size}, {}}, {"QX_OS_MemFreeD", {}, {}}}))
            << text;
    }
    platform.reset();
    EXPECT_EQ(QX_UTL_ValidateSubnetMask("0.0.0.0"), 1U);
    EXPECT_TRUE(platform.journal.empty()) << "refused before the copy";
    platform.fail("QX_OS_MemMallocD", 1);
    EXPECT_EQ(QX_UTL_ValidateSubnetMask("255.0.0.0"), 1U) << "no memory";
}

TEST_F(Ipv4, AsksTheFeatureForEachMaskThatSplits)
{
    struct Row {
        const char *mask;
        uint32_t off;
        uint32_t on;
        size_t asked;
    };
    const Row rows[] = {
        {"255.255.255.0", 0, 0, 1}, {"255.255.255.7", 0, 0, 1},   {"255.255.0.0", 1, 0, 1},
        {"255.0.0.0", 1, 0, 1},     {"255.255.254.255", 1, 0, 1}, {"128.0.0.0", 1, 1, 1},
        {"0.255.255.255", 1, 1, 1}, {"255.0.0", 1, 1, 0},         {nullptr, 1, 1, 0},
    };
    for (const Row &row : rows) {
        for (const auto &[answer, expected] : {std::pair(0U, row.off), std::pair(2U, row.on)}) {
            featuresAsked.clear();
            featureAnswer = answer;
            EXPECT_EQ(QX_UTL_IsMask24BitOrMore(row.mask), expected) << row.mask << " with " << answer;
            EXPECT_EQ(featuresAsked, std::vector<std::string>(row.asked, "ZEMA_FT_SUPPORT_CLASS_A_IP"));
        }
    }
}

TEST_F(Ipv4, RelatesAddressesToMasks)
{
    struct Row {
        const char *address;
        const char *mask;
        uint32_t result;
    };
    const Row rows[] = {
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
    for (const Row &row : rows) {
        EXPECT_EQ(QX_UTL_ValidateHostIpWithSubnetMask(row.address, row.mask), row.result)
            << row.address << " " << row.mask;
    }
    using Octets = uint32_t[4];
    const Octets first = {10, 1, 2, 3};
    const Octets second = {10, 1, 9, 3};
    const Octets narrow = {255, 255, 255, 0};
    const Octets wide = {255, 255, 0, 0};
    const Octets lastBits = {255, 255, 255, 3};
    EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(first, wide, second, wide), 0U);
    EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(first, narrow, second, narrow), 1U);
    EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(first, narrow, second, wide), 1U) << "each under its own mask";
    EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(first, narrow, first, lastBits), 1U) << "the last octet";
    for (size_t missing = 0; missing < 4; ++missing) {
        const uint32_t *arrays[] = {first, wide, first, wide};
        arrays[missing] = nullptr;
        EXPECT_EQ(QX_UTL_ValidateIpSameSubNet(arrays[0], arrays[1], arrays[2], arrays[3]), 1U) << missing;
    }
}

TEST_F(Ipv4, ChecksNumbers)
{
    const std::tuple<const char *, uint32_t, uint32_t> rows[] = {
        {"0000000000", 0, 1}, {"000", 0, 0}, {"999", 0, 0}, {"1000", 0, 1}, {"7", 0, 0},     {"", 1, 1},
        {"1 ", 1, 1},         {"-1", 1, 1},  {"1/", 1, 1},  {"1:", 1, 1},   {nullptr, 1, 1},
    };
    for (const auto &[text, number, three] : rows) {
        EXPECT_EQ(QX_UTL_ValidateNumber(text), number) << text;
        EXPECT_EQ(QX_UTL_ValidateThreeNumber(text), three) << text;
    }
    for (uint32_t value = 0; value < 1024; ++value) {
        const bool isInTable = value < 255 && std::has_single_bit(256 - value);
        EXPECT_EQ(QX_UTL_CheckNum(value), isInTable ? 0U : 1U) << value;
    }
}

// ---- Records ----

constexpr uint8_t kUnset = 0xEE;

IpAddrRecord unsetRecord()
{
    IpAddrRecord record;
    std::memset(&record, kUnset, sizeof record);
    return record;
}

IpAddrRecord recordOf(int family, const char *text, uint32_t kind)
{
    IpAddrRecord record = unsetRecord();
    EXPECT_EQ(inet_pton(family, text, family == AF_INET ? record.aucIpv4 : record.aucIpv6), 1) << text;
    record.ulFamily = kind;
    return record;
}

bool isSame(const IpAddrRecord &a, const IpAddrRecord &b)
{
    return std::memcmp(&a, &b, sizeof a) == 0;
}

TEST_F(Ipv4, FillsRecords)
{
    struct Row {
        const char *text;
        int family;         // of the text as an address, 0 when it is none
        int host;           // the same for a host
        const char *hostAs; // what a host's address is, when that is not the text
    };
    const Row rows[] = {
        {"192.168.1.1", AF_INET, AF_INET, nullptr},
        {"2001:db8::1", AF_INET6, AF_INET6, nullptr},
        {"::ffff:1.2.3.4", AF_INET6, AF_INET6, nullptr},
        {"::1", AF_INET6, AF_INET6, nullptr},
        {"0.0.0.0", AF_INET, 0, nullptr},
        {"255.255.255.255", AF_INET, AF_INET, nullptr},
        {"010.1.2.3", 0, AF_INET, "8.1.2.3"},
        {" 1.2.3.4", 0, AF_INET, "255.255.255.255"},
        {"1.2.3", 0, 0, nullptr},
        {"example.com", 0, 0, nullptr},
        {"", 0, 0, nullptr},
    };
    for (const Row &row : rows) {
        SCOPED_TRACE(row.text);
        IpAddrRecord record = unsetRecord();
        IpAddrRecord expected = row.family == 0
                                    ? unsetRecord()
                                    : recordOf(row.family, row.text, static_cast<uint32_t>(row.family));
        EXPECT_EQ(QX_UTL_IpStrToAddr(row.text, &record), row.family == 0 ? nullptr : &record);
        EXPECT_TRUE(isSame(record, expected));

        record = unsetRecord();
        expected = row.host == 0 ? unsetRecord()
                                 : recordOf(row.host, row.hostAs != nullptr ? row.hostAs : row.text,
                                            row.host == AF_INET ? 1 : 2);
        EXPECT_EQ(QX_UTL_ConvHostNameToIpAddr(row.text, &record), row.host == 0 ? 1U : 0U);
        EXPECT_TRUE(isSame(record, expected));
    }
    EXPECT_TRUE(platform.recordCount == 0);
    IpAddrRecord record = unsetRecord();
    EXPECT_EQ(QX_UTL_IpStrToAddr(nullptr, &record), nullptr);
    EXPECT_EQ(QX_UTL_IpStrToAddr("::1", nullptr), nullptr);
    EXPECT_EQ(QX_UTL_ConvHostNameToIpAddr(nullptr, &record), 1U);
    EXPECT_TRUE(isSame(record, unsetRecord()));
    EXPECT_TRUE(platform.recorded(kFile, {{1}}));
}

TEST_F(Ipv4, PrintsRecords)
{
    const IpAddrRecord ipv4 = recordOf(AF_INET, "10.20.30.40", 2);
    const IpAddrRecord ipv6 = recordOf(AF_INET6, "2001:db8::1", 10);
    const IpAddrRecord hostKind = recordOf(AF_INET, "10.20.30.40", 1);
    char text[64];
    EXPECT_STREQ(QX_UTL_GetIpAddrStr(&ipv4, text, 12), "10.20.30.40");
    EXPECT_EQ(QX_UTL_GetIpAddrStr(&ipv4, text, 11), nullptr);
    EXPECT_EQ(QX_UTL_GetIpAddrStr(&ipv6, text, sizeof text), text);
    EXPECT_STREQ(text, "2001:db8::1");
    EXPECT_EQ(QX_UTL_GetIpAddrStr(&hostKind, text, sizeof text), nullptr);
    EXPECT_EQ(QX_UTL_GetIpAddrStr(nullptr, text, sizeof text), nullptr);
    EXPECT_EQ(QX_UTL_GetIpAddrStr(&ipv4, nullptr, sizeof text), nullptr);
    EXPECT_EQ(QX_UTL_IsIpAddrValid(&ipv4), 1U);
    EXPECT_EQ(QX_UTL_IsIpAddrValid(&ipv6), 1U);
    EXPECT_EQ(QX_UTL_IsIpAddrValid(&hostKind), 0U);
    EXPECT_EQ(QX_UTL_IsIpAddrValid(nullptr), 0U);
}

TEST_F(Ipv4, ConvertsToStandard)
{
    struct Row {
        const char *text;
        uint32_t size;
        uint32_t result;
        const char *out; // behind it nothing is written
    };
    const Row rows[] = {
        {"010.001.002.003", 16, 0, "10.1.2.3"},
        {"1.2.3.4", 8, 0, "1.2.3.4"},
        {"1.2.3.4", 7, 0, ""},
        {"", 1, 0, ""},
        {"1.2.3.256", 16, 1, "#"},
        {" 1.2.3.4", 16, 1, "#"},
    };
    for (const Row &row : rows) {
        std::string out(24, '#');
        EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard(row.text, out.data(), row.size), row.result) << row.text;
        EXPECT_EQ(out.substr(0, std::strlen(row.out)), row.out);
        EXPECT_EQ(out.find_first_not_of('#', row.size), std::string::npos) << "written behind the buffer";
        EXPECT_EQ(out[std::strlen(row.out)], row.result == 0 ? '\0' : '#') << row.text;
    }
    char untouched = '#';
    EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard("", &untouched, 0), 0U);
    EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard("1.2.3.4", &untouched, 0), 0U);
    EXPECT_EQ(untouched, '#');
    EXPECT_EQ(QX_UTL_ConvertIpAddrToStandard("", nullptr, 8), 1U);
}

// ---- Ranges ----

TEST_F(Ipv4, ChecksRanges)
{
    struct Row {
        const char *reason;
        std::string text;
        bool isValid;
        uint32_t step; // which of the reasons it is refused for
    };
    const Row rows[] = {
        {"a range", "192.168.1.10-192.168.1.20", true, 0},
        {"of one", "192.168.1.5-192.168.1.5", true, 0},
        {"hyphens before the start", "--192.168.1.10-192.168.1.20", true, 0},
        {"just above 0.0.0.0", "0.0.0.1-0.0.0.9", true, 0},
        {"no hyphen", "192.168.1.10", false, 1},
        {"empty", "", false, 1},
        {"too long", "192.168.1.10-192.168.1.20" + std::string(231, '0'), false, 1},
        {"no end", "192.168.1.10-", false, 2},
        {"no start", "-", false, 2},
        {"a start only, behind a hyphen", "-192.168.1.10", false, 2},
        {"a blank behind the start", "192.168.1.10 - 192.168.1.20", false, 3},
        {"a start that is none", "x-192.168.1.20", false, 3},
        {"two hyphens between", "192.168.1.10--192.168.1.20", false, 4},
        {"a third", "192.168.1.10-192.168.1.20-192.168.1.30", false, 4},
        {"a long end, but no longer than fits", "192.168.1.10-192.168.1.20" + std::string(230, '0'), false,
         4},
        {"two blocks", "192.168.1.10-192.168.2.10", false, 5},
        {"blanks before the end, which is not read then", "192.168.1.10- 192.168.1.20", false, 5},
        {"an octal end", "8.1.1.1-010.1.1.2", true, 0},
        {"backwards", "192.168.1.20-192.168.1.10", false, 6},
        {"the last block", "255.255.255.1-255.255.255.9", false, 7},
        {"0.0.0.0", "0.0.0.0-0.0.0.9", false, 8},
    };
    std::map<uint32_t, std::set<std::pair<std::string, uint32_t>>> places;
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(QX_UTL_IsIpRange(model::Exact(row.text)), row.isValid ? 1U : 0U) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, std::vector<Values>(row.isValid ? 0 : 1, Values{1})))
            << row.reason;
        places[row.step].merge(platform.places);
        platform.places.clear();
    }
    for (const auto &[step, same] : places) {
        EXPECT_EQ(same.size(), step == 0 ? 0U : 1U) << "one place of step " << step;
        platform.places.insert(same.begin(), same.end());
    }
    EXPECT_EQ(platform.places.size(), 8U) << "a line for each reason";
}

} // namespace
