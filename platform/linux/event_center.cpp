#include "qx/event.h"

#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"

#include <algorithm>

namespace qx {
namespace {

// A delivery works on a copy of the handlers, so that they may subscribe and remove as they like.
constexpr uint32_t kMaxHandlers = 64;

struct Subscription {
    uint32_t event;
    QxEventHandler handler;
    bool operator==(const Subscription &) const = default;
};

constinit StaticVec<Subscription> gSubscriptions; // LockId::events

constexpr Role roleOf(uint32_t event)
{
    return {.kind = RoleKind::event, .number = event};
}

uint32_t countHandlers(uint32_t event)
{
    return static_cast<uint32_t>(
        std::count_if(gSubscriptions.begin(), gSubscriptions.end(),
                      [&](const Subscription &each) { return each.event == event; }));
}

// How many subscribers of this process there were.
uint32_t deliver(uint32_t event, void *data)
{
    QxEventHandler handlers[kMaxHandlers];
    uint32_t count = 0;
    {
        const Lock lock(LockId::events);
        for (const Subscription &each : gSubscriptions) {
            if (each.event == event) {
                handlers[count++] = each.handler;
            }
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        handlers[i](data);
    }
    return count;
}

} // namespace

Handled handleEvent(const Arrival &arrival)
{
    void *const data = arrival.header.length == 0 ? nullptr : arrival.payload;
    const uint32_t count = deliver(arrival.header.number, data);
    return {.status = count == 0 ? QX_ERR_NOT_FOUND : QX_OK, .result = 0};
}

void forgetEvents()
{
    const Lock lock(LockId::events);
    gSubscriptions.clear();
}

} // namespace qx

uint32_t EventCenter_SubscribeEvent(uint32_t event, QxEventHandler handler)
{
    if (handler == nullptr) {
        return QX_ERR;
    }
    const qx::Lock lock(qx::LockId::events);
    const qx::Subscription wanted{.event = event, .handler = handler};
    if (std::find(qx::gSubscriptions.begin(), qx::gSubscriptions.end(), wanted) != qx::gSubscriptions.end()) {
        return QX_OK;
    }
    const uint32_t present = qx::countHandlers(event);
    if (present == qx::kMaxHandlers || !qx::gSubscriptions.push(wanted)) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t claimed = present == 0 ? qx::claimRole(qx::roleOf(event)) : QX_OK;
    if (claimed != QX_OK) {
        qx::gSubscriptions.removeAt(qx::gSubscriptions.count() - 1);
    }
    return claimed;
}

uint32_t EventCenter_RemoveEvent(uint32_t event, QxEventHandler handler)
{
    const qx::Lock lock(qx::LockId::events);
    const qx::Subscription wanted{.event = event, .handler = handler};
    auto *const found = std::find(qx::gSubscriptions.begin(), qx::gSubscriptions.end(), wanted);
    if (found == qx::gSubscriptions.end()) {
        return QX_ERR_NOT_FOUND;
    }
    qx::gSubscriptions.removeAt(static_cast<uint32_t>(found - qx::gSubscriptions.begin()));
    if (qx::countHandlers(event) == 0) {
        qx::releaseRole(qx::roleOf(event));
    }
    return QX_OK;
}

uint32_t EventCenter_GlobalInvokeEvent2(uint32_t event, void *data, uint32_t size)
{
    const uint32_t given = data == nullptr ? 0 : size;
    uint32_t reached = 0;
    const uint32_t result = qx::sendToAll(qx::roleOf(event), qx::frameOf(qx::FrameKind::event, event),
                                          qx::bytesOf(data, given), false, reached);
    qx::deliver(event, data);
    return result;
}

uint32_t EventCenter_InvokeEvent(uint32_t event, uintptr_t parameter, uintptr_t /*reserved1*/,
                                 uintptr_t /*reserved2*/)
{
    qx::deliver(event, reinterpret_cast<void *>(parameter));
    return QX_OK;
}
