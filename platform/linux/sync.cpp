#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"
#include "qx/data_sync.h"
#include "qx/host.h"
#include "qx/process.h"

#include <array>

namespace qx {
namespace {

constexpr Role kOwnerRole{.kind = RoleKind::syncOwner, .number = 0};
constexpr uint32_t kMaxSize = 0xFFFF; // of a request and of a reply

struct Owner {
    QxSyncHandler handler;
    void *context;
};

struct alignas(16) Reply {
    std::array<std::byte, kMaxSize> bytes;
};

constinit Owner gOwner{}; // LockId::sync
constinit Reply gReply{}; // the dispatching thread's

// Whether this process is the owner, and then the handler's result. The lock keeps it from being called twice
// at once; the handler itself may ask again. A request without a process is this one's, which is told only
// now: it takes a call of the kernel.
bool askHere(QxSyncRequest request, uint32_t &result)
{
    const Lock lock(LockId::sync);
    if (gOwner.handler == nullptr) {
        return false;
    }
    if (request.ulPid == 0) {
        request.ulPid = QX_OS_GetPID();
    }
    const Handling handling;
    result = gOwner.handler(gOwner.context, &request);
    return true;
}

uint32_t askOwner(const QxSyncRequest &request)
{
    FrameHeader reply{};
    const uint32_t asked =
        requestOfFirst(kOwnerRole, frameOf(FrameKind::sync, request.ulCode, request.ulReplySize),
                       bytesOf(request.pvData, request.ulSize), reply,
                       Room(static_cast<std::byte *>(request.pvReply), request.ulReplySize));
    for (const uint32_t result : {asked, reply.number, reply.word}) {
        if (result != QX_OK) {
            return result;
        }
    }
    return reply.length == request.ulReplySize ? QX_OK : QX_ERR_PROTOCOL;
}

} // namespace

Handled handleSync(const Arrival &arrival)
{
    if (arrival.header.length > kMaxSize || arrival.header.word > kMaxSize) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    const QxSyncRequest request{.ulCode = arrival.header.number,
                                .ulPid = arrival.senderPid,
                                .pvData = arrival.payload,
                                .ulSize = arrival.header.length,
                                .pvReply = gReply.bytes.data(),
                                .ulReplySize = arrival.header.word};
    uint32_t result = 0;
    if (!askHere(request, result)) {
        return {.status = QX_ERR_NOT_FOUND, .result = 0};
    }
    return {.status = QX_OK,
            .result = result,
            .reply = bytesOf(request.pvReply, result == QX_OK ? request.ulReplySize : 0)};
}

void forgetOwner()
{
    const Lock lock(LockId::sync);
    gOwner = {};
}

} // namespace qx

uint32_t DataSync_SyncData1(uint32_t code, const void *request, uint16_t size, void *reply,
                            uint16_t replySize)
{
    if ((request == nullptr && size > 0) || (reply == nullptr && replySize > 0)) {
        return QX_ERR;
    }
    const QxSyncRequest asked{.ulCode = code,
                              .ulPid = 0,
                              .pvData = request,
                              .ulSize = size,
                              .pvReply = reply,
                              .ulReplySize = replySize};
    uint32_t result = 0;
    return qx::askHere(asked, result) ? result : qx::askOwner(asked);
}

uint32_t DataSync_SyncData(uint32_t operation, const void *payload, uint32_t size)
{
    if (size > qx::kMaxSize) {
        return QX_ERR_TOO_LARGE;
    }
    return DataSync_SyncData1(operation, payload, static_cast<uint16_t>(size), nullptr, 0);
}

uint32_t QxHost_ServeSync(QxSyncHandler handler, void *context)
{
    const qx::Lock lock(qx::LockId::sync);
    if (handler == nullptr) {
        qx::releaseRole(qx::kOwnerRole);
        qx::gOwner = {};
        return QX_OK;
    }
    const uint32_t claimed = qx::claimRole(qx::kOwnerRole, true);
    if (claimed == QX_OK) {
        qx::gOwner = {.handler = handler, .context = context};
    }
    return claimed;
}
