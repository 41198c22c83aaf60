#include "qx/memory.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <malloc.h>

namespace {

// Fresh pages cost more than what is done with a large block, and what the C library takes back it may give
// to the kernel at once. So a few large ones are kept for whoever comes next, but not where a sanitizer is to
// see their end.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QX_KEEPS_NOTHING
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define QX_KEEPS_NOTHING
#endif
#endif
#ifdef QX_KEEPS_NOTHING
constexpr size_t kLeastKept = SIZE_MAX;
#else
constexpr size_t kLeastKept = size_t{128} << 10U;
#endif
constexpr size_t kMostKept = size_t{2} << 20U;

constinit std::atomic<void *> gKept[2] = {};

bool isKept(size_t size)
{
    return size >= kLeastKept && size <= kMostKept;
}

// One that is kept already is given back twice: two would get it.
bool keep(void *block)
{
    if (std::any_of(std::begin(gKept), std::end(gKept),
                    [&](const std::atomic<void *> &place) { return place.load() == block; })) {
        std::abort();
    }
    return std::any_of(std::begin(gKept), std::end(gKept), [&](std::atomic<void *> &place) {
        void *nothing = nullptr;
        return place.compare_exchange_strong(nothing, block, std::memory_order_release,
                                             std::memory_order_relaxed);
    });
}

// One that is large enough, and not so large that it is wasted; null when there is none.
void *takeKept(size_t size)
{
    for (std::atomic<void *> &place : gKept) {
        void *const block = place.exchange(nullptr, std::memory_order_acquire);
        if (block == nullptr) {
            continue;
        }
        const size_t room = malloc_usable_size(block);
        if (room >= size && room / 2 <= size) {
            return block;
        }
        if (!keep(block)) {
            std::free(block);
        }
    }
    return nullptr;
}

// Not every C library answers a request for nothing with a block, and a null would read as "no memory".
size_t blockSize(uint32_t size)
{
    return std::max<size_t>(size, 1);
}

} // namespace

void *QX_OS_MemMallocD(uint32_t size)
{
    void *const kept = isKept(size) ? takeKept(size) : nullptr;
    return kept != nullptr ? kept : std::malloc(blockSize(size));
}

void *QX_OS_MemMallocSet(uint32_t size)
{
    return std::calloc(blockSize(size), 1);
}

uint32_t QX_OS_MemFreeD(void *block)
{
    if (block != nullptr && (!isKept(malloc_usable_size(block)) || !keep(block))) {
        std::free(block);
    }
    return QX_OK;
}
