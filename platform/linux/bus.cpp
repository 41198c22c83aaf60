#include "platform/linux/bus.h"

#include "platform/linux/connection.h"
#include "platform/linux/flow_context.h"
#include "platform/linux/locks.h"
#include "qx/diag.h"
#include "qx/host.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace qx {
namespace {

constexpr uint32_t kMaxIncoming = 512;
constexpr int kBacklog = 128;
constexpr uint32_t kRegistryTimeoutMs = 2000;

struct Incoming {
    Source source;
    uint32_t pid;
    Incoming *next;
};

// The frame that is being handled, with its padding; aligned so that a payload of structures can be read in
// place.
struct alignas(16) FrameBuffer {
    std::array<std::byte, 12> lead; // puts the payload, not the header, on the boundary
    std::array<std::byte, kMaxFrame + kPayloadPadding> bytes;
};
static_assert((offsetof(FrameBuffer, bytes) + sizeof(FrameHeader)) % 16 == 0);

struct Bus {
    PeerId self;
    int epollFd;
    int spareFd; // closed for a moment to take and drop a connection when no descriptor is left
    Source listener;
    Source stop;
    Incoming *incoming;
    uint32_t incomingCount;
    FrameBuffer *buffer;
};

constexpr Bus kNoBus{.self = {},
                     .epollFd = -1,
                     .spareFd = -1,
                     .listener = {SourceKind::listener, -1},
                     .stop = {SourceKind::stop, -1},
                     .incoming = nullptr,
                     .incomingCount = 0,
                     .buffer = nullptr};

constinit Bus gBus = kNoBus;
constinit std::atomic<bool> gJoined{false};
constinit std::atomic<bool> gStopAsked{false};
constinit std::atomic<int> gStopFd{-1}; // for signal handlers, which must not look at gBus
constinit std::atomic<bool> gDispatching{false};
constinit thread_local bool tHandling = false;
constinit StaticVec<RoleClaim> gOwnClaims; // LockId::join
constinit std::array<pthread_mutex_t, kLockCount> gLocks = [] {
    std::array<pthread_mutex_t, kLockCount> locks{};
    locks.fill(PTHREAD_MUTEX_INITIALIZER);
    return locks;
}();

void refuse(uint32_t line, uint32_t code, uint32_t pid, uint32_t detail)
{
    QX_PROC_DBG_LastWord("bus.cpp", line, code, pid, detail, 0, 0);
}

void closeFd(int &fd)
{
    if (fd >= 0) {
        close(fd);
    }
    fd = -1;
}

bool watchSource(Source &source, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.ptr = &source;
    return epoll_ctl(gBus.epollFd, EPOLL_CTL_ADD, source.fd, &event) == 0;
}

// The socket gets its name only once it listens: whoever finds a name that nobody listens on may remove it.
int listenAs(PeerId self)
{
    PathText draft{};
    PathText path{};
    const NameText name = socketName(self);
    NameText draftName{};
    std::snprintf(draftName.data(), draftName.size(), "bus/.%u-%08x", self.pid, self.nonce);
    if (!socketAddress(draftName, draft) || !socketAddress(name, path)) {
        return -1;
    }
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(static_cast<void *>(address.sun_path), draft.data(), draft.size());
    const bool bound = fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (bound && listen(fd, kBacklog) == 0 && rename(draft.data(), path.data()) == 0) {
        return fd;
    }
    if (bound) {
        unlink(draft.data());
    }
    if (fd >= 0) {
        close(fd);
    }
    return -1;
}

void removeOwnFiles()
{
    for (const RoleClaim &claim : gOwnClaims) {
        removeClaim(claim);
    }
    gOwnClaims.clear();
    unlinkat(runtimeDirFd(), socketName(gBus.self).data(), 0);
}

void closeIncoming(Incoming &connection)
{
    Incoming **link = &gBus.incoming;
    while (*link != &connection) {
        link = &(*link)->next;
    }
    *link = connection.next;
    --gBus.incomingCount;
    close(connection.source.fd);
    std::free(&connection);
}

void closeBus()
{
    while (gBus.incoming != nullptr) {
        closeIncoming(*gBus.incoming);
    }
    gStopFd.store(-1);
    for (int *fd : {&gBus.listener.fd, &gBus.stop.fd, &gBus.epollFd, &gBus.spareFd}) {
        closeFd(*fd);
    }
    std::free(gBus.buffer);
    gBus = kNoBus;
    gJoined.store(false);
}

// What stays of a process on the bus when its own place there is gone.
void forgetRegistrations()
{
    closeAllConnections();
    forgetEvents();
    forgetProcedures();
    forgetTerminals();
    forgetKernel();
    forgetRing();
    forgetRuntimeDir();
}

void holdLocks()
{
    for (pthread_mutex_t &lock : gLocks) {
        pthread_mutex_lock(&lock);
    }
}

void releaseLocks()
{
    for (auto lock = gLocks.rbegin(); lock != gLocks.rend(); ++lock) {
        pthread_mutex_unlock(&*lock);
    }
}

// The child has the parent's connections and files open but none of them is its own.
void startAnewInChild()
{
    releaseLocks();
    tHandling = false;
    currentFlow() = nullptr;
    gDispatching.store(false);
    forgetFlows();
    gOwnClaims.clear();
    closeBus();
    forgetRegistrations();
    forgetPeers();
}

[[gnu::constructor]] void watchForks()
{
    pthread_atfork(holdLocks, releaseLocks, startAnewInChild);
}

[[gnu::destructor]] void leaveAtExit()
{
    if (gJoined.load()) {
        removeOwnFiles();
    }
}

void takeConnection(int fd)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    const bool known = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    if (!known || !mayTalk(peer.uid)) {
        refuse(__LINE__, QX_ERR_PROTOCOL, static_cast<uint32_t>(peer.pid), peer.uid);
        close(fd);
        return;
    }
    auto *connection =
        gBus.incomingCount < kMaxIncoming ? static_cast<Incoming *>(std::malloc(sizeof(Incoming))) : nullptr;
    if (connection == nullptr) {
        refuse(__LINE__, QX_ERR_NO_MEMORY, static_cast<uint32_t>(peer.pid), gBus.incomingCount);
        close(fd);
        return;
    }
    *connection = {
        .source = {SourceKind::incoming, fd}, .pid = static_cast<uint32_t>(peer.pid), .next = gBus.incoming};
    gBus.incoming = connection;
    ++gBus.incomingCount;
    if (!watchSource(connection->source, EPOLLIN)) {
        closeIncoming(*connection);
    }
}

