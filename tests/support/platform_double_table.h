// What a host that watches sees of the table store: its hashtables, synchronous requests, and what tells the
// main thread.
#pragma once

#include "qx/hashtable.h"
#include "tests/support/platform_double.h"

namespace zema::test {

// What the platform's getters say, and the other process's only table.
struct Surroundings {
    uint32_t state = 0;
    uint32_t process = 100;
    uint32_t thread = 100;
    uint32_t module = 0;
    std::array<uint32_t, 2> jiffies{};
    std::map<uint32_t, std::string> items{};
};

class TableTest : public PlatformTest {
protected:
    TableTest() { around = {}; }
    ~TableTest() override { dropTables(); }

    // Gives all tables and items back, past the library.
    void dropTables();

    // What was done since the last time: the functions with their numbers, the records in braces, a record's
    // addresses as @.
    std::string deeds();

public:
    static Surroundings around;
};

} // namespace zema::test
