#include "qx/event_handle.h"

#include "platform/linux/locks.h"
#include "platform/linux/vec.h"

#include <atomic>
#include <cstddef>
#include <new>

namespace qx {
namespace {

// An invocation works on a copy of the callbacks, so that they may register and unregister as they like.
constexpr uint32_t kMaxCallbacks = 64;

struct Registration {
    uint32_t event;
    EventHandleCallback callback;
    bool operator==(const Registration &) const = default;
};

struct Handle {
    EventHandle operations;
    StaticVec<Registration> registrations; // LockId::handles
};
static_assert(offsetof(Handle, operations) == 0);

Handle &handleOf(EventHandle *operations)
{
    return *reinterpret_cast<Handle *>(operations);
}

uint32_t countOf(const Handle &handle, uint32_t event)
{
    return static_cast<uint32_t>(
        std::count_if(handle.registrations.begin(), handle.registrations.end(),
                      [&](const Registration &each) { return each.event == event; }));
}

Registration *find(Handle &handle, const Registration &wanted)
{
    auto *const found = std::find(handle.registrations.begin(), handle.registrations.end(), wanted);
    return found == handle.registrations.end() ? nullptr : found;
}

uint32_t getCount(EventHandle *operations, uint32_t event)
{
    const Lock lock(LockId::handles);
    return operations != nullptr ? countOf(handleOf(operations), event) : 0;
}

uint32_t add(EventHandle *operations, uint32_t event, EventHandleCallback callback)
{
    if (operations == nullptr || callback == nullptr) {
        return QX_ERR;
    }
    const Lock lock(LockId::handles);
    Handle &handle = handleOf(operations);
    const Registration wanted{.event = event, .callback = callback};
    if (find(handle, wanted) != nullptr) {
        return QX_OK;
    }
    const bool added = countOf(handle, event) < kMaxCallbacks && handle.registrations.push(wanted);
    return added ? QX_OK : QX_ERR_NO_MEMORY;
}

uint32_t isRegistered(EventHandle *operations, uint32_t event, EventHandleCallback callback)
{
    const Lock lock(LockId::handles);
    return operations != nullptr && find(handleOf(operations), {event, callback}) != nullptr ? 1 : 0;
}

uint32_t remove(EventHandle *operations, uint32_t event, EventHandleCallback callback)
{
    if (operations == nullptr || callback == nullptr) {
        return QX_ERR;
    }
    const Lock lock(LockId::handles);
    Handle &handle = handleOf(operations);
    const Registration *const found = find(handle, {event, callback});
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    handle.registrations.removeAt(static_cast<uint32_t>(found - handle.registrations.begin()));
    return QX_OK;
}

uint32_t invoke(EventHandle *operations, uint32_t event, void *data, uintptr_t /*reserved1*/,
                uintptr_t /*reserved2*/)
{
    if (operations == nullptr) {
        return QX_ERR;
    }
    EventHandleCallback callbacks[kMaxCallbacks];
    uint32_t count = 0;
    {
        const Lock lock(LockId::handles);
        for (const Registration &each : handleOf(operations).registrations) {
            if (each.event == event) {
                callbacks[count++] = each.callback;
            }
        }
    }
    for (uint32_t i = 0; i < count; ++i) {
        callbacks[i](data);
    }
    return QX_OK;
}

constexpr EventHandle kOperations{.pfnGetCount = getCount,
                                  .pfnRegister = add,
                                  .pfnIsRegistered = isRegistered,
                                  .pfnUnregister = remove,
                                  .pfnInvoke = invoke};

} // namespace
} // namespace qx

EventHandle *EventHandle_GetEventHandle(EventHandle **holder)
{
    if (holder == nullptr) {
        return nullptr;
    }
    const std::atomic_ref<EventHandle *> held(*holder);
    EventHandle *present = held.load(std::memory_order_acquire);
    if (present != nullptr) {
        return present;
    }
    void *const block = std::malloc(sizeof(qx::Handle));
    if (block == nullptr) {
        return nullptr;
    }
    auto *const made = ::new (block) qx::Handle{.operations = qx::kOperations, .registrations = {}};
    if (held.compare_exchange_strong(present, &made->operations, std::memory_order_acq_rel)) {
        return &made->operations;
    }
    std::free(block);
    return present;
}
