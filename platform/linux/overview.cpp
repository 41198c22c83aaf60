// Who is on the bus, and how they fare.
#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/process_name.h"
#include "qx/host.h"

namespace qx {
namespace {

constinit Load gLoad{}; // the dispatching thread's, until it is sent

QxProcess ask(PeerId id)
{
    QxProcess process{};
    process.ulPid = id.pid;
    const ProcessName name = processName(id.pid);
    std::copy(name.begin(), name.end(), process.acName);
    FrameHeader reply{};
    Load load{};
    process.ulResult = request(id, frameOf(FrameKind::load, 0), {}, reply,
                               Room(reinterpret_cast<std::byte *>(&load), sizeof load));
    if (process.ulResult == QX_OK && (reply.number != QX_OK || reply.length != sizeof load)) {
        process.ulResult = QX_ERR_PROTOCOL;
    }
    if (process.ulResult == QX_OK) {
        process.ulConnections = load.connections;
        process.ulWaiting = load.waiting;
        process.ullHandled = load.handled;
    }
    return process;
}

} // namespace

Handled handleLoad(const Arrival & /*arrival*/)
{
    gLoad = currentLoad();
    return {.status = QX_OK, .result = 0, .reply = bytesOf(&gLoad, sizeof gLoad)};
}

} // namespace qx

uint32_t QxHost_ListProcesses(QxProcessVisitor visitor, void *context)
{
    if (visitor == nullptr) {
        return QX_ERR;
    }
    qx::Vec<qx::PeerId> found;
    if (qx::runtimeDirFd() < 0 || !qx::listSockets(found)) {
        return QX_ERR_RUNTIME_DIR;
    }
    std::sort(found.begin(), found.end(), [](qx::PeerId a, qx::PeerId b) { return a.pid < b.pid; });
    uint32_t result = QX_OK;
    for (const qx::PeerId &id : found) {
        if (result != QX_OK || qx::isSelf(id)) {
            continue;
        }
        const QxProcess process = qx::ask(id);
        if (process.ulResult != QX_ERR_NOBODY) { // what a dead process left
            result = visitor(context, &process);
        }
    }
    return result;
}

uint32_t QxHost_ListRoles(QxRoleVisitor visitor, void *context)
{
    if (visitor == nullptr) {
        return QX_ERR;
    }
    qx::Vec<qx::RoleClaim> claims;
    if (qx::runtimeDirFd() < 0 || !qx::listClaims(claims)) {
        return QX_ERR_RUNTIME_DIR;
    }
    const uint64_t now = qx::monotonicNs();
    uint32_t result = QX_OK;
    for (const qx::RoleClaim &claim : claims) {
        QxRoleHeld role{};
        role.ullHeldNs = now - std::min(claim.stamp, now);
        role.ulPid = claim.holder.pid;
        const qx::RoleName name = qx::roleName(claim.role);
        static_assert(sizeof name <= sizeof role.acRole);
        std::copy(name.begin(), name.end(), role.acRole);
        result = result == QX_OK ? visitor(context, &role) : result;
    }
    return result;
}
