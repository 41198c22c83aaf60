// The validators of addresses and names beside what the C library does with the same texts, and the checksum
// beside a plain loop.
#include "qx/diag.h"
#include "zema/domain.h"
#include "zema/ipv4.h"
#include "zema/ipv6.h"
#include "zema/mac.h"
#include "zema/strings.h"

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/ether.h>

#include <array>
#include <cstring>
#include <string>

// Records would measure the diagnostic layer.
uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

using Check = uint32_t (*)(const char *text);

uint32_t pton4(const char *text)
{
    in_addr address;
    return inet_pton(AF_INET, text, &address) == 1 ? 0 : 1;
}

uint32_t pton6(const char *text)
{
    in6_addr address;
    return inet_pton(AF_INET6, text, &address) == 1 ? 0 : 1;
}

uint32_t etherAton(const char *text)
{
    ether_addr address;
    return ether_aton_r(text, &address) != nullptr ? 0 : 1;
}

uint32_t isName(const char *text)
{
    return QX_UTL_ISDomainValid(text) == 1 ? 0 : 1;
}

uint32_t splitName(const char *text)
{
    char copy[256];
    std::memcpy(copy, text, std::strlen(text) + 1);
    char *save = nullptr;
    for (char *label = strtok_r(copy, ".", &save); label != nullptr; label = strtok_r(nullptr, ".", &save)) {
        benchmark::DoNotOptimize(label);
    }
    return 0;
}

// One 16-bit word a step: a compiler that made lanes of it would be another thing to measure.
__attribute__((noinline)) uint32_t sumPlainly(const void *data, int32_t length)
{
    const auto *words = static_cast<const uint16_t *>(data);
    uint32_t sum = 0;
    for (; length > 1; length -= 2) {
        sum += *words++;
        asm("" : "+r"(sum));
    }
    if (length > 0) {
        uint16_t last = 0;
        std::memcpy(&last, words, 1);
        sum += last;
    }
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

std::string nameOf(size_t label)
{
    std::string name;
    while (name.size() < 250) {
        name += name.size() % (label + 1) == label ? '.' : 'a';
    }
    name.back() = 'a';
    return name;
}

void check(benchmark::State &state, Check function, const std::string &text)
{
    const char *pointer = text.c_str();
    if (function(pointer) != 0) {
        state.SkipWithError("the text is refused");
        return;
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(pointer);
        benchmark::DoNotOptimize(function(pointer));
    }
}

void sum(benchmark::State &state, uint32_t (*function)(const void *, int32_t), int32_t length)
{
    alignas(64) std::array<uint8_t, 2048> bytes;
    for (size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<uint8_t>(i * 37 + i / 8);
    }
    if (function(bytes.data(), length) != sumPlainly(bytes.data(), length)) {
        state.SkipWithError("the two sums differ");
        return;
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(length);
        benchmark::DoNotOptimize(function(bytes.data(), length));
    }
}

const bool registered = [] {
    struct Row {
        const char *name;
        Check ours;
        Check peer;
        std::string text;
    };
    const Row rows[] = {
        {"quad", QX_UTL_ValidateIpAddress, pton4, "192.168.100.200"},
        {"shortQuad", QX_UTL_ValidateIpAddress, pton4, "10.0.0.1"},
        {"host", QX_UTL_ValidateHostIpAddress, pton4, "192.168.100.200"},
        {"shortHost", QX_UTL_ValidateHostIpAddress, pton4, "10.0.0.1"},
        {"mask", QX_UTL_ValidateSubnetMask, pton4, "255.255.255.0"},
        {"longMask", QX_UTL_ValidateSubnetMask, pton4, "255.255.255.252"},
        {"mac", QX_UTL_ValidateMacAddress, etherAton, "00:1a:2B:3c:4D:5e"},
        {"ipv6", QX_UTL_ValidateIpv6Address, pton6, "2001:db8:1:2:3:4:5:6"},
        {"shortIpv6", QX_UTL_ValidateIpv6Address, pton6, "2001:db8::1"},
        {"name/3", isName, splitName, nameOf(3)},
        {"name/10", isName, splitName, nameOf(10)},
        {"name/20", isName, splitName, nameOf(20)},
        {"name/63", isName, splitName, nameOf(63)},
    };
    for (const Row &row : rows) {
        benchmark::RegisterBenchmark(row.name, check, row.ours, row.text);
        benchmark::RegisterBenchmark(std::string("libc/").append(row.name).c_str(), check, row.peer,
                                     row.text);
    }
    for (const int32_t length : {20, 64, 1500}) {
        const std::string bytes = std::to_string(length);
        benchmark::RegisterBenchmark(std::string("checksum/").append(bytes).c_str(), sum, QX_UTL_Checksum,
                                     length);
        benchmark::RegisterBenchmark(std::string("sumPlainly/").append(bytes).c_str(), sum, sumPlainly,
                                     length);
    }
    return true;
}();

} // namespace
