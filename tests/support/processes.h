// Tests with several processes: a runtime directory of the test's own, and children that serve in it.
#pragma once

#include "qx/host.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace zema::test {

// A fresh runtime directory, joined anew by this process and gone at the end.
class Scratch : public testing::Test {
protected:
    Scratch()
    {
        std::string pattern = testing::TempDir() + "zema-XXXXXX";
        dir_ = mkdtemp(pattern.data());
        setenv("ZEMA_RUNTIME_DIR", dir_.c_str(), 1);
        QxHost_Leave();
        QxHost_SetTimeout(0);
    }
    ~Scratch() override
    {
        QxHost_Leave();
        std::filesystem::remove_all(dir_);
    }
    std::string dir_;
};

// Memory that this process and the children forked later share.
template <typename T>
class Shared {
public:
    Shared()
        : value_(new (mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                     T())
    {
    }
    ~Shared() { munmap(value_, sizeof(T)); }
    Shared(const Shared &) = delete;
    Shared &operator=(const Shared &) = delete;
    T &operator*() const { return *value_; }
    T *operator->() const { return value_; }

private:
    T *value_;
};

// Waits until the condition holds; false after ten seconds.
inline bool eventually(const std::function<bool()> &holds)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A process that runs `setUp`, says that it is ready, and serves until it is told to stop.
class Child {
public:
    explicit Child(const std::function<void()> &setUp)
    {
        pid_ = fork();
        if (pid_ == 0) {
            signal(SIGTERM, [](int) { QxHost_Stop(); });
            setUp();
            ready_->store(true);
            const uint32_t result = QxHost_Run();
            _exit(QxHost_Leave() == QX_OK && result == QX_OK ? 0 : 1);
        }
        EXPECT_TRUE(eventually([&] { return ready_->load(); })) << "the child is not ready";
    }
    ~Child() { end(SIGKILL); }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;

    void tell(int signal) const { kill(pid_, signal); }
    // Its wait status; 0 when it was told to stop and left nothing undone.
    int end(int signal)
    {
        int status = -1;
        if (pid_ > 0) {
            kill(pid_, signal);
            kill(pid_, SIGCONT);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
        return status;
    }
    uint32_t pid() const { return static_cast<uint32_t>(pid_); }

private:
    Shared<std::atomic<bool>> ready_;
    pid_t pid_;
};

// Runs in a process of its own; true when it says so.
inline bool inChild(const std::function<bool()> &holds)
{
    const pid_t child = fork();
    if (child == 0) {
        _exit(holds() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

// Runs work(0), work(1) and so on at once, each in a thread of its own.
inline void inThreads(uint32_t count, const std::function<void(uint32_t)> &work)
{
    std::vector<std::thread> threads;
    for (uint32_t i = 0; i < count; ++i) {
        threads.emplace_back(work, i);
    }
    for (std::thread &thread : threads) {
        thread.join();
    }
}

inline size_t filesIn(const std::string &dir)
{
    namespace fs = std::filesystem;
    return static_cast<size_t>(std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

} // namespace zema::test
