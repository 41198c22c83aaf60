// A large block written and read back, beside a mapped object; and random bytes encoded, beside their copy.
#include "qx/compress.h"
#include "qx/memory.h"
#include "zema/large_data.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

std::vector<uint8_t> randomBytes(size_t size)
{
    std::mt19937 generator(static_cast<uint32_t>(size));
    std::vector<uint8_t> bytes(size);
    for (uint8_t &byte : bytes) {
        byte = static_cast<uint8_t>(generator());
    }
    return bytes;
}

void throughBlock(benchmark::State &state)
{
    const std::vector<uint8_t> data = randomBytes(static_cast<size_t>(state.range(0)));
    const auto size = static_cast<uint32_t>(data.size());
    while (state.KeepRunning()) {
        LargeDataDesc desc;
        void *out = nullptr;
        if (QX_LargeDataWriteNoCompress(&desc, data.data(), size) != ZEMA_OK ||
            QX_LargeDataReadNoDecompress(&desc, &out) != ZEMA_OK) {
            state.SkipWithError("no block");
        }
        benchmark::DoNotOptimize(out);
        QX_OS_MemFreeD(out);
    }
}

// One side of the plain way: the object mapped, the bytes copied in or out.
template <typename Copy>
void withMapping(int flags, int protection, size_t size, Copy copy)
{
    const int fd = shm_open("/zema-bench-peer", flags, 0600);
    if (fd < 0 || ((flags & O_CREAT) != 0 && ftruncate(fd, static_cast<off_t>(size)) != 0)) {
        std::abort();
    }
    void *const mapped = mmap(nullptr, size, protection, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped == MAP_FAILED) {
        std::abort();
    }
    copy(mapped);
    munmap(mapped, size);
}

void throughMapping(benchmark::State &state)
{
    const std::vector<uint8_t> data = randomBytes(static_cast<size_t>(state.range(0)));
    while (state.KeepRunning()) {
        withMapping(O_RDWR | O_CREAT | O_EXCL, PROT_READ | PROT_WRITE, data.size(),
                    [&](void *mapped) { std::memcpy(mapped, data.data(), data.size()); });
        void *const out = std::malloc(data.size());
        withMapping(O_RDONLY, PROT_READ, data.size(),
                    [&](const void *mapped) { std::memcpy(out, mapped, data.size()); });
        shm_unlink("/zema-bench-peer");
        benchmark::DoNotOptimize(out);
        std::free(out);
    }
}

BENCHMARK(throughBlock)->Arg(64 << 10)->Arg(1 << 20);
BENCHMARK(throughMapping)->Arg(64 << 10)->Arg(1 << 20);

void encode(benchmark::State &state)
{
    const std::vector<uint8_t> data = randomBytes(64 << 10);
    std::vector<uint8_t> out(data.size() + 772);
    while (state.KeepRunning()) {
        uint32_t written = 0;
        QX_OS_Compress(data.data(), static_cast<uint32_t>(data.size()), out.data(),
                       static_cast<uint32_t>(out.size()), &written);
        benchmark::DoNotOptimize(written);
        benchmark::ClobberMemory();
    }
}

void copyFiveTimes(benchmark::State &state)
{
    const std::vector<uint8_t> data = randomBytes(64 << 10);
    std::vector<uint8_t> out(data.size() + 772);
    while (state.KeepRunning()) {
        for (int n = 0; n < 5; ++n) {
            std::memcpy(out.data(), data.data(), data.size());
            benchmark::ClobberMemory();
        }
    }
}

BENCHMARK(encode);
BENCHMARK(copyFiveTimes);

} // namespace
