// The receiving side of the bus: this process's place on it, its roles, and the dispatch of what arrives.
#pragma once

#include "platform/linux/frame.h"

#include <sys/types.h>

namespace qx {

// Takes this process's place: the runtime directory, a listening socket, an epoll set. Done once; QX_OK,
// QX_ERR_RUNTIME_DIR, QX_ERR_NO_MEMORY.
uint32_t joinBus();

PeerId selfId();
bool isSelf(PeerId id);

// Only processes of the same user, or of root, are talked to.
bool mayTalk(uid_t uid);

// Claims a role for this process, joining the bus first; one that it holds already stays as it is. An
// exclusive role is refused (QX_ERR_TAKEN) while another live process holds it.
uint32_t claimRole(Role role, bool exclusive = false);
void releaseRole(Role role);

// At the end of this process's place on the bus; in a fork's child they are not its own.
void releaseAllRoles();
void forgetRoles();

// What arrived, with where it came from.
struct Arrival {
    const FrameHeader &header;
    std::byte *payload; // followed by kPayloadPadding zeros
    uint32_t senderPid; // as the kernel says
};

// A handler's result, and how the bus fared: QX_ERR_NOT_FOUND when there was no handler. The reply's payload
// stays where it is until the next frame is handled.
struct Handled {
    uint32_t status;
    uint32_t result;
    Payload reply = {};
};

// The handlers of the kinds of frames, each beside what registers them.
Handled handleEvent(const Arrival &arrival);
Handled handleRpc(const Arrival &arrival);
Handled handlePrint(const Arrival &arrival);
Handled handleHlp(const Arrival &arrival);
Handled handleDone(const Arrival &arrival);
Handled handleSync(const Arrival &arrival);
Handled handleMessage(const Arrival &arrival);
Handled handleReport(const Arrival &arrival);
Handled handleLoad(const Arrival &arrival);

// What a fork leaves the child without, or an end of the bus the process: each beside what it forgets.
void forgetEvents();
void forgetProcedures();
void forgetTerminals();
void forgetKernel();
void forgetOwner();
void forgetModules();
void forgetMonitors();
void abandonFlows();
void forgetRing();

// While it stands, this thread is inside a handler: it may neither dispatch nor leave.
class Handling {
public:
    Handling();
    ~Handling();
    Handling(const Handling &) = delete;
    Handling &operator=(const Handling &) = delete;

private:
    bool before_;
};

// How this process fares, as it tells others.
struct Load {
    uint64_t handled; // frames, since it joined
    uint32_t connections;
    uint32_t waiting; // bytes in them
};
static_assert(sizeof(Load) == 16);
Load currentLoad();

// A message of this process to itself. It waits here, not in a socket, whose little room only the dispatching
// thread could empty, and that may be the sender.
struct OwnMessage {
    OwnMessage *next;
    FrameHeader header;
    alignas(std::max_align_t) std::byte payload[1]; // and more, followed by kPayloadPadding zeros
};
OwnMessage *takeOwnMessage(); // the oldest, the caller's to free; null when there is none
void announceOwnMessage();    // dispatch is to take one more

// Of dead processes, removes the oldest record files beyond those that are kept.
void removeOldRings();

// What an entry of the epoll set points at: the first member says what it is.
enum class SourceKind { listener, stop, own, incoming, watch };

struct Source {
    SourceKind kind;
    int fd;
};

// A connection that the dispatching thread watches for the end of the process behind it.
struct Watch {
    Source source;
    void (*ended)(Watch &watch);
};
bool watchForEnd(Watch &watch);
void endWatch(Watch &watch);

} // namespace qx