// Without a free descriptor the connection would stay in the queue and keep the listener readable for ever.
void dropConnection()
{
    closeFd(gBus.spareFd);
    const int fd = accept4(gBus.listener.fd, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd >= 0) {
        close(fd);
    }
    gBus.spareFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    refuse(__LINE__, QX_ERR_NO_MEMORY, 0, gBus.incomingCount);
}

void acceptConnection()
{
    const int fd = accept4(gBus.listener.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd >= 0) {
        takeConnection(fd);
    } else if (errno == EMFILE || errno == ENFILE) {
        dropConnection();
    }
}

Handled handle(const Arrival &arrival)
{
    switch (arrival.header.kind) {
    case FrameKind::event:
        return handleEvent(arrival);
    case FrameKind::rpc:
        return handleRpc(arrival);
    case FrameKind::print:
        return handlePrint(arrival);
    case FrameKind::hlp:
        return handleHlp(arrival);
    case FrameKind::done:
        return handleDone(arrival);
    case FrameKind::reply:
        break;
    }
    return {.status = QX_ERR_PROTOCOL, .result = 0};
}

void sayDone(const FlowContext &flow, FrameKind kind, uint32_t result)
{
    Vec<PeerId, 9> who;
    bool listed = who.push(gBus.self);
    for (const PeerId &receiver : flow.receivers) {
        listed = listed && who.push(receiver);
    }
    FrameHeader header = frameOf(FrameKind::done, static_cast<uint32_t>(kind), result);
    header.flow = flow.flow;
    header.origin = flow.origin;
    const uint32_t size = std::min<uint32_t>(who.count() * sizeof(PeerId), kMaxPayload);
    sendToId(flow.origin, header, bytesOf(who.begin(), size));
}

Handled handleInFlow(const Arrival &arrival)
{
    if (arrival.header.flow == 0 || arrival.header.kind == FrameKind::done) {
        return handle(arrival);
    }
    FlowContext flow{.flow = arrival.header.flow, .origin = arrival.header.origin, .receivers = {}};
    currentFlow() = &flow;
    const Handled handled = handle(arrival);
    currentFlow() = nullptr;
    sayDone(flow, arrival.header.kind, handled.status == QX_OK ? handled.result : handled.status);
    return handled;
}

