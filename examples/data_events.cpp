// Data events: "data_events receive" prints the events of two types, "data_events post TYPE [TEXT]" posts
// one.
//
// The receiver serves the service's module, which one process at a time may do: where zemad runs, it is the
// one, and receives in the same way.
#include <qx/host.h>
#include <zema/data_async.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace {

enum EventType : uint32_t { kLinkUp = 7, kNote = 8 };

// What travels with kLinkUp: both sides know its layout. A note is text with its terminating zero.
struct LinkUp {
    uint32_t speed;
    char name[16];
};

// An event without data comes with a null pointer.
uint32_t onLinkUp(void *data)
{
    if (data == nullptr) {
        std::puts("link up");
    } else {
        LinkUp link;
        std::memcpy(&link, data, sizeof link);
        std::printf("link up: %.16s, %u Mbit/s\n", link.name, link.speed);
    }
    std::fflush(stdout);
    return 0;
}

uint32_t onNote(void *data)
{
    std::printf("note: %s\n", data == nullptr ? "(none)" : static_cast<const char *>(data));
    std::fflush(stdout);
    return 0;
}

uint32_t onMessage(void * /*context*/, void *message, uint32_t /*size*/)
{
    return DataAsync_OnAsynDataReceive(message);
}

uint32_t receive()
{
    std::signal(SIGTERM, [](int) { QxHost_Stop(); });
    std::signal(SIGINT, [](int) { QxHost_Stop(); });
    uint32_t result = DataAsync_RegisterOnDataAsyncEvent(kLinkUp, onLinkUp);
    result = result != 0 ? result : DataAsync_RegisterOnDataAsyncEvent(kNote, onNote);
    result = result != 0 ? result : QxHost_ServeModule(ZEMA_MODULE_ID, onMessage, nullptr);
    if (result != 0) {
        return result;
    }
    std::puts("data_events: ready");
    std::fflush(stdout);
    result = QxHost_Run();
    return result != 0 ? result : QxHost_Leave();
}

// The data's length is the event type's affair: here a whole structure or a whole text.
uint32_t post(uint32_t type, const char *text)
{
    if (text == nullptr) {
        return DataAsync_AsyncSendData(type, nullptr, 0);
    }
    if (type == kLinkUp) {
        LinkUp link = {.speed = 1000, .name = {}};
        std::strncpy(link.name, text, sizeof link.name - 1);
        return DataAsync_AsyncSendData(type, &link, sizeof link);
    }
    return DataAsync_AsyncSendData(type, text, static_cast<uint32_t>(std::strlen(text) + 1));
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view verb = argc > 1 ? argv[1] : "";
    uint32_t result = 0;
    if (verb == "receive" && argc == 2) {
        result = receive();
    } else if (verb == "post" && (argc == 3 || argc == 4)) {
        result = post(static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)), argv[3]);
    } else {
        std::fputs("usage: data_events receive | data_events post 7|8 [TEXT]\n", stderr);
        return 2;
    }
    if (result != 0) {
        std::fprintf(stderr, "data_events: failed (0x%08X)\n", result);
    }
    return result == 0 ? 0 : 1;
}
