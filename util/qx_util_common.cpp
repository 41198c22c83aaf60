#include "common/file_guard.h"
#include "common/platform_buffer.h"
#include "common/record.h"
#include "common/shell_word.h"
#include "qx/cli.h"
#include "qx/feature.h"
#include "qx/process.h"
#include "qx/text.h"
#include "qx/xml.h"
#include "util/domain_name.h"
#include "util/dotted_quad.h"
#include "util/internet_checksum.h"
#include "util/mac_text.h"
#include "util/mask_octet.h"
#include "util/option_line.h"
#include "util/parts.h"
#include "util/shell_path.h"
#include "util/text.h"
#include "zema/domain.h"
#include "zema/index_array.h"
#include "zema/ipv4.h"
#include "zema/ipv6.h"
#include "zema/mac.h"
#include "zema/netdev.h"
#include "zema/process.h"
#include "zema/strings.h"
#include "zema/wan_options.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <bit>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <net/if.h>
#include <numeric>
#include <optional>
#include <span>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

static_assert(sizeof(IpAddrRecord) == 24 && offsetof(IpAddrRecord, aucIpv4) == 16 &&
              offsetof(IpAddrRecord, ulFamily) == 20);
static_assert(sizeof(OptionValueList) == 2 + ZEMA_OPTION_VALUES * ZEMA_OPTION_VALUE_SIZE);
static_assert(sizeof(DbAppendRow) == 12);
static_assert(offsetof(IndexArray, pusFree) == sizeof(void *) &&
              offsetof(IndexArray, usCapacity) == 2 * sizeof(void *) &&
              offsetof(IndexArray, usUsed) == 2 * sizeof(void *) + 2 &&
              sizeof(IndexArray) == (sizeof(void *) == 8 ? 24 : 12));

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);

constexpr uint32_t kValid = 1;
constexpr uint32_t kNotValid = 0;

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, 0, 0, 0, 0);
}

void reportDetail(uint32_t line, uint32_t detail)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, ZEMA_ERR, detail, 0, 0, 0);
}

constexpr uint32_t acceptIf(bool accepted)
{
    return accepted ? ZEMA_OK : ZEMA_ERR;
}

} // namespace

// ---- Numbers ----

uint32_t QX_UTL_ValidateNumber(const char *pcText)
{
    return acceptIf(pcText != nullptr && zema::isDecimal(pcText));
}

uint32_t QX_UTL_ValidateThreeNumber(const char *pcText)
{
    return acceptIf(pcText != nullptr && zema::threeDigits(zema::viewUpTo(pcText, 3)));
}

uint32_t QX_UTL_CheckNum(uint32_t ulValue)
{
    return acceptIf(zema::findMaskOctet(ulValue) != nullptr);
}

// ---- IPv4 addresses ----

uint32_t QX_UTL_IpAddrSplit(const char *pcText, uint32_t *pulOctets)
{
    if (pcText == nullptr || pulOctets == nullptr) {
        return ZEMA_ERR;
    }
    const std::string_view text = zema::viewUpTo(pcText, zema::kQuadLength);
    if (text.empty() || text.size() > zema::kQuadLength || text.front() == '.' || text.back() == '.') {
        return ZEMA_ERR;
    }
    const char *at = text.data();
    for (uint32_t &out : std::span(pulOctets, ZEMA_IPV4_OCTETS)) {
        uint32_t octet = 0;
        at = zema::readSplitOctet(at, text.data() + text.size(), octet);
        if (at == nullptr) {
            return ZEMA_ERR;
        }
        out = octet;
    }
    return ZEMA_OK;
}

uint32_t QX_UTL_ValidateIpAddress(const char *pcText)
{
    return acceptIf(pcText != nullptr &&
                    zema::readQuad<zema::PartForm::kScanned>(zema::viewUpTo(pcText, zema::kQuadLength)));
}

