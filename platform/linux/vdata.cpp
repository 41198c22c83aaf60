// Shared-memory blocks: one POSIX object each. They are written and read through the descriptor, because
// mapping fresh pages costs more than the copy. Behind its bytes an object tells who made it and when.
#include "qx/vdata.h"

#include "platform/linux/runtime_dir.h"
#include "qx/host.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace qx {
namespace {

constexpr uint32_t kTailMagic = 0x6C42535A; // "ZSBl"
constexpr uint64_t kNsPerSecond = 1'000'000'000U;
constexpr uint64_t kLongestMakingNs = 10 * kNsPerSecond;
constexpr char kFolder[] = "/dev/shm"; // the memory file system, where everybody may write

struct Tail {
    uint32_t magic;
    uint32_t pid;
    uint64_t madeNs; // since the machine started
    char process[16];
};
static_assert(sizeof(Tail) == 32);

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    int fd() const { return fd_; }

private:
    int fd_;
};

uint64_t sinceStartNs()
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * kNsPerSecond + static_cast<uint64_t>(now.tv_nsec);
}

PathText nameOf(uint32_t id)
{
    PathText name{};
    std::snprintf(name.data(), name.size(), "%s/zema-%u-%08x", kFolder, geteuid(), id);
    return name;
}

uint32_t resultOf(int error)
{
    switch (error) {
    case ENOENT:
        return QX_ERR_NOT_FOUND;
    case ENOMEM:
    case ENOSPC:
    case EMFILE:
    case ENFILE:
        return QX_ERR_NO_MEMORY;
    default:
        return QX_ERR;
    }
}

// Somebody may have put a pipe or a link in an object's place: opening neither waits for it nor follows it.
int openObject(uint32_t id, int access)
{
    return open(nameOf(id).data(), access | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
}

bool isOurs(const struct stat &status)
{
    return S_ISREG(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 077U) == 0;
}

// The descriptor of the block, when it is ours and has this size.
uint32_t openBlock(uint32_t id, uint32_t size, int access, int &fd)
{
    if (id == 0) {
        return QX_ERR;
    }
    fd = openObject(id, access);
    if (fd < 0) {
        return resultOf(errno);
    }
    struct stat status {};
    const bool fits = fstat(fd, &status) == 0 && isOurs(status) &&
                      static_cast<uint64_t>(status.st_size) == uint64_t{size} + sizeof(Tail);
    return fits ? QX_OK : QX_ERR;
}

// Moves all bytes with pread or pwrite, which may stop short.
template <typename Byte, typename Move>
uint32_t moveAll(Move move, int fd, Byte *bytes, uint32_t size)
{
    uint32_t done = 0;
    while (done < size) {
        const ssize_t moved = move(fd, bytes + done, size - done, static_cast<off_t>(done));
        if (moved < 0 && errno != EINTR) {
            return resultOf(errno);
        }
        if (moved == 0) { // it has become shorter
            return QX_ERR;
        }
        done += moved > 0 ? static_cast<uint32_t>(moved) : 0;
    }
    return QX_OK;
}

// Its end gives the object its length.
bool writeTail(int fd, uint32_t size)
{
    Tail tail{
        .magic = kTailMagic, .pid = static_cast<uint32_t>(getpid()), .madeNs = sinceStartNs(), .process = {}};
    std::snprintf(tail.process, sizeof tail.process, "%s", program_invocation_short_name);
    const ssize_t written = pwrite(fd, &tail, sizeof tail, static_cast<off_t>(size));
    errno = written >= 0 ? ENOSPC : errno;
    return written == sizeof tail;
}

// A new object under a name that nobody has; negative when there is none to be had.
int makeObject(uint32_t &id)
{
    int fd = -1;
    do {
        id = randomNonce();
        errno = EEXIST; // as good as one that somebody has
        fd = id != 0 ? open(nameOf(id).data(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600) : -1;
    } while (fd < 0 && (errno == EEXIST || errno == EINTR));
    return fd;
}

// ---- What is left of whom ----

struct ProcessState {
    char state;
    uint64_t startNs; // since the machine started, a tick exact and never late
};

bool readState(uint32_t pid, ProcessState &out)
{
    PathText path{};
    std::snprintf(path.data(), path.size(), "/proc/%u/stat", pid);
    const Descriptor file(open(path.data(), O_RDONLY | O_CLOEXEC));
    std::array<char, 1024> text{};
    if (file.fd() < 0 || read(file.fd(), text.data(), text.size() - 1) <= 0) {
        return false;
    }
    // The program's name, in parentheses, may contain anything.
    const char *const behindName = strrchr(text.data(), ')');
    unsigned long long ticks = 0;
    if (behindName == nullptr ||
        std::sscanf(behindName,
                    ") %c %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu",
                    &out.state, &ticks) != 2) {
        return false;
    }
    out.startNs = ticks * (kNsPerSecond / static_cast<uint64_t>(sysconf(_SC_CLK_TCK)));
    return true;
}

// A process with its identifier that started later is another one.
bool lives(const Tail &maker)
{
    ProcessState state{};
    return readState(maker.pid, state) && state.state != 'Z' && state.startNs <= maker.madeNs;
}

uint64_t ageOf(const timespec &changed)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t seconds = static_cast<int64_t>(now.tv_sec) - changed.tv_sec;
    return static_cast<uint64_t>(std::max<int64_t>(seconds, 0)) * kNsPerSecond;
}

// What a block says of itself. One without an end, whose maker died over it, is shown when nobody can be
// about to finish it. False for what is none of ours.
bool describe(uint32_t id, QxBlock &out)
{
    const Descriptor object(openObject(id, O_RDONLY));
    struct stat status {};
    if (object.fd() < 0 || fstat(object.fd(), &status) != 0 || !isOurs(status)) {
        return false;
    }
    out.ulId = id;
    Tail tail{};
    const auto size = static_cast<uint64_t>(status.st_size) - sizeof tail; // huge when it is shorter
    if (size > UINT32_MAX ||
        pread(object.fd(), &tail, sizeof tail, static_cast<off_t>(size)) != sizeof tail ||
        tail.magic != kTailMagic) {
        out.ullAgeNs = ageOf(status.st_ctim);
        return out.ullAgeNs > kLongestMakingNs;
    }
    const uint64_t now = sinceStartNs();
    out.ullAgeNs = now - std::min(tail.madeNs, now);
    out.ulSize = static_cast<uint32_t>(size);
    out.ulPid = tail.pid;
    out.ulAlive = lives(tail) ? 1 : 0;
    std::copy_n(tail.process, sizeof tail.process - 1, out.acProcess);
    return true;
}

// The identifier in a name in the folder; 0 when it is not of a block of ours.
uint32_t idIn(std::string_view name)
{
    uint32_t id = 0;
    const size_t dash = name.rfind('-');
    if (dash == std::string_view::npos) {
        return 0;
    }
    std::from_chars(name.data() + dash + 1, name.data() + name.size(), id, 16);
    return name == nameOf(id).data() + sizeof kFolder ? id : 0;
}

} // namespace
} // namespace qx

