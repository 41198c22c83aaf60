#include "qx/text.h"

#include "tests/platform/surroundings.h"

#include <arpa/inet.h>
#include <array>
#include <gtest/gtest.h>
#include <limits>
#include <string>

namespace {

// What is no number leaves the value alone; what is one becomes the nearest value of the type.
template <typename Number>
void expectNumber(const std::string &text, uint32_t (*convert)(const char *, Number *))
{
    using Limits = std::numeric_limits<Number>;
    const std::string digits = text.substr(Limits::is_signed && text.starts_with('-') ? 1 : 0);
    const bool isNumber = !digits.empty() && digits.find_first_not_of("0123456789") == std::string::npos;
    const long long wide = isNumber ? std::strtoll(text.c_str(), nullptr, 10) : 123;
    const auto nearest = std::clamp<long long>(wide, Limits::min(), Limits::max());
    Number out = 123;
    ASSERT_EQ(convert(text.c_str(), &out) == QX_OK, isNumber && wide == nearest)
        << testing::PrintToString(text);
    ASSERT_EQ(out, static_cast<Number>(nearest)) << testing::PrintToString(text);
}

void expectNumbers(const std::string &text)
{
    expectNumber<uint32_t>(text, QX_OS_StrToUInt32);
    expectNumber<int32_t>(text, QX_OS_StrToInt32);
}

TEST(Convert, ReadsDecimalNumbersOnly)
{
    for (const std::string &text :
         split("|-|--1|+1|-0|00|0x10|1.| 1|1 "
               "|1\n|\xB2|2147483647|2147483648|-2147483648|-2147483649|4294967295|"
               "4294967296|00000000000000000000000004294967295|99999999999999999999999999|"
               "-99999999999999999999999999|99999999999999999999999999x")) {
        expectNumbers(text);
    }
    for (int i = 0; i < 10000; ++i) {
        expectNumbers((below(4) == 0 ? "-" : "") + randomText("0123456789", 12));
        expectNumbers(randomText("012349-+ xa", 6));
    }
}

// inet_pton takes no leading zeros, so it judges the text without them.
void expectAddress(const std::string &text)
{
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool leads = text[i] == '0' && (plain.empty() || plain.back() == '.');
        if (!leads || std::isdigit(text[i + 1]) == 0) {
            plain += text[i];
        }
    }
    in_addr wanted{.s_addr = 77};
    const bool valid = inet_pton(AF_INET, plain.c_str(), &wanted) == 1;
    uint32_t out = 77;
    ASSERT_EQ(QX_OS_StrToIpAddr(text.c_str(), &out) == QX_OK, valid) << testing::PrintToString(text);
    ASSERT_EQ(out, wanted.s_addr) << testing::PrintToString(text);
}

TEST(Convert, ReadsAddressPartsAsDecimal)
{
    for (const std::string &text :
         split("|010.000.0000000000001.255|256.1.1.1|1.2.3|1.2.3.|.1.2.3|1..2.3|1.2.3.4.5|1.2.3.4 | 1.2.3.4|"
               "0x1.2.3.4|1.2.3.-4|+1.2.3.4|1.2.3.4294967297")) {
        expectAddress(text);
    }
    for (int i = 0; i < 3000; ++i) {
        std::string text;
        for (int part = 0; part < 4; ++part) {
            text += (part > 0 ? "." : "") + randomText("0", 2) + std::to_string(below(300));
        }
        expectAddress(text);
        text[below(text.size())] = ".0 :"[below(4)];
        expectAddress(text);
    }
}

TEST(Convert, WritesWhatFits)
{
    for (const uint32_t value : {0U, 9U, 10U, 999999999U, 1000000000U, UINT32_MAX}) {
        std::array<char, INET_ADDRSTRLEN> dotted{};
        inet_ntop(AF_INET, &value, dotted.data(), dotted.size());
        for (uint32_t size = 0; size <= 17; ++size) {
            SCOPED_TRACE(testing::Message() << value << " in " << size);
            const std::string decimal = std::to_string(value);
            const std::string address = dotted.data();
            Guarded number(size);
            EXPECT_EQ(QX_OS_UInt32ToStr_S(value, number.data(), size) == QX_OK, decimal.size() < size);
            EXPECT_TRUE(number.holdsOrIsEmpty(decimal));
            Guarded text(size);
            EXPECT_EQ(QX_OS_IpAddrToStr(value, text.data(), size) == QX_OK, address.size() < size);
            EXPECT_TRUE(text.holdsOrIsEmpty(address));
        }
    }
}

TEST(Convert, RefusesWhatIsMissing)
{
    uint32_t number = 5;
    char text = '?';
    char *end = &text;
    EXPECT_NE(QX_OS_StrToUInt32(nullptr, &number), QX_OK);
    EXPECT_NE(QX_OS_StrToInt32("1", nullptr), QX_OK);
    EXPECT_NE(QX_OS_UInt32ToStr_S(1, nullptr, 9), QX_OK);
    EXPECT_NE(QX_OS_StrToIpAddr(nullptr, &number), QX_OK);
    EXPECT_NE(QX_OS_StrToIpAddr("1.2.3.4", nullptr), QX_OK);
    EXPECT_NE(QX_OS_IpAddrToStr(1, nullptr, 16), QX_OK);
    EXPECT_EQ(QX_OS_InetAddr(nullptr), UINT32_MAX);
    EXPECT_EQ(QX_OS_InetPton(2, "1.2.3.4", nullptr), -1);
    EXPECT_EQ(QX_OS_InetPton(10, nullptr, &number), -1);
    EXPECT_EQ(QX_OS_InetNtop(2, nullptr, &text, 16), nullptr);
    EXPECT_EQ(QX_OS_Strtol(nullptr, &end, 10), 0);
    EXPECT_EQ(end, nullptr) << "strtol's own sign that nothing was read";
    EXPECT_TRUE(number == 5 && text == '?') << "written although something is missing";
}

} // namespace
