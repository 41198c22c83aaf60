// What a process's program is called.
#pragma once

#include <array>
#include <cstdint>

namespace qx {

using ProcessName = std::array<char, 16>;

// "?" when it cannot be learnt.
ProcessName processName(uint32_t pid);

} // namespace qx
