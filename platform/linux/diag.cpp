#include "qx/diag.h"

#include "platform/linux/record_ring.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <string_view>
#include <unistd.h>

namespace qx {
namespace {

constexpr size_t kMaxLine = 512;

enum class Echo { unknown, off, on };
constinit std::atomic<Echo> gEcho{Echo::unknown};

// Whether records and trace lines are also wanted on standard error; asked of the environment once.
bool echoes()
{
    Echo echo = gEcho.load(std::memory_order_relaxed);
    if (echo == Echo::unknown) {
        const char *wanted = std::getenv("ZEMA_DIAG");
        echo = wanted != nullptr && std::string_view(wanted) == "stderr" ? Echo::on : Echo::off;
        gEcho.store(echo, std::memory_order_relaxed);
    }
    return echo == Echo::on;
}

// One line in one write, so that lines of several threads and processes do not mix.
void writeLine(std::array<char, kMaxLine> &line, int length)
{
    const size_t used = std::min(static_cast<size_t>(std::max(length, 0)), kMaxLine - 2);
    const size_t end = used > 0 && line[used - 1] == '\n' ? used - 1 : used;
    line[end] = '\n';
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, line.data(), end + 1);
}

uint64_t realTimeNs()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000U + static_cast<uint64_t>(now.tv_nsec);
}

bool isEarlier(const QxRecord &a, const QxRecord &b)
{
    if (a.ullTimeNs != b.ullTimeNs) {
        return a.ullTimeNs < b.ullTimeNs;
    }
    return a.ulPid != b.ulPid ? a.ulPid < b.ulPid : a.ullNumber < b.ullNumber;
}

} // namespace
} // namespace qx

uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                              uint32_t value3, uint32_t value4, uint32_t value5)
{
    const int savedError = errno;
    qx::RingSlot slot{.number = 0,
                      .timeNs = qx::realTimeNs(),
                      .thread = static_cast<uint32_t>(gettid()),
                      .line = line,
                      .value = {value1, value2, value3, value4, value5},
                      .file = {},
                      .reserved = 0,
                      .numberAgain = 0};
    const char *const name = file == nullptr ? "?" : file;
    std::copy_n(name, strnlen(name, sizeof slot.file - 1), slot.file);
    const bool stored = qx::storeRecord(slot);
    if (qx::echoes()) {
        std::array<char, qx::kMaxLine> text{};
        qx::writeLine(text, std::snprintf(text.data(), text.size(), "record %s:%u 0x%x 0x%x 0x%x 0x%x 0x%x",
                                          slot.file, line, value1, value2, value3, value4, value5));
    }
    errno = savedError;
    return stored ? QX_OK : QX_ERR_RUNTIME_DIR;
}

uint32_t QX_PROC_DBG_TraceN(uint32_t module, const char *file, uint32_t line, const char *format, ...)
{
    if (!qx::echoes() || format == nullptr) {
        return QX_OK;
    }
    const int savedError = errno;
    std::array<char, qx::kMaxLine> text{};
    const int head = std::snprintf(text.data(), text.size(), "trace %u %s:%u ", module,
                                   file == nullptr ? "?" : file, line);
    const auto used = static_cast<size_t>(std::clamp(head, 0, static_cast<int>(text.size()) - 1));
    va_list arguments;
    va_start(arguments, format);
    const int body = std::vsnprintf(text.data() + used, text.size() - used, format, arguments);
    va_end(arguments);
    qx::writeLine(text, static_cast<int>(used) + std::max(body, 0));
    errno = savedError;
    return QX_OK;
}

uint32_t QX_PROC_DBG_GetJiffies(uint32_t words[2])
{
    if (words == nullptr) {
        return QX_ERR;
    }
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const uint64_t milliseconds =
        static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
    words[0] = static_cast<uint32_t>(milliseconds >> 32U);
    words[1] = static_cast<uint32_t>(milliseconds);
    return QX_OK;
}

uint32_t QxHost_ReadRecords(QxRecordVisitor visitor, void *context)
{
    if (visitor == nullptr) {
        return QX_ERR;
    }
    qx::Vec<QxRecord> records;
    uint32_t result = qx::readRecords(records);
    std::sort(records.begin(), records.end(), qx::isEarlier);
    for (uint32_t i = 0; result == QX_OK && i < records.count(); ++i) {
        result = visitor(context, &records[i]);
    }
    return result;
}
