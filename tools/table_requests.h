// What the console asks zemad about its tables, beside the requests of zema/multi_hashtable_ex.h: reading
// only, so that an operator's look makes no table. Requests and replies are 32-bit words in host byte order.
#pragma once

#include <cstdint>

namespace tools {

enum TableRequest : uint32_t {
    kListTables = 0x1000, // {skip}: a Page of {table, number of items}
    kListItems = 0x1001,  // {table, skip}: a Page of {index, length}
    kItemLength = 0x1002, // {table, index}: {length}
};

// Rows of two words from the given one on; QX_ERR_NOT_FOUND when there is no such table.
struct Page {
    static constexpr uint32_t kMaxRows = 4096;
    struct Row {
        uint32_t key;
        uint32_t value;
    };
    uint32_t total; // of all rows
    uint32_t count; // of those that follow
    Row rows[kMaxRows];
};
static_assert(sizeof(Page) == 8 + 8 * Page::kMaxRows && sizeof(Page) <= 0xFFFF);

} // namespace tools
