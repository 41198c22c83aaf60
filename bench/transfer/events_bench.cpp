// A data event from the post to the callback in another process, beside half a bare ping-pong, on one core.
#include "bench/platform/peers.h"
#include "qx/host.h"
#include "zema/data_async.h"

#include <array>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>

namespace {

using bench::Processes;
using bench::tally;

constexpr uint32_t kEvent = 7;
constexpr size_t kOverhead =
    36 + 84 + 4; // of the bus's frame, the message and the event, so that bare messages have the same sizes

using Clock = std::chrono::steady_clock;

int gAnswers = -1; // the receiver's end

// Tells when it was called.
uint32_t answer(void *)
{
    const auto now = Clock::now().time_since_epoch().count();
    send(gAnswers, &now, sizeof now, 0);
    return 0;
}

void receive()
{
    DataAsync_RegisterOnDataAsyncEvent(kEvent, answer);
    QxHost_ServeModule(
        ZEMA_MODULE_ID, [](void *, void *message, uint32_t) { return DataAsync_OnAsynDataReceive(message); },
        nullptr);
    tally().ready++;
    QxHost_Run();
}

void postEvent(benchmark::State &state)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data());
    gAnswers = ends[1];
    Processes processes;
    processes.start(receive);
    const std::string data(static_cast<size_t>(state.range(0)), 'd');
    while (state.KeepRunning()) {
        const auto start = Clock::now().time_since_epoch();
        Clock::rep called = 0;
        if (DataAsync_AsyncSendData(kEvent, data.data(), static_cast<uint32_t>(data.size())) != ZEMA_OK ||
            recv(ends[0], &called, sizeof called, 0) != sizeof called) {
            state.SkipWithError("the event is not received");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::duration(called) - start).count());
    }
    close(ends[0]);
    close(ends[1]);
}

void halfPingPong(benchmark::State &state)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data());
    const std::string message(static_cast<size_t>(state.range(0)) + kOverhead, 'd');
    std::string answer = message;
    Processes processes;
    processes.start([&] {
        tally().ready++;
        while (recv(ends[1], answer.data(), answer.size(), 0) > 0) {
            send(ends[1], answer.data(), answer.size(), 0);
        }
    });
    while (state.KeepRunning()) {
        const auto start = Clock::now();
        send(ends[0], message.data(), message.size(), 0);
        benchmark::DoNotOptimize(recv(ends[0], answer.data(), answer.size(), 0));
        const std::chrono::duration<double> both = Clock::now() - start;
        state.SetIterationTime(both.count() / 2);
    }
    close(ends[0]);
    close(ends[1]);
}

BENCHMARK(postEvent)->Arg(0)->Arg(100)->Arg(1000)->UseManualTime();
BENCHMARK(halfPingPong)->Arg(0)->Arg(100)->Arg(1000)->UseManualTime();

} // namespace

int main(int argc, char **argv)
{
    bench::pinToOneCore();
    std::string directory = "/tmp/zema-bench-XXXXXX";
    setenv("ZEMA_RUNTIME_DIR", mkdtemp(directory.data()), 1);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    QxHost_Leave();
    std::filesystem::remove_all(directory);
    return 0;
}
