// The monitors of the bus. Whoever handles a frame tells each process that holds the role of a monitor, over
// a connection that never waits; a report that finds no room is counted, and the next one that does find
// room says how many there were before it.
#include "platform/linux/monitor.h"

#include "platform/linux/connection.h"
#include "platform/linux/frame_io.h"
#include "platform/linux/locks.h"
#include "qx/host.h"
#include "qx/message.h"

#include <cerrno>
#include <ctime>
#include <unistd.h>

namespace qx {
namespace {

constexpr Role kMonitorRole{.kind = RoleKind::monitor, .number = 0};

// What travels to a monitor, with the payload's first bytes behind it.
struct Report {
    uint64_t timeNs; // since 1970
    uint64_t tookNs;
    uint32_t kind;
    uint32_t senderPid;
    uint32_t number;
    uint32_t word;
    uint32_t size;
    uint32_t status;
    uint32_t result;
    uint32_t missed;
};
static_assert(sizeof(Report) == 48);

struct Monitor {
    PeerId id;
    int fd;
    uint32_t missed; // reports since the last one that it took
};

struct Listener {
    QxMonitor monitor;
    void *context;
};

// Of the dispatching thread.
constinit StaticVec<Monitor> gMonitors;
constinit uint32_t gEdition = 0;
constinit bool gKnown = false;

constinit Listener gListener{}; // LockId::monitor

bool isTold(FrameKind kind)
{
    return kind != FrameKind::done && kind != FrameKind::report && kind != FrameKind::load;
}

void disconnect(Monitor &monitor)
{
    if (monitor.fd >= 0) {
        close(monitor.fd);
    }
    monitor.fd = -1;
}

// The monitors that stay keep their connections and their counts.
void learnMonitors()
{
    gEdition = readEdition(); // first: what changes meanwhile is looked at again
    Holders holders(kMonitorRole);
    if (holders.result() != QX_OK) {
        return;
    }
    gKnown = true;
    for (uint32_t i = gMonitors.count(); i-- > 0;) {
        const bool stays = std::any_of(holders.begin(), holders.end(),
                                       [&](const Peer *peer) { return peer->id == gMonitors[i].id; });
        if (!stays) {
            disconnect(gMonitors[i]);
            gMonitors.removeAt(i);
        }
    }
    for (const Peer *peer : holders) {
        const bool known = std::any_of(gMonitors.begin(), gMonitors.end(),
                                       [&](const Monitor &monitor) { return monitor.id == peer->id; });
        if (!known) {
            gMonitors.push({.id = peer->id, .fd = -1, .missed = 0});
        }
    }
}

bool isMonitored()
{
    if (!gKnown || readEdition() != gEdition) {
        learnMonitors();
    }
    return gMonitors.count() > 0;
}

// The time of day, to be compared with that of records.
uint64_t realTimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
}

void send(Monitor &monitor, std::span<std::byte> bytes)
{
    std::memcpy(bytes.data() + offsetof(Report, missed), &monitor.missed, sizeof monitor.missed);
    if (monitor.fd < 0) {
        monitor.fd = connectTo(monitor.id, false);
    }
    const int error = monitor.fd < 0
                          ? -monitor.fd
                          : sendFrame(monitor.fd, frameOf(FrameKind::report, 0), bytes, false, Deadline(0));
    monitor.missed = error == 0 ? 0 : monitor.missed + 1;
    if (error != 0 && error != EAGAIN) {
        disconnect(monitor);
    }
    if (error == ECONNREFUSED || error == ENOENT) {
        removeRemains(monitor.id);
    }
}

} // namespace

Passage::Passage(const Arrival &arrival) : header_(arrival.header), senderPid_(arrival.senderPid)
{
    if (!isTold(header_.kind) || !isMonitored()) {
        return;
    }
    const uint32_t skipped = header_.kind == FrameKind::message ? QX_MSG_HEADER_SIZE : 0;
    excerpted_ = std::min<uint32_t>(std::max(header_.length, skipped) - skipped, kMostExcerpted);
    std::copy_n(arrival.payload + skipped, excerpted_, excerpt_.begin());
    startNs_ = monotonicNs();
}

void Passage::tell(const Handled &handled)
{
    if (startNs_ == 0) {
        return;
    }
    const Report report{.timeNs = realTimeNs(),
                        .tookNs = monotonicNs() - startNs_,
                        .kind = static_cast<uint32_t>(header_.kind),
                        .senderPid = senderPid_,
                        .number = header_.number,
                        .word = header_.word,
                        .size = header_.length,
                        .status = handled.status,
                        .result = handled.result,
                        .missed = 0};
    std::array<std::byte, sizeof report + sizeof excerpt_> bytes;
    std::memcpy(bytes.data(), &report, sizeof report);
    std::copy_n(excerpt_.begin(), excerpted_, bytes.begin() + sizeof report);
    for (Monitor &monitor : gMonitors) {
        send(monitor, std::span(bytes).first(sizeof report + excerpted_));
    }
}

Handled handleReport(const Arrival &arrival)
{
    Report report{};
    const uint32_t length = arrival.header.length;
    if (length < sizeof report || length > sizeof report + sizeof QxPassage{}.acBytes) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    std::memcpy(&report, arrival.payload, sizeof report);
    QxPassage passage{.ullTimeNs = report.timeNs,
                      .ullTookNs = report.tookNs,
                      .ulKind = report.kind,
                      .ulSenderPid = report.senderPid,
                      .ulReceiverPid = arrival.senderPid,
                      .ulNumber = report.number,
                      .ulWord = report.word,
                      .ulSize = report.size,
                      .ulStatus = report.status,
                      .ulResult = report.result,
                      .ulMissed = report.missed,
                      .ulBytes = length - static_cast<uint32_t>(sizeof report),
                      .acBytes = {}};
    std::memcpy(passage.acBytes, arrival.payload + sizeof report, passage.ulBytes);
    Listener listener{};
    {
        const Lock lock(LockId::monitor);
        listener = gListener;
    }
    if (listener.monitor == nullptr) {
        return {.status = QX_ERR_NOT_FOUND, .result = 0};
    }
    listener.monitor(listener.context, &passage);
    return {.status = QX_OK, .result = 0};
}

void forgetMonitors()
{
    for (Monitor &monitor : gMonitors) {
        disconnect(monitor);
    }
    gMonitors.clear();
    gKnown = false;
    const Lock lock(LockId::monitor);
    gListener = {};
}

} // namespace qx

uint32_t QxHost_Monitor(QxMonitor monitor, void *context)
{
    const qx::Lock lock(qx::LockId::monitor);
    if (monitor == nullptr) {
        qx::releaseRole(qx::kMonitorRole);
        qx::gListener = {};
        return QX_OK;
    }
    qx::gListener = {.monitor = monitor, .context = context};
    const uint32_t claimed = qx::claimRole(qx::kMonitorRole);
    if (claimed != QX_OK) {
        qx::gListener = {};
    }
    return claimed;
}
