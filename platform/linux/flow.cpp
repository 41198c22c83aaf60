// Flows as their origin sees them: for each process, how many pieces of work it got and how many it finished.
//
// A process that finishes a piece says so and names those that it sent more to, so a flow is at its end when
// all counts agree: a piece whose sender has not said yet that it sent it belongs to work that is itself not
// finished.
#include "platform/linux/bus.h"
#include "platform/linux/connection.h"
#include "platform/linux/flow_context.h"
#include "platform/linux/process_name.h"
#include "qx/host.h"

#include <array>
#include <cerrno>
#include <limits>
#include <unistd.h>
#include <utility>

namespace qx {
namespace {

struct FlowMember {
    Watch watch; // first: the bus knows a member by its watch
    PeerId id;
    uint32_t given;
    uint32_t finished;
    bool died;
    ProcessName name;
    FlowMember *next;
};

} // namespace
} // namespace qx

struct QxFlow {
    uint32_t id;
    qx::PeerId callee; // whose result is the flow's
    bool answered;
    uint32_t result;
    qx::FlowMember *members;
    QxFlow *next;
};

namespace qx {
namespace {

constinit QxFlow *gFlows = nullptr; // of the dispatching thread
constinit uint32_t gLastFlow = 0;

void noteDeath(Watch &watch)
{
    auto &member = reinterpret_cast<FlowMember &>(watch);
    member.died = true;
    endWatch(member.watch);
}

void startWatch(FlowMember &member)
{
    const int fd = connectTo(member.id, false);
    member.watch = {.source = {SourceKind::watch, fd < 0 ? -1 : fd}, .ended = noteDeath};
    member.died = fd == -ECONNREFUSED || fd == -ENOENT;
    if (fd >= 0 && !watchForEnd(member.watch)) {
        endWatch(member.watch);
    }
}

FlowMember *memberOf(QxFlow &flow, PeerId id)
{
    FlowMember **link = &flow.members;
    for (; *link != nullptr; link = &(*link)->next) {
        if ((*link)->id == id) {
            return *link;
        }
    }
    auto *const member = static_cast<FlowMember *>(std::calloc(1, sizeof(FlowMember)));
    if (member != nullptr) {
        member->id = id;
        member->name = processName(id.pid);
        startWatch(*member);
        *link = member;
    }
    return member;
}

QxFlow *findFlow(uint32_t id)
{
    QxFlow *flow = gFlows;
    while (flow != nullptr && flow->id != id) {
        flow = flow->next;
    }
    return flow;
}

uint32_t stateOf(const FlowMember &member)
{
    if (member.finished >= member.given) {
        return QX_FLOW_DONE;
    }
    return member.died ? QX_FLOW_DIED : QX_FLOW_WAITING;
}

bool allAre(const QxFlow &flow, bool (*is)(const FlowMember &))
{
    for (const FlowMember *member = flow.members; member != nullptr; member = member->next) {
        if (!is(*member)) {
            return false;
        }
    }
    return true;
}

bool isFinished(const FlowMember &member)
{
    return member.finished >= member.given;
}

// With what a dead process still said taken from the queues, nothing more is to come of it.
bool isSettled(const FlowMember &member)
{
    return isFinished(member) || member.died;
}

uint32_t give(QxFlow &flow, PeerId id, uint32_t frames)
{
    FlowMember *const member = memberOf(flow, id);
    if (member == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    member->given += frames;
    return QX_OK;
}

FrameHeader flowFrame(const QxFlow &flow, FrameKind kind, uint32_t number, uint32_t word)
{
    FrameHeader header = frameOf(kind, number, word);
    header.flow = flow.id;
    header.origin = selfId();
    return header;
}

void freeFlow(QxFlow *flow)
{
    while (flow->members != nullptr) {
        FlowMember *const member = flow->members;
        flow->members = member->next;
        endWatch(member->watch);
        std::free(member);
    }
    std::free(flow);
}

} // namespace

Handled handleDone(const Arrival &arrival)
{
    const uint32_t count = arrival.header.length / sizeof(FlowShare);
    if (count == 0 || arrival.header.length % sizeof(FlowShare) != 0 || !isSelf(arrival.header.origin)) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    const std::span shares(reinterpret_cast<const FlowShare *>(arrival.payload), count);
    const PeerId speaker = shares[0].id;
    if (speaker.pid != arrival.senderPid) {
        return {.status = QX_ERR_PROTOCOL, .result = 0};
    }
    QxFlow *const flow = findFlow(arrival.header.flow);
    FlowMember *const sender = flow != nullptr ? memberOf(*flow, speaker) : nullptr;
    if (sender == nullptr) {
        return {.status = QX_OK, .result = 0}; // a flow that was given up meanwhile
    }
    const bool wasCall = arrival.header.number == static_cast<uint32_t>(FrameKind::rpc);
    if (wasCall && !flow->answered && speaker == flow->callee) {
        flow->answered = true;
        flow->result = arrival.header.word;
    }
    ++sender->finished;
    for (const FlowShare &share : shares.subspan(1)) {
        give(*flow, share.id, share.frames);
    }
    return {.status = QX_OK, .result = 0};
}

void abandonFlows()
{
    for (QxFlow *flow = gFlows; flow != nullptr; flow = flow->next) {
        for (FlowMember *member = flow->members; member != nullptr; member = member->next) {
            noteDeath(member->watch);
        }
    }
}

} // namespace qx

QxFlow *QxHost_FlowOpen()
{
    if (qx::joinBus() != QX_OK) {
        return nullptr;
    }
    auto *const flow = static_cast<QxFlow *>(std::calloc(1, sizeof(QxFlow)));
    if (flow != nullptr) {
        flow->id = ++qx::gLastFlow == 0 ? ++qx::gLastFlow : qx::gLastFlow;
        flow->next = std::exchange(qx::gFlows, flow);
    }
    return flow;
}

void QxHost_FlowClose(QxFlow *flow)
{
    QxFlow **link = &qx::gFlows;
    while (*link != nullptr && *link != flow) {
        link = &(*link)->next;
    }
    if (*link != nullptr) {
        *link = flow->next;
        qx::freeFlow(flow);
    }
}

uint32_t QxHost_FlowCallRpc(QxFlow *flow, uint32_t id, uint32_t callerWord, const char *text)
{
    if (flow == nullptr || text == nullptr) {
        return QX_ERR;
    }
    const qx::Payload payload = qx::bytesOf(text, static_cast<uint32_t>(strlen(text) + 1));
    qx::Holders holders({.kind = qx::RoleKind::rpc, .number = id});
    for (qx::Peer *peer : holders) {
        const uint32_t sent =
            qx::sendTo(*peer, qx::flowFrame(*flow, qx::FrameKind::rpc, id, callerWord), payload);
        if (sent == QX_OK) {
            flow->callee = peer->id;
            return qx::give(*flow, peer->id, 1);
        }
        if (sent != QX_ERR_NOBODY) {
            return sent;
        }
    }
    return holders.result() != QX_OK ? holders.result() : QX_ERR_NOBODY;
}

uint32_t QxHost_FlowInvokeEvent(QxFlow *flow, uint32_t event, const void *data, uint32_t size)
{
    if (flow == nullptr || (data == nullptr && size > 0)) {
        return QX_ERR;
    }
    qx::Holders holders({.kind = qx::RoleKind::event, .number = event});
    uint32_t result = holders.result();
    for (qx::Peer *peer : holders) {
        const uint32_t sent =
            qx::sendTo(*peer, qx::flowFrame(*flow, qx::FrameKind::event, event, 0), qx::bytesOf(data, size));
        const uint32_t given = sent == QX_OK ? qx::give(*flow, peer->id, 1) : sent;
        result = given == QX_OK || given == QX_ERR_NOBODY ? result : given;
    }
    return result;
}

uint32_t QxHost_FlowWait(QxFlow *flow, uint32_t timeoutMs)
{
    if (flow == nullptr) {
        return QX_ERR;
    }
    constexpr uint64_t kLongest = std::numeric_limits<int32_t>::max();
    const uint64_t deadline = qx::monotonicNs() + uint64_t{timeoutMs} * 1'000'000U;
    while (!qx::allAre(*flow, qx::isFinished)) {
        const bool settled = qx::allAre(*flow, qx::isSettled);
        const uint64_t now = qx::monotonicNs();
        if (now >= deadline) {
            return settled ? QX_OK : QX_ERR_TIMEOUT;
        }
        const uint64_t left = std::min((deadline - now + 999'999U) / 1'000'000U, kLongest);
        // What a process said before it died is in our queues already: it is all taken before the end is
        // believed.
        const uint32_t result = QxHost_Dispatch(settled ? 0 : static_cast<int32_t>(left));
        if (settled && result == QX_ERR_TIMEOUT) {
            return QX_OK;
        }
        if (result != QX_OK && result != QX_ERR_TIMEOUT) {
            return result;
        }
    }
    return QX_OK;
}

uint32_t QxHost_FlowResult(const QxFlow *flow, uint32_t *result)
{
    if (flow == nullptr || result == nullptr) {
        return QX_ERR;
    }
    if (!flow->answered) {
        return QX_ERR_NOT_FOUND;
    }
    *result = flow->result;
    return QX_OK;
}

uint32_t QxHost_FlowPeers(const QxFlow *flow, QxFlowPeer *peers, uint32_t max)
{
    uint32_t count = 0;
    for (const qx::FlowMember *member = flow == nullptr ? nullptr : flow->members; member != nullptr;
         member = member->next) {
        if (count < max && peers != nullptr) {
            QxFlowPeer &out = peers[count];
            out = {.ulPid = member->id.pid, .ulState = qx::stateOf(*member), .acName = {}};
            std::memcpy(static_cast<void *>(out.acName), member->name.data(), member->name.size());
        }
        ++count;
    }
    return count;
}