namespace {

// The first octets that a host may have are 1 to bound - 1.
constexpr uint32_t kUnicastBound = 224;
constexpr uint32_t kAnyClassBound = 255;

constexpr bool isFirstOctetOfHost(uint32_t octet, uint32_t bound)
{
    return octet >= 1 && octet < bound && octet != 127;
}

// What the platform has to say of a part that is not one to three digits. It may read it all the same.
uint32_t refusePart(std::string_view part)
{
    std::array<char, zema::kQuadLength + 1> text = {};
    std::ranges::copy(part, text.begin());
    int32_t value = 0;
    const uint32_t result = QX_OS_StrToInt32(text.data(), &value);
    return result != 0 ? result : ZEMA_ERR;
}

// The result for a text that is no quad of plain octets: that of the first part that cannot pass.
uint32_t refuseHost(std::string_view text, uint32_t bound)
{
    if (!zema::hasQuadShape(text)) {
        return ZEMA_ERR;
    }
    zema::Parts parts(text, '.');
    for (bool isFirst = true;; isFirst = false) {
        const std::string_view part = parts.next();
        const std::optional<uint32_t> octet = zema::threeDigits(part);
        if (!octet) {
            return refusePart(part);
        }
        if (isFirst ? !isFirstOctetOfHost(*octet, bound) : *octet > zema::kOctetMax) {
            return ZEMA_ERR;
        }
    }
}

// The bounds leave out 0.0.0.0 and 255.255.255.255.
uint32_t checkHost(const char *text, uint32_t bound)
{
    if (text == nullptr) {
        return ZEMA_ERR;
    }
    const std::string_view view = zema::viewUpTo(text, zema::kQuadLength);
    const std::optional<uint32_t> address = zema::readQuad<zema::PartForm::kPlain>(view);
    return address ? acceptIf(isFirstOctetOfHost(*address >> 24, bound)) : refuseHost(view, bound);
}

} // namespace

uint32_t QX_UTL_ValidateHostIpAddress(const char *pcText)
{
    return checkHost(pcText, kUnicastBound);
}

uint32_t QX_UTL_CheckIpAddressIsValid(const char *pcText)
{
    return checkHost(pcText, kAnyClassBound);
}

uint32_t QX_UTL_ConvertIpAddrToStandard(const char *pcText, char *pcOut, uint32_t ulSize)
{
    if (pcText == nullptr || pcOut == nullptr) {
        return ZEMA_ERR;
    }
    if (*pcText == '\0') {
        std::fill_n(pcOut, std::min(ulSize, 1U), '\0');
        return ZEMA_OK;
    }
    uint32_t address = 0;
    if (QX_UTL_ValidateIpAddress(pcText) != ZEMA_OK || QX_OS_StrToIpAddr(pcText, &address) != 0) {
        return ZEMA_ERR;
    }
    (void)QX_OS_IpAddrToStr(address, pcOut, ulSize);
    return ZEMA_OK;
}

// ---- IPv4 masks ----

uint32_t QX_UTL_ValidateSubnetMask(const char *pcText)
{
    constexpr uint32_t kLength = 19; // what is looked at

    if (pcText == nullptr) {
        return ZEMA_ERR;
    }
    const std::string_view text(pcText, strnlen(pcText, kLength));
    if (text == "0.0.0.0") {
        return ZEMA_ERR;
    }
    const zema::PlatformBuffer buffer(static_cast<uint32_t>(text.size()) + 1);
    if (!buffer) {
        return ZEMA_ERR;
    }
    auto *const copy = static_cast<char *>(buffer.data());
    zema::copyFew(text, copy);
    copy[text.size()] = '\0';
    return acceptIf(zema::isContiguousMask({copy, text.size()}));
}

uint32_t QX_UTL_IsMask24BitOrMore(const char *pcMask)
{
    std::array<uint32_t, ZEMA_IPV4_OCTETS> octets = {};
    if (QX_UTL_IpAddrSplit(pcMask, octets.data()) != ZEMA_OK) {
        return ZEMA_ERR;
    }
    const bool isClassAEnough = QX_Feature_IsSupportByFeatureName(ZEMA_FEATURE_CLASS_A_IP) != 0;
    return acceptIf(std::all_of(octets.begin(), octets.begin() + (isClassAEnough ? 1 : 3),
                                [](uint32_t octet) { return octet == zema::kOctetMax; }));
}

uint32_t QX_UTL_GetSubNetMaskNum(uint32_t ulMask, uint32_t *pulCount)
{
    *pulCount = 32 - static_cast<uint32_t>(std::countr_zero(ulMask));
    return ZEMA_OK;
}

