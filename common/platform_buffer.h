// Memory of the platform's allocator, held by one owner and given back on every path.
#pragma once

#include "qx/memory.h"

#include <utility>

namespace zema {

class PlatformBuffer {
public:
    explicit PlatformBuffer(uint32_t size) : PlatformBuffer(QX_OS_MemMallocD(size), size) {}
    static PlatformBuffer zeroed(uint32_t size) { return {QX_OS_MemMallocSet(size), size}; }
    static PlatformBuffer none() { return {nullptr, 0}; }
    ~PlatformBuffer()
    {
        if (block_ != nullptr) {
            QX_OS_MemFreeD(block_);
        }
    }
    PlatformBuffer(PlatformBuffer &&other) noexcept
        : block_(std::exchange(other.block_, nullptr)), size_(std::exchange(other.size_, 0))
    {
    }
    PlatformBuffer &operator=(PlatformBuffer &&) = delete;
    PlatformBuffer(const PlatformBuffer &) = delete;
    PlatformBuffer &operator=(const PlatformBuffer &) = delete;

    explicit operator bool() const { return block_ != nullptr; }
    void *data() const { return block_; }
    uint32_t size() const { return size_; }

    // Hands the block to another owner.
    void *release() { return std::exchange(block_, nullptr); }
    // Gives the block back before the end of the scope.
    void reset() { const PlatformBuffer given(std::move(*this)); }

private:
    PlatformBuffer(void *block, uint32_t size) : block_(block), size_(size) {}

    void *block_;
    uint32_t size_;
};

} // namespace zema
