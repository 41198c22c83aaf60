// A stand-in for the kernel's side of the HLP messages: prints each message it gets, decoded, a line for each
// part.
//
// A message comes from another process. Its whole size was checked by the platform; everything inside is
// checked here.
#include <qx/hlp.h>
#include <qx/host.h>
#include <zema/cmdagent.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace {

constexpr uint8_t kCommandTlv = ZEMA_HLP_MSG_CMD & 0xFFU;

// A string as a terminal can show it without obeying it.
std::string quoted(const char *text, size_t size)
{
    std::string out = "\"";
    for (size_t i = 0; i < size; ++i) {
        const auto byte = static_cast<uint8_t>(text[i]);
        char escaped[8] = {};
        std::snprintf(escaped, sizeof escaped, byte >= 0x20 && byte < 0x7F ? "%c" : "\\x%02x", byte);
        out += escaped;
    }
    return out + "\"";
}

void printCommand(const uint8_t *value)
{
    ZemaCmdMsg command = {};
    std::memcpy(&command, value, sizeof command);
    std::printf("    command of %u strings:", command.ulArgc);
    size_t offset = 0;
    for (uint32_t i = 0; i < command.ulArgc && offset < sizeof command.acArgs; ++i) {
        const char *const string = command.acArgs + offset;
        const size_t length = strnlen(string, sizeof command.acArgs - offset);
        std::printf(" %s", quoted(string, length).c_str());
        offset += length + 1;
    }
    std::printf("\n");
}

// Prints the item at an offset and returns the offset of the next one; the end when there is none.
uint32_t printItem(uint32_t messageType, const uint8_t *message, uint32_t size, uint32_t offset)
{
    QxHlpTlv item = {};
    if (size - offset < sizeof item) {
        std::printf("  broken: %u bytes, too few for an item\n", size - offset);
        return size;
    }
    std::memcpy(&item, message + offset, sizeof item);
    offset += static_cast<uint32_t>(sizeof item);
    if (item.usSize > size - offset) {
        std::printf("  broken: item of type %u says %u bytes, %u are there\n", item.ucType, item.usSize,
                    size - offset);
        return size;
    }
    std::printf("  TLV type %u, %u bytes\n", item.ucType, item.usSize);
    if (messageType == ZEMA_HLP_MSG_CMD && item.ucType == kCommandTlv && item.usSize == sizeof(ZemaCmdMsg)) {
        printCommand(message + offset);
    }
    const uint32_t padded = (item.usSize + 3U) & ~3U;
    return padded < size - offset ? offset + padded : size;
}

uint32_t printMessage(void * /*context*/, const void *message, uint32_t size)
{
    QxHlpHeader header = {};
    std::memcpy(&header, message, sizeof header);
    std::printf("HLP message 0x%08X from process %u: parameters %u %u, options %u %u, %u bytes\n",
                header.ulType, header.ulSenderPid, header.ulPara1, header.ulPara2, header.ulOption1,
                header.ulOption2, size);
    for (uint32_t offset = sizeof header; offset < size;) {
        offset = printItem(header.ulType, static_cast<const uint8_t *>(message), size, offset);
    }
    std::fflush(stdout);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1) {
        const bool asked = std::strcmp(argv[1], "--help") == 0;
        std::fputs(
            "usage: kernel_side\nPrints the HLP messages that the service sends to the kernel's modules.\n",
            asked ? stdout : stderr);
        return asked ? 0 : 2;
    }
    std::signal(SIGTERM, [](int) { QxHost_Stop(); });
    std::signal(SIGINT, [](int) { QxHost_Stop(); });

    const uint32_t served = QxHost_ServeKernel(printMessage, nullptr);
    if (served != QX_OK) {
        std::fprintf(stderr, "kernel_side: %s (0x%08X)\n",
                     served == QX_ERR_TAKEN ? "another process is the kernel's side" : "cannot join the bus",
                     served);
        return 1;
    }
    std::puts("kernel_side: ready");
    std::fflush(stdout);
    const uint32_t ran = QxHost_Run();
    return QxHost_Leave() == QX_OK && ran == QX_OK ? 0 : 1;
}
