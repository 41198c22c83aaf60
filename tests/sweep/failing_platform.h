// A host whose platform fails, one call after the other: its functions, the operations of its tables, lists
// and event handles, and the system calls that the library makes itself.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace zema::test {

inline constexpr uint32_t kCode = 0x1234; // of what fails with a code

struct Injection {
    bool watching = false; // only then do calls count and fail, and are records kept
    uint32_t failAt = 0;   // the number of the call that fails; 0 for none
    bool allLater = false; // and those behind it

    uint32_t calls = 0;    // of all functions
    uint32_t fallible = 0; // of what can fail
    std::map<std::string, uint32_t> counts = {};
    std::vector<std::string> failed = {}; // names, each with the number of its call: "Socket.1"
    std::vector<uint32_t> records = {};   // their first values
};

struct FailingPlatform : Injection {
    uint32_t depth = 0;      // of the platform's own code
    std::set<void *> blocks; // of the allocator, not yet given back
    std::string root;        // what the paths of files begin with in truth
    std::string received;    // what sockets bring

    bool due(std::string name); // counts a call; whether it is to fail
};

extern FailingPlatform platform;

} // namespace zema::test
