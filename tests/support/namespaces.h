// Tests in namespaces of their own: a child process with a network, mounts and a /var that no one else sees.
#pragma once

#include "qx/process.h"

#include <cstdlib>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace zema::test {

inline bool runs(const std::string &command)
{
    return QX_OS_ExecShellCmd(command.c_str()) == 0;
}

inline bool put(const std::string &path, const std::string &text)
{
    return static_cast<bool>(std::ofstream(path) << text << std::flush);
}

// As root; anyone else becomes root of a user namespace.
inline bool enterNamespaces()
{
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    constexpr int kOwn = CLONE_NEWNET | CLONE_NEWNS;
    if (unshare(kOwn) != 0 &&
        (unshare(kOwn | CLONE_NEWUSER) != 0 || !put("/proc/self/setgroups", "deny") ||
         !put("/proc/self/uid_map", "0 " + user + " 1") || !put("/proc/self/gid_map", "0 " + group + " 1"))) {
        return false;
    }
    return mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/var", "tmpfs", 0, nullptr) == 0;
}

// Runs the body in a child of that kind when all commands are there; else skips the test and says why.
inline void inNamespaces(const std::string &commands, const std::function<void()> &body)
{
    constexpr int kNoNamespaces = 77;

    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    if (!runs("for each in " + commands + "; do command -v $each >/dev/null || exit 1; done")) {
        GTEST_SKIP() << "SKIPPED: not all of these commands are installed: " << commands;
    }
    std::cout.flush();
    const pid_t child = fork();
    if (child == 0) {
        if (!enterNamespaces()) {
            _exit(kNoNamespaces);
        }
        body();
        std::cout.flush();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFEXITED(status) && WEXITSTATUS(status) == kNoNamespaces) {
        GTEST_SKIP() << "SKIPPED: this machine lets us make no network and mount namespaces";
    }
    EXPECT_EQ(status, 0) << "in the child, see above";
}

} // namespace zema::test
