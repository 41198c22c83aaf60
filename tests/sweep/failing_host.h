// A host whose platform fails at a chosen call: its functions take the place of libqxplatform's, count
// themselves, and but for the chosen one go on to them.
#pragma once

#include "qx/base.h"

#include <string>
#include <vector>

namespace zema::test {

constexpr uint32_t kInjected = 0x5EED0001; // what a platform function that yields a result fails with

struct FailingHost {
    static FailingHost &instance();

    // From now on the platform's nth call fails (0: none), and when it is to stay so all that follow do.
    void arm(uint32_t nth, bool staysSo);
    void disarm() { armed = false; }

    bool armed = false;
    bool staysSo = false;
    uint32_t nth = 0;
    uint32_t calls = 0;              // since it was armed
    std::vector<std::string> failed; // which ones
    std::vector<uint32_t> codes;     // the first values of the records since
    int64_t blocks = 0;              // of the allocator, not given back
    int64_t locks = 0;               // held
    std::string scratch;             // stands for /var
    std::string kernelReply;         // what comes from a netlink socket

    // For its functions: whether this call is to fail.
    bool fails(const char *function);
};

} // namespace zema::test
