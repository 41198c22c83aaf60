#include "qx/feature.h"

#include "platform/linux/runtime_dir.h"

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Looks for one name in a list that comes in pieces, however long its other names are.
class ListedName {
public:
    ListedName(std::string_view name, char separator) : name_(name), separator_(separator) {}

    // The next piece of the list; whether a separator has ended the name in it.
    bool endsIn(std::string_view piece)
    {
        for (const char c : piece) {
            if (c != separator_) {
                same_ = same_ && matched_ < name_.size() && name_[matched_] == c;
                matched_ += same_ ? 1 : 0;
            } else if (isWhole()) {
                return true;
            } else {
                same_ = true;
                matched_ = 0;
            }
        }
        return false;
    }

    // Whether the name stands at the end of what has come.
    bool isWhole() const { return same_ && matched_ == name_.size(); }

private:
    std::string_view name_;
    bool same_ = true;   // the entry and the name, as far as the entry has come
    size_t matched_ = 0; // characters of the name
    char separator_;
};

bool isInEnvironment(std::string_view name)
{
    const char *const list = std::getenv("ZEMA_FEATURES");
    ListedName wanted(name, ',');
    return list != nullptr && (wanted.endsIn(list) || wanted.isWhole());
}

// Neither waits for a pipe's other end nor lets a terminal become the process's own.
int openList()
{
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    const char *const named = std::getenv("ZEMA_FEATURES_FILE");
    if (named != nullptr && *named != '\0') {
        return open(named, kFlags);
    }
    const int dirFd = qx::runtimeDirFd();
    return dirFd >= 0 ? openat(dirFd, "features", kFlags) : -1;
}

bool isList(int fd)
{
    struct stat status {};
    return fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_size <= QX_FEATURES_FILE_MAX;
}

// Bounded also when someone lets the file grow meanwhile.
bool isInList(int fd, std::string_view name)
{
    ListedName wanted(name, '\n');
    std::array<char, 2048> piece;
    for (size_t total = 0; total <= QX_FEATURES_FILE_MAX;) {
        const ssize_t size = read(fd, piece.data(), piece.size());
        if (size <= 0) {
            return size == 0 && wanted.isWhole();
        }
        if (wanted.endsIn({piece.data(), static_cast<size_t>(size)})) {
            return true;
        }
        total += static_cast<size_t>(size);
    }
    return false;
}

bool isInFile(std::string_view name)
{
    const int fd = openList();
    const bool found = fd >= 0 && isList(fd) && isInList(fd, name);
    if (fd >= 0) {
        close(fd);
    }
    return found;
}

} // namespace

uint32_t QX_Feature_IsSupportByFeatureName(const char *name)
{
    if (name == nullptr || *name == '\0') {
        return 0;
    }
    return isInEnvironment(name) || isInFile(name) ? 1 : 0;
}
