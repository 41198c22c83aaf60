// Finds the row of the whitelist that an operator's text begins with.
//
// The rows stand in buckets of one class and one first character, in table order, and each knows how many
// characters it shares with the row before it. So a text is compared with the handful of rows it could begin
// with, and hardly any of its characters twice.
#pragma once

#include "zema/zemacmd_table.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <type_traits>
#include <utility>

namespace zema::whitelist {

inline constexpr size_t kClasses = 2;
inline constexpr size_t kCharacters = 128;

struct Row {
    const char *command;
    uint8_t size;
    uint8_t shared; // characters at the beginning that are those of the row before it in the bucket
    uint8_t number; // in the table, counted from 0
};

struct Index {
    std::array<Row, ZEMA_ZEMACMD_ROW_COUNT> rows;
    std::array<uint8_t, kClasses * kCharacters + 1>
        start; // bucket b is the rows start[b] to start[b + 1] - 1
};

constexpr size_t bucketOf(uint32_t flag, char first)
{
    return flag * kCharacters + static_cast<unsigned char>(first);
}

consteval uint8_t sharedSize(std::string_view a, std::string_view b)
{
    return static_cast<uint8_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

consteval Index makeIndex()
{
    Index index = {};
    uint8_t filled = 0;
    for (size_t bucket = 0; bucket < kClasses * kCharacters; ++bucket) {
        index.start[bucket] = filled;
        std::string_view previous;
        for (uint8_t number = 0; number < ZEMA_ZEMACMD_ROW_COUNT; ++number) {
            const ZemacmdCheckItem &item = ZemacmdCheckTable[number];
            if (bucketOf(item.ulDbgFlag, item.pcCmd[0]) == bucket) {
                const std::string_view command = item.pcCmd;
                index.rows[filled++] = {.command = item.pcCmd,
                                        .size = static_cast<uint8_t>(command.size()),
                                        .shared = sharedSize(command, previous),
                                        .number = number};
                previous = command;
            }
        }
    }
    index.start.back() = filled;
    return index;
}

inline constexpr Index kIndex = makeIndex();

static_assert(kIndex.start.back() == ZEMA_ZEMACMD_ROW_COUNT, "every row is in a bucket");

// Compared as types: a sanitizer build does not take a function's address for nonzero in a constant
// expression.
template <ZemacmdCheck kCheck>
using CheckType = std::integral_constant<ZemacmdCheck, kCheck>;

template <size_t... kRow>
consteval bool everyRowHasACheck(std::index_sequence<kRow...> /*rows*/)
{
    return (!std::is_same_v<CheckType<ZemacmdCheckTable[kRow].pfnCheck>, CheckType<nullptr>> && ...);
}
static_assert(everyRowHasACheck(std::make_index_sequence<ZEMA_ZEMACMD_ROW_COUNT>{}));

// The number of the first row of the class that text begins with, ZEMA_ZEMACMD_ROW_COUNT when there is none.
// Reads text up to its terminating zero at most.
constexpr uint32_t find(const char *text, uint32_t flag)
{
    if (flag >= kClasses || static_cast<unsigned char>(text[0]) >= kCharacters) {
        return ZEMA_ZEMACMD_ROW_COUNT;
    }
    const size_t bucket = bucketOf(flag, text[0]);
    size_t matched = 0; // characters of the row compared last
    for (size_t i = kIndex.start[bucket]; i < kIndex.start[bucket + 1]; ++i) {
        const Row &row = kIndex.rows[i];
        if (matched < row.shared) {
            continue; // differs where the row before it did
        }
        matched = row.shared;
        while (matched < row.size && text[matched] == row.command[matched]) {
            ++matched;
        }
        if (matched == row.size) {
            return row.number;
        }
    }
    return ZEMA_ZEMACMD_ROW_COUNT;
}

} // namespace zema::whitelist
