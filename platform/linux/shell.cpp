#include "platform/linux/vec.h"
#include "qx/process.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <spawn.h>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// The attributes of a program that starts as if nobody had changed the dispositions and the mask of signals.
class FreshSignals {
public:
    FreshSignals()
    {
        sigset_t all;
        sigset_t none;
        sigfillset(&all);
        sigemptyset(&none);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    ~FreshSignals() { posix_spawnattr_destroy(&attributes_); }
    FreshSignals(const FreshSignals &) = delete;
    FreshSignals &operator=(const FreshSignals &) = delete;

    const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

// This process's environment with the locale of bytes: in some others the backslash that escapes a character
// may be read as the second half of the one before. False when there is no memory.
bool makeEnvironment(qx::Vec<char *> &out)
{
    constexpr std::string_view kLocale = "LC_ALL=";
    static char bytes[] = "LC_ALL=C";

    for (char **variable = environ; variable != nullptr && *variable != nullptr; ++variable) {
        if (std::strncmp(*variable, kLocale.data(), kLocale.size()) != 0 && !out.push(*variable)) {
            return false;
        }
    }
    return out.push(bytes) && out.push(nullptr);
}

// The shell's process; -1 when it could not be started.
pid_t startShell(const char *line)
{
    qx::Vec<char *> environment;
    if (!makeEnvironment(environment)) {
        return -1;
    }
    char name[] = "sh";
    char option[] = "-c";
    char endOfOptions[] = "--";
    char *const arguments[] = {name, option, endOfOptions, const_cast<char *>(line), nullptr};
    const FreshSignals signals;
    pid_t pid = -1;
    return posix_spawn(&pid, "/bin/sh", nullptr, signals.get(), arguments, environment.begin()) == 0 ? pid
                                                                                                     : -1;
}

} // namespace

uint32_t QX_OS_ExecShellCmd(const char *line)
{
    constexpr uint32_t kKilled = 128;

    const pid_t pid = line != nullptr ? startShell(line) : -1;
    if (pid < 0) {
        return QX_ERR;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) {
            return QX_ERR;
        }
    }
    return static_cast<uint32_t>(WIFEXITED(status) ? WEXITSTATUS(status) : kKilled + WTERMSIG(status));
}
