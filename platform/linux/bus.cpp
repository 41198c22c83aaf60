#include "platform/linux/bus.h"

#include "platform/linux/connection.h"
#include "platform/linux/flow_context.h"
#include "platform/linux/frame_io.h"
#include "platform/linux/locks.h"
#include "platform/linux/monitor.h"
#include "qx/diag.h"
#include "qx/host.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace qx {
namespace {

constexpr uint32_t kMaxIncoming = 512;
constexpr int kBacklog = 128;

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
    Source listener;
    bool paused; // the listener is not watched: no more connections fit now
    bool full;   // and that was recorded
    Source stop;
    Source own; // counts the messages of this process to itself
    Incoming *incoming;
    uint32_t incomingCount;
    uint64_t handled;
    FrameBuffer *buffer;
};

constexpr Bus kNoBus{.self = {},
                     .epollFd = -1,
                     .listener = {SourceKind::listener, -1},
                     .paused = false,
                     .full = false,
                     .stop = {SourceKind::stop, -1},
                     .own = {SourceKind::own, -1},
                     .incoming = nullptr,
                     .incomingCount = 0,
                     .handled = 0,
                     .buffer = nullptr};

constinit Bus gBus = kNoBus;
constinit std::atomic<bool> gJoined{false};
constinit std::atomic<bool> gStopAsked{false};
constinit std::atomic<int> gStopFd{-1}; // for signal handlers, which must not look at gBus
constinit std::atomic<bool> gDispatching{false};
constinit std::atomic<uint32_t> gGeneration{0}; // changes in a fork's child, also under a running handler
constinit thread_local bool tHandling = false;
constinit std::span<epoll_event> gBatch; // what the dispatching thread has still to serve

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

// Closing a descriptor is not enough: while a child that is about to run another program has it too, the
// epoll set goes on reporting it.
void unwatchSource(Source &source)
{
    epoll_ctl(gBus.epollFd, EPOLL_CTL_DEL, source.fd, nullptr);
    close(source.fd);
    source.fd = -1;
    for (epoll_event &event : gBatch) {
        event.data.ptr = event.data.ptr == &source ? nullptr : event.data.ptr;
    }
}