uint32_t QX_UTL_ValidateHostIpWithSubnetMask(const char *pcAddress, const char *pcMask)
{
    if (pcAddress == nullptr || pcMask == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t address = QX_OS_InetAddr(pcAddress);
    const uint32_t mask = QX_OS_InetAddr(pcMask);
    return acceptIf((address & mask) != address && (address | ~mask) != address);
}

uint32_t QX_UTL_ValidateIpSameSubNet(const uint32_t *pulFirst, const uint32_t *pulFirstMask,
                                     const uint32_t *pulSecond, const uint32_t *pulSecondMask)
{
    if (pulFirst == nullptr || pulFirstMask == nullptr || pulSecond == nullptr || pulSecondMask == nullptr) {
        return ZEMA_ERR;
    }
    for (size_t i = 0; i < ZEMA_IPV4_OCTETS; ++i) {
        if ((pulFirst[i] & pulFirstMask[i]) != (pulSecond[i] & pulSecondMask[i])) {
            return ZEMA_ERR;
        }
    }
    return ZEMA_OK;
}

// ---- Address records ----

namespace {

// The field that the record's family names, or null.
const void *addressOf(const IpAddrRecord &record)
{
    switch (record.ulFamily) {
    case IPADDR_FAMILY_IPV4:
        return record.aucIpv4;
    case IPADDR_FAMILY_IPV6:
        return record.aucIpv6;
    default:
        return nullptr;
    }
}

} // namespace

uint32_t QX_UTL_IsIpAddrValid(const IpAddrRecord *pstAddr)
{
    if (pstAddr == nullptr || addressOf(*pstAddr) == nullptr) {
        return kNotValid;
    }
    char text[64];
    return QX_UTL_GetIpAddrStr(pstAddr, text, sizeof text) != nullptr ? kValid : kNotValid;
}

IpAddrRecord *QX_UTL_IpStrToAddr(const char *pcText, IpAddrRecord *pstAddr)
{
    if (pcText == nullptr || pstAddr == nullptr) {
        return nullptr;
    }
    if (QX_OS_InetPton(IPADDR_FAMILY_IPV4, pcText, pstAddr->aucIpv4) > 0) {
        pstAddr->ulFamily = IPADDR_FAMILY_IPV4;
        return pstAddr;
    }
    if (QX_OS_InetPton(IPADDR_FAMILY_IPV6, pcText, pstAddr->aucIpv6) > 0) {
        pstAddr->ulFamily = IPADDR_FAMILY_IPV6;
        return pstAddr;
    }
    return nullptr;
}

const char *QX_UTL_GetIpAddrStr(const IpAddrRecord *pstAddr, char *pcText, uint32_t ulSize)
{
    if (pstAddr == nullptr || pcText == nullptr) {
        return nullptr;
    }
    return QX_OS_InetNtop(static_cast<int32_t>(pstAddr->ulFamily), addressOf(*pstAddr), pcText, ulSize);
}

// ---- Ethernet addresses ----

uint32_t QX_UTL_ValidateMacAddress(const char *pcText)
{
    return QX_UTL_ValidateMacAddress_Inner(pcText);
}

uint32_t QX_UTL_ValidateMacAddress_Inner(const char *pcText)
{
    constexpr std::string_view kColons = ":::::"; // the most that a text may hold

    if (pcText == nullptr) {
        return ZEMA_ERR;
    }
    const std::string_view text = zema::viewUpTo(pcText, zema::kMacTextLength);
    if (zema::isMacText(text)) {
        return ZEMA_OK;
    }
    if (zema::beginsWith(kColons, text)) {
        report(__LINE__, ZEMA_ERR);
    }
    return ZEMA_ERR;
}

uint32_t QX_UTL_MacStrToArr(const char *pcText, uint8_t *pucMac)
{
    if (pcText == nullptr || pucMac == nullptr) {
        return ZEMA_ERR;
    }
    std::array<unsigned, ZEMA_MAC_SIZE> fields = {};
    const int32_t scanned = sscanf_s(pcText, "%x:%x:%x:%x:%x:%x", &fields[0], &fields[1], &fields[2],
                                     &fields[3], &fields[4], &fields[5]);
    if (scanned < 1) {
        reportDetail(__LINE__, static_cast<uint32_t>(scanned));
    }
    std::ranges::transform(fields, pucMac, [](unsigned field) { return static_cast<uint8_t>(field); });
    return ZEMA_OK;
}

uint32_t QX_UTL_MacArrToStr(const uint8_t *pucMac, char *pcText, uint32_t ulSize)
{
    if (pucMac == nullptr || pcText == nullptr) {
        return ZEMA_ERR;
    }
    const int32_t written = snprintf_s(pcText, ulSize, ulSize, "%02X:%02X:%02X:%02X:%02X:%02X", pucMac[5],
                                       pucMac[4], pucMac[3], pucMac[2], pucMac[1], pucMac[0]);
    if (written <= 0) {
        reportDetail(__LINE__, static_cast<uint32_t>(written));
    }
    return ZEMA_OK;
}

// ---- IPv6 addresses ----

namespace {

uint32_t parseIpv6(const char *text, uint8_t *address)
{
    return acceptIf(QX_OS_InetPton(IPADDR_FAMILY_IPV6, text, address) == 1);
}

} // namespace

uint32_t IPv6Address_ConvertFromString(const char *pcText, uint8_t *pucAddr)
{
    if (pcText == nullptr || pucAddr == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    std::array<uint8_t, ZEMA_IPV6_SIZE> address = {};
    const uint32_t parsed = parseIpv6(pcText, address.data());
    if (parsed == ZEMA_OK) {
        std::ranges::copy(address, pucAddr);
    }
    return parsed;
}

uint32_t IPv6Address_ConvertToString(const uint8_t *pucAddr, char *pcText, uint32_t ulSize)
{
    if (pucAddr == nullptr || pcText == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return acceptIf(QX_OS_InetNtop(IPADDR_FAMILY_IPV6, pucAddr, pcText, ulSize) != nullptr);
}

namespace {

using Ipv6Address = std::array<uint8_t, ZEMA_IPV6_SIZE>;

constexpr Ipv6Address kUnspecified = {};
constexpr Ipv6Address kLoopback = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1};

// Whether an address begins with 0xFE and four given bits.
constexpr bool hasPrefixFe(const Ipv6Address &address, uint8_t nibble)
{
    return address[0] == 0xFE && address[1] >> 4 == nibble;
}

} // namespace

uint32_t QX_UTL_ValidateIpv6Address(const char *pcText)
{
    if (pcText == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    Ipv6Address address = {};
    const uint32_t parsed = parseIpv6(pcText, address.data());
    if (parsed != ZEMA_OK) {
        report(__LINE__, parsed);
        return ZEMA_ERR;
    }
    if (address == kUnspecified) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (address == kLoopback) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (address[0] == 0xFF) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

uint32_t QX_UTL_CheckIPV6_FE8_AND_FEC(const char *pcText)
{
    if (pcText == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    Ipv6Address address = {};
    const uint32_t parsed = parseIpv6(pcText, address.data());
    if (parsed != ZEMA_OK) {
        report(__LINE__, parsed);
        return ZEMA_ERR;
    }
    if (hasPrefixFe(address, 0x8)) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (hasPrefixFe(address, 0xC)) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

// ---- IPv6 masks ----

uint32_t QX_UTL_ValidateIpv6Mask(const char *pcMask, uint32_t *pulPrefix)
{
    Ipv6Address mask = {};
    const uint32_t parsed = IPv6Address_ConvertFromString(pcMask, mask.data());
    if (parsed != ZEMA_OK) {
        report(__LINE__, parsed);
        return parsed;
    }
    const auto *const partial = std::ranges::find_if(mask, [](uint8_t byte) { return byte != 0xFF; });
    if (partial == mask.end()) {
        *pulPrefix = 8 * ZEMA_IPV6_SIZE;
        return ZEMA_OK;
    }
    if (QX_UTL_CheckIPv6MaskNum(*partial) != ZEMA_OK ||
        std::any_of(partial + 1, mask.cend(), [](uint8_t byte) { return byte != 0; })) {
        return ZEMA_ERR;
    }
    uint8_t bits = 0;
    const uint32_t found = QX_UTL_GetIPv6MaskBitLen(*partial, &bits);
    if (found != ZEMA_OK) {
        report(__LINE__, found);
        return found;
    }
    *pulPrefix = 8 * static_cast<uint32_t>(partial - mask.begin()) + bits;
    return ZEMA_OK;
}

uint32_t QX_UTL_CheckIPv6MaskNum(uint32_t ulValue)
{
    return acceptIf(zema::findMaskOctet(ulValue) != nullptr);
}

uint32_t QX_UTL_GetIPv6MaskBitLen(uint32_t ulMaskByte, uint8_t *pucBits)
{
    const zema::MaskOctet *const row = zema::findMaskOctet(ulMaskByte);
    if (row == nullptr || pucBits == nullptr) {
        return ZEMA_ERR;
    }
    *pucBits = row->bits;
    return ZEMA_OK;
}

// ---- Domain names ----

uint32_t QX_UTL_ISDomainSplitValid(const char *pcLabel)
{
    return zema::isLabel(zema::viewUpTo(pcLabel, zema::kLabelLength)) ? kValid : kNotValid;
}

uint32_t QX_UTL_ISDomainValid(const char *pcName)
{
    if (pcName == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    const std::string_view name = pcName;
    if (name.size() > zema::kDomainNameLength) {
        reportDetail(__LINE__, static_cast<uint32_t>(name.size()));
        return kNotValid;
    }
    return zema::isDomainName(name) ? kValid : kNotValid;
}

// ---- Ranges and hosts ----

namespace {

struct Range {
    const char *start;
    const char *end;
};

// Splits a text in place at the first hyphen behind its start; hyphens before the start are skipped. A part
// that is missing is empty.
Range splitRange(char *text)
{
    char *const start = text + std::strspn(text, "-");
    char *const end = start + std::strcspn(start, "-");
    if (*end == '\0') {
        return {.start = start, .end = end};
    }
    *end = '\0';
    return {.start = start, .end = end + 1};
}

uint32_t checkRange(uint32_t start, uint32_t end)
{
    constexpr uint32_t kBlock = 0xFFFFFF00;

    if ((start & kBlock) != (end & kBlock)) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    if (start > end) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    // Both are of one block and in order: what is true of the start is true of the end.
    if ((start & kBlock) == kBlock) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    if (start == 0) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    return kValid;
}

} // namespace

uint32_t QX_UTL_IsIpRange(const char *pcText)
{
    char text[256] = {};
    (void)strncpy_s(text, sizeof text, pcText, std::strlen(pcText));
    if (std::strchr(text, '-') == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    const Range range = splitRange(text);
    if (*range.start == '\0' || *range.end == '\0') {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    if (QX_UTL_ValidateIpAddress(range.start) != ZEMA_OK) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    if (QX_UTL_ValidateIpAddress(range.end) != ZEMA_OK) {
        report(__LINE__, ZEMA_ERR);
        return kNotValid;
    }
    return checkRange(ntohl(QX_OS_InetAddr(range.start)), ntohl(QX_OS_InetAddr(range.end)));
}

uint32_t QX_UTL_ConvHostNameToIpAddr(const char *pcText, IpAddrRecord *pstAddr)
{
    const uint32_t ipv4 = QX_UTL_ValidateIpAddress(pcText) == ZEMA_OK ? QX_OS_InetAddr(pcText) : 0;
    if (ipv4 != 0) {
        (void)memcpy_s(pstAddr->aucIpv4, sizeof pstAddr->aucIpv4, &ipv4, sizeof ipv4);
        pstAddr->ulFamily = IPADDR_KIND_IPV4;
        return ZEMA_OK;
    }
    Ipv6Address ipv6 = {};
    if (IPv6Address_ConvertFromString(pcText, ipv6.data()) != ZEMA_OK) {
        return ZEMA_ERR;
    }
    (void)memcpy_s(pstAddr->aucIpv6, sizeof pstAddr->aucIpv6, ipv6.data(), ipv6.size());
    pstAddr->ulFamily = IPADDR_KIND_IPV6;
    return ZEMA_OK;
}

// ---- Numbers and strings ----

uint32_t QX_UTL_ATOI(const char *pcText, uint32_t *pulValue)
{
    if (pcText == nullptr || pulValue == nullptr) {
        return ZEMA_ERR;
    }
    uint32_t value = 0;
    for (; *pcText != '\0'; ++pcText) {
        if (!zema::isDigit(*pcText)) {
            return ZEMA_ERR;
        }
        value = value * 10 + zema::digitValue(*pcText);
    }
    *pulValue = value;
    return ZEMA_OK;
}

uint32_t QX_UTL_Checksum(const void *pData, int32_t lLen)
{
    return zema::checksum::of(pData, static_cast<size_t>(std::max(lLen, 0)));
}

namespace {

// Writes what stands before an occurrence, the replacement, and what stands behind. There is room for them,
// unless the replacement is longer than its length was counted.
void writeReplaced(std::string_view before, const char *replacement, uint32_t counted, const char *behind,
                   char *out, uint32_t size)
{
    (void)strncpy_s(out, size, before.data(), before.size());
    const int32_t replaced = strncat_s(out, size, replacement, size);
    if (replaced != 0) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, static_cast<uint32_t>(replaced), size, counted,
                                   0);
    }
    const int32_t completed = strncat_s(out, size, behind, size);
    if (completed != 0) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, static_cast<uint32_t>(completed), size, 0, 0);
    }
}

} // namespace

uint32_t QX_StrReplaceSubStr(const char *pcSource, const char *pcSearch, const char *pcReplace, char *pcOut,
                             uint32_t ulSize)
{
    constexpr uint32_t kLimit = 256;

    if (pcSource == nullptr || pcSearch == nullptr || pcReplace == nullptr || pcOut == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t sourceLength = QX_OS_StrNLen(pcSource, kLimit);
    const uint32_t searchLength = QX_OS_StrNLen(pcSearch, kLimit);
    const uint32_t replaceLength = QX_OS_StrNLen(pcReplace, kLimit);
    if (sourceLength >= kLimit || searchLength >= kLimit) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const char *const found = QX_OS_StrCaseStr(pcSource, pcSearch);
    if (found == nullptr) {
        return ZEMA_ERR;
    }
    const uint32_t length = replaceLength + sourceLength - searchLength;
    if (length >= ulSize) {
        (void)QX_PROC_DBG_TraceN(ZEMA_MODULE_ID, kFile, __LINE__, "QX_StrReplaceSubStr Len is err :%d",
                                 static_cast<int32_t>(length));
        return ZEMA_ERR;
    }
    writeReplaced({pcSource, found}, pcReplace, replaceLength, found + searchLength, pcOut, ulSize);
    return ZEMA_OK;
}

// ---- Network devices ----

int32_t get_dev_mac(const char *pcName, uint8_t *pucMac)
{
    constexpr int32_t kDone = 1;
    constexpr int32_t kFailed = -1;

    if (pucMac == nullptr) {
        return kFailed;
    }
    ifreq request;
    std::memset(&request, 0, sizeof request);
    (void)strncpy_s(request.ifr_name, IFNAMSIZ, pcName, IFNAMSIZ - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    if (fd < 0) {
        report(__LINE__, ZEMA_ERR);
        return kFailed;
    }
    const bool answered = ioctl(fd, SIOCGIFHWADDR, &request) >= 0;
    if (answered) {
        (void)memcpy_s(pucMac, ZEMA_MAC_SIZE, request.ifr_hwaddr.sa_data, ZEMA_MAC_SIZE);
    } else {
        report(__LINE__, ZEMA_ERR);
    }
    (void)close(fd);
    return answered ? kDone : kFailed;
}

// ---- Processes and terminals ----

namespace {

// Has the shell write the lines of the process list that hold both texts into the file of the two names.
uint32_t listProcesses(const char *process, const char *keyword, const char *fileKeyword)
{
    zema::ShellWord processWord(process);
    if (!processWord) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    zema::ShellWord keywordWord(keyword);
    if (!keywordWord) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const char *const processPattern = processWord.escape();
    const char *const keywordPattern = keywordWord.escape();
    char command[512] = {};
    (void)snprintf_s(command, sizeof command, sizeof command - 1,
                     "ps w| grep  %s | grep %s >/var/%s_%s_pid.txt", processPattern, keywordPattern,
                     zema::ShellPathPart(process).text(), zema::ShellPathPart(fileKeyword).text());
    (void)QX_OS_ExecShellCmd(command);
    return ZEMA_OK;
}

// The number at the start of the first line that has one and is not about ps itself.
std::optional<uint32_t> readProcessId(void *file)
{
    char line[512];
    // A file that cannot be read, as a directory, never comes to its end.
    for (bool readable = true; QX_OS_Feof(file) == 0 && readable;) {
        std::memset(line, 0, sizeof line);
        readable = QX_OS_Fgets(line, sizeof line - 1, file) != nullptr;
        unsigned pid = 0;
        if (std::strstr(line, "ps") == nullptr && sscanf_s(line, "%u", &pid) >= 1) {
            return pid;
        }
    }
    return std::nullopt;
}

} // namespace

uint32_t QX_UTL_GetPid(const char *pcProcess, const char *pcKeyword, uint32_t *pulPid)
{
    constexpr uint32_t kKeywordLength = 255;

    if (pcProcess == nullptr || pcKeyword == nullptr || pulPid == nullptr) {
        return ZEMA_ERR;
    }
    if (strnlen(pcKeyword, kKeywordLength + 1) > kKeywordLength) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    char stripped[kKeywordLength + 1] = {};
    const uint32_t strip = QX_OS_StripSpace(pcKeyword, stripped);
    if (strip != ZEMA_OK) {
        report(__LINE__, strip);
        return strip;
    }
    if (listProcesses(pcProcess, pcKeyword, stripped) != ZEMA_OK) {
        return ZEMA_ERR;
    }
    char path[256] = {};
    (void)snprintf_s(path, sizeof path, sizeof path - 1, "/var/%s_%s_pid.txt", pcProcess, stripped);
    zema::FileGuard file(path, "r");
    if (!file) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const std::optional<uint32_t> pid = readProcessId(file.get());
    file.close();
    (void)QX_OS_Remove(path);
    if (!pid) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    *pulPid = *pid;
    return ZEMA_OK;
}

void QX_UTL_PrintToAllTerminal(const char *pcFormat, ...)
{
    constexpr uint32_t kSize = 2048;

    const zema::PlatformBuffer buffer = zema::PlatformBuffer::zeroed(kSize);
    if (!buffer) {
        return;
    }
    auto *const text = static_cast<char *>(buffer.data());
    va_list arguments;
    va_start(arguments, pcFormat);
    (void)vsnprintf_s(text, kSize - 1, kSize - 2, pcFormat, arguments);
    va_end(arguments);
    (void)QX_CLI_SynPrint(QX_CLI_ALL_TERMINALS, text, QX_OS_StrLen(text));
}

// ---- Option files ----

namespace {

zema::FileGuard openOptions(const char *wan)
{
    char path[256] = {};
    const int32_t formatted = snprintf_s(path, sizeof path, sizeof path - 1, "/var/wan/%s/config", wan);
    if (formatted <= 0) {
        reportDetail(__LINE__, static_cast<uint32_t>(formatted));
    }
    return zema::FileGuard(path, "r");
}

enum class Lookup { notFound, nameless, noValue, done };
enum class Nameless { isSkipped, endsLookup };

// Looks for an option's line and has its values taken from the text behind the "=", which is the taker's to
// change; the taker tells whether there was one. File and memory are given back before this returns.
template <typename Take>
Lookup lookUpOption(const char *wan, std::string_view option, Nameless nameless, Take take)
{
    constexpr uint32_t kLineSize = 1200;

    const zema::PlatformBuffer buffer(kLineSize);
    if (!buffer) {
        report(__LINE__, ZEMA_ERR);
        return Lookup::notFound;
    }
    auto *const line = static_cast<char *>(buffer.data());
    std::memset(line, 0, kLineSize);
    const zema::FileGuard file = openOptions(wan);
    while (file && QX_OS_Fgets(line, kLineSize, file.get()) != nullptr) {
        if (*line == '\n') {
            continue;
        }
        const zema::OptionLine split = zema::splitOptionLine(line);
        if (split.name.empty() && nameless == Nameless::endsLookup) {
            return Lookup::nameless;
        }
        if (split.value != nullptr && !split.name.empty() && split.name == option) {
            return take(split.value) ? Lookup::done : Lookup::noValue;
        }
    }
    return Lookup::notFound;
}

// At most size - 1 characters fit; one that does not fit leaves the empty text.
void copyValue(char *out, uint32_t size, std::string_view value)
{
    (void)strncpy_s(out, size, value.data(), std::min<size_t>(value.size(), ZEMA_OPTION_VALUE_SIZE - 1));
}

void dropNewline(char *value)
{
    const size_t length = std::strlen(value);
    if (length > 0 && value[length - 1] == '\n') {
        value[length - 1] = '\0';
    }
}

// The management server's address comes as a code and a text: both are one value, joined by "!", the code's
// second character lowered by one. Whether the values begin so.
bool joinServer(char *values)
{
    if (strnlen(values, 3) < 3 || values[2] != ' ') {
        return false;
    }
    (void)QX_OS_Printf("pcSaveStr=[%s]\r\n", values);
    values[2] = '!';
    (void)QX_OS_Printf("pcSaveStr=[%s]\r\n", values);
    return true;
}

void lowerServer(char *value)
{
    if (strnlen(value, 2) == 2) {
        value[1] = static_cast<char>(value[1] - 1);
    }
    (void)QX_OS_Printf("acValue=[%s]\r\n", value);
}

bool takeValues(char *text, bool isServer, OptionValueList &out)
{
    out.ucState = 0;
    const bool joined = isServer && joinServer(text);
    zema::Parts parts(text, ' ');
    std::string_view value = parts.next();
    if (value.empty()) {
        return false;
    }
    copyValue(out.aacValue[0], ZEMA_OPTION_VALUE_SIZE, value);
    if (joined) {
        lowerServer(out.aacValue[0]);
    }
    uint8_t count = 1;
    for (value = parts.next(); !value.empty() && count < ZEMA_OPTION_VALUES; value = parts.next()) {
        copyValue(out.aacValue[count++], ZEMA_OPTION_VALUE_SIZE, value);
    }
    dropNewline(out.aacValue[count - 1]);
    out.ucCount = count;
    return true;
}

bool takeFirstValue(const char *text, char *out, uint32_t size)
{
    const std::string_view value = zema::Parts(text, ' ').next();
    if (value.empty()) {
        return false;
    }
    copyValue(out, size, value);
    if (size > 0) {
        dropNewline(out);
    }
    return true;
}

} // namespace

uint32_t QX_UTL_GetOptionValue(const char *pcWan, const char *pcOption, OptionValueList *pstValues)
{
    if (pcWan == nullptr || pcOption == nullptr || pstValues == nullptr) {
        return ZEMA_ERR;
    }
    const std::string_view option = pcOption;
    const Lookup lookup = lookUpOption(pcWan, option, Nameless::isSkipped, [&](char *text) {
        return takeValues(text, option == "tr069srv", *pstValues);
    });
    if (lookup == Lookup::noValue) {
        report(__LINE__, ZEMA_ERR);
    }
    return acceptIf(lookup == Lookup::done);
}

uint32_t QX_UTL_GetDhcpHdrOptValue(const char *pcWan, const char *pcOption, char *pcValue, uint32_t ulSize)
{
    if (pcWan == nullptr || pcOption == nullptr || pcValue == nullptr) {
        return ZEMA_ERR;
    }
    const Lookup lookup = lookUpOption(pcWan, pcOption, Nameless::endsLookup, [&](const char *text) {
        return takeFirstValue(text, pcValue, ulSize);
    });
    if (lookup == Lookup::nameless) {
        report(__LINE__, ZEMA_ERR);
    }
    if (lookup == Lookup::noValue) {
        report(__LINE__, ZEMA_ERR);
    }
    return acceptIf(lookup == Lookup::done);
}

// ---- Parameter lists ----

uint32_t QX_UTL_DBAppendAllList(const DbAppendRow *pstRows, uint32_t ulSize, void *pList)
{
    constexpr uint32_t kRefusedSize = 0xFFFFFFFF;

    if (pstRows == nullptr || pList == nullptr || ulSize == kRefusedSize) {
        report(__LINE__, zema::addressValue(pList));
        return ZEMA_ERR;
    }
    for (const DbAppendRow &row : std::span(pstRows, ulSize / sizeof(DbAppendRow))) {
        const uint32_t result =
            QX_XML_DBAppendAllParaToParaList(pList, row.ulFirst, 0, row.ulThird, 0, row.ulSecond, 0);
        if (result != ZEMA_OK) {
            report(__LINE__, result);
            report(__LINE__, row.ulFirst);
            return result;
        }
    }
    return ZEMA_OK;
}

// ---- Identifier pools ----

namespace {

// Every identifier is free, the lowest one on top.
void fillStack(IndexArray &pool)
{
    std::iota(pool.pusFree, pool.pusFree + pool.usCapacity, uint16_t{1});
    pool.usUsed = 0;
}

} // namespace

uint32_t QX_UTL_InitIndexArray(IndexArray *pstPool)
{
    if (pstPool == nullptr || pstPool->usCapacity == 0) {
        return ZEMA_ERR;
    }
    if (pstPool->usInitialised != 0) {
        return ZEMA_OK;
    }
    const auto size = static_cast<uint32_t>(pstPool->usCapacity * sizeof(uint16_t));
    pstPool->pusFree = static_cast<uint16_t *>(QX_OS_MemMallocD(size));
    if (pstPool->pusFree == nullptr) {
        reportDetail(__LINE__, pstPool->usCapacity);
        return ZEMA_ERR;
    }
    fillStack(*pstPool);
    pstPool->usInitialised = 1;
    return ZEMA_OK;
}

uint32_t QX_UTL_NewIndex(IndexArray *pstPool, uint16_t *pusId)
{
    if (pstPool == nullptr || pusId == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pstPool->usInitialised == 0) {
        (void)QX_UTL_InitIndexArray(pstPool);
    }
    if (pstPool->usUsed >= pstPool->usCapacity) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, pstPool->usUsed, pstPool->usCapacity, 0, 0);
        return ZEMA_ERR;
    }
    if (pstPool->pusFree == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    *pusId = pstPool->pusFree[pstPool->usUsed++];
    return ZEMA_OK;
}

uint32_t QX_UTL_FreeIndex(IndexArray *pstPool, uint16_t usId)
{
    if (pstPool == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pstPool->usUsed == 0) {
        return ZEMA_OK;
    }
    if (usId == 0 || usId > pstPool->usCapacity) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, usId, pstPool->usCapacity, pstPool->usUsed, 0);
        return ZEMA_OK;
    }
    pstPool->pusFree[--pstPool->usUsed] = usId;
    return ZEMA_OK;
}

uint32_t QX_UTL_FreeAllIndex(IndexArray *pstPool)
{
    if (pstPool == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (pstPool->usUsed != 0) {
        fillStack(*pstPool);
    }
    return ZEMA_OK;
}
