#include "status.h"

#include "command.h"
#include "json.h"
#include "qx/host.h"
#include "tables.h"
#include "text.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>
#include <vector>

namespace zemash {
namespace {

constexpr uint32_t kPatienceMs = 200; // with each process
constexpr uint32_t kNarrowest = 20;
constexpr uint64_t kNsPerSecond = 1'000'000'000;

struct Process {
    QxProcess state;
    std::vector<QxRoleHeld> roles;
    uint32_t records;
};

struct Status {
    std::vector<Process> processes;
    uint32_t tablesResult = QX_OK;
    TableCount tables;
    uint64_t blocks = 0;
    uint64_t blockBytes = 0;
    uint64_t orphans = 0; // blocks
    uint64_t records = 0;
    QxRecord newest{};

    Process *find(uint32_t pid)
    {
        const auto found =
            std::ranges::find(processes, pid, [](const Process &each) { return each.state.ulPid; });
        return found == processes.end() ? nullptr : &*found;
    }
};

uint32_t addProcess(void *context, const QxProcess *process)
{
    static_cast<Status *>(context)->processes.push_back({.state = *process, .roles = {}, .records = 0});
    return QX_OK;
}

uint32_t addRole(void *context, const QxRoleHeld *role)
{
    if (Process *const holder = static_cast<Status *>(context)->find(role->ulPid)) {
        holder->roles.push_back(*role);
    }
    return QX_OK;
}

uint32_t addBlock(void *context, const QxBlock *block)
{
    auto &status = *static_cast<Status *>(context);
    ++status.blocks;
    status.blockBytes += block->ulSize;
    status.orphans += block->ulAlive != 0 ? 0 : 1;
    return QX_OK;
}

uint32_t addRecord(void *context, const QxRecord *record)
{
    auto &status = *static_cast<Status *>(context);
    Process *const writer = record->ulAlive != 0 ? status.find(record->ulPid) : nullptr;
    if (writer != nullptr) {
        ++writer->records;
    }
    ++status.records;
    status.newest = *record;
    return QX_OK;
}

// Blocks and records that cannot be read are none; who is on the bus must be known.
uint32_t learn(Status &status)
{
    const uint32_t result = QxHost_ListProcesses(addProcess, &status);
    if (result != QX_OK) {
        return result;
    }
    QxHost_ListRoles(addRole, &status);
    QxHost_ListBlocks(addBlock, &status);
    QxHost_ReadRecords(addRecord, &status);
    status.tablesResult = countTables(status.tables);
    return QX_OK;
}

// Words, as many a line as fit between the margin and the terminal's width.
void printWrapped(const std::string &margin, const std::vector<std::string> &words)
{
    winsize window{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col >= kNarrowest;
    const size_t width = known ? window.ws_col : 80;
    std::string line = margin;
    for (const std::string &word : words) {
        if (line.size() + word.size() >= width && line != margin) {
            std::puts(line.c_str());
            line = margin;
        }
        line += " " + word;
    }
    if (line != margin) {
        std::puts(line.c_str());
    }
}

void printProcess(const Process &process)
{
    const QxProcess &state = process.state;
    std::printf("%7u %-15s", state.ulPid, tools::harmless(state.acName).c_str());
    const std::string handled = state.ulResult == QX_OK ? std::to_string(state.ullHandled) : "no answer";
    std::printf(" %9s %7u %7u\n", handled.c_str(), state.ulWaiting, process.records);
    std::vector<std::string> roles;
    for (const QxRoleHeld &role : process.roles) {
        roles.emplace_back(role.acRole);
    }
    printWrapped("       ", roles);
}

void print(const Status &status)
{
    std::printf("%7s %-15s %9s %7s %7s\n", "PID", "PROCESS, ROLES", "HANDLED", "WAITING", "RECORDS");
    std::ranges::for_each(status.processes, printProcess);
    if (status.processes.empty()) {
        std::puts("        nobody is there");
    }
    const auto number = [](uint64_t value) { return std::to_string(value); };
    if (status.tablesResult == QX_OK) {
        printWrapped("tables ", {number(status.tables.tables) + ",", "items", number(status.tables.items)});
    } else {
        printWrapped("tables ", {"unknown:", tools::reasonOf(status.tablesResult)});
    }
    printWrapped("blocks ", {number(status.blocks) + ",", number(status.blockBytes) + " bytes,",
                             number(status.orphans) + " whose maker is gone"});
    std::vector<std::string> records{number(status.records)};
    if (status.records > 0) {
        records.back() += ",";
        records.emplace_back("the newest");
        records.push_back(tools::clockText(status.newest.ullTimeNs, false));
        records.push_back(tools::harmless(status.newest.acProcess));
        records.push_back(tools::harmless(status.newest.acFile) + ":" + number(status.newest.ulLine));
    }
    printWrapped("records", records);
}

std::string jsonOf(const Process &process)
{
    const QxProcess &state = process.state;
    const auto role = [](const QxRoleHeld &held) {
        return JsonObject().text("role", held.acRole).number("seconds", held.ullHeldNs / kNsPerSecond).str();
    };
    return JsonObject()
        .number("pid", state.ulPid)
        .text("process", state.acName)
        .json("answering", state.ulResult == QX_OK ? "true" : "false")
        .number("handled", state.ullHandled)
        .number("waiting", state.ulWaiting)
        .number("connections", state.ulConnections)
        .number("records", process.records)
        .json("roles", jsonArray(process.roles, role))
        .str();
}

void printJson(const Status &status)
{
    const std::string tables =
        JsonObject().number("tables", status.tables.tables).number("items", status.tables.items).str();
    const std::string blocks = JsonObject()
                                   .number("blocks", status.blocks)
                                   .number("bytes", status.blockBytes)
                                   .number("orphans", status.orphans)
                                   .str();
    const std::string newest = quoted(tools::clockText(status.newest.ullTimeNs, true));
    const std::string records = JsonObject()
                                    .number("records", status.records)
                                    .json("newest", status.records > 0 ? newest : "null")
                                    .str();
    std::puts(
        JsonObject()
            .json("processes", jsonArray(status.processes, [](const Process &each) { return jsonOf(each); }))
            .json("tables", status.tablesResult == QX_OK ? tables : "null")
            .json("blocks", blocks)
            .json("records", records)
            .str()
            .c_str());
}

} // namespace

int showStatus(bool json)
{
    QxHost_SetTimeout(kPatienceMs);
    Status status;
    const uint32_t result = learn(status);
    if (result != QX_OK) {
        std::fprintf(stderr, "zemash: cannot look at the bus: %s\n", tools::reasonOf(result).c_str());
        return kNoAnswer;
    }
    json ? printJson(status) : print(status);
    return kAnswered;
}

} // namespace zemash