uint32_t QX_VDATA_CreShm(uint32_t size, uint32_t *id)
{
    if (id == nullptr) {
        return QX_ERR;
    }
    *id = 0;
    uint32_t made = 0;
    const qx::Descriptor object(qx::makeObject(made));
    if (object.fd() < 0) {
        return qx::resultOf(errno);
    }
    if (!qx::writeTail(object.fd(), size)) {
        const uint32_t result = qx::resultOf(errno);
        unlink(qx::nameOf(made).data());
        return result;
    }
    *id = made;
    return QX_OK;
}

uint32_t QX_VDATA_UpdateData(uint32_t id, uint32_t size, const void *data)
{
    if (data == nullptr && size > 0) {
        return QX_ERR;
    }
    int fd = -1;
    const uint32_t opened = qx::openBlock(id, size, O_RDWR, fd);
    const qx::Descriptor block(fd);
    return opened != QX_OK ? opened : qx::moveAll(pwrite, fd, static_cast<const std::byte *>(data), size);
}

uint32_t QX_VDATA_ReadData(uint32_t id, uint32_t size, void *data)
{
    if (data == nullptr && size > 0) {
        return QX_ERR;
    }
    int fd = -1;
    const uint32_t opened = qx::openBlock(id, size, O_RDONLY, fd);
    const qx::Descriptor block(fd);
    return opened != QX_OK ? opened : qx::moveAll(pread, fd, static_cast<std::byte *>(data), size);
}

uint32_t QX_VDATA_FreeShm(uint32_t id)
{
    if (id == 0) {
        return QX_ERR;
    }
    return unlink(qx::nameOf(id).data()) == 0 ? QX_OK : qx::resultOf(errno);
}

uint32_t QxHost_ListBlocks(QxBlockVisitor visitor, void *context)
{
    if (visitor == nullptr) {
        return QX_ERR;
    }
    DIR *const folder = opendir(qx::kFolder);
    if (folder == nullptr) {
        return qx::resultOf(errno);
    }
    uint32_t result = QX_OK;
    while (const dirent *entry = result == QX_OK ? readdir(folder) : nullptr) {
        const uint32_t id = qx::idIn(entry->d_name);
        QxBlock block{};
        if (id != 0 && qx::describe(id, block)) {
            result = visitor(context, &block);
        }
    }
    closedir(folder);
    return result;
}
