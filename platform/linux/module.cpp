#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/locks.h"
#include "qx/host.h"
#include "qx/message.h"

#include <array>

namespace qx {
namespace {

constexpr size_t kSmallMessage = 512; // up to here a message is put together without an allocation

struct Module {
    uint32_t id;
    QxMessageHandler handler;
    void *context;
};

// A dispatch that does not keep up is told so, as a full socket would tell it.
constexpr size_t kMostQueued = size_t{8} << 20U;

struct OwnQueue {
    OwnMessage *first;
    OwnMessage *last;
    size_t size; // of what waits
};

constinit StaticVec<Module> gModules; // LockId::modules
constinit OwnQueue gQueue{};          // LockId::modules
constinit thread_local uint32_t tModule = 0;

constexpr Role roleOf(uint32_t id)
{
    return {.kind = RoleKind::module, .number = id};
}

Module *find(uint32_t id)
{
    Module *const found =
        std::find_if(gModules.begin(), gModules.end(), [&](const Module &each) { return each.id == id; });
    return found == gModules.end() ? nullptr : found;
}

// One with a null handler when this process does not serve it.
Module lookUp(uint32_t id)
{
    const Lock lock(LockId::modules);
    const Module *const found = find(id);
    return found != nullptr ? *found : Module{.id = id, .handler = nullptr, .context = nullptr};
}

uint32_t wordAt(const std::byte *bytes, uint32_t offset)
{
    uint32_t word = 0;
    std::memcpy(&word, bytes + offset, sizeof word);
    return word;
}

// A message as it travels: its header, with the size that the payload has, and the payload.
void writeMessage(std::byte *out, const void *header, Payload payload)
{
    const auto size = static_cast<uint32_t>(payload.size());
    std::memcpy(out, header, QX_MSG_HEADER_SIZE);
    std::memcpy(out + QX_MSG_SIZE_OFFSET, &size, sizeof size);
    std::copy(payload.begin(), payload.end(), out + QX_MSG_HEADER_SIZE);
}

// Of a message that waits, in memory.
constexpr size_t sizeOf(size_t message)
{
    return sizeof(OwnMessage) + message + kPayloadPadding;
}

uint32_t keepForDispatch(uint32_t id, const void *header, Payload payload)
{
    const size_t whole = QX_MSG_HEADER_SIZE + payload.size();
    auto *const message = static_cast<OwnMessage *>(std::calloc(1, sizeOf(whole)));
    if (message == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    message->header = frameOf(FrameKind::message, id);
    message->header.length = static_cast<uint32_t>(whole);
    writeMessage(message->payload, header, payload);
    const Lock lock(LockId::modules);
    if (gQueue.size + sizeOf(whole) > kMostQueued || !joinFlow(message->header, selfId())) {
        std::free(message);
        return QX_ERR_NO_MEMORY;
    }
    gQueue.size += sizeOf(whole);
    (gQueue.first == nullptr ? gQueue.first : gQueue.last->next) = message;
    gQueue.last = message;
    announceOwnMessage();
    return QX_OK;
}

uint32_t sendAway(uint32_t id, const void *header, Payload payload)
{
    const size_t whole = QX_MSG_HEADER_SIZE + payload.size();
    std::array<std::byte, kSmallMessage> small;
    auto *const message = whole <= small.size() ? small.data() : static_cast<std::byte *>(std::malloc(whole));
    if (message == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    writeMessage(message, header, payload);
    uint32_t reached = 0;
    const uint32_t result =
        sendToAll(roleOf(id), frameOf(FrameKind::message, id), {message, whole}, false, reached);
    if (message != small.data()) {
        std::free(message);
    }
    return result == QX_OK && reached == 0 ? QX_ERR_NOBODY : result;
}

} // namespace

Handled handleMessage(const Arrival &arrival)
{
    const uint32_t length = arrival.header.length;
    const bool whole = length >= QX_MSG_HEADER_SIZE &&
                       wordAt(arrival.payload, QX_MSG_SIZE_OFFSET) == length - QX_MSG_HEADER_SIZE;
    if (!whole) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    const Module module = lookUp(arrival.header.number);
    if (module.handler == nullptr) {
        return {.status = QX_ERR_NOT_FOUND, .result = 0};
    }
    return {.status = QX_OK, .result = module.handler(module.context, arrival.payload, length)};
}

OwnMessage *takeOwnMessage()
{
    const Lock lock(LockId::modules);
    OwnMessage *const message = gQueue.first;
    if (message != nullptr) {
        gQueue.first = message->next;
        gQueue.size -= sizeOf(message->header.length);
    }
    return message;
}

void forgetModules()
{
    while (OwnMessage *const message = takeOwnMessage()) {
        std::free(message);
    }
    const Lock lock(LockId::modules);
    gModules.clear();
}

} // namespace qx

uint32_t QX_MSG_AsynSend(const void *payload, uint32_t size, const void *header, uint32_t /*option*/)
{
    if (header == nullptr || (payload == nullptr && size > 0)) {
        return QX_ERR;
    }
    if (size > qx::kMaxPayload - QX_MSG_HEADER_SIZE) {
        return QX_ERR_TOO_LARGE;
    }
    const uint32_t id = qx::wordAt(static_cast<const std::byte *>(header), QX_MSG_RECEIVER_OFFSET);
    const auto send = qx::lookUp(id).handler != nullptr ? qx::keepForDispatch : qx::sendAway;
    return send(id, header, qx::bytesOf(payload, size));
}

uint32_t QxHost_ServeModule(uint32_t module, QxMessageHandler handler, void *context)
{
    const qx::Lock lock(qx::LockId::modules);
    qx::Module *const present = qx::find(module);
    if (handler == nullptr) {
        if (present != nullptr) {
            qx::gModules.removeAt(static_cast<uint32_t>(present - qx::gModules.begin()));
            qx::releaseRole(qx::roleOf(module));
        }
        return QX_OK;
    }
    if (present == nullptr && !qx::gModules.push({.id = module, .handler = nullptr, .context = nullptr})) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t claimed = qx::claimRole(qx::roleOf(module), true);
    qx::Module *const row = qx::find(module);
    if (claimed != QX_OK) {
        qx::gModules.removeAt(static_cast<uint32_t>(row - qx::gModules.begin()));
        return claimed;
    }
    row->handler = handler;
    row->context = context;
    return QX_OK;
}

void QxHost_SetCurThreadMid(uint32_t mid)
{
    qx::tModule = mid;
}

uint32_t QX_MSG_GetCurThreadMid(void)
{
    return qx::tModule;
}
