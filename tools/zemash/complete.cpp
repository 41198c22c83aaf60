#include "complete.h"

#include "text.h"
#include "zema/zemacmd_table.h"

#include <algorithm>
#include <array>

namespace zemash {
namespace {

struct Wants {
    ZemacmdCheck check;
    std::string_view text;
};

const std::array kWants = {
    Wants{QX_ZEMA_Zemacmd_CheckForPktInfo, "a number from 0 to 100"},
    Wants{QX_ZEMA_Zemacmd_CheckForVbrFw, "a number from 1 to 16"},
    Wants{QX_ZEMA_Zemacmd_CheckForCtpDetail, "a number from 1 to 32"},
    Wants{QX_ZEMA_Zemacmd_CheckForDetail, "a number from 1 to 1024"},
    Wants{QX_ZEMA_Zemacmd_CheckForDbg, "two numbers, the first above 0, the second 0 or above"},
    Wants{QX_ZEMA_Zemacmd_CheckRouteShowPara, "one of all, neigh, fib4, fib6"},
};
constexpr std::array<std::string_view, 4> kRouteTables = {"all", "neigh", "fib4", "fib6"};

constexpr size_t kHelpColumn = 18;

std::string_view wantsOf(const ZemacmdCheckItem &row)
{
    const auto *const found = std::find_if(kWants.begin(), kWants.end(),
                                           [&](const Wants &each) { return each.check == row.pfnCheck; });
    return found == kWants.end() ? std::string_view() : found->text;
}

bool startsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

// The row that the service would choose.
const ZemacmdCheckItem *rowFor(std::string_view text, bool debug)
{
    const auto *const row =
        std::find_if(std::begin(ZemacmdCheckTable), std::end(ZemacmdCheckTable), [&](const auto &each) {
            return (each.ulDbgFlag == ZEMA_CMD_DEBUG) == debug && startsWith(text, each.pcCmd);
        });
    return row == std::end(ZemacmdCheckTable) ? nullptr : row;
}

void add(std::vector<Candidate> &candidates, const Candidate &candidate)
{
    const auto same = std::find_if(candidates.begin(), candidates.end(),
                                   [&](const Candidate &each) { return each.word == candidate.word; });
    if (same == candidates.end()) {
        candidates.push_back(candidate);
        return;
    }
    same->more = same->more || candidate.more;
    same->help += candidate.help;
}

void addWord(std::vector<Candidate> &candidates, std::string_view text, const ZemacmdCheckItem &row)
{
    const std::string_view command = row.pcCmd;
    const size_t start = text.size() - lastWord(text).size();
    const size_t end = command.find(' ', text.size());
    const std::string_view wants = end == std::string_view::npos ? wantsOf(row) : std::string_view();
    add(candidates, {.word = std::string(command.substr(start, end - start)),
                     .help = std::string(wants),
                     .more = end != std::string_view::npos || !wants.empty()});
}

void addParameter(std::vector<Candidate> &candidates, std::string_view text, const ZemacmdCheckItem &row)
{
    const std::string_view wants = wantsOf(row);
    const std::string_view parameters = text.substr(std::string_view(row.pcCmd).size());
    if (wants.empty() || parameters.empty() || parameters.front() != ' ') {
        return;
    }
    if (row.pfnCheck != QX_ZEMA_Zemacmd_CheckRouteShowPara) {
        add(candidates, {.word = "", .help = std::string(wants), .more = false});
    } else if (parameters.find_last_of(' ') == 0) {
        for (const std::string_view table : kRouteTables) {
            if (startsWith(table, lastWord(text))) {
                add(candidates, {.word = std::string(table), .help = "", .more = false});
            }
        }
    }
}

} // namespace

std::string_view lastWord(std::string_view text)
{
    return text.substr(text.rfind(' ') + 1);
}

std::vector<Candidate> nextWords(std::string_view text, bool debug)
{
    std::vector<Candidate> candidates;
    for (const ZemacmdCheckItem &row : ZemacmdCheckTable) {
        if ((row.ulDbgFlag == ZEMA_CMD_DEBUG) == debug && startsWith(row.pcCmd, text)) {
            addWord(candidates, text, row);
        }
    }
    const ZemacmdCheckItem *const complete = rowFor(text, debug);
    if (complete != nullptr) {
        addParameter(candidates, text, *complete);
    }
    return candidates;
}

std::string listOf(const std::vector<Candidate> &candidates)
{
    std::string list;
    for (const Candidate &each : candidates) {
        std::string line = "  " + each.word;
        if (!each.word.empty() && !each.help.empty()) {
            line.resize(std::max(line.size() + 2, kHelpColumn), ' ');
        }
        list += line + each.help + "\n";
    }
    return list;
}

std::string whyRefused(std::string_view text, bool debug, uint32_t result)
{
    const std::string refused = "refused, " + tools::reasonOf(result) + ": ";
    if (result != ZEMA_ERR_CMD_REJECTED) {
        return refused + "by the process that answered";
    }
    const ZemacmdCheckItem *const row = rowFor(text, debug);
    if (row == nullptr && rowFor(text, !debug) != nullptr) {
        return refused +
               (debug ? "a display command: leave out -d, or disable" : "a debug command: use -d, or enable");
    }
    if (row == nullptr) {
        return refused + "no such command";
    }
    const std::string_view wants = wantsOf(*row);
    return refused + "\"" + row->pcCmd + "\" takes " +
           (wants.empty() ? "nothing more, not even a space" : std::string(wants));
}

} // namespace zemash
