// Messages from a hostile process, to both receivers of command events.
#include "qx/cli.h"
#include "qx/diag.h"
#include "qx/event.h"
#include "qx/message.h"
#include "zema/cmd_tree.h"
#include "zema/cmdagent.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

std::vector<QxEventHandler> &receivers()
{
    static std::vector<QxEventHandler> all;
    return all;
}

// Reads all of every string, as a handler would, so that a sanitizer sees where it ends.
uint32_t readAll(uint32_t count, const char *const *strings)
{
    size_t total = 0;
    for (uint32_t i = 0; i < count; ++i) {
        total += std::strlen(strings[i]) + 1;
    }
    if (total > ZEMA_CMD_AREA_SIZE + count || strings[count] != nullptr) {
        std::abort();
    }
    return static_cast<uint32_t>(total % 2);
}

uint32_t execute(uint32_t /*terminal*/, uint32_t count, const char *const *words)
{
    return readAll(count, words);
}

void help(uint32_t /*terminal*/) {}

CmdTreeNode g_leaf = {"b", nullptr, execute, 0, nullptr, nullptr};
CmdTreeNode g_branch = {"c", help, execute, 1, &g_leaf, nullptr};
CmdTreeNode g_top = {"a", nullptr, execute, 0, &g_branch, &g_branch};

const bool g_started = [] {
    g_branch.pstChild = &g_leaf;
    Usr_Root.pstChild = &g_top;
    return CMDAgent_Init() == 0 && CMDAgent_Reg() == 0 && qx_ker_zema_cmd_reg("fw", readAll) == 0 &&
           qx_ker_zema_cmd_reg("", readAll) == 0;
}();

} // namespace

uint32_t EventCenter_SubscribeEvent(uint32_t /*event*/, QxEventHandler handler)
{
    receivers().push_back(handler);
    return 0;
}

uint32_t QX_CLI_AsynPrint(uint32_t /*terminal*/, const char *bytes, uint32_t size)
{
    if (std::memchr(bytes, '\0', size) != nullptr) {
        std::abort();
    }
    return 0;
}

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

uint32_t QX_MSG_RegOverWriteRpcCalls(const QxRpcRow * /*rows*/)
{
    return 0;
}

// The first byte is the count of strings, the others the area.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0 || !g_started) {
        return 0;
    }
    const auto message = std::make_unique<ZemaCmdMsg>();
    message->ulArgc = data[0] % 40;
    std::memcpy(message->acArgs, data + 1, std::min<size_t>(size - 1, sizeof message->acArgs));
    for (const QxEventHandler receive : receivers()) {
        const uint32_t result = receive(message.get());
        if (message->ulArgc > ZEMA_CMD_MAX_STRINGS && result != ZEMA_ERR) {
            std::abort();
        }
    }
    return 0;
}
