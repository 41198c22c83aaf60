#include "qx/text.h"

#include <arpa/inet.h>
#include <array>
#include <bit>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <limits>

static_assert(AF_INET == 2 && AF_INET6 == 10, "the callers' address families");

namespace {

template <typename Number>
uint32_t parseDecimal(const char *text, Number *out)
{
    if (text == nullptr || out == nullptr) {
        return QX_ERR;
    }
    using Limits = std::numeric_limits<Number>;
    const char *const end = text + std::strlen(text);
    Number number = 0;
    const auto [stop, error] = std::from_chars(text, end, number);
    if (error == std::errc::invalid_argument || stop != end) {
        return QX_ERR;
    }
    const bool outOfRange = error == std::errc::result_out_of_range;
    if (outOfRange) {
        number = *text == '-' ? Limits::min() : Limits::max();
    }
    *out = number;
    return outOfRange ? QX_ERR : QX_OK;
}

} // namespace

uint32_t QX_OS_StrToUInt32(const char *text, uint32_t *out)
{
    return parseDecimal(text, out);
}

uint32_t QX_OS_StrToInt32(const char *text, int32_t *out)
{
    return parseDecimal(text, out);
}

uint32_t QX_OS_UInt32ToStr_S(uint32_t value, char *out, uint32_t size)
{
    if (out == nullptr || size == 0) {
        return QX_ERR;
    }
    const auto [end, error] = std::to_chars(out, out + size - 1, value);
    if (error != std::errc{}) {
        *out = '\0';
        return QX_ERR;
    }
    *end = '\0';
    return QX_OK;
}

long QX_OS_Strtol(const char *text, char **end, int32_t base)
{
    if (text == nullptr) {
        if (end != nullptr) {
            *end = nullptr;
        }
        return 0;
    }
    return std::strtol(text, end, base);
}

uint32_t QX_OS_InetAddr(const char *text)
{
    return text != nullptr ? inet_addr(text) : INADDR_NONE;
}

int32_t QX_OS_InetPton(int32_t family, const char *text, void *out)
{
    if (text == nullptr || out == nullptr) {
        return -1;
    }
    return inet_pton(family, text, out);
}

const char *QX_OS_InetNtop(int32_t family, const void *address, char *out, uint32_t size)
{
    if (address == nullptr || out == nullptr) {
        return nullptr;
    }
    return inet_ntop(family, address, out, size);
}

// inet_aton would read a part with a leading zero as octal, and inet_pton refuses it.
uint32_t QX_OS_StrToIpAddr(const char *text, uint32_t *out)
{
    if (text == nullptr || out == nullptr) {
        return QX_ERR;
    }
    const char *const end = text + std::strlen(text);
    std::array<uint8_t, 4> parts{};
    for (uint8_t &part : parts) {
        if (&part != parts.data() && *text++ != '.') {
            return QX_ERR;
        }
        const auto [stop, error] = std::from_chars(text, end, part);
        if (error != std::errc{}) {
            return QX_ERR;
        }
        text = stop;
    }
    if (text != end) {
        return QX_ERR;
    }
    *out = std::bit_cast<uint32_t>(parts);
    return QX_OK;
}

uint32_t QX_OS_IpAddrToStr(uint32_t address, char *out, uint32_t size)
{
    if (out == nullptr || size == 0) {
        return QX_ERR;
    }
    if (inet_ntop(AF_INET, &address, out, size) == nullptr) {
        *out = '\0';
        return QX_ERR;
    }
    return QX_OK;
}
