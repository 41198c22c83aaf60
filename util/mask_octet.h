// The octets in which a mask may end its run of ones. 255 is none of them: the run goes on behind it.
#pragma once

#include <array>
#include <cstdint>

namespace zema {

struct MaskOctet {
    uint32_t octet;
    uint8_t bits; // leading ones
};

inline constexpr auto kMaskOctets = std::to_array<MaskOctet>({
    {.octet = 0x00, .bits = 0},
    {.octet = 0x80, .bits = 1},
    {.octet = 0xC0, .bits = 2},
    {.octet = 0xE0, .bits = 3},
    {.octet = 0xF0, .bits = 4},
    {.octet = 0xF8, .bits = 5},
    {.octet = 0xFC, .bits = 6},
    {.octet = 0xFE, .bits = 7},
});
static_assert(kMaskOctets.size() == 8);

// The row of an octet, or null.
constexpr const MaskOctet *findMaskOctet(uint32_t octet)
{
    for (const MaskOctet &row : kMaskOctets) {
        if (row.octet == octet) {
            return &row;
        }
    }
    return nullptr;
}

} // namespace zema
