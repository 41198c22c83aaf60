#include "blocks.h"

#include "command.h"
#include "json.h"
#include "qx/host.h"
#include "qx/vdata.h"
#include "text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

namespace zemash {
namespace {

constexpr uint64_t kNsPerMs = 1'000'000;

uint32_t keep(void *context, const QxBlock *block)
{
    static_cast<std::vector<QxBlock> *>(context)->push_back(*block);
    return QX_OK;
}

std::string hex(uint32_t id)
{
    std::array<char, 12> text{};
    std::snprintf(text.data(), text.size(), "%08x", id);
    return text.data();
}

// Seconds with three decimals.
std::string ageOf(const QxBlock &block)
{
    std::array<char, 32> text{};
    const auto ms = static_cast<unsigned long long>(block.ullAgeNs / kNsPerMs);
    std::snprintf(text.data(), text.size(), "%llu.%03llu", ms / 1000, ms % 1000);
    return text.data();
}

// What died over its making has not said who it was.
std::string makerOf(const QxBlock &block)
{
    if (block.ulPid == 0) {
        return "?";
    }
    return tools::harmless(block.acProcess) + " " + std::to_string(block.ulPid) +
           (block.ulAlive != 0 ? "" : " (gone)");
}

std::string jsonOf(const QxBlock &block, bool removed)
{
    return JsonObject()
        .text("id", hex(block.ulId))
        .number("size", block.ulSize)
        .json("age", ageOf(block))
        .text("process", block.acProcess)
        .number("pid", block.ulPid)
        .json("alive", block.ulAlive != 0 ? "true" : "false")
        .json("removed", removed ? "true" : "false")
        .str();
}

// The first failure to remove one; a reader may have released it meanwhile.
uint32_t print(const std::vector<QxBlock> &blocks, bool json, bool removeOrphans)
{
    uint32_t result = QX_OK;
    for (const QxBlock &block : blocks) {
        const uint32_t freed = removeOrphans ? QX_VDATA_FreeShm(block.ulId) : QX_OK;
        if (json) {
            std::puts(jsonOf(block, removeOrphans && freed == QX_OK).c_str());
        } else {
            std::printf("%-10s %10u %12s  %s\n", hex(block.ulId).c_str(), block.ulSize, ageOf(block).c_str(),
                        makerOf(block).c_str());
        }
        const bool failed = freed != QX_OK && freed != QX_ERR_NOT_FOUND;
        result = result == QX_OK && failed ? freed : result;
    }
    return result;
}

} // namespace

int showBlocks(bool json, bool removeOrphans)
{
    std::vector<QxBlock> blocks;
    uint32_t result = QxHost_ListBlocks(keep, &blocks);
    if (removeOrphans) {
        std::erase_if(blocks, [](const QxBlock &block) { return block.ulAlive != 0; });
    }
    std::sort(blocks.begin(), blocks.end(),
              [](const QxBlock &a, const QxBlock &b) { return a.ullAgeNs > b.ullAgeNs; });
    if (!json) {
        std::printf("%-10s %10s %12s  %s\n", "BLOCK", "BYTES", "AGE, S",
                    removeOrphans ? "REMOVED, MADE BY" : "MADE BY");
    }
    const uint32_t printed = print(blocks, json, removeOrphans);
    result = result != QX_OK ? result : printed;
    if (result != QX_OK) {
        std::fprintf(stderr, "zemash: cannot %s the blocks: %s\n", printed != QX_OK ? "remove" : "list",
                     tools::reasonOf(result).c_str());
        return kNoAnswer;
    }
    return kAnswered;
}

} // namespace zemash
