#include "monitor.h"

#include "command.h"
#include "json.h"
#include "qx/host.h"
#include "signals.h"
#include "text.h"
#include "zema/cmdagent.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>
#include <map>
#include <string_view>

namespace zemash {
namespace {

struct Kind {
    uint32_t number;
    const char *word;
    bool isText; // what is sent with it
    const char *numberForm;
};

constexpr std::array<Kind, 6> kKinds{{
    {QX_PASSAGE_EVENT, "event", false, "%u"},
    {QX_PASSAGE_RPC, "call", true, "%08X"},
    {QX_PASSAGE_PRINT, "print", true, "%u"},
    {QX_PASSAGE_HLP, "hlp", false, "%08X"},
    {QX_PASSAGE_SYNC, "request", false, "%u"},
    {QX_PASSAGE_MESSAGE, "message", false, "%u"},
}};

constexpr Kind kStranger{0, "?", false, "%u"};
constexpr uint32_t kMostBytesShown = 16;

template <typename... Values>
std::string format(const char *pattern, Values... values)
{
    std::array<char, 128> text{};
    std::snprintf(text.data(), text.size(), pattern, values...);
    return text.data();
}

bool isListed(std::string_view list, std::string_view word)
{
    while (!list.empty()) {
        const size_t comma = std::min(list.find(','), list.size());
        if (list.substr(0, comma) == word) {
            return true;
        }
        list.remove_prefix(std::min(comma + 1, list.size()));
    }
    return false;
}

// A process keeps its name for us after it has ended.
class Names {
public:
    const std::string &of(uint32_t pid)
    {
        std::string &name = known_[pid];
        if (name.empty()) {
            std::ifstream("/proc/" + std::to_string(pid) + "/comm") >> name;
            name = name.empty() ? "?" : tools::harmless(name);
        }
        return name;
    }

private:
    std::map<uint32_t, std::string> known_;
};

struct Watching {
    MonitorQuery query;
    Names names;
    uint64_t shown = 0;
    uint64_t missed = 0;

    bool isWanted(const QxPassage &passage, const Kind &kind)
    {
        const auto isIt = [&](uint32_t pid) {
            return query.process == std::to_string(pid) || query.process == names.of(pid);
        };
        return (query.kinds.empty() || isListed(query.kinds, kind.word)) &&
               (query.process.empty() || isIt(passage.ulSenderPid) || isIt(passage.ulReceiverPid));
    }
};

const Kind &kindOf(const QxPassage &passage)
{
    const auto *const kind = std::ranges::find(kKinds, passage.ulKind, &Kind::number);
    return kind == kKinds.end() ? kStranger : *kind;
}

// A compiled command is its strings, behind their number.
std::string wordsOf(std::string_view command)
{
    std::string words(command.substr(std::min(sizeof(uint32_t), command.size())));
    words.resize(std::min(words.find(std::string("\0\0", 2)), words.size()));
    std::ranges::replace(words, '\0', ' ');
    return words;
}

std::string contentOf(const QxPassage &passage, const Kind &kind)
{
    const std::string_view bytes(passage.acBytes, std::min<size_t>(passage.ulBytes, sizeof passage.acBytes));
    const std::string more = passage.ulSize > bytes.size() ? "..." : "";
    if (kind.isText) {
        const std::string_view text = bytes.substr(0, bytes.find('\0'));
        return std::string(text) + (text.size() == bytes.size() ? more : "");
    }
    if (passage.ulKind == QX_PASSAGE_EVENT && passage.ulNumber == ZEMA_EVENT_CMD) {
        return wordsOf(bytes);
    }
    std::string hex;
    for (const char byte : bytes.substr(0, kMostBytesShown)) {
        hex += format("%02x", static_cast<unsigned char>(byte));
    }
    return hex + (passage.ulSize > kMostBytesShown ? "..." : "");
}

uint32_t resultOf(const QxPassage &passage)
{
    return passage.ulStatus != QX_OK ? passage.ulStatus : passage.ulResult;
}

std::string lineOf(const QxPassage &passage, const Kind &kind, Names &names)
{
    const std::string number = format(kind.numberForm, passage.ulNumber);
    const std::string content = tools::harmless(contentOf(passage, kind));
    const uint32_t result = resultOf(passage);
    return tools::clockText(passage.ullTimeNs, false) + format(" %-7s %-8s ", kind.word, number.c_str()) +
           names.of(passage.ulSenderPid) + format("(%u) > ", passage.ulSenderPid) +
           names.of(passage.ulReceiverPid) +
           format("(%u) %u bytes, %.1f us", passage.ulReceiverPid, passage.ulSize,
                  static_cast<double>(passage.ullTookNs) / 1e3) +
           (result != QX_OK ? ", " + tools::reasonOf(result) : "") + (content.empty() ? "" : ": " + content);
}

std::string jsonOf(const QxPassage &passage, const Kind &kind, Names &names)
{
    const auto process = [&](uint32_t pid) {
        return JsonObject().text("process", names.of(pid)).number("pid", pid).str();
    };
    return JsonObject()
        .text("time", tools::clockText(passage.ullTimeNs, true))
        .text("kind", kind.word)
        .number("number", passage.ulNumber)
        .json("from", process(passage.ulSenderPid))
        .json("to", process(passage.ulReceiverPid))
        .number("size", passage.ulSize)
        .number("tookNs", passage.ullTookNs)
        .number("result", resultOf(passage))
        .number("missed", passage.ulMissed)
        .text("content", contentOf(passage, kind))
        .str();
}

void print(void *context, const QxPassage *passage)
{
    auto &watching = *static_cast<Watching *>(context);
    const MonitorQuery &query = watching.query;
    const Kind &kind = kindOf(*passage);
    watching.missed += passage->ulMissed;
    if (!query.json && passage->ulMissed != 0) {
        std::printf("%u more at %s(%u) before this, missed\n", passage->ulMissed,
                    watching.names.of(passage->ulReceiverPid).c_str(), passage->ulReceiverPid);
    }
    if (!watching.isWanted(*passage, kind) || (query.count != 0 && watching.shown == query.count)) {
        return;
    }
    ++watching.shown;
    const auto toText = query.json ? jsonOf : lineOf;
    std::puts(toText(*passage, kind, watching.names).c_str());
    if (std::fflush(stdout) != 0 || watching.shown == query.count) {
        QxHost_Stop();
    }
}

} // namespace

bool areKinds(const std::string &kinds)
{
    size_t known = 0;
    for (const Kind &kind : kKinds) {
        known += isListed(kinds, kind.word) ? 1 : 0;
    }
    return known == static_cast<size_t>(std::ranges::count(kinds, ',')) + 1;
}

std::string allKinds()
{
    std::string all;
    for (const Kind &kind : kKinds) {
        all += (all.empty() ? "" : ", ") + std::string(kind.word);
    }
    return all;
}

int showMonitor(const MonitorQuery &query)
{
    catchSignals(true);
    Watching watching{.query = query, .names = {}};
    uint32_t result = QxHost_Monitor(print, &watching);
    if (result == QX_OK) {
        std::fputs("zemash: monitoring\n", stderr);
        result = QxHost_Run();
    }
    if (result != QX_OK) {
        std::fprintf(stderr, "zemash: cannot monitor the bus: %s\n", tools::reasonOf(result).c_str());
        return kNoAnswer;
    }
    std::fprintf(stderr, "zemash: %llu shown, %llu missed\n", static_cast<unsigned long long>(watching.shown),
                 static_cast<unsigned long long>(watching.missed));
    return kAnswered;
}

} // namespace zemash
