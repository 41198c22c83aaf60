// The file in which a process keeps its last-word records: a header and a ring of slots, each written at once
// by one pwrite, so that a reader finds it whole or sees that it is not. The owner holds a lock on the file
// while it lives; the kernel drops it at the end of the process however that came.
#pragma once

#include "platform/linux/vec.h"
#include "qx/host.h"

#include <cstddef>

namespace qx {

constexpr uint32_t kRingMagic = 0x6365525A; // "ZRec"
constexpr uint32_t kRingVersion = 1;
constexpr uint32_t kRingSlots = 256;

struct RingHeader {
    uint32_t magic;
    uint32_t version;
    uint32_t slots;
    uint32_t slotSize;
    uint32_t pid;
    char process[16];
    uint32_t reserved[7];
};
static_assert(sizeof(RingHeader) == 64);

struct RingSlot {
    uint64_t number; // from 1; 0 in a slot that was never written
    uint64_t timeNs;
    uint32_t thread;
    uint32_t line;
    uint32_t value[5];
    char file[64];
    uint32_t reserved;
    uint64_t numberAgain; // differs from number in a slot that is half written
};
static_assert(sizeof(RingSlot) == 120 && offsetof(RingSlot, file) == 44 &&
              offsetof(RingSlot, numberAgain) == 112);

// Stores a record under the next number. False when there is no file to store it in.
bool storeRecord(RingSlot slot);

// Appends all records of all processes, in no order. QX_OK, QX_ERR_RUNTIME_DIR, QX_ERR_NO_MEMORY.
uint32_t readRecords(Vec<QxRecord> &out);

} // namespace qx
