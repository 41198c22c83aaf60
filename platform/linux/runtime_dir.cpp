#include "platform/linux/runtime_dir.h"

#include "platform/linux/locks.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace qx {
namespace {

constinit std::atomic<int> gDirFd{-1};
constinit std::atomic<uint32_t *> gEdition{nullptr};
constinit std::array<char, 4096> gPath{};   // of the open directory
constinit std::atomic<uint64_t> gLooked{0}; // when it was last compared with what stands at its path

// How a role is written: a word, and its number in the base in which people write it (0: it has none).
struct RoleText {
    std::string_view word;
    int base;
};

constexpr std::array<RoleText, 7> kRoleTexts{{
    {.word = "rpc", .base = 16},
    {.word = "event", .base = 10},
    {.word = "terminal", .base = 10},
    {.word = "kernel", .base = 0},
    {.word = "sync-owner", .base = 0},
    {.word = "module", .base = 10},
    {.word = "monitor", .base = 0},
}};

template <typename Text, typename... Arguments>
Text format(const char *pattern, Arguments... arguments)
{
    Text text{};
    std::snprintf(text.data(), text.size(), pattern, arguments...);
    return text;
}

PathText claimPath(const RoleClaim &claim)
{
    return format<PathText>("roles/%s", claimName(claim).data());
}

bool locate(char *path, size_t size)
{
    const char *named = std::getenv("ZEMA_RUNTIME_DIR");
    const char *session = std::getenv("XDG_RUNTIME_DIR");
    int length = -1;
    if (named != nullptr && *named != '\0') {
        length = std::snprintf(path, size, "%s", named);
    } else if (geteuid() == 0) {
        length = std::snprintf(path, size, "/run/zema");
    } else if (session != nullptr && *session != '\0') {
        length = std::snprintf(path, size, "%s/zema", session);
    }
    return length > 0 && static_cast<size_t>(length) < size;
}

bool isOursAlone(int fd)
{
    struct stat status {};
    if (fstat(fd, &status) != 0) {
        return false;
    }
    return S_ISDIR(status.st_mode) && status.st_uid == geteuid() && (status.st_mode & 077U) == 0;
}

bool makeRooms(int fd)
{
    for (const char *room : {"bus", "roles", "records"}) {
        if (mkdirat(fd, room, 0700) != 0 && errno != EEXIST) {
            return false;
        }
    }
    return true;
}

int openDir()
{
    if (!locate(gPath.data(), gPath.size())) {
        return -1;
    }
    if (mkdir(gPath.data(), 0700) != 0 && errno != EEXIST) {
        return -1;
    }
    const int fd = open(gPath.data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd >= 0 && (!isOursAlone(fd) || !makeRooms(fd))) {
        close(fd);
        return -1;
    }
    return fd;
}

// The counter's file has its size and its space before it is mapped, so that no disk that fills up and no
// other process that comes first can leave a page without memory behind it.
uint32_t *mapEdition(int dirFd)
{
    const int fd = openat(dirFd, "edition", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) {
        return nullptr;
    }
    void *const page = posix_fallocate(fd, 0, sizeof(uint32_t)) == 0
                           ? mmap(nullptr, sizeof(uint32_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0)
                           : MAP_FAILED;
    close(fd);
    return page == MAP_FAILED ? nullptr : static_cast<uint32_t *>(page);
}

void bumpEdition()
{
    uint32_t *const edition = gEdition.load(std::memory_order_acquire);
    if (edition != nullptr) {
        std::atomic_ref(*edition).fetch_add(1, std::memory_order_release);
    }
}

template <typename Number>
bool takeNumber(std::string_view &text, Number &out, int base)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), out, base);
    text.remove_prefix(static_cast<size_t>(end - text.data()));
    return error == std::errc{};
}

bool takeChar(std::string_view &text, char wanted)
{
    if (text.empty() || text.front() != wanted) {
        return false;
    }
    text.remove_prefix(1);
    return true;
}

// string_view's own would need the C++ runtime in a build without optimisation.
bool beginsWith(std::string_view text, std::string_view start)
{
    return text.size() >= start.size() && std::equal(start.begin(), start.end(), text.begin());
}

// Accepts what claimName writes and nothing else: a name that reads back differently is not one of ours.
bool parseClaim(std::string_view text, RoleClaim &out)
{
    const std::string_view whole = text;
    const auto *const row = std::find_if(kRoleTexts.begin(), kRoleTexts.end(),
                                         [&](const RoleText &each) { return beginsWith(text, each.word); });
    if (row == kRoleTexts.end()) {
        return false;
    }
    text.remove_prefix(row->word.size());
    out.role = {.kind = static_cast<RoleKind>(row - kRoleTexts.begin()), .number = 0};
    const bool numbered =
        row->base == 0 || (takeChar(text, '-') && takeNumber(text, out.role.number, row->base));
    const bool parsed = numbered && takeChar(text, '.') && takeNumber(text, out.stamp, 16) &&
                        takeChar(text, '.') && takeNumber(text, out.holder.pid, 10) && takeChar(text, '-') &&
                        takeNumber(text, out.holder.nonce, 16);
    return parsed && text.empty() && whole == claimName(out).data();
}

bool sortsBefore(const RoleClaim &a, const RoleClaim &b)
{
    return std::tie(a.role.kind, a.role.number, a.stamp) < std::tie(b.role.kind, b.role.number, b.stamp);
}

