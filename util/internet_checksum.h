// The Internet checksum, in the byte order of the machine.
//
// Long data goes through lanes of 32 bits that add up whole words and, beside them, the words' high halves;
// what the high halves were counted too much is taken off at the end. All of it is modulo 2^32, so the sum of
// 16-bit words is exactly that of an accumulator of 32 bits, however long the data. Short data, above all the
// header of an IPv4 packet, is over before lanes would pay.
#pragma once

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zema::checksum {

inline constexpr size_t kBlock = 64; // what two vectors of any width fill
inline constexpr size_t kLong = 2 * kBlock;

#if defined(__SSE2__) || defined(__ARM_NEON)
using Lanes [[gnu::vector_size(16)]] = uint32_t;
#else
using Lanes [[gnu::vector_size(4)]] = uint32_t;
#endif

template <typename Word>
inline Word load(const uint8_t *at)
{
    Word word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

// The complement of a sum folded to 16 bits, its carries added at the other end.
constexpr uint16_t finish(uint32_t sum)
{
    sum = (sum & 0xFFFF) + (sum >> 16);
    sum = (sum & 0xFFFF) + (sum >> 16);
    return static_cast<uint16_t>(~sum);
}

// Machine words are added with their carries at the other end as well: that folds to the same.
using Word = uintptr_t;

inline void add(Word &sum, Word word)
{
    sum += word;
    sum += sum < word ? 1 : 0;
}

// The bytes behind the last whole word of data that has one, as a word that zeros complete: the end of the
// data as a word, without what belongs to the word before.
inline Word wordOfRest(const uint8_t *end, size_t size)
{
    return load<Word>(end - sizeof(Word)) >> 8 * (sizeof(Word) - 1 - size % sizeof(Word)) >> 8;
}

// The upper half of a sum and its rotation is that of both halves and their carry.
constexpr uint16_t foldWord(uint64_t sum)
{
    const auto half = static_cast<uint32_t>((sum + std::rotl(sum, 32)) >> 32);
    return static_cast<uint16_t>(~((half + std::rotl(half, 16)) >> 16));
}

inline uint16_t ofShort(const uint8_t *at, size_t size)
{
    if (size < sizeof(Word)) {
        std::array<uint8_t, sizeof(Word)> bytes = {};
        std::copy_n(at, size, bytes.begin());
        return foldWord(std::bit_cast<Word>(bytes));
    }
    Word sum = wordOfRest(at + size, size);
    if ((size & sizeof(Word)) != 0) {
        add(sum, load<Word>(at));
        at += sizeof(Word);
    }
    for (; size >= 2 * sizeof(Word); at += 2 * sizeof(Word), size -= 2 * sizeof(Word)) {
        add(sum, load<Word>(at));
        add(sum, load<Word>(at + sizeof(Word)));
    }
    return foldWord(sum);
}

// The sum of 16-bit words in size bytes, a multiple of what two vectors hold.
template <typename Vector>
[[gnu::always_inline]] inline uint32_t sumVectors(const uint8_t *at, size_t size)
{
    Vector words[2] = {};
    Vector highs[2] = {};
    for (const uint8_t *const end = at + size; at != end; at += 2 * sizeof(Vector)) {
        for (size_t i = 0; i < 2; ++i) {
            Vector next;
            std::memcpy(&next, at + i * sizeof(Vector), sizeof next);
            words[i] += next;
            highs[i] += next >> 16;
        }
    }
    const Vector high = highs[0] + highs[1];
    const Vector lanes = words[0] + words[1] - (high << 16) + high;
    uint32_t sum = 0;
    for (size_t i = 0; i < sizeof(Vector) / sizeof(uint32_t); ++i) {
        sum += lanes[i];
    }
    return sum;
}

#ifdef __x86_64__
using WideLanes [[gnu::vector_size(32)]] = uint32_t;

[[gnu::target("avx2")]] inline uint32_t sumWide(const uint8_t *at, size_t size)
{
    return sumVectors<WideLanes>(at, size);
}
#endif

// Both 16-bit words of each half of a word, in the halves: few enough of them carry nothing over.
constexpr uint64_t sumHalves(uint64_t word)
{
    constexpr uint64_t kLow = 0x0000FFFF0000FFFF;
    return (word & kLow) + (word >> 16 & kLow);
}

// Out of line, so that short data pays for none of its registers.
[[gnu::noinline]] inline uint16_t ofLong(const uint8_t *at, size_t size)
{
    const size_t whole = size / kBlock * kBlock;
#ifdef __x86_64__
    uint32_t sum = __builtin_cpu_supports("avx2") != 0 ? sumWide(at, whole) : sumVectors<Lanes>(at, whole);
#else
    uint32_t sum = sumVectors<Lanes>(at, whole);
#endif
    uint64_t halves = sumHalves(wordOfRest(at + size, size));
    for (at += whole, size -= whole; size >= sizeof(Word); at += sizeof(Word), size -= sizeof(Word)) {
        halves += sumHalves(load<Word>(at));
    }
    sum += static_cast<uint32_t>(halves) + static_cast<uint32_t>(halves >> 32);
    return finish(sum);
}

inline uint16_t of(const void *data, size_t size)
{
    const auto *const at = static_cast<const uint8_t *>(data);
    return size < kLong ? ofShort(at, size) : ofLong(at, size);
}

} // namespace zema::checksum
