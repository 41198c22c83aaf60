#include "platform/linux/process_name.h"

#include <algorithm>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace qx {

ProcessName processName(uint32_t pid)
{
    std::array<char, 32> path{};
    std::snprintf(path.data(), path.size(), "/proc/%u/comm", pid);
    const int fd = open(path.data(), O_RDONLY | O_CLOEXEC);
    std::array<char, 64> line{};
    const ssize_t got = fd >= 0 ? read(fd, line.data(), line.size()) : -1;
    if (fd >= 0) {
        close(fd);
    }
    if (got <= 1) {
        return {'?'};
    }
    ProcessName name{};
    std::copy_n(line.begin(), std::min(static_cast<size_t>(got) - 1, name.size() - 1), name.begin());
    return name;
}

} // namespace qx