// The socket gets its name only once it listens: whoever finds a name that nobody listens on may remove it.
int listenAs(PeerId self)
{
    PathText draft{};
    PathText path{};
    if (!socketAddress(draftSocketName(self), draft) || !socketAddress(socketName(self), path)) {
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
    const int error = errno;
    if (bound) {
        unlink(draft.data());
    }
    if (fd >= 0) {
        close(fd);
    }
    errno = error;
    return -1;
}

void removeOwnFiles()
{
    releaseAllRoles();
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
    unwatchSource(connection.source);
    std::free(&connection);
}

void closeBus()
{
    while (gBus.incoming != nullptr) {
        closeIncoming(*gBus.incoming);
    }
    abandonFlows();
    gStopFd.store(-1);
    for (int *fd : {&gBus.listener.fd, &gBus.stop.fd, &gBus.own.fd, &gBus.epollFd}) {
        closeFd(*fd);
    }
    std::free(gBus.buffer);
    gBus = kNoBus;
    gJoined.store(false);
}

// A child that was forked inside a handler is still in it: what the handler reads, and what its callers look
// at when it returns, stays where it is. The set is the parent's too and is not touched.
void closeBusUnderHandler()
{
    for (Incoming *connection = gBus.incoming; connection != nullptr; connection = connection->next) {
        closeFd(connection->source.fd);
    }
    gBus.incoming = nullptr;
    gBus.buffer = nullptr;
    closeBus();
}

// What stays of a process on the bus when its own place there is gone.
void forgetRegistrations()
{
    closeAllConnections();
    forgetEvents();
    forgetProcedures();
    forgetTerminals();
    forgetKernel();
    forgetOwner();
    forgetModules();
    forgetMonitors();
    forgetRing();
    forgetRuntimeDir();
}

// The child has the parent's connections and files open but none of them is its own.
void startAnewInChild()
{
    renewLocks();
    gGeneration.fetch_add(1);
    closeFd(gBus.epollFd); // first: it is the parent's set too
    if (tHandling) {
        closeBusUnderHandler();
    } else {
        closeBus();
    }
    tHandling = false;
    currentFlow() = nullptr;
    gDispatching.store(false);
    forgetRoles();
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

// What connects meanwhile waits in the queue, and what it sends waits with it; when the queue is full,
// senders run into their own limits. So nothing that was taken for delivered is dropped.
void pauseListener()
{
    epoll_ctl(gBus.epollFd, EPOLL_CTL_DEL, gBus.listener.fd, nullptr);
    gBus.paused = true;
    if (!gBus.full) {
        gBus.full = true;
        refuse(__LINE__, QX_ERR_NO_MEMORY, 0, gBus.incomingCount);
    }
}

void resumeListener()
{
    if (gBus.paused && gBus.incomingCount < kMaxIncoming) {
        gBus.paused = !watchSource(gBus.listener, EPOLLIN);
    }
}

bool isWelcome(int fd, uint32_t &pid)
{
    ucred peer{};
    socklen_t size = sizeof peer;
    const bool known = getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0;
    pid = static_cast<uint32_t>(peer.pid);
    if (!known || !mayTalk(peer.uid)) {
        refuse(__LINE__, QX_ERR_PROTOCOL, pid, peer.uid);
        return false;
    }
    return true;
}

void acceptConnection()
{
    auto *const connection =
        gBus.incomingCount < kMaxIncoming ? static_cast<Incoming *>(std::malloc(sizeof(Incoming))) : nullptr;
    if (connection == nullptr) {
        pauseListener();
        return;
    }
    const int fd = accept4(gBus.listener.fd, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    const bool scarce = fd < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS);
    *connection = {.source = {SourceKind::incoming, fd}, .pid = 0, .next = gBus.incoming};
    if (fd >= 0 && isWelcome(fd, connection->pid) && watchSource(connection->source, EPOLLIN)) {
        gBus.incoming = connection;
        ++gBus.incomingCount;
        gBus.full = false;
        return;
    }
    std::free(connection);
    if (fd >= 0) {
        close(fd);
    }
    if (scarce) {
        pauseListener();
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
    case FrameKind::sync:
        return handleSync(arrival);
    case FrameKind::message:
        return handleMessage(arrival);
    case FrameKind::report:
        return handleReport(arrival);
    case FrameKind::load:
        return handleLoad(arrival);
    case FrameKind::reply:
        break;
    }
    return {.status = QX_ERR_PROTOCOL, .result = 0};
}

void sayDone(const FlowContext &flow, FrameKind kind, uint32_t result)
{
    FrameHeader header = frameOf(FrameKind::done, static_cast<uint32_t>(kind), result);
    header.flow = flow.flow;
    header.origin = flow.origin;
    const auto size = static_cast<uint32_t>(flow.shares.count() * sizeof(FlowShare));
    const uint32_t said = sendToId(flow.origin, header, bytesOf(flow.shares.begin(), size));
    if (said != QX_OK && said != QX_ERR_NOBODY) {
        refuse(__LINE__, said, flow.origin.pid, size);
    }
}

Handled handleInFlow(const Arrival &arrival)
{
    if (arrival.header.flow == 0 || arrival.header.kind == FrameKind::done) {
        return handle(arrival);
    }
    FlowContext flow{.flow = arrival.header.flow, .origin = arrival.header.origin, .shares = {}};
    flow.add(gBus.self); // has room without memory
    const FrameKind kind = arrival.header.kind;
    const uint32_t generation = gGeneration.load();
    currentFlow() = &flow;
    const Handled handled = handle(arrival);
    currentFlow() = nullptr;
    if (generation == gGeneration.load()) {
        sayDone(flow, kind, handled.status == QX_OK ? handled.result : handled.status);
    }
    return handled;
}

// A reply always finds room: the other side sends nothing more until it has it. If not, it broke the rules.
bool reply(const Incoming &connection, uint32_t serial, const Handled &handled)
{
    FrameHeader header = frameOf(FrameKind::reply, handled.status, handled.result);
    header.serial = serial;
    return sendFrame(connection.source.fd, header, handled.reply, false, Deadline(0)) == 0;
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
    const uint32_t generation = gGeneration.load();
    const Arrival arrival{header, bytes + sizeof header, connection.pid};
    Passage passage(arrival);
    const Handled handled = handleInFlow(arrival);
    if (generation != gGeneration.load()) {
        return true; // the child of a fork: the connection is the parent's
    }
    ++gBus.handled;
    if (handled.status == QX_ERR_PROTOCOL) {
        refuse(__LINE__, QX_ERR_PROTOCOL, connection.pid, static_cast<uint32_t>(header.kind));
        return false;
    }
    const bool isAnswered = header.serial == 0 || reply(connection, header.serial, handled);
    passage.tell(handled);
    return isAnswered;
}

void handleOwnMessage()
{
    uint64_t one = 0;
    [[maybe_unused]] const ssize_t counted = read(gBus.own.fd, &one, sizeof one);
    OwnMessage *const message = takeOwnMessage();
    if (message == nullptr) {
        return;
    }
    const uint32_t generation = gGeneration.load();
    const Arrival arrival{message->header, message->payload, gBus.self.pid};
    Passage passage(arrival);
    const Handled handled = handleInFlow(arrival);
    if (generation == gGeneration.load()) {
        ++gBus.handled;
        passage.tell(handled);
    }
    std::free(message);
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
    case SourceKind::own:
        handleOwnMessage();
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

bool takeStop()
{
    const bool asked = gStopAsked.load() && gStopAsked.exchange(false);
    if (asked) {
        drainStop();
    }
    return asked;
}

// The number of events, 0 when none came in time or the wait was stopped.
int waitForEvents(std::span<epoll_event> events, int32_t timeoutMs)
{
    // A paused listener is tried again before long: what made room need not be a connection of ours.
    constexpr int32_t kPausedMs = 100;
    const bool isEndless = timeoutMs < 0;
    const uint64_t deadline =
        isEndless ? UINT64_MAX : monotonicNs() + static_cast<uint64_t>(timeoutMs) * 1'000'000U;
    for (;;) {
        resumeListener();
        const uint64_t now = isEndless ? 0 : monotonicNs();
        const uint64_t left = now >= deadline ? 0 : (deadline - now + 999'999U) / 1'000'000U;
        int32_t wait = isEndless ? -1 : static_cast<int32_t>(left);
        wait = gBus.paused && (wait < 0 || wait > kPausedMs) ? kPausedMs : wait;
        const int ready = epoll_wait(gBus.epollFd, events.data(), static_cast<int>(events.size()), wait);
        const bool over = !isEndless && monotonicNs() >= deadline;
        if (ready > 0 || gStopAsked.load() || over || (ready < 0 && errno != EINTR)) {
            return std::max(ready, 0);
        }
    }
}

uint32_t waitAndServe(int32_t timeoutMs)
{
    if (takeStop()) {
        return QX_ERR_STOPPED;
    }
    std::array<epoll_event, 16> events{};
    const int ready = waitForEvents(events, timeoutMs);
    if (takeStop()) {
        return QX_ERR_STOPPED;
    }
    const uint32_t generation = gGeneration.load();
    tHandling = true;
    for (int i = 0; i < ready; ++i) {
        gBatch = std::span(events).subspan(static_cast<size_t>(i), static_cast<size_t>(ready - i));
        auto *const source = static_cast<Source *>(gBatch.front().data.ptr);
        if (source != nullptr) {
            serve(*source);
        }
        if (generation != gGeneration.load()) {
            gBatch = {};
            return QX_ERR_STOPPED; // the child of a fork does not take over its parent's work
        }
    }
    gBatch = {};
    tHandling = false;
    return ready > 0 ? QX_OK : QX_ERR_TIMEOUT;
}

// Removes the sockets that processes left which died without a role, or before they had one: nobody else
// meets them.
void sweepSockets()
{
    Vec<PeerId> found;
    listSockets(found);
    for (const PeerId &id : found) {
        if (kill(static_cast<pid_t>(id.pid), 0) != 0 && errno == ESRCH && !listens(id)) {
            removeRemains(id);
        }
    }
}

uint32_t openBus(Bus &bus)
{
    bus.epollFd = epoll_create1(EPOLL_CLOEXEC);
    bus.stop.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    bus.own.fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK | EFD_SEMAPHORE);
    bus.buffer = static_cast<FrameBuffer *>(std::aligned_alloc(alignof(FrameBuffer), sizeof(FrameBuffer)));
    if (bus.epollFd < 0 || bus.stop.fd < 0 || bus.own.fd < 0 || bus.buffer == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    bus.listener.fd = listenAs(bus.self);
    if (bus.listener.fd < 0) {
        return errno == EMFILE || errno == ENFILE || errno == ENOMEM ? QX_ERR_NO_MEMORY : QX_ERR_RUNTIME_DIR;
    }
    if (!watchSource(bus.listener, EPOLLIN) || !watchSource(bus.stop, EPOLLIN) ||
        !watchSource(bus.own, EPOLLIN)) {
        unlinkat(runtimeDirFd(), socketName(bus.self).data(), 0);
        return QX_ERR_NO_MEMORY;
    }
    return QX_OK;
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
    const uint32_t opened = openBus(gBus);
    if (opened != QX_OK) {
        closeBus();
        return opened;
    }
    gStopFd.store(gBus.stop.fd);
    gJoined.store(true, std::memory_order_release);
    sweepSockets();
    removeOldRings();
    return QX_OK;
}

} // namespace

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

Handling::Handling() : before_(std::exchange(tHandling, true)) {}

Handling::~Handling()
{
    tHandling = tHandling && before_; // a child that was forked meanwhile is in no handler any more
}

Load currentLoad()
{
    Load load{.handled = gBus.handled, .connections = gBus.incomingCount, .waiting = 0};
    for (const Incoming *connection = gBus.incoming; connection != nullptr; connection = connection->next) {
        int waiting = 0;
        ioctl(connection->source.fd, FIONREAD, &waiting);
        load.waiting += static_cast<uint32_t>(waiting);
    }
    return load;
}

void announceOwnMessage()
{
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t counted = write(gBus.own.fd, &one, sizeof one);
}

bool watchForEnd(Watch &watch)
{
    return watchSource(watch.source, EPOLLRDHUP);
}

void endWatch(Watch &watch)
{
    if (watch.source.fd >= 0) {
        unwatchSource(watch.source);
    }
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
    if (qx::tHandling || qx::gDispatching.exchange(true, std::memory_order_acquire)) {
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
    qx::gDispatching.store(false, std::memory_order_release);
    return QX_OK;
}

uint32_t QxHost_SetTimeout(uint32_t milliseconds)
{
    qx::setTimeLimitMs(milliseconds);
    return QX_OK;
}
