#include "peers.h"

#include <array>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <systemd/sd-bus.h>

namespace bench {
namespace {

constexpr const char *kAgent = "zema.Agent";
constexpr const char *kTerminal = "zema.Terminal";
constexpr const char *kPath = "/zema/bench";

sd_bus *gBus = nullptr;
DBus::AgentWork gWork{};

const char *memberOf(DBus::Signal signal)
{
    return signal == DBus::Signal::event ? "Event" : "Kernel";
}

void raiseOn(sd_bus *bus, DBus::Signal signal)
{
    const std::array<char, kEventSize> data{};
    sd_bus_message *message = nullptr;
    sd_bus_message_new_signal(bus, &message, kPath, kAgent, memberOf(signal));
    sd_bus_message_append_array(message, 'y', data.data(), data.size());
    sd_bus_send(bus, message, nullptr);
    sd_bus_message_unref(message);
    sd_bus_flush(bus);
}

void callOn(sd_bus *bus, const char *service, const char *text)
{
    sd_bus_message *reply = nullptr;
    sd_bus_call_method(bus, service, kPath, service, "Call", nullptr, &reply, "s", text);
    sd_bus_message_unref(reply);
}

int onAgentCall(sd_bus_message *message, void *, sd_bus_error *)
{
    sd_bus *const bus = sd_bus_message_get_bus(message);
    if (gWork.prints) {
        callOn(bus, kTerminal, "\r\n");
        raiseOn(bus, DBus::Signal::kernel);
    }
    if (gWork.raises) {
        raiseOn(bus, DBus::Signal::event);
    }
    return sd_bus_reply_method_return(message, "u", 0);
}

int onTerminalCall(sd_bus_message *message, void *, sd_bus_error *)
{
    return sd_bus_reply_method_return(message, "u", 0);
}

int onSignal(sd_bus_message *message, void *counts, sd_bus_error *)
{
    const void *data = nullptr;
    size_t size = 0;
    sd_bus_message_read_array(message, 'y', &data, &size);
    tally().handled += counts != nullptr ? 1 : 0;
    return 0;
}

[[noreturn]] void loop(sd_bus *bus)
{
    tally().ready++;
    for (;;) {
        if (sd_bus_process(bus, nullptr) == 0) {
            sd_bus_wait(bus, UINT64_MAX);
        }
    }
}

sd_bus *openBus()
{
    sd_bus *bus = nullptr;
    return sd_bus_open_user(&bus) < 0 ? nullptr : bus;
}

[[noreturn]] void serve(const char *name, sd_bus_message_handler_t onCall)
{
    const std::array<sd_bus_vtable, 3> table{
        {SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Call", "s", "u", onCall, SD_BUS_VTABLE_UNPRIVILEGED),
         SD_BUS_VTABLE_END}};
    sd_bus *const bus = openBus();
    sd_bus_add_object_vtable(bus, nullptr, kPath, name, table.data(), nullptr);
    sd_bus_request_name(bus, name, 0);
    loop(bus);
}

} // namespace

DBus::DBus()
{
    std::array<int, 2> out{};
    if (pipe(out.data()) != 0) {
        return;
    }
    pid_ = fork();
    if (pid_ == 0) {
        pinToOneCore();
        dup2(out[1], 3);
        dup2(open("/dev/null", O_WRONLY), STDERR_FILENO); // it warns of limits that do not matter here
        execlp("dbus-daemon", "dbus-daemon", "--session", "--nofork", "--print-address=3", nullptr);
        _exit(1);
    }
    close(out[1]);
    std::array<char, 512> address{};
    const ssize_t got = read(out[0], address.data(), address.size() - 1);
    close(out[0]);
    if (got <= 0) {
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
        return;
    }
    address[strcspn(address.data(), "\n")] = '\0';
    setenv("DBUS_SESSION_BUS_ADDRESS", address.data(), 1);
}

DBus::~DBus()
{
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
}

void DBus::serveAgent(AgentWork work)
{
    gWork = work;
    serve(kAgent, onAgentCall);
}

void DBus::serveTerminal()
{
    serve(kTerminal, onTerminalCall);
}

void DBus::receiveSignals(Signal signal)
{
    sd_bus *const bus = openBus();
    sd_bus_match_signal(bus, nullptr, nullptr, kPath, kAgent, memberOf(signal), onSignal,
                        signal == Signal::event ? bus : nullptr);
    loop(bus);
}

void DBus::connect()
{
    gBus = openBus();
}

void DBus::call()
{
    callOn(gBus, kAgent, "fw show all");
}

void DBus::raise()
{
    raiseOn(gBus, Signal::event);
}

} // namespace bench
