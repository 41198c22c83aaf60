// The bus beside bare sockets and D-Bus: a request and its reply, a read of a shared table, an
// event to eight processes, a whole command.
#include "peers.h"

#include "qx/host.h"
#include "qx/qx.h"
#include "table_service.h"
#include "zema/zema.h"

#include <array>
#include <benchmark/benchmark.h>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/socket.h>

namespace {

using bench::DBus;
using bench::kEventSize;
using bench::kReceivers;
using bench::Processes;
using bench::tally;
using bench::waitUntilHandled;

constexpr uint32_t kProcedure = 0x1000;
constexpr uint32_t kEvent = 700;
constexpr char kCommand[] = "fw show all";
constexpr size_t kHeaderSize = 36; // of a frame of the bus, so that bare messages have the same sizes

[[noreturn]] void serveBus()
{
    tally().ready++;
    QxHost_Run();
    _exit(1);
}

// ---- A request and its reply ----

uint32_t answer(uint32_t, char *, uintptr_t, uintptr_t, uintptr_t)
{
    return 0;
}

void RequestBus(benchmark::State &state)
{
    Processes processes;
    processes.start([] {
        const std::array<QxRpcRow, 2> rows{{{kProcedure, answer}, {QX_RPC_END_OF_TABLE, nullptr}}};
        QX_MSG_RegOverWriteRpcCalls(rows.data());
        serveBus();
    });
    while (state.KeepRunning()) {
        uint32_t result = 1;
        if (QxHost_CallRpc(kProcedure, 0, kCommand, &result) != QX_OK) {
            state.SkipWithError("no answer");
        }
    }
}
BENCHMARK(RequestBus);

void RequestBare(benchmark::State &state)
{
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data());
    Processes processes;
    std::array<char, 4096> bytes{};
    processes.start([&] {
        tally().ready++;
        while (recv(ends[1], bytes.data(), bytes.size(), 0) > 0) {
            send(ends[1], bytes.data(), kHeaderSize, 0);
        }
    });
    while (state.KeepRunning()) {
        send(ends[0], bytes.data(), kHeaderSize + sizeof kCommand, 0);
        benchmark::DoNotOptimize(recv(ends[0], bytes.data(), bytes.size(), 0));
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(RequestBare);

void RequestDBus(benchmark::State &state)
{
    const DBus daemon;
    Processes processes;
    processes.start([] { DBus::serveAgent({.prints = false, .raises = false}); });
    DBus::connect();
    while (state.KeepRunning()) {
        DBus::call();
    }
}
BENCHMARK(RequestDBus);

// ---- Reading an item of a table that another process owns ----

constexpr uint32_t kTable = 9;
constexpr uint32_t kReadWords = 3;
constexpr uint32_t kMaxItem = 65535;

std::array<char, kMaxItem> item;

void ReadBus(benchmark::State &state)
{
    const auto size = static_cast<uint32_t>(state.range(0));
    Processes processes;
    processes.start([size] {
        QxHost_ServeSync(tools::serveTables, nullptr);
        MultiHashtable_SaveData(kTable, 1, item.data(), size);
        serveBus();
    });
    while (state.KeepRunning()) {
        if (MultiHashtableEx_GetData(kTable, 1, item.data(), size) != ZEMA_OK) {
            state.SkipWithError("not read");
        }
    }
}
BENCHMARK(ReadBus)->Arg(64)->Arg(kMaxItem);

void ReadBare(benchmark::State &state)
{
    const auto size = static_cast<size_t>(state.range(0));
    std::array<int, 2> ends{};
    socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends.data());
    Processes processes;
    processes.start([&] {
        std::array<char, kHeaderSize + kReadWords * sizeof(uint32_t)> request{};
        static std::array<char, kHeaderSize + kMaxItem> reply;
        tally().ready++;
        while (recv(ends[1], request.data(), request.size(), 0) > 0) {
            send(ends[1], reply.data(), kHeaderSize + size, 0);
        }
    });
    static std::array<char, kHeaderSize + kMaxItem> bytes;
    while (state.KeepRunning()) {
        send(ends[0], bytes.data(), kHeaderSize + kReadWords * sizeof(uint32_t), 0);
        benchmark::DoNotOptimize(recv(ends[0], bytes.data(), bytes.size(), 0));
    }
    close(ends[0]);
    close(ends[1]);
}
BENCHMARK(ReadBare)->Arg(64)->Arg(kMaxItem);

// ---- An event to eight processes, until the last of them has handled it ----

uint32_t countEvent(void *)
{
    tally().handled++;
    return 0;
}

void EventBus(benchmark::State &state)
{
    Processes processes;
    for (uint32_t i = 0; i < kReceivers; ++i) {
        processes.start([] {
            EventCenter_SubscribeEvent(kEvent, countEvent);
            serveBus();
        });
    }
    std::array<char, kEventSize> data{};
    uint64_t wanted = tally().handled;
    while (state.KeepRunning()) {
        EventCenter_GlobalInvokeEvent2(kEvent, data.data(), data.size());
        waitUntilHandled(wanted += kReceivers);
    }
}
BENCHMARK(EventBus);

void EventBareSends(benchmark::State &state)
{
    Processes processes;
    std::array<std::array<int, 2>, kReceivers> pairs{};
    std::array<char, 4096> bytes{};
    for (auto &pair : pairs) {
        socketpair(AF_UNIX, SOCK_SEQPACKET, 0, pair.data());
        processes.start([&] {
            tally().ready++;
            while (recv(pair[1], bytes.data(), bytes.size(), 0) > 0) {
                tally().handled++;
            }
        });
    }
    uint64_t wanted = tally().handled;
    while (state.KeepRunning()) {
        for (const auto &pair : pairs) {
            send(pair[0], bytes.data(), kHeaderSize + kEventSize, 0);
        }
        waitUntilHandled(wanted += kReceivers);
    }
    for (const auto &pair : pairs) {
        close(pair[0]);
        close(pair[1]);
    }
}
BENCHMARK(EventBareSends);

void EventDBusSignal(benchmark::State &state)
{
    const DBus daemon;
    Processes processes;
    for (uint32_t i = 0; i < kReceivers; ++i) {
        processes.start([] { DBus::receiveSignals(DBus::Signal::event); });
    }
    DBus::connect();
    uint64_t wanted = tally().handled;
    while (state.KeepRunning()) {
        DBus::raise();
        waitUntilHandled(wanted += kReceivers);
    }
}
BENCHMARK(EventDBusSignal);

// ---- A whole command: remote call, check, compilation, event, handler in another process ----

uint32_t handleCommand(uint32_t, const char *const *)
{
    tally().handled++;
    return 0;
}

void serveTerminal()
{
    QxHost_ServeTerminal(
        3, [](void *, const QxPrint *) { return 0U; }, nullptr);
}

void serveKernel()
{
    QxHost_ServeKernel([](void *, const void *, uint32_t) { return 0U; }, nullptr);
}

// Where no other process has taken them, the terminal and the kernel's side are in the agent's own process.
void startAgentAndModule(Processes &processes, bool placesTaken)
{
    processes.start([placesTaken] { // the earliest registration answers: this is the agent
        if (!placesTaken) {
            serveTerminal();
            serveKernel();
        }
        CMDAgent_Init();
        CMDAgent_UnInit();
        serveBus();
    });
    processes.start([] {
        CMDAgent_Init();
        qx_ker_zema_cmd_reg("fw", handleCommand);
        serveBus();
    });
}

void callUntilHandled(benchmark::State &state)
{
    uint64_t wanted = tally().handled;
    while (state.KeepRunning()) {
        uint32_t result = 1;
        QxHost_CallRpc(ZEMA_RPC_ID_CMD, 3U << 16, kCommand, &result);
        waitUntilHandled(++wanted);
    }
}

void CommandBus(benchmark::State &state)
{
    Processes processes;
    startAgentAndModule(processes, false);
    callUntilHandled(state);
}
BENCHMARK(CommandBus);

// With somebody on the terminal, who is asked to write the empty line first, and somebody in the kernel's
// place.
void CommandBusWithTerminalAndKernel(benchmark::State &state)
{
    Processes processes;
    processes.start([] {
        serveTerminal();
        serveBus();
    });
    processes.start([] {
        serveKernel();
        serveBus();
    });
    startAgentAndModule(processes, true);
    callUntilHandled(state);
}
BENCHMARK(CommandBusWithTerminalAndKernel);

void callOverDBus(benchmark::State &state)
{
    DBus::connect();
    uint64_t wanted = tally().handled;
    while (state.KeepRunning()) {
        DBus::call();
        waitUntilHandled(++wanted);
    }
}

void CommandDBus(benchmark::State &state)
{
    const DBus daemon;
    Processes processes;
    processes.start([] { DBus::receiveSignals(DBus::Signal::event); });
    processes.start([] { DBus::serveAgent({.prints = false, .raises = true}); });
    callOverDBus(state);
}
BENCHMARK(CommandDBus);

void CommandDBusWithTerminalAndKernel(benchmark::State &state)
{
    const DBus daemon;
    Processes processes;
    processes.start([] { DBus::serveTerminal(); });
    processes.start([] { DBus::receiveSignals(DBus::Signal::kernel); });
    processes.start([] { DBus::receiveSignals(DBus::Signal::event); });
    processes.start([] { DBus::serveAgent({.prints = true, .raises = true}); });
    callOverDBus(state);
}
BENCHMARK(CommandDBusWithTerminalAndKernel);

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
