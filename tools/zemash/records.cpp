#include "records.h"

#include "command.h"
#include "json.h"
#include "qx/host.h"
#include "text.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>
#include <tuple>
#include <utility>

namespace zemash {
namespace {

constexpr std::chrono::milliseconds kFollowPause(250);
constexpr uint32_t kLargestDecimal = 9999;

// Tells a record from all others, also from those of an earlier process with the same identifier.
using Identity = std::tuple<uint32_t, uint64_t, uint64_t>;

struct Reading {
    bool json;
    std::set<Identity> shown; // by the reading before
    std::set<Identity> found;
};

template <typename... Values>
std::string format(const char *pattern, Values... values)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), pattern, values...);
    return text.data();
}

// Small numbers are lengths, rows and ports; large ones are codes and addresses.
std::string valueText(uint32_t value)
{
    const std::string_view words = tools::wordsFor(value);
    return format(value <= kLargestDecimal ? "%u" : "0x%08X", value) +
           (words.empty() ? "" : " (" + std::string(words) + ")");
}

std::string lineOf(const QxRecord &record)
{
    std::string line = tools::clockText(record.ullTimeNs, false) + " " + tools::harmless(record.acProcess) +
                       " " + std::to_string(record.ulPid) + (record.ulAlive != 0 ? " " : " (dead) ") +
                       tools::harmless(record.acFile) + ":" + std::to_string(record.ulLine) + " ";
    for (const uint32_t value : record.aulValue) {
        line += " " + valueText(value);
    }
    return line;
}

std::string jsonOf(const QxRecord &record)
{
    return JsonObject()
        .text("time", tools::clockText(record.ullTimeNs, true))
        .text("process", record.acProcess)
        .number("pid", record.ulPid)
        .number("thread", record.ulThread)
        .json("alive", record.ulAlive != 0 ? "true" : "false")
        .number("number", record.ullNumber)
        .text("file", record.acFile)
        .number("line", record.ulLine)
        .json("values", jsonArray(record.aulValue, [](uint32_t value) { return std::to_string(value); }))
        .str();
}

uint32_t print(void *context, const QxRecord *record)
{
    auto &reading = *static_cast<Reading *>(context);
    const Identity identity{record->ulPid, record->ullNumber, record->ullTimeNs};
    reading.found.insert(identity);
    if (reading.shown.count(identity) > 0) {
        return QX_OK;
    }
    const bool printed = std::puts((reading.json ? jsonOf(*record) : lineOf(*record)).c_str()) >= 0;
    return printed ? QX_OK : QX_ERR;
}

} // namespace

int showRecords(bool json, bool follow)
{
    Reading reading{.json = json, .shown = {}, .found = {}};
    for (;;) {
        const uint32_t result = QxHost_ReadRecords(print, &reading);
        if (std::ferror(stdout) != 0 || std::fflush(stdout) != 0) {
            return kNoAnswer;
        }
        if (result != QX_OK) {
            std::fprintf(stderr, "zemash: cannot read the records: %s\n", tools::reasonOf(result).c_str());
            return kNoAnswer;
        }
        if (!follow) {
            return kAnswered;
        }
        reading.shown = std::exchange(reading.found, {});
        std::this_thread::sleep_for(kFollowPause);
    }
}

} // namespace zemash
