// Texts from users and from stored configuration: every validator beside its model, every conversion into a
// buffer of any size.
#include "qx/diag.h"
#include "tests/util/text_models.h"
#include "zema/ipv6.h"
#include "zema/strings.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

namespace model = zema::test::model;
using model::Exact;

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

void convert(const std::string &plain, uint32_t size)
{
    const Exact text(plain);
    const auto out = std::make_unique<char[]>(size); // not null, even of size 0
    IpAddrRecord record = {};
    uint8_t mac[ZEMA_MAC_SIZE];
    uint32_t value = 0;
    (void)QX_UTL_ConvertIpAddrToStandard(text, out.get(), size);
    if (QX_UTL_IpStrToAddr(text, &record) != nullptr) {
        require(QX_UTL_IsIpAddrValid(&record) == 1);
        (void)QX_UTL_GetIpAddrStr(&record, out.get(), size);
    }
    (void)QX_UTL_ConvHostNameToIpAddr(text, &record);
    require(QX_UTL_MacStrToArr(text, mac) == 0 && QX_UTL_MacArrToStr(mac, out.get(), size) == 0);
    (void)QX_UTL_ValidateHostIpWithSubnetMask(text, text);
    (void)QX_UTL_CheckIPV6_FE8_AND_FEC(text);
    require(QX_UTL_ValidateIpv6Mask(text, &value) != 0 || value <= 128);
    require((QX_UTL_ATOI(text, &value) == 0) == (plain.empty() || model::kDecimal.matches(plain)));
    require(QX_UTL_IsIpRange(text) == 0 || plain.find('-') != std::string::npos);
}

void replace(const std::vector<std::string> &lines, uint32_t size)
{
    const auto out = std::make_unique<char[]>(size);
    const Exact source(lines[0]);
    if (QX_StrReplaceSubStr(source, Exact(lines[1]), Exact(lines[2]), out.get(), size) == 0) {
        const size_t whole = lines[0].size() - lines[1].size() + lines[2].size();
        require(whole >= size || std::string(out.get()).size() == whole);
    }
}

} // namespace

// The first two bytes are the size of the buffer. The rest is a text, of several lines for the replacement.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const uint32_t room = (data[0] + 256U * data[1]) % 1024U;
    std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    (void)QX_UTL_Checksum(data, static_cast<int32_t>(size));
    text.resize(std::strlen(text.c_str()));
    require(model::disagreement(text) == nullptr);
    convert(text, room);
    std::vector<std::string> lines(3);
    std::istringstream stream(text);
    for (std::string &line : lines) {
        std::getline(stream, line);
    }
    replace(lines, room);
    return 0;
}
