// What the bus is measured against, and how the processes of a measurement are run: all on one core, because
// waking another core costs more on the machines that this runs on than anything that is measured.
#pragma once

#include <atomic>
#include <csignal>
#include <cstdint>
#include <functional>
#include <new>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace bench {

constexpr uint32_t kReceivers = 8;
constexpr uint32_t kEventSize = 260;

inline void pinToOneCore()
{
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(0, &one);
    sched_setaffinity(0, sizeof one, &one);
}

// What the processes of a measurement share.
struct Tally {
    std::atomic<uint32_t> ready{0};
    std::atomic<uint64_t> handled{0};
};

inline Tally &tally()
{
    static Tally *const shared =
        new (mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) Tally();
    return *shared;
}

// Gives the core to the receivers until they have handled as much as wanted.
inline void waitUntilHandled(uint64_t wanted)
{
    while (tally().handled.load(std::memory_order_acquire) < wanted) {
        sched_yield();
    }
}

class Processes {
public:
    Processes() { tally().ready = 0; }
    ~Processes()
    {
        for (const pid_t pid : pids_) {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
        }
    }
    Processes(const Processes &) = delete;
    Processes &operator=(const Processes &) = delete;

    // Runs `serve`, which sets tally().ready when it is, and does not return.
    void start(const std::function<void()> &serve)
    {
        const pid_t pid = fork();
        if (pid == 0) {
            pinToOneCore();
            serve();
            _exit(1);
        }
        pids_.push_back(pid);
        while (tally().ready < pids_.size()) {
            usleep(1000);
        }
    }

private:
    std::vector<pid_t> pids_;
};

// A D-Bus of our own: its daemon, on the same core.
class DBus {
public:
    DBus();
    ~DBus();
    DBus(const DBus &) = delete;
    DBus &operator=(const DBus &) = delete;

    enum class Signal { event, kernel };
    struct AgentWork {
        bool prints; // calls the terminal's method and raises the kernel's signal
        bool raises; // raises the event's signal
    };

    // Bodies of child processes: a service that does what an agent does, a terminal, a receiver of a signal.
    static void serveAgent(AgentWork work);
    static void serveTerminal();
    static void receiveSignals(Signal signal);

    // The measuring process's side.
    static void connect();
    static void call();
    static void raise();

private:
    pid_t pid_ = -1;
};

} // namespace bench
