#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"
#include "qx/host.h"
#include "qx/message.h"

namespace qx {
namespace {

constinit StaticVec<QxRpcRow> gProcedures; // LockId::procedures

constexpr Role roleOf(uint32_t id)
{
    return {.kind = RoleKind::rpc, .number = id};
}

QxRpcRow *findRow(uint32_t id)
{
    QxRpcRow *const row = std::find_if(gProcedures.begin(), gProcedures.end(),
                                       [&](const QxRpcRow &each) { return each.ulId == id; });
    return row == gProcedures.end() ? nullptr : row;
}

// Null when this process has no such procedure.
QxRpcHandler findHandler(uint32_t id)
{
    const Lock lock(LockId::procedures);
    const QxRpcRow *const row = findRow(id);
    return row == nullptr ? nullptr : row->pfnHandler;
}

void withdraw(uint32_t id)
{
    QxRpcRow *const row = findRow(id);
    if (row != nullptr) {
        gProcedures.removeAt(static_cast<uint32_t>(row - gProcedures.begin()));
        releaseRole(roleOf(id));
    }
}

uint32_t enter(const QxRpcRow &wanted)
{
    if (wanted.pfnHandler == nullptr) {
        withdraw(wanted.ulId);
        return QX_OK;
    }
    if (findRow(wanted.ulId) == nullptr && !gProcedures.push({wanted.ulId, nullptr})) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t claimed = claimRole(roleOf(wanted.ulId));
    if (claimed == QX_OK) {
        findRow(wanted.ulId)->pfnHandler = wanted.pfnHandler;
    }
    return claimed;
}

bool isText(const Arrival &arrival)
{
    const uint32_t length = arrival.header.length;
    return length > 0 && arrival.payload[length - 1] == std::byte{0};
}

uint32_t callHere(QxRpcHandler handler, uint32_t callerWord, const char *text, uint32_t &result)
{
    char *const copy = strdup(text); // the text is the callee's to change
    if (copy == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    result = handler(callerWord, copy, 0, 0, 0);
    std::free(copy);
    return QX_OK;
}

} // namespace

Handled handleRpc(const Arrival &arrival)
{
    if (!isText(arrival)) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    const QxRpcHandler handler = findHandler(arrival.header.number);
    if (handler == nullptr) {
        return {.status = QX_ERR_NOT_FOUND, .result = 0};
    }
    auto *const text = reinterpret_cast<char *>(arrival.payload);
    return {.status = QX_OK, .result = handler(arrival.header.word, text, 0, 0, 0)};
}

void forgetProcedures()
{
    const Lock lock(LockId::procedures);
    gProcedures.clear();
}

} // namespace qx

uint32_t QX_MSG_RegOverWriteRpcCalls(const QxRpcRow *rows)
{
    if (rows == nullptr) {
        return QX_ERR;
    }
    const qx::Lock lock(qx::LockId::procedures);
    for (const QxRpcRow *row = rows; row->ulId != QX_RPC_END_OF_TABLE; ++row) {
        const uint32_t result = qx::enter(*row);
        if (result == QX_OK) {
            continue;
        }
        for (const QxRpcRow *entered = rows; entered <= row; ++entered) {
            qx::withdraw(entered->ulId);
        }
        return result;
    }
    return QX_OK;
}

uint32_t QxHost_CallRpc(uint32_t id, uint32_t callerWord, const char *text, uint32_t *result)
{
    if (text == nullptr || result == nullptr) {
        return QX_ERR;
    }
    const QxRpcHandler own = qx::findHandler(id);
    if (own != nullptr) {
        return qx::callHere(own, callerWord, text, *result);
    }
    const auto size = static_cast<uint32_t>(strlen(text) + 1);
    qx::FrameHeader reply{};
    const uint32_t called = qx::requestOfFirst(
        qx::roleOf(id), qx::frameOf(qx::FrameKind::rpc, id, callerWord), qx::bytesOf(text, size), reply);
    if (called != QX_OK || reply.number != QX_OK) {
        return called != QX_OK ? called : reply.number;
    }
    *result = reply.word;
    return QX_OK;
}
