// The service's main process: owns the tables, starts the command agent, serves the command tree and runs
// until it is told to stop.
#include "device_service.h"
#include "qx/host.h"
#include "table_service.h"
#include "text.h"
#include "zema/zema.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr int kUsage = 2;

constexpr char kHelp[] = R"(usage: zemad [--help | --version]

The main process of the zema service. It answers the remote procedures for operators' commands, serves the
command tree, owns the shared tables, which live as long as it does, and says "zemad: ready" on standard output once
it is all there. SIGTERM or SIGINT ends it. A second one in the same runtime directory is refused.

The processes of the service meet in a runtime directory: $ZEMA_RUNTIME_DIR, else /run/zema for root, else
$XDG_RUNTIME_DIR/zema. With ZEMA_DIAG=stderr, records and trace lines also go to standard error.

Exit status: 0 after a clean end, 1 when it could not start or go on, 2 for a wrong use.
)";

struct Step {
    const char *what;
    uint32_t (*take)();
};

uint32_t answer(void *context, const QxSyncRequest *request)
{
    const bool isDevice =
        request->ulCode == ZEMA_SYNC_NETDEV_DELETE || request->ulCode == ZEMA_SYNC_NETDEV_PRIV_FLAG;
    if (!isDevice) {
        return tools::serveTables(context, request);
    }
    const bool wantsReply = request->ulReplySize != 0; // there is none to give
    return wantsReply ? QX_ERR_PROTOCOL
                      : tools::deviceService(request->ulCode, request->pvData, request->ulSize);
}

uint32_t ownTables()
{
    return QxHost_ServeSync(answer, nullptr);
}

uint32_t serveModule()
{
    return QxHost_ServeModule(
        ZEMA_MODULE_ID, [](void *, void *message, uint32_t) { return DataAsync_OnAsynDataReceive(message); },
        nullptr);
}

constexpr Step kStart[] = {
    {"own the tables", ownTables},
    {"serve the module's messages", serveModule},
    {"start the command agent", CMDAgent_Init},
    {"serve the command tree", CMDAgent_Reg},
    {"answer for the devices' flags", tools::serveDeviceFlags},
};
constexpr Step kRun[] = {{"go on", QxHost_Run}};
constexpr Step kEnd[] = {
    {"stop the command agent", CMDAgent_UnInit},
    {"leave the bus", QxHost_Leave},
};

template <size_t count>
bool take(const Step (&steps)[count])
{
    for (const Step &step : steps) {
        const uint32_t result = step.take();
        if (result != 0) {
            std::fprintf(stderr, "zemad: cannot %s: %s\n", step.what, tools::reasonOf(result).c_str());
            return false;
        }
    }
    return true;
}

int serve()
{
    struct sigaction stop {};
    stop.sa_handler = [](int) { QxHost_Stop(); };
    for (const int number : {SIGTERM, SIGINT}) {
        sigaction(number, &stop, nullptr);
    }
    if (!take(kStart)) {
        QxHost_Leave();
        return 1;
    }
    std::puts("zemad: ready");
    std::fflush(stdout);
    const bool ran = take(kRun);
    return take(kEnd) && ran ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    const char *const option = argc == 2 ? argv[1] : "";
    if (argc == 1) {
        return serve();
    }
    if (std::strcmp(option, "--help") == 0 || std::strcmp(option, "-h") == 0) {
        std::fputs(kHelp, stdout);
        return 0;
    }
    if (std::strcmp(option, "--version") == 0) {
        std::puts("zemad " ZEMA_VERSION);
        return 0;
    }
    std::fprintf(stderr, "zemad: %s takes no such argument; see zemad --help\n", argv[0]);
    return kUsage;
}
