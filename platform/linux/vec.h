// A growing array of trivially copyable elements, the first N of them without an allocation. A push that
// finds no memory says so and leaves the array as it was.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <type_traits>

namespace qx {

// For variables that live as long as the process: nothing frees it at the exit, when other threads may still
// use it.
template <typename T, uint32_t N = 1>
class StaticVec {
    static_assert(std::is_trivially_copyable_v<T>);

public:
    constexpr StaticVec() = default;
    StaticVec(const StaticVec &) = delete;
    StaticVec &operator=(const StaticVec &) = delete;

    bool push(const T &value)
    {
        if (count_ == capacity_ && !grow()) {
            return false;
        }
        begin()[count_++] = value;
        return true;
    }

    void removeAt(uint32_t index)
    {
        std::copy(begin() + index + 1, end(), begin() + index);
        --count_;
    }

    void clear()
    {
        std::free(heap_);
        heap_ = nullptr;
        count_ = 0;
        capacity_ = N;
    }

    void swap(StaticVec &other) requires(N == 1)
    {
        std::swap(inline_, other.inline_);
        std::swap(heap_, other.heap_);
        std::swap(count_, other.count_);
        std::swap(capacity_, other.capacity_);
    }

    T *begin() { return heap_ != nullptr ? heap_ : inline_; }
    T *end() { return begin() + count_; }
    const T *begin() const { return heap_ != nullptr ? heap_ : inline_; }
    const T *end() const { return begin() + count_; }
    T &operator[](uint32_t index) { return begin()[index]; }
    const T &operator[](uint32_t index) const { return begin()[index]; }
    uint32_t count() const { return count_; }

private:
    bool grow()
    {
        const uint32_t capacity = std::max(capacity_ * 2, 16U);
        // NOLINTNEXTLINE(bugprone-sizeof-expression): elements may be pointers
        auto *heap = static_cast<T *>(std::realloc(heap_, capacity * sizeof inline_[0]));
        if (heap == nullptr) {
            return false;
        }
        if (heap_ == nullptr) {
            // NOLINTNEXTLINE(bugprone-sizeof-expression)
            std::memcpy(static_cast<void *>(heap), inline_, count_ * sizeof inline_[0]);
        }
        heap_ = heap;
        capacity_ = capacity;
        return true;
    }

    T inline_[N]{};
    T *heap_ = nullptr;
    uint32_t count_ = 0;
    uint32_t capacity_ = N;
};

template <typename T, uint32_t N = 1>
class Vec : public StaticVec<T, N> {
public:
    ~Vec() { this->clear(); }
};

} // namespace qx
