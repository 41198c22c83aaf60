// The bus's frames: one message of a SOCK_SEQPACKET connection each, a header and its payload back to back,
// all numbers in host byte order (the bus does not leave the machine, but programs of both word sizes may
// share it).
#pragma once

#include "platform/linux/runtime_dir.h"

#include <cstddef>
#include <span>

namespace qx {

enum class FrameKind : uint16_t {
    reply = 1, // answers a frame with a serial: number = how the bus fared (QX_OK, ...), word = the handler's
               // result
    event,     // number = event, payload = its data
    rpc,       // number = procedure, word = caller word, payload = text with its terminating zero
    print,     // number = terminal, payload = bytes
    hlp,       // payload = an HLP message
    done,      // work of a flow is finished: number = the kind of its frame, word = the result,
               // payload = FlowShares, first the sender's, then of those that it sent more to
    sync,      // number = operation, word = the size of the reply wanted, payload = the request; the reply to
               // one that succeeded has a payload of that size
    message,   // number = receiving module, payload = a message with its header
    report,    // to a monitor: what passed at the sender
    load,      // asks how a process fares; the reply has that as payload
};

struct FrameHeader {
    uint32_t magic;
    uint16_t version;
    FrameKind kind;
    uint32_t length; // bytes of payload
    uint32_t number;
    uint32_t word;
    uint32_t serial; // not 0: the sender waits for a reply with the same serial
    uint32_t flow;   // not 0: belongs to this flow of the origin
    PeerId origin;
};
static_assert(sizeof(FrameHeader) == 36 && offsetof(FrameHeader, origin) == 28);

constexpr uint32_t kFrameMagic = 0x7375425A; // "ZBus"
constexpr uint16_t kFrameVersion = 1;
constexpr uint32_t kMaxPayload = 128U * 1024U;
constexpr uint32_t kMaxFrame = kMaxPayload + sizeof(FrameHeader);

// Zeros behind every received payload, so that a handler of a fixed structure reads no stale byte.
constexpr uint32_t kPayloadPadding = 1024;

constexpr FrameHeader frameOf(FrameKind kind, uint32_t number, uint32_t word = 0)
{
    return {.magic = kFrameMagic,
            .version = kFrameVersion,
            .kind = kind,
            .length = 0,
            .number = number,
            .word = word,
            .serial = 0,
            .flow = 0,
            .origin = {}};
}

// Whether `received` bytes that begin with this header are one whole frame of ours.
constexpr bool isWhole(const FrameHeader &header, size_t received)
{
    return received >= sizeof header && header.magic == kFrameMagic && header.version == kFrameVersion &&
           header.kind >= FrameKind::reply && header.kind <= FrameKind::load &&
           header.length == received - sizeof header;
}

using Payload = std::span<const std::byte>;
using Room = std::span<std::byte>; // for a payload

inline Payload bytesOf(const void *data, uint32_t size)
{
    return {static_cast<const std::byte *>(data), size};
}

} // namespace qx
