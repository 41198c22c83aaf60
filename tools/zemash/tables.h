// The shared tables that the service's main process owns. Looking changes nothing.
#pragma once

#include <cstdint>
#include <optional>

namespace zemash {

struct TableQuery {
    std::optional<uint32_t> table; // all tables when not given
    std::optional<uint32_t> index; // all items of the table when not given
    bool layer = false;            // items are layer records: decode their headers
    bool json = false;
};

struct TableCount {
    uint64_t tables = 0;
    uint64_t items = 0;
};

// 0, or why the owner could not be asked.
uint32_t countTables(TableCount &count);

// Prints what is asked for, one a line. The exit code.
int showTables(const TableQuery &query);

} // namespace zemash