// A reply always finds room: the other side sends nothing more until it has it. If not, it broke the rules.
bool reply(const Incoming &connection, uint32_t serial, const Handled &handled)
{
    FrameHeader header = frameOf(FrameKind::reply, handled.status, handled.result);
    header.serial = serial;
    return send(connection.source.fd, &header, sizeof header, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof header;
}

// Handles one frame; false when the connection is to be closed.
bool handleFrame(const Incoming &connection)
{
    std::byte *const bytes = gBus.buffer->bytes.data();
    const ssize_t got = recv(connection.source.fd, bytes, kMaxFrame, MSG_TRUNC);
    if (got < 0) {
        return errno == EAGAIN || errno == EINTR;
    }
    if (got == 0) {
        return false;
    }
    const auto size = static_cast<size_t>(got);
    FrameHeader header{};
    std::memcpy(&header, bytes, sizeof header);
    if (size > kMaxFrame || !isWhole(header, size)) {
        refuse(__LINE__, QX_ERR_PROTOCOL, connection.pid, static_cast<uint32_t>(size));
        return false;
    }
    std::memset(bytes + size, 0, kPayloadPadding);
    const Handled handled = handleInFlow({header, bytes + sizeof header, connection.pid});
    if (handled.status == QX_ERR_PROTOCOL) {
        refuse(__LINE__, QX_ERR_PROTOCOL, connection.pid, static_cast<uint32_t>(header.kind));
        return false;
    }
    return header.serial == 0 || reply(connection, header.serial, handled);
}

void drainStop()
{
    uint64_t count = 0;
    [[maybe_unused]] const ssize_t drained = read(gBus.stop.fd, &count, sizeof count);
}

void serve(Source &source)
{
    switch (source.kind) {
    case SourceKind::listener:
        acceptConnection();
        break;
    case SourceKind::stop:
        drainStop();
        break;
    case SourceKind::incoming: {
        auto &connection = reinterpret_cast<Incoming &>(source);
        if (!handleFrame(connection)) {
            closeIncoming(connection);
        }
        break;
    }
    case SourceKind::watch: {
        auto &watch = reinterpret_cast<Watch &>(source);
        watch.ended(watch);
        break;
    }
    }
}

uint32_t waitAndServe(int32_t timeoutMs)
{
    std::array<epoll_event, 16> events{};
    const int ready = epoll_wait(gBus.epollFd, events.data(), static_cast<int>(events.size()), timeoutMs);
    if (gStopAsked.exchange(false)) {
        drainStop();
        return QX_ERR_STOPPED;
    }
    if (ready <= 0) {
        return QX_ERR_TIMEOUT;
    }
    tHandling = true;
    for (int i = 0; i < ready; ++i) {
        serve(*static_cast<Source *>(events[static_cast<size_t>(i)].data.ptr));
    }
    tHandling = false;
    return QX_OK;
}

RoleClaim *findOwnClaim(Role role)
{
    RoleClaim *const claim = std::find_if(gOwnClaims.begin(), gOwnClaims.end(),
                                          [&](const RoleClaim &own) { return own.role == role; });
    return claim == gOwnClaims.end() ? nullptr : claim;
}

// Whether another live process holds the role; what dead ones left of it is removed.
bool isTaken(Role role)
{
    Vec<RoleClaim> claims;
    listClaims(claims);
    bool taken = false;
    for (const RoleClaim &claim : claims) {
        if (claim.role != role || isSelf(claim.holder)) {
            continue;
        }
        if (listens(claim.holder)) {
            taken = true;
        } else {
            removeRemains(claim.holder);
        }
    }
    return taken;
}

uint32_t claim(Role role)
{
    const RoleClaim made{.role = role, .stamp = monotonicNs(), .holder = gBus.self};
    if (!writeClaim(made)) {
        return QX_ERR_RUNTIME_DIR;
    }
    if (!gOwnClaims.push(made)) {
        removeClaim(made);
        return QX_ERR_NO_MEMORY;
    }
    return QX_OK;
}

bool openBus(Bus &bus)
{
    bus.epollFd = epoll_create1(EPOLL_CLOEXEC);
    bus.stop.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    bus.spareFd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    bus.buffer = static_cast<FrameBuffer *>(std::aligned_alloc(alignof(FrameBuffer), sizeof(FrameBuffer)));
    if (bus.epollFd < 0 || bus.stop.fd < 0 || bus.spareFd < 0 || bus.buffer == nullptr) {
        return false;
    }
    bus.listener.fd = listenAs(bus.self);
    return bus.listener.fd >= 0 && watchSource(bus.listener, EPOLLIN) && watchSource(bus.stop, EPOLLIN);
}

// With LockId::join held.
uint32_t joinLocked()
{
    if (gJoined.load(std::memory_order_relaxed)) {
        return QX_OK;
    }
    if (runtimeDirFd() < 0) {
        return QX_ERR_RUNTIME_DIR;
    }
    gBus.self = {.pid = static_cast<uint32_t>(getpid()), .nonce = randomNonce()};
    if (!openBus(gBus)) {
        const bool listened = gBus.listener.fd >= 0;
        if (listened) {
            unlinkat(runtimeDirFd(), socketName(gBus.self).data(), 0);
        }
        closeBus();
        return listened ? QX_ERR_NO_MEMORY : QX_ERR_RUNTIME_DIR;
    }
    gStopFd.store(gBus.stop.fd);
    gJoined.store(true, std::memory_order_release);
    return QX_OK;
}

} // namespace

