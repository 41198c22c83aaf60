// What passes on the bus, as it passes.
#pragma once

#include <cstdint>
#include <string>

namespace zemash {

struct MonitorQuery {
    std::string kinds;   // separated by commas; all when empty
    std::string process; // name or identifier of the sender or the receiver; all when empty
    uint32_t count = 0;  // ends after so many; 0: goes on until a signal
    bool json = false;
};

// Whether every kind is known.
bool areKinds(const std::string &kinds);

// "event, call, ...".
std::string allKinds();

// Prints a line for each passage, and at the end on standard error how many were shown and how many missed.
// The exit code.
int showMonitor(const MonitorQuery &query);

} // namespace zemash
