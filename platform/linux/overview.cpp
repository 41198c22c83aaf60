// Who is on the bus, and how they fare.
#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/process_name.h"
#include "platform/linux/queues.h"
#include "qx/host.h"

namespace qx {
namespace {

constinit Load gLoad{}; // the dispatching thread's, until it is sent

// What the kernel tells of the queue goes before what the process says of it, which may hang.
QxProcess ask(const Queue &queue, bool isToldByKernel)
{
    QxProcess process{};
    process.ulPid = queue.id.pid;
    const ProcessName name = processName(queue.id.pid);
    std::copy(name.begin(), name.end(), process.acName);
    FrameHeader reply{};
    Load load{};
    process.ulResult = request(queue.id, frameOf(FrameKind::load, 0), {}, reply,
                               Room(reinterpret_cast<std::byte *>(&load), sizeof load));
    if (process.ulResult == QX_OK && (reply.number != QX_OK || reply.length != sizeof load)) {
        process.ulResult = QX_ERR_PROTOCOL;
    }
    if (process.ulResult == QX_OK) {
        process.ulConnections = load.connections;
        process.ulWaiting = load.waiting;
        process.ullHandled = load.handled;
    }
    if (isToldByKernel) {
        process.ulConnections = queue.connections + queue.untaken;
        process.ulWaiting = static_cast<uint32_t>(std::min<uint64_t>(queue.bytes, UINT32_MAX));
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
    qx::Vec<qx::Queue> queues;
    for (const qx::PeerId &id : found) {
        if (!qx::isSelf(id) && !queues.push({.id = id, .connections = 0, .untaken = 0, .bytes = 0})) {
            return QX_ERR_NO_MEMORY;
        }
    }
    const bool isTold = qx::readQueues({queues.begin(), queues.count()});
    uint32_t result = QX_OK;
    for (const qx::Queue &queue : queues) {
        if (result != QX_OK) {
            break;
        }
        const QxProcess process = qx::ask(queue, isTold);
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
