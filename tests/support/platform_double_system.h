// The watching host's own sockets, files, shell, owner of the data and configuration database.
#pragma once

#include "tests/support/platform_double.h"

namespace zema::test {

struct System {
    std::string root; // what the paths of files begin with in truth
    std::string
        answer; // the kernel's to requests: what stands behind the name, or name and all if long enough
    std::string listing; // what the shell's commands write
    int32_t error = 0;   // the last one: 19 of a failed request, 5 once something else was done since
    static System &instance();
};

} // namespace zema::test