// Visits the names in a room until one visit fails.
template <typename Visit>
bool visitNames(const char *room, Visit visit)
{
    const int fd = openat(runtimeDirFd(), room, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR *const listing = fd >= 0 ? fdopendir(fd) : nullptr;
    if (listing == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        return false;
    }
    bool good = true;
    while (const dirent *entry = good ? readdir(listing) : nullptr) {
        good = visit(std::string_view(entry->d_name));
    }
    closedir(listing);
    return good;
}

} // namespace

int runtimeDirFd()
{
    int fd = gDirFd.load(std::memory_order_acquire);
    if (fd >= 0) {
        return fd;
    }
    const Lock lock(LockId::directory);
    fd = gDirFd.load(std::memory_order_relaxed);
    if (fd >= 0) {
        return fd;
    }
    fd = openDir();
    uint32_t *const edition = fd >= 0 ? mapEdition(fd) : nullptr;
    if (fd >= 0 && edition == nullptr) {
        close(fd);
        return -1;
    }
    gEdition.store(edition, std::memory_order_release);
    gDirFd.store(fd, std::memory_order_release);
    return fd;
}

void forgetRuntimeDir()
{
    const int fd = gDirFd.exchange(-1);
    if (fd >= 0) {
        close(fd);
    }
    uint32_t *const edition = gEdition.exchange(nullptr);
    if (edition != nullptr) {
        munmap(edition, sizeof *edition);
    }
}

uint64_t monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
}

uint32_t randomNonce()
{
    uint32_t nonce = 0;
    if (getrandom(&nonce, sizeof nonce, GRND_NONBLOCK) != sizeof nonce) {
        nonce = static_cast<uint32_t>(monotonicNs());
    }
    return nonce;
}

NameText socketName(PeerId id)
{
    return format<NameText>("bus/%u-%08x", id.pid, id.nonce);
}

NameText draftSocketName(PeerId id)
{
    return format<NameText>("bus/.%u-%08x", id.pid, id.nonce);
}

RoleName roleName(Role role)
{
    const RoleText &row = kRoleTexts[static_cast<size_t>(role.kind)];
    const char *const pattern = row.base == 0 ? "%s" : row.base == 16 ? "%s-%X" : "%s-%u";
    return format<RoleName>(pattern, row.word.data(), role.number);
}

NameText claimName(const RoleClaim &claim)
{
    return format<NameText>("%s.%016llx.%u-%08x", roleName(claim.role).data(),
                            static_cast<unsigned long long>(claim.stamp), claim.holder.pid,
                            claim.holder.nonce);
}

bool socketAddress(const NameText &name, PathText &out)
{
    const int fd = runtimeDirFd();
    out = format<PathText>("/proc/self/fd/%d/%s", fd, name.data());
    return fd >= 0;
}

uint32_t readEdition()
{
    uint32_t *const edition = gEdition.load(std::memory_order_acquire);
    return edition == nullptr ? 0 : std::atomic_ref(*edition).load(std::memory_order_acquire);
}

bool writeClaim(const RoleClaim &claim)
{
    const int dirFd = runtimeDirFd();
    const PathText path = claimPath(claim);
    const int fd = openat(dirFd, path.data(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
        return false;
    }
    close(fd);
    bumpEdition();
    return true;
}

void removeClaim(const RoleClaim &claim)
{
    const int dirFd = runtimeDirFd();
    unlinkat(dirFd, claimPath(claim).data(), 0);
    bumpEdition();
}

bool listClaims(Vec<RoleClaim> &out)
{
    RoleClaim claim{};
    if (!visitNames("roles",
                    [&](std::string_view name) { return !parseClaim(name, claim) || out.push(claim); })) {
        return false;
    }
    std::sort(out.begin(), out.end(), sortsBefore);
    return true;
}

bool listSockets(Vec<PeerId> &out)
{
    return visitNames("bus", [&](std::string_view name) {
        PeerId id{};
        name.remove_prefix(name.starts_with('.') ? 1 : 0); // a socket that was to get its name
        const bool parsed =
            takeNumber(name, id.pid, 10) && takeChar(name, '-') && takeNumber(name, id.nonce, 16);
        return !parsed || out.push(id);
    });
}

bool runtimeDirStands()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    const auto seconds = static_cast<uint64_t>(now.tv_sec);
    if (gLooked.load(std::memory_order_relaxed) == seconds) {
        return true;
    }
    struct stat here {};
    struct stat there {};
    const bool stands = fstat(runtimeDirFd(), &here) == 0 && stat(gPath.data(), &there) == 0 &&
                        here.st_dev == there.st_dev && here.st_ino == there.st_ino;
    if (stands) {
        gLooked.store(seconds, std::memory_order_relaxed);
    }
    return stands;
}

void removeRemains(PeerId id)
{
    Vec<RoleClaim> claims;
    listClaims(claims);
    for (const RoleClaim &claim : claims) {
        if (claim.holder == id) {
            unlinkat(runtimeDirFd(), claimPath(claim).data(), 0);
        }
    }
    unlinkat(runtimeDirFd(), socketName(id).data(), 0);
    unlinkat(runtimeDirFd(), draftSocketName(id).data(), 0);
    bumpEdition();
}

RegistryLock::RegistryLock(uint32_t timeoutMs)
    : fd_(openat(runtimeDirFd(), "lock", O_RDWR | O_CREAT | O_CLOEXEC, 0600))
{
    const uint64_t deadline = monotonicNs() + uint64_t{timeoutMs} * 1'000'000U;
    while (fd_ >= 0 && flock(fd_, LOCK_EX | LOCK_NB) != 0) {
        if (monotonicNs() > deadline) {
            close(fd_);
            fd_ = -1;
            return;
        }
        usleep(2000);
    }
}

RegistryLock::~RegistryLock()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

} // namespace qx
