// Device queries beside the system calls that they make, and options beside the reading of their file.
#include "qx/diag.h"
#include "qx/file.h"
#include "zema/netdev.h"
#include "zema/wan_options.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <net/if.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr const char *kDevice = "lo";

// 200 lines, the option in the last.
const std::string optionFile = [] {
    std::string path = "/tmp/zema-options-XXXXXX";
    const int fd = mkstemp(path.data());
    std::string text;
    for (int i = 0; i < 199; ++i) {
        text += "option" + std::to_string(i) + "=10.0.0." + std::to_string(i) + " 255.255.255.0 text\n";
    }
    text += "dns=10.0.0.1 10.0.0.2\n";
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        std::abort();
    }
    close(fd);
    std::atexit([] { unlink(optionFile.c_str()); });
    return path;
}();

} // namespace

// The option file of this host stands elsewhere.
void *QX_OS_Fopen(const char * /*path*/, const char *mode)
{
    return std::fopen(optionFile.c_str(), mode);
}

namespace {

void query(benchmark::State &state)
{
    while (state.KeepRunning()) {
        int32_t index = 0;
        if (NETDEV_GetIndexByDevName(kDevice, &index) != ZEMA_OK) {
            state.SkipWithError("no such device");
        }
        benchmark::DoNotOptimize(index);
    }
}

void queryBare(benchmark::State &state)
{
    while (state.KeepRunning()) {
        ifreq request{};
        std::strcpy(request.ifr_name, kDevice); // NOLINT(clang-analyzer-security.insecureAPI.strcpy)
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        if (ioctl(fd, SIOCGIFINDEX, &request) != 0) {
            state.SkipWithError("no such device");
        }
        close(fd);
        benchmark::DoNotOptimize(request);
    }
}

void option(benchmark::State &state)
{
    static OptionValueList values;
    while (state.KeepRunning()) {
        if (QX_UTL_GetOptionValue("wan", "dns", &values) != ZEMA_OK || values.ucCount != 2) {
            state.SkipWithError("no such option");
        }
        benchmark::DoNotOptimize(values);
    }
}

void firstValue(benchmark::State &state)
{
    char value[64];
    while (state.KeepRunning()) {
        if (QX_UTL_GetDhcpHdrOptValue("wan", "dns", value, sizeof value) != ZEMA_OK) {
            state.SkipWithError("no such option");
        }
        benchmark::DoNotOptimize(value);
    }
}

void readBare(benchmark::State &state)
{
    char line[1200];
    while (state.KeepRunning()) {
        FILE *const file = std::fopen(optionFile.c_str(), "r");
        while (std::fgets(line, sizeof line, file) != nullptr) {
            benchmark::DoNotOptimize(line);
        }
        std::fclose(file);
    }
}

BENCHMARK(query);
BENCHMARK(queryBare);
BENCHMARK(option);
BENCHMARK(firstValue);
BENCHMARK(readBare);

} // namespace
