#include "platform/linux/record_ring.h"

#include "platform/linux/bus.h"
#include "platform/linux/locks.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace qx {
namespace {

// Of dead processes, so many files are kept: enough for a fault that restarts a process again and again.
constexpr uint32_t kMaxDeadRings = 32;

constinit std::atomic<int> gRingFd{-1};
constinit std::atomic<uint64_t> gNumber{0};

struct DeadRing {
    std::array<char, 64> name;
    timespec changed;
};

int openRecords()
{
    return openat(runtimeDirFd(), "records", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
}

template <typename Visit>
bool visitFiles(Visit visit)
{
    const int fd = openRecords();
    DIR *const listing = fd >= 0 ? fdopendir(fd) : nullptr;
    if (listing == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    while (const dirent *entry = readdir(listing)) {
        if (entry->d_name[0] != '.') {
            visit(dirfd(listing), static_cast<const char *>(entry->d_name));
        }
    }
    closedir(listing);
    return true;
}

bool isAlive(int fd)
{
    if (flock(fd, LOCK_SH | LOCK_NB) != 0) {
        return errno == EWOULDBLOCK;
    }
    flock(fd, LOCK_UN);
    return false;
}

void listDead(Vec<DeadRing> &dead)
{
    visitFiles([&](int dirFd, const char *name) {
        const int fd = openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        DeadRing ring{};
        struct stat status {};
        if (fd >= 0 && strlen(name) < ring.name.size() && fstat(fd, &status) == 0 && !isAlive(fd)) {
            std::copy_n(name, strlen(name), ring.name.begin());
            ring.changed = status.st_mtim;
            dead.push(ring);
        }
        if (fd >= 0) {
            close(fd);
        }
    });
}

// The program's name with nothing in it that means something in a path.
void plainName(char *out, size_t size)
{
    std::snprintf(out, size, "%s", program_invocation_short_name);
    for (char *p = out; *p != '\0'; ++p) {
        const bool plain = (*p >= 'a' && *p <= 'z') || (*p >= 'A' && *p <= 'Z') || (*p >= '0' && *p <= '9') ||
                           *p == '-' || *p == '_';
        *p = plain ? *p : '_';
    }
}

// The file is complete and locked before it has its name, so that no reader takes it for a dead process's.
int createRing()
{
    const int dirFd = openRecords();
    if (dirFd < 0) {
        return -1;
    }
    RingHeader header{.magic = kRingMagic,
                      .version = kRingVersion,
                      .slots = kRingSlots,
                      .slotSize = sizeof(RingSlot),
                      .pid = static_cast<uint32_t>(getpid()),
                      .process = {},
                      .reserved = {}};
    plainName(header.process, sizeof header.process);
    const uint32_t nonce = randomNonce();
    std::array<char, 64> draft{};
    std::array<char, 64> name{};
    std::snprintf(draft.data(), draft.size(), ".%u.%08x", header.pid, nonce);
    std::snprintf(name.data(), name.size(), "%s.%u.%08x", header.process, header.pid, nonce);
    int fd = openat(dirFd, draft.data(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    const bool good = fd >= 0 && flock(fd, LOCK_EX | LOCK_NB) == 0 &&
                      pwrite(fd, &header, sizeof header, 0) == sizeof header &&
                      renameat(dirFd, draft.data(), dirFd, name.data()) == 0;
    if (fd >= 0 && !good) {
        unlinkat(dirFd, draft.data(), 0);
        close(fd);
        fd = -1;
    }
    close(dirFd);
    return fd;
}

int ringFd()
{
    int fd = gRingFd.load(std::memory_order_acquire);
    if (fd >= 0 || runtimeDirFd() < 0) {
        return fd;
    }
    const Lock lock(LockId::ring);
    fd = gRingFd.load(std::memory_order_relaxed);
    if (fd < 0) {
        fd = createRing();
        gRingFd.store(fd, std::memory_order_release);
    }
    return fd;
}

bool isRing(const RingHeader &header)
{
    return header.magic == kRingMagic && header.version == kRingVersion && header.slots == kRingSlots &&
           header.slotSize == sizeof(RingSlot);
}

QxRecord recordOf(const RingHeader &header, const RingSlot &slot, bool alive)
{
    QxRecord record{.ullNumber = slot.number,
                    .ullTimeNs = slot.timeNs,
                    .ulPid = header.pid,
                    .ulThread = slot.thread,
                    .ulAlive = alive ? 1U : 0U,
                    .ulLine = slot.line,
                    .aulValue = {},
                    .acProcess = {},
                    .acFile = {}};
    std::copy(std::begin(slot.value), std::end(slot.value), std::begin(record.aulValue));
    std::copy_n(header.process, sizeof header.process - 1, record.acProcess);
    std::copy_n(slot.file, sizeof slot.file - 1, record.acFile);
    return record;
}

// What is no ring of ours, or not whole, is passed over. False when there is no memory.
bool readRing(int fd, Vec<QxRecord> &out)
{
    RingHeader header{};
    if (pread(fd, &header, sizeof header, 0) != sizeof header || !isRing(header)) {
        return true;
    }
    const bool alive = isAlive(fd);
    for (uint32_t i = 0; i < kRingSlots; ++i) {
        RingSlot slot{};
        const off_t place = static_cast<off_t>(sizeof header + i * sizeof slot);
        if (pread(fd, &slot, sizeof slot, place) != sizeof slot) {
            break;
        }
        const bool whole =
            slot.number != 0 && slot.number == slot.numberAgain && slot.number % kRingSlots == i;
        if (whole && !out.push(recordOf(header, slot, alive))) {
            return false;
        }
    }
    return true;
}

} // namespace

void removeOldRings()
{
    Vec<DeadRing> dead;
    listDead(dead);
    if (dead.count() <= kMaxDeadRings) {
        return;
    }
    std::sort(dead.begin(), dead.end(), [](const DeadRing &a, const DeadRing &b) {
        return a.changed.tv_sec != b.changed.tv_sec ? a.changed.tv_sec < b.changed.tv_sec
                                                    : a.changed.tv_nsec < b.changed.tv_nsec;
    });
    const int fd = openRecords();
    for (uint32_t i = 0; fd >= 0 && i < dead.count() - kMaxDeadRings; ++i) {
        unlinkat(fd, dead[i].name.data(), 0);
    }
    if (fd >= 0) {
        close(fd);
    }
}

bool storeRecord(RingSlot slot)
{
    const int fd = ringFd();
    if (fd < 0) {
        return false;
    }
    slot.number = gNumber.fetch_add(1, std::memory_order_relaxed) + 1;
    slot.numberAgain = slot.number;
    const auto place = static_cast<off_t>(sizeof(RingHeader) + slot.number % kRingSlots * sizeof slot);
    return pwrite(fd, &slot, sizeof slot, place) == sizeof slot;
}

uint32_t readRecords(Vec<QxRecord> &out)
{
    if (runtimeDirFd() < 0) {
        return QX_ERR_RUNTIME_DIR;
    }
    bool good = true;
    const bool listed = visitFiles([&](int dirFd, const char *name) {
        const int fd = openat(dirFd, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (fd >= 0) {
            good = readRing(fd, out) && good;
            close(fd);
        }
    });
    if (!listed) {
        return QX_ERR_RUNTIME_DIR;
    }
    return good ? QX_OK : QX_ERR_NO_MEMORY;
}

void forgetRing()
{
    const int fd = gRingFd.exchange(-1);
    if (fd >= 0) {
        close(fd);
    }
    gNumber.store(0);
}

} // namespace qx
