#include "platform/linux/connection.h"

#include "platform/linux/bus.h"
#include "platform/linux/flow_context.h"
#include "platform/linux/frame_io.h"
#include "platform/linux/locks.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace qx {

namespace {

constexpr uint32_t kDefaultLimitMs = 5000;
constexpr uint32_t kMaxIdleChannels = 32;

struct CachedClaim {
    RoleClaim claim;
    Peer *peer; // null: this process itself
};

struct Channel {
    PeerId id;
    int fd;
};

constinit std::atomic<uint32_t> gLimitMs{kDefaultLimitMs};
constinit std::atomic<uint32_t> gSerial{0};
constinit thread_local FlowContext *tFlow = nullptr;
constinit Peer *gPeers = nullptr;                     // LockId::peers
constinit bool gClaimsKnown = false;                  // LockId::roles
constinit uint32_t gEdition = 0;                      // LockId::roles
constinit StaticVec<CachedClaim> gClaims;             // LockId::roles
constinit StaticVec<Channel, kMaxIdleChannels> gIdle; // LockId::channels

uint32_t newSerial()
{
    uint32_t serial = 0;
    while (serial == 0) {
        serial = gSerial.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    return serial;
}

Peer *makePeer(PeerId id)
{
    auto *const peer = static_cast<Peer *>(std::calloc(1, sizeof(Peer)));
    if (peer == nullptr) {
        return nullptr;
    }
    peer->id = id;
    peer->fd = -1;
    peer->references = 1;
    pthread_mutex_init(&peer->lock, nullptr);
    pthread_condattr_t attributes;
    pthread_condattr_init(&attributes);
    pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC); // whatever happens to the time of day
    pthread_cond_init(&peer->freed, &attributes);
    pthread_condattr_destroy(&attributes);
    return peer;
}

Peer *referToPeer(PeerId id)
{
    const Lock lock(LockId::peers);
    for (Peer *peer = gPeers; peer != nullptr; peer = peer->next) {
        if (peer->id == id) {
            ++peer->references;
            return peer;
        }
    }
    Peer *const peer = makePeer(id);
    if (peer != nullptr) {
        peer->next = std::exchange(gPeers, peer);
    }
    return peer;
}

void destroy(Peer *peer)
{
    if (peer->fd >= 0) {
        close(peer->fd);
    }
    pthread_cond_destroy(&peer->freed);
    pthread_mutex_destroy(&peer->lock);
    std::free(peer);
}

void release(std::span<Peer *const> peers)
{
    const Lock lock(LockId::peers);
    for (Peer *peer : peers) {
        if (--peer->references > 0) {
            continue;
        }
        Peer **link = &gPeers;
        while (*link != peer) {
            link = &(*link)->next;
        }
        *link = peer->next;
        destroy(peer);
    }
}

void forgetClaims()
{
    for (const CachedClaim &cached : gClaims) {
        if (cached.peer != nullptr) {
            release({&cached.peer, 1});
        }
    }
    gClaims.clear();
    gClaimsKnown = false;
}

// Of processes that hold no role any more; dead ones among them are never asked again.
void closeIdleOf(const StaticVec<CachedClaim> &claims)
{
    const Lock lock(LockId::channels);
    for (uint32_t i = gIdle.count(); i-- > 0;) {
        const bool isHolder = std::any_of(claims.begin(), claims.end(), [&](const CachedClaim &cached) {
            return cached.claim.holder == gIdle[i].id;
        });
        if (!isHolder) {
            close(gIdle[i].fd);
            gIdle.removeAt(i);
        }
    }
}

// The connections of processes that stay are kept: their peers are referred to anew before they are let go.
uint32_t readClaims()
{
    if (runtimeDirFd() < 0 || !runtimeDirStands()) {
        return QX_ERR_RUNTIME_DIR;
    }
    const uint32_t edition = readEdition();
    if (gClaimsKnown && edition == gEdition) {
        return QX_OK;
    }
    Vec<RoleClaim> claims;
    Vec<CachedClaim> fresh;
    if (!listClaims(claims)) {
        return QX_ERR_RUNTIME_DIR;
    }
    uint32_t result = QX_OK;
    for (const RoleClaim &claim : claims) {
        Peer *peer = isSelf(claim.holder) ? nullptr : referToPeer(claim.holder);
        if ((peer == nullptr && !isSelf(claim.holder)) || !fresh.push({claim, peer})) {
            result = QX_ERR_NO_MEMORY;
            break;
        }
    }
    gClaims.swap(fresh);
    gEdition = edition;
    gClaimsKnown = result == QX_OK;
    closeIdleOf(gClaims);
    for (const CachedClaim &cached : fresh) {
        if (cached.peer != nullptr) {
            release({&cached.peer, 1});
        }
    }
    return result;
}

void setLimits(int fd, uint32_t milliseconds)
{
    const timeval limit{.tv_sec = static_cast<time_t>(milliseconds / 1000),
                        .tv_usec = static_cast<suseconds_t>(milliseconds % 1000 * 1000)};
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

bool isTrusted(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && mayTalk(peer.uid);
}

uint32_t resultOf(int error)
{
    switch (error) {
    case EAGAIN:
        return QX_ERR_TIMEOUT;
    case EMSGSIZE:
        return QX_ERR_TOO_LARGE;
    case ENOMEM:
    case ENOBUFS:
    case EMFILE:
    case ENFILE:
        return QX_ERR_NO_MEMORY;
    case ECONNREFUSED: // nobody listens there any more, and the frame has reached nobody
    case ENOENT:
        return QX_ERR_NOBODY;
    case EPERM:
    case EPROTO:
        return QX_ERR_PROTOCOL;
    default:
        return QX_ERR_PEER_GONE;
    }
}

// The reply to `serial`. Replies to earlier frames, whose senders gave up waiting, are passed over, but not
// for longer than a reply may take.
uint32_t receiveReply(int fd, uint32_t serial, FrameHeader &reply, Room room = {})
{
    const Deadline deadline(timeLimitMs());
    for (;;) {
        const int error = receiveFrame(fd, reply, room, deadline);
        if (error != 0) {
            return resultOf(error);
        }
        if (reply.kind != FrameKind::reply) {
            return QX_ERR_PROTOCOL;
        }
        if (reply.serial == serial) {
            return QX_OK;
        }
        if (deadline.passed()) {
            return QX_ERR_TIMEOUT;
        }
    }
}

bool isBroken(int error)
{
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

void disconnect(Peer &peer)
{
    if (peer.fd >= 0) {
        close(peer.fd);
    }
    peer.fd = -1;
    peer.stalled = false;
}

// A kept connection whose other end closed it is made anew, once: the process may have closed just that one.
uint32_t sendOnPeer(Peer &peer, const FrameHeader &header, Payload payload)
{
    const Deadline deadline(timeLimitMs());
    int error = ENOTCONN;
    if (peer.fd >= 0) {
        error = sendFrame(peer.fd, header, payload, !peer.stalled, deadline);
    }
    if (isBroken(error)) {
        disconnect(peer);
        const int fd = connectTo(peer.id, true);
        if (fd < 0) {
            return resultOf(-fd);
        }
        peer.fd = fd;
        error = sendFrame(peer.fd, header, payload, true, deadline);
    }
    peer.stalled = error == EAGAIN;
    return error == 0 ? QX_OK : resultOf(error);
}

timespec deadlineFromNow()
{
    const uint64_t end = monotonicNs() + uint64_t{timeLimitMs()} * 1'000'000U;
    return {.tv_sec = static_cast<time_t>(end / 1'000'000'000U),
            .tv_nsec = static_cast<long>(end % 1'000'000'000U)};
}

// One thread's turn with a peer, for which it waits no longer than it would for the peer itself.
class PeerTurn {
public:
    explicit PeerTurn(Peer &peer) : peer_(peer)
    {
        const Lock lock(peer.lock);
        if (peer.busy) {
            wait();
        }
        taken_ = !peer.busy;
        peer.busy = true;
    }
    ~PeerTurn()
    {
        if (taken_) {
            const Lock lock(peer_.lock);
            peer_.busy = false;
            pthread_cond_signal(&peer_.freed);
        }
    }
    PeerTurn(const PeerTurn &) = delete;
    PeerTurn &operator=(const PeerTurn &) = delete;
    explicit operator bool() const { return taken_; }

private:
    void wait()
    {
        const timespec deadline = deadlineFromNow();
        while (peer_.busy && pthread_cond_timedwait(&peer_.freed, &peer_.lock, &deadline) == 0) {
        }
    }

    Peer &peer_;
    bool taken_;
};

uint32_t sendInTurn(Peer &peer, FrameHeader &header, Payload payload, bool acknowledged)
{
    const PeerTurn turn(peer);
    if (!turn) {
        return QX_ERR_TIMEOUT;
    }
    header.serial = acknowledged ? newSerial() : 0;
    uint32_t result = sendOnPeer(peer, header, payload);
    if (result != QX_OK || !acknowledged) {
        return result;
    }
    FrameHeader reply{};
    result = receiveReply(peer.fd, header.serial, reply);
    if (result == QX_ERR_PROTOCOL || result == QX_ERR_PEER_GONE) {
        disconnect(peer);
    }
    if (result != QX_OK) {
        return result;
    }
    return reply.number != QX_OK ? reply.number : reply.word;
}

int takeIdle(PeerId id)
{
    const Lock lock(LockId::channels);
    for (uint32_t i = gIdle.count(); i-- > 0;) {
        if (gIdle[i].id == id) {
            const int fd = gIdle[i].fd;
            gIdle.removeAt(i);
            return fd;
        }
    }
    return -1;
}

void giveBack(PeerId id, int fd)
{
    const Lock lock(LockId::channels);
    if (gIdle.count() ==
        kMaxIdleChannels) { // the one that was idle longest is the likeliest to be of no more use
        close(gIdle[0].fd);
        gIdle.removeAt(0);
    }
    gIdle.push({.id = id, .fd = fd});
}

// The frame has not reached the receiver.
void leaveFlow(const FrameHeader &header, PeerId receiver)
{
    if (tFlow != nullptr && header.flow == tFlow->flow && header.origin == tFlow->origin) {
        tFlow->remove(receiver);
    }
}

} // namespace

FlowContext *&currentFlow()
{
    return tFlow;
}

bool joinFlow(FrameHeader &header, PeerId receiver)
{
    if (tFlow == nullptr || header.flow != 0 || header.kind == FrameKind::print) {
        return true;
    }
    header.flow = tFlow->flow;
    header.origin = tFlow->origin;
    return tFlow->add(receiver);
}

uint32_t timeLimitMs()
{
    return gLimitMs.load(std::memory_order_relaxed);
}

void setTimeLimitMs(uint32_t milliseconds)
{
    gLimitMs.store(milliseconds == 0 ? kDefaultLimitMs : milliseconds, std::memory_order_relaxed);
}

int connectTo(PeerId id, bool waits)
{
    PathText path{};
    if (!socketAddress(socketName(id), path)) {
        return -ENOENT;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    static_assert(sizeof address.sun_path >= sizeof path);
    std::memcpy(static_cast<void *>(address.sun_path), path.data(), path.size());
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | (waits ? 0 : SOCK_NONBLOCK), 0);
    if (fd < 0) {
        return -errno;
    }
    if (waits) {
        setLimits(fd, timeLimitMs());
    }
    const Deadline deadline(timeLimitMs());
    int error = 0;
    do {
        error = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    } while (error == EINTR && !deadline.passed());
    if (error == 0 && !isTrusted(fd)) {
        error = EPERM;
    }
    if (error != 0) {
        close(fd);
        return -error;
    }
    return fd;
}

bool listens(PeerId id)
{
    const int fd = connectTo(id, false);
    if (fd >= 0) {
        close(fd);
    }
    return fd != -ECONNREFUSED && fd != -ENOENT; // any other failure says nothing of the process
}

Holders::Holders(Role role) : result_(QX_OK)
{
    const Lock lock(LockId::roles);
    result_ = readClaims();
    if (result_ != QX_OK) {
        return;
    }
    for (const CachedClaim &cached : gClaims) {
        const bool held = cached.claim.role.kind == role.kind &&
                          (cached.claim.role.number == role.number || role.number == kAnyNumber);
        if (!held || cached.peer == nullptr || std::find(begin(), end(), cached.peer) != end()) {
            continue;
        }
        if (!peers_.push(cached.peer)) {
            result_ = QX_ERR_NO_MEMORY;
            break;
        }
    }
    const Lock peersLock(LockId::peers);
    for (Peer *peer : *this) {
        ++peer->references;
    }
}

Holders::~Holders()
{
    release({begin(), count()});
}

uint32_t sendTo(Peer &peer, FrameHeader header, Payload payload, bool acknowledged)
{
    if (payload.size() > kMaxPayload) {
        return QX_ERR_TOO_LARGE;
    }
    if (!joinFlow(header, peer.id)) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t result = sendInTurn(peer, header, payload, acknowledged);
    if (result == QX_ERR_NOBODY) {
        leaveFlow(header, peer.id);
        removeRemains(peer.id);
    } else if (result != QX_OK && !acknowledged) {
        leaveFlow(header, peer.id);
    }
    return result;
}

uint32_t sendToId(PeerId id, const FrameHeader &header, Payload payload)
{
    Peer *const peer = referToPeer(id);
    if (peer == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t result = sendTo(*peer, header, payload);
    release({&peer, 1});
    return result;
}

uint32_t sendToAll(Role role, const FrameHeader &header, Payload payload, bool acknowledged,
                   uint32_t &reached)
{
    Holders holders(role);
    uint32_t result = holders.result();
    for (Peer *peer : holders) {
        const uint32_t sent = sendTo(*peer, header, payload, acknowledged);
        reached += sent == QX_OK ? 1 : 0;
        result = sent == QX_OK || sent == QX_ERR_NOBODY ? result : sent;
    }
    return result;
}

uint32_t request(PeerId id, FrameHeader header, Payload payload, FrameHeader &reply, Room room)
{
    if (payload.size() > kMaxPayload) {
        return QX_ERR_TOO_LARGE;
    }
    if (!joinFlow(header, id)) {
        return QX_ERR_NO_MEMORY;
    }
    header.serial = newSerial();
    const Deadline deadline(timeLimitMs());
    int fd = takeIdle(id);
    int error = fd >= 0 ? sendFrame(fd, header, payload, true, deadline) : ENOTCONN;
    if (isBroken(error)) {
        if (fd >= 0) {
            close(fd);
        }
        fd = connectTo(id, true);
        error = fd < 0 ? -fd : sendFrame(fd, header, payload, true, deadline);
    }
    if (error != 0) {
        leaveFlow(header, id);
    }
    const uint32_t result = error == 0 ? receiveReply(fd, header.serial, reply, room) : resultOf(error);
    if (result == QX_OK) {
        giveBack(id, fd);
    } else if (fd >= 0) {
        close(fd);
    }
    return result;
}

uint32_t requestOfFirst(Role role, const FrameHeader &header, Payload payload, FrameHeader &reply, Room room)
{
    Holders holders(role);
    uint32_t result = holders.result() != QX_OK ? holders.result() : QX_ERR_NOBODY;
    for (const Peer *peer : holders) {
        result = request(peer->id, header, payload, reply, room);
        if (result == QX_ERR_NOBODY) {
            removeRemains(peer->id);
        } else if (result != QX_OK || reply.number != QX_ERR_NOT_FOUND) {
            return result;
        } else {
            result = QX_ERR_NOBODY; // it has just given the role up
        }
    }
    return result;
}

// Of a fork's parent: threads that referred to them are not there any more.
void forgetPeers()
{
    while (gPeers != nullptr) {
        destroy(std::exchange(gPeers, gPeers->next));
    }
}

void closeAllConnections()
{
    {
        const Lock lock(LockId::roles);
        forgetClaims();
    }
    const Lock lock(LockId::channels);
    for (const Channel &channel : gIdle) {
        close(channel.fd);
    }
    gIdle.clear();
}

} // namespace qx