pthread_mutex_t &lockOf(LockId id)
{
    return gLocks[static_cast<size_t>(id)];
}

PeerId selfId()
{
    return gBus.self;
}

bool isSelf(PeerId id)
{
    return gJoined.load(std::memory_order_acquire) && id == gBus.self;
}

bool mayTalk(uid_t uid)
{
    return uid == geteuid() || uid == 0;
}

uint32_t joinBus()
{
    if (gJoined.load(std::memory_order_acquire)) {
        return QX_OK;
    }
    const Lock lock(LockId::join);
    return joinLocked();
}

uint32_t claimRole(Role role, bool exclusive)
{
    const Lock lock(LockId::join);
    const uint32_t joined = joinLocked();
    if (joined != QX_OK || findOwnClaim(role) != nullptr) {
        return joined;
    }
    if (!exclusive) {
        return claim(role);
    }
    const RegistryLock registry(kRegistryTimeoutMs);
    if (!registry) {
        return QX_ERR_TIMEOUT;
    }
    return isTaken(role) ? QX_ERR_TAKEN : claim(role);
}

void releaseRole(Role role)
{
    const Lock lock(LockId::join);
    RoleClaim *const claim = findOwnClaim(role);
    if (claim != nullptr) {
        removeClaim(*claim);
        gOwnClaims.removeAt(static_cast<uint32_t>(claim - gOwnClaims.begin()));
    }
}

bool watchForEnd(Watch &watch)
{
    return watchSource(watch.source, EPOLLRDHUP);
}

} // namespace qx

uint32_t QxHost_Dispatch(int32_t timeoutMs)
{
    const uint32_t joined = qx::joinBus();
    if (joined != QX_OK) {
        return joined;
    }
    if (qx::tHandling || qx::gDispatching.exchange(true, std::memory_order_acquire)) {
        return QX_ERR_BUSY;
    }
    const uint32_t result = qx::waitAndServe(timeoutMs);
    qx::gDispatching.store(false, std::memory_order_release);
    return result;
}

uint32_t QxHost_Run()
{
    uint32_t result = QX_OK;
    while (result == QX_OK || result == QX_ERR_TIMEOUT) {
        result = QxHost_Dispatch(-1);
    }
    return result == QX_ERR_STOPPED ? QX_OK : result;
}

void QxHost_Stop()
{
    const int savedError = errno;
    qx::gStopAsked.store(true);
    const int fd = qx::gStopFd.load();
    const uint64_t one = 1;
    if (fd >= 0) {
        [[maybe_unused]] const ssize_t written = write(fd, &one, sizeof one);
    }
    errno = savedError;
}

int32_t QxHost_Fd()
{
    return qx::joinBus() == QX_OK ? qx::gBus.epollFd : -1;
}

uint32_t QxHost_Leave()
{
    if (qx::tHandling) {
        return QX_ERR_BUSY;
    }
    {
        const qx::Lock lock(qx::LockId::join);
        if (qx::gJoined.load()) {
            qx::removeOwnFiles();
        }
        qx::closeBus();
    }
    qx::forgetRegistrations();
    return QX_OK;
}

uint32_t QxHost_SetTimeout(uint32_t milliseconds)
{
    qx::setTimeLimitMs(milliseconds);
    return QX_OK;
}
