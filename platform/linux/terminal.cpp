#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"
#include "qx/cli.h"
#include "qx/host.h"

#include <unistd.h>

namespace qx {
namespace {

constexpr uint32_t kMaxTerminals = 64;

struct Terminal {
    uint32_t number;
    QxTerminalWriter writer;
    void *context;
};

constinit StaticVec<Terminal> gTerminals; // LockId::terminals

constexpr Role roleOf(uint32_t terminal)
{
    return {.kind = RoleKind::terminal, .number = terminal};
}

Terminal *findTerminal(uint32_t number)
{
    Terminal *const found = std::find_if(gTerminals.begin(), gTerminals.end(),
                                         [&](const Terminal &each) { return each.number == number; });
    return found == gTerminals.end() ? nullptr : found;
}

// Writes on this process's own terminals. The status is QX_ERR_NOT_FOUND when it serves none of those
// addressed; the result is the last failing writer's.
Handled writeHere(const QxPrint &print)
{
    Terminal terminals[kMaxTerminals];
    uint32_t count = 0;
    {
        const Lock lock(LockId::terminals);
        for (const Terminal &each : gTerminals) {
            if (each.number == print.ulTerminal || print.ulTerminal == QX_CLI_ALL_TERMINALS) {
                terminals[count++] = each;
            }
        }
    }
    Handled handled{.status = count == 0 ? QX_ERR_NOT_FOUND : QX_OK, .result = QX_OK};
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t written = terminals[i].writer(terminals[i].context, &print);
        handled.result = written == QX_OK ? handled.result : written;
    }
    return handled;
}

uint32_t print(uint32_t terminal, const char *bytes, uint32_t size, bool acknowledged)
{
    if (bytes == nullptr && size > 0) {
        return QX_ERR;
    }
    const Role role = roleOf(terminal == QX_CLI_ALL_TERMINALS ? Holders::kAnyNumber : terminal);
    uint32_t reached = 0;
    const uint32_t sent =
        sendToAll(role, frameOf(FrameKind::print, terminal), bytesOf(bytes, size), acknowledged, reached);
    const Handled here = writeHere(
        {.ulTerminal = terminal, .ulPid = static_cast<uint32_t>(getpid()), .pcBytes = bytes, .ulSize = size});
    if (here.status == QX_ERR_NOT_FOUND) {
        return sent == QX_OK && reached == 0 ? QX_ERR_NOBODY : sent;
    }
    return here.result != QX_OK ? here.result : sent;
}

} // namespace

Handled handlePrint(const Arrival &arrival)
{
    return writeHere({.ulTerminal = arrival.header.number,
                      .ulPid = arrival.senderPid,
                      .pcBytes = reinterpret_cast<const char *>(arrival.payload),
                      .ulSize = arrival.header.length});
}

void forgetTerminals()
{
    const Lock lock(LockId::terminals);
    gTerminals.clear();
}

} // namespace qx

uint32_t QX_CLI_SynPrint(uint32_t terminal, const char *bytes, uint32_t size)
{
    return qx::print(terminal, bytes, size, true);
}

uint32_t QX_CLI_AsynPrint(uint32_t terminal, const char *bytes, uint32_t size)
{
    return qx::print(terminal, bytes, size, false);
}

uint32_t QxHost_ServeTerminal(uint32_t terminal, QxTerminalWriter writer, void *context)
{
    if (terminal >= QX_CLI_ALL_TERMINALS) {
        return QX_ERR;
    }
    const qx::Lock lock(qx::LockId::terminals);
    qx::Terminal *const present = qx::findTerminal(terminal);
    if (writer == nullptr) {
        if (present != nullptr) {
            qx::gTerminals.removeAt(static_cast<uint32_t>(present - qx::gTerminals.begin()));
            qx::releaseRole(qx::roleOf(terminal));
        }
        return QX_OK;
    }
    const qx::Terminal wanted{.number = terminal, .writer = writer, .context = context};
    if (present != nullptr) {
        *present = wanted;
        return QX_OK;
    }
    if (qx::gTerminals.count() == qx::kMaxTerminals || !qx::gTerminals.push(wanted)) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t claimed = qx::claimRole(qx::roleOf(terminal));
    if (claimed != QX_OK) {
        qx::gTerminals.removeAt(qx::gTerminals.count() - 1);
    }
    return claimed;
}
