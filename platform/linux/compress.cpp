// Compressed data: one byte that names the method, then LZ4's block, or the bytes as they were where that is
// not shorter.
#include "qx/compress.h"

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <lz4.h>

namespace {

enum Method : uint8_t { kStored = 0, kLz4 = 1 };

constexpr int kSample = 2048;
constexpr int kSampledFrom = 8 * kSample;
constexpr int kHurried = 32;

// How LZ4 is to hurry over the bytes: where a piece of their middle does not shrink, most will not.
int hurryFor(const char *src, int n, char *dst, int room)
{
    const bool worthAsking = n >= kSampledFrom && room >= kSample;
    return worthAsking && LZ4_compress_default(src + n / 2, dst, kSample, kSample - 1) == 0 ? kHurried : 1;
}

// The size of the LZ4 block, 0 when it does not fit.
uint32_t compressInto(const void *src, uint32_t n, uint8_t *dst, uint32_t room)
{
    if (n > LZ4_MAX_INPUT_SIZE) {
        return 0;
    }
    const auto *const from = static_cast<const char *>(src);
    auto *const to = reinterpret_cast<char *>(dst);
    const auto size = static_cast<int>(n);
    const auto most = static_cast<int>(room);
    return static_cast<uint32_t>(LZ4_compress_fast(from, to, size, most, hurryFor(from, size, to, most)));
}

} // namespace

uint32_t QX_OS_Compress(const void *src, uint32_t n, void *dst, uint32_t capacity, uint32_t *written)
{
    if ((src == nullptr && n > 0) || dst == nullptr || written == nullptr || capacity == 0) {
        return QX_ERR;
    }
    auto *const bytes = static_cast<uint8_t *>(dst);
    // A byte shorter than what it stands for, or not at all.
    const uint32_t room = std::min(capacity, n) - std::min(n, 1U);
    const uint32_t size = room > 0 ? compressInto(src, n, bytes + 1, room) : 0;
    if (size > 0) {
        bytes[0] = kLz4;
        *written = size + 1;
        return QX_OK;
    }
    if (capacity - 1 < n) {
        return QX_ERR_TOO_LARGE;
    }
    bytes[0] = kStored;
    if (n > 0) {
        std::memcpy(bytes + 1, src, n);
    }
    *written = n + 1;
    return QX_OK;
}

uint32_t QX_OS_Decompress(const void *src, uint32_t n, void *dst, uint32_t rawSize)
{
    if (src == nullptr || n == 0 || (dst == nullptr && rawSize > 0)) {
        return QX_ERR;
    }
    const auto *const bytes = static_cast<const uint8_t *>(src);
    const uint32_t size = n - 1;
    if (bytes[0] == kStored && size == rawSize) {
        if (size > 0) {
            std::memcpy(dst, bytes + 1, size);
        }
        return QX_OK;
    }
    if (bytes[0] != kLz4 || size > INT_MAX || rawSize > INT_MAX) {
        return QX_ERR;
    }
    const int restored =
        LZ4_decompress_safe(reinterpret_cast<const char *>(bytes + 1), static_cast<char *>(dst),
                            static_cast<int>(size), static_cast<int>(rawSize));
    return restored >= 0 && static_cast<uint32_t>(restored) == rawSize ? QX_OK : QX_ERR;
}
