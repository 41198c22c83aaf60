// The sending side of the bus: which processes hold a role, and kept connections to them.
//
// To each process there is one connection for all that must stay in order (events, prints, HLP messages,
// words of flows), and a pool of connections for requests, one in use by each waiting thread. A connection is
// made once and used connected. A process that died is noticed by the failing send or the end of file; one
// that hangs costs a sender the bus's time limit once, and nothing more until it takes frames again.
#pragma once

#include "platform/linux/frame.h"

#include <pthread.h>

namespace qx {

struct Peer {
    PeerId id;
    pthread_mutex_t lock; // of busy
    pthread_cond_t freed;
    bool busy; // some thread sends a frame or awaits its acknowledgement, and has all that follows
    int fd;
    bool stalled; // the last frame found no room in time: do not wait again
    uint32_t references;
    Peer *next;
};

// The live holders of a role, in the order of their claims, this process left out. They stay valid while it
// lives.
class Holders {
public:
    // Of this role, or of all terminals.
    static constexpr uint32_t kAnyNumber = 0xFFFFFFFFU;

    explicit Holders(Role role);
    ~Holders();
    Holders(const Holders &) = delete;
    Holders &operator=(const Holders &) = delete;

    uint32_t result() const { return result_; } // QX_OK, QX_ERR_NO_MEMORY, QX_ERR_RUNTIME_DIR
    Peer **begin() { return peers_.begin(); }
    Peer **end() { return peers_.end(); }
    uint32_t count() const { return peers_.count(); }

private:
    Vec<Peer *, 32> peers_;
    uint32_t result_;
};

// What a handler sends while it works for a flow is more of that flow, but for prints: they end at the
// terminal. False when there is no memory to tell the origin of it.
bool joinFlow(FrameHeader &header, PeerId receiver);

// One frame, handed over in order. QX_OK, QX_ERR_PEER_GONE, QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE. With
// `acknowledged`, returns when the other process has handled it, and the result is its reply's. Work of a
// flow that this thread is handling is marked as such and reported to the flow's origin.
uint32_t sendTo(Peer &peer, FrameHeader header, Payload payload, bool acknowledged = false);

// As sendTo, to a process that need not hold a role.
uint32_t sendToId(PeerId id, const FrameHeader &header, Payload payload);

// Sends to every holder of a role. The result of the last one that could not be reached; one that died
// meanwhile counts as having ceased to hold it. *reached is the number of those that took the frame.
uint32_t sendToAll(Role role, const FrameHeader &header, Payload payload, bool acknowledged,
                   uint32_t &reached);

// A request and its reply, the reply's payload in the room for it. QX_OK, QX_ERR_NOBODY when the process does
// not listen any more and has not got the request, QX_ERR_PEER_GONE when it died before it answered,
// QX_ERR_TIMEOUT, QX_ERR_TOO_LARGE, QX_ERR_PROTOCOL (a reply that does not fit, too), QX_ERR_NO_MEMORY. After
// a failure the room holds anything.
uint32_t request(PeerId id, FrameHeader header, Payload payload, FrameHeader &reply, Room room = {});

// As request, of the earliest holder of a role that lives; QX_ERR_NOBODY when there is none.
uint32_t requestOfFirst(Role role, const FrameHeader &header, Payload payload, FrameHeader &reply,
                        Room room = {});

// A new connection with the bus's time limit set; negative is -errno.
int connectTo(PeerId id, bool waits);

// Whether a process still listens on the bus.
bool listens(PeerId id);

uint32_t timeLimitMs();
void setTimeLimitMs(uint32_t milliseconds);

void closeAllConnections();
void forgetPeers();

} // namespace qx
