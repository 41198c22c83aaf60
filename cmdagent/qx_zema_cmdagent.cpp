#include "cmdagent/parameters.h"
#include "cmdagent/tree_walk.h"
#include "cmdagent/whitelist.h"
#include "common/record.h"
#include "qx/event.h"
#include "qx/list.h"
#include "qx/message.h"
#include "zema/cmdagent.h"
#include "zema/hlp.h"

#include <new>

using zema::addressValue;
using zema::Parameters;

static_assert(sizeof(ZemaCmdMsg) == 260 && offsetof(ZemaCmdMsg, acArgs) == 4);
static_assert(offsetof(CmdTreeNode, pfnHelp) == 16 && offsetof(CmdTreeNode, pfnExec) == 16 + sizeof(void *) &&
              offsetof(CmdTreeNode, ulArgNum) == 16 + 2 * sizeof(void *) &&
              offsetof(CmdTreeNode, pstNext) == 16 + 3 * sizeof(void *) &&
              offsetof(CmdTreeNode, pstChild) == 16 + 4 * sizeof(void *));

constinit CmdTreeNode Usr_Root = {.acName = "usr_root",
                                  .pfnHelp = nullptr,
                                  .pfnExec = nullptr,
                                  .ulArgNum = 0,
                                  .pstNext = nullptr,
                                  .pstChild = nullptr};

namespace {

constexpr const char *kFile = zema::baseName(__FILE__);

constexpr uint32_t kAccepted = 1;
constexpr uint32_t kRejected = 0;

void report(uint32_t line, uint32_t code, uint32_t detail1 = 0, uint32_t detail2 = 0)
{
    (void)QX_PROC_DBG_LastWord(kFile, line, code, detail1, detail2, 0, 0);
}

uint32_t lengthOf(const char *text)
{
    return text == nullptr ? 0 : static_cast<uint32_t>(std::strlen(text));
}

} // namespace

// ---- The whitelist and its checks ----

uint32_t QX_ZEMA_Zemacmd_CheckPara(const char *pcText, uint32_t ulLen, uint32_t ulFlag)
{
    if (pcText == nullptr || ulLen == 0) {
        report(__LINE__, ZEMA_ERR, addressValue(pcText), ulLen);
        return kRejected;
    }
    const uint32_t row = zema::whitelist::find(pcText, ulFlag);
    if (row == ZEMA_ZEMACMD_ROW_COUNT) {
        report(__LINE__, ZEMA_ERR, ZEMA_ZEMACMD_ROW_COUNT, ulLen);
        return kRejected;
    }
    const ZemacmdCheckItem &item = ZemacmdCheckTable[row];
    const uint32_t result = item.pfnCheck(item.pcCmd, pcText, ulLen);
    if (result != kAccepted) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, row, ulLen, result, 0);
    }
    return result;
}

namespace {

// Records what most rejections record.
uint32_t reject(uint32_t line, const char *command, uint32_t length)
{
    report(line, ZEMA_ERR, lengthOf(command), length);
    return kRejected;
}

// Whether there can be parameters: no argument is missing and the text is longer than the command text.
bool hasMoreThan(const char *command, const char *text, uint32_t length)
{
    return command != nullptr && text != nullptr && length > lengthOf(command);
}

uint32_t checkRange(uint32_t line, const char *command, const char *text, uint32_t length, uint32_t lowest,
                    uint32_t highest)
{
    uint32_t value = 0;
    const uint32_t result = QX_ZEMA_Zemacmd_Check1DigPara(command, text, length, &value);
    if (result == kAccepted && value >= lowest && value <= highest) {
        return kAccepted;
    }
    (void)QX_PROC_DBG_LastWord(kFile, line, ZEMA_ERR, lengthOf(command), length, result, value);
    return kRejected;
}

int32_t toInt32(const char *text)
{
    int32_t value = 0;
    (void)QX_OS_StrToInt32(text, &value);
    return value;
}

} // namespace

uint32_t QX_ZEMA_Zemacmd_ComCheckPara(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    if (pcCmd == nullptr || pcText == nullptr || ulLen != lengthOf(pcCmd)) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    return kAccepted;
}

uint32_t QX_ZEMA_Zemacmd_CheckForPktInfo(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    return checkRange(__LINE__, pcCmd, pcText, ulLen, 0, 100);
}

uint32_t QX_ZEMA_Zemacmd_CheckForVbrFw(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    return checkRange(__LINE__, pcCmd, pcText, ulLen, 1, 16);
}

uint32_t QX_ZEMA_Zemacmd_CheckForCtpDetail(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    return checkRange(__LINE__, pcCmd, pcText, ulLen, 1, 32);
}

uint32_t QX_ZEMA_Zemacmd_CheckForDetail(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    return checkRange(__LINE__, pcCmd, pcText, ulLen, 1, 1024);
}

uint32_t QX_ZEMA_Zemacmd_CheckForDbg(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    int32_t first = 0;
    int32_t second = 0;
    const uint32_t result = QX_ZEMA_Zemacmd_Check2DigPara(pcCmd, pcText, ulLen, &first, &second);
    if (result == kAccepted && first > 0 && second >= 0) {
        return kAccepted;
    }
    (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, lengthOf(pcCmd), result,
                               static_cast<uint32_t>(first), static_cast<uint32_t>(second));
    return kRejected;
}

uint32_t QX_ZEMA_Zemacmd_CheckRouteShowPara(const char *pcCmd, const char *pcText, uint32_t ulLen)
{
    static constexpr std::string_view kKeywords[] = {"all", "neigh", "fib4", "fib6"};

    if (!hasMoreThan(pcCmd, pcText, ulLen)) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    Parameters parameters(pcCmd, pcText);
    const char *keyword = parameters.next();
    if (keyword == nullptr) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    if (std::ranges::find(kKeywords, keyword) == std::end(kKeywords)) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    const char *extra = parameters.next();
    if (extra != nullptr) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, lengthOf(pcCmd), ulLen, addressValue(extra), 0);
        return kRejected;
    }
    return kAccepted;
}

uint32_t QX_ZEMA_Zemacmd_Check1DigPara(const char *pcCmd, const char *pcText, uint32_t ulLen,
                                       uint32_t *pulValue)
{
    if (pulValue == nullptr || !hasMoreThan(pcCmd, pcText, ulLen)) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    Parameters parameters(pcCmd, pcText);
    const char *parameter = parameters.next();
    if (parameter == nullptr) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    const uint32_t isDigits = QX_OS_IsDigitStr(parameter);
    if (isDigits != 1) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    uint32_t value = 0;
    (void)QX_OS_StrToUInt32(parameter, &value);
    if (parameters.next() != nullptr) {
        report(__LINE__, isDigits, lengthOf(pcCmd), ulLen);
        return kRejected;
    }
    *pulValue = value;
    return kAccepted;
}

uint32_t QX_ZEMA_Zemacmd_Check2DigPara(const char *pcCmd, const char *pcText, uint32_t ulLen,
                                       int32_t *plFirst, int32_t *plSecond)
{
    if (plFirst == nullptr || plSecond == nullptr || !hasMoreThan(pcCmd, pcText, ulLen)) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    Parameters parameters(pcCmd, pcText);
    const char *parameter = parameters.next();
    if (parameter == nullptr) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    if (QX_OS_IsDigitStr(parameter) != 1) {
        return reject(__LINE__, pcCmd, ulLen);
    }
    *plFirst = toInt32(parameter);
    parameter = parameters.next();
    if (parameter == nullptr) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, lengthOf(pcCmd), ulLen,
                                   static_cast<uint32_t>(*plFirst), 0);
        return kRejected;
    }
    *plSecond = toInt32(parameter);
    if (parameters.next() != nullptr) {
        (void)QX_PROC_DBG_LastWord(kFile, __LINE__, ZEMA_ERR, lengthOf(pcCmd), ulLen,
                                   static_cast<uint32_t>(*plFirst), static_cast<uint32_t>(*plSecond));
        return kRejected;
    }
    return kAccepted;
}

// ---- Compilation and dispatch ----

namespace {

// Formats one string of a command at a position of the area and returns the position behind its terminating
// zero.
uint32_t putString(uint32_t line, char *area, uint32_t position, const char *text)
{
    const uint32_t room = ZEMA_CMD_AREA_SIZE - position;
    const int32_t written = snprintf_s(area + position, room, room - 1, "%s", text);
    if (written < 1) {
        report(line, ZEMA_ERR, position, static_cast<uint32_t>(written));
        return position + 1;
    }
    return position + static_cast<uint32_t>(written) + 1;
}

} // namespace

uint32_t QX_ZEMA_Zemacmd_CompileCmd(uint32_t ulTerminal, char *pcText, char *pcArea, uint32_t *pulArgc)
{
    if (pcText == nullptr || pcArea == nullptr || pulArgc == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    char terminal[8] = {};
    (void)QX_OS_UInt32ToStr_S(ulTerminal, terminal, sizeof terminal);
    uint32_t position = putString(__LINE__, pcArea, 0, terminal);
    position = putString(__LINE__, pcArea, position, "Zemacmd");
    uint32_t count = 2;
    char *save = nullptr;
    for (const char *word = QX_OS_StrtokR(pcText, " ", &save); word != nullptr;
         word = QX_OS_StrtokR(nullptr, " ", &save)) {
        const size_t length = std::strlen(word);
        if (position + 1 + length > ZEMA_CMD_AREA_SIZE - 1) {
            report(__LINE__, ZEMA_ERR, position, static_cast<uint32_t>(length));
            return ZEMA_ERR;
        }
        position = putString(__LINE__, pcArea, position, word);
        ++count;
    }
    *pulArgc = count;
    return ZEMA_OK;
}

void QX_ZEMA_Cmd_Send_Hlp(const char *pcArea, uint32_t ulArgc)
{
    if (pcArea == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return;
    }
    // The event's data is the request's value, in place.
    alignas(HlpTlvMsg) uint8_t buffer[sizeof(HlpTlvMsg) + sizeof(ZemaCmdMsg)] = {};
    auto *const request = new (buffer) HlpTlvMsg{};
    auto *const message = new (buffer + sizeof(HlpTlvMsg)) ZemaCmdMsg{};
    request->ulMsgType = ZEMA_HLP_MSG_CMD;
    request->usLen = sizeof(ZemaCmdMsg);
    message->ulArgc = ulArgc;
    (void)memcpy_s(message->acArgs, sizeof message->acArgs, pcArea, ZEMA_CMD_AREA_SIZE);

    const uint32_t sent = QX_ZEMA_Hlpsnd(request, 0, 0);
    if (sent != 0) {
        report(__LINE__, sent);
    }
    const uint32_t raised = EventCenter_GlobalInvokeEvent2(ZEMA_EVENT_CMD, message, sizeof *message);
    if (raised != 0) {
        report(__LINE__, raised);
    }
}

static uint32_t QX_ZEMA_Zemacmd_Entry(uint32_t callerWord, char *text, uint32_t flag)
{
    if (text == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    const uint32_t checked = QX_ZEMA_Zemacmd_CheckPara(text, lengthOf(text), flag);
    if (checked != kAccepted) {
        report(__LINE__, ZEMA_ERR_CMD_REJECTED, callerWord, checked);
        return ZEMA_ERR_CMD_REJECTED;
    }
    const uint32_t terminal = callerWord >> 16;
    char area[ZEMA_CMD_AREA_SIZE] = {};
    uint32_t count = 0;
    const uint32_t compiled = QX_ZEMA_Zemacmd_CompileCmd(terminal, text, area, &count);
    if (compiled != ZEMA_OK) {
        report(__LINE__, compiled, callerWord);
        return ZEMA_ERR_CMD_REJECTED;
    }
    static constexpr char kEmptyLine[] = "\r\n";
    (void)QX_CLI_SynPrint(terminal, kEmptyLine,
                          sizeof kEmptyLine); // terminals expect its terminating zero too
    QX_ZEMA_Cmd_Send_Hlp(area, count);
    return ZEMA_OK;
}

uint32_t QX_ZEMA_RPC_Zemaara(uint32_t ulCallerWord, char *pcText, uintptr_t /*reserved1*/,
                             uintptr_t /*reserved2*/, uintptr_t /*reserved3*/)
{
    return QX_ZEMA_Zemacmd_Entry(ulCallerWord, pcText, ZEMA_CMD_DISPLAY);
}

static uint32_t QX_ZEMA_RPC_ZemaDbg(uint32_t callerWord, char *text, uintptr_t /*reserved1*/,
                                    uintptr_t /*reserved2*/, uintptr_t /*reserved3*/)
{
    return QX_ZEMA_Zemacmd_Entry(callerWord, text, ZEMA_CMD_DEBUG);
}

// ---- Registered command words ----

namespace {

struct KerCmdEntry {
    char acName[32];
    ZemaCmdHandler pfnProc;
};
static_assert(sizeof(KerCmdEntry) == 32 + sizeof(void *));

uint32_t compareName(const void *element, const void *key)
{
    const char *name = static_cast<const KerCmdEntry *>(element)->acName;
    return std::strcmp(name, static_cast<const char *>(key)) == 0 ? 0 : 1;
}

// Prints a registered word on the terminal that context points to.
uint32_t printName(void *element, uint32_t *visited, void *context)
{
    if (element == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    char line[34] = {};
    const int32_t length = snprintf_s(line, sizeof line, sizeof line - 1, "%s\n",
                                      static_cast<const KerCmdEntry *>(element)->acName);
    if (length < 1) {
        report(__LINE__, ZEMA_ERR);
    } else {
        (void)QX_CLI_AsynPrint(*static_cast<const uint32_t *>(context), line, static_cast<uint32_t>(length));
    }
    *visited = 1;
    return ZEMA_OK;
}

} // namespace

static ArrayList *CMDAgent_GetKerCmdList()
{
    static ArrayList *holder;
    return ArrayList_GetArrayList(&holder);
}

uint32_t qx_ker_zema_cmd_reg(const char *pcCmd, ZemaCmdHandler pfnProc)
{
    if (pcCmd == nullptr || pfnProc == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    ArrayList *const list = CMDAgent_GetKerCmdList();
    if (list == nullptr) {
        return ZEMA_ERR;
    }
    KerCmdEntry present = {};
    if (list->pfnFind(list, compareName, pcCmd, &present) == 0) {
        return ZEMA_OK;
    }
    KerCmdEntry entry = {};
    (void)strncpy_s(entry.acName, sizeof entry.acName, pcCmd, sizeof entry.acName - 1);
    entry.pfnProc = pfnProc;
    const uint32_t added = list->pfnAdd(list, &entry, sizeof entry);
    if (added != 0) {
        report(__LINE__, ZEMA_ERR, added);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

uint32_t qx_ker_zema_cmd_unreg(const char *pcCmd)
{
    if (pcCmd == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    ArrayList *const list = CMDAgent_GetKerCmdList();
    if (list == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    if (list->pfnRemove(list, compareName, pcCmd) != 0) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

static uint32_t CMDAgent_ListKerCmds(uint32_t terminal)
{
    ArrayList *const list = CMDAgent_GetKerCmdList();
    if (list == nullptr) {
        return ZEMA_ERR;
    }
    if (list->pfnForEach(list, printName, &terminal) != 0) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

static uint32_t CMDAgent_CallKerCmd(uint32_t count, const char *const *strings)
{
    ArrayList *const list = CMDAgent_GetKerCmdList();
    if (list == nullptr) {
        return ZEMA_ERR;
    }
    KerCmdEntry entry = {};
    const uint32_t found = list->pfnFind(list, compareName, strings[2], &entry);
    if (found != 0) {
        // Another process may have it: the message went to all of them.
        report(__LINE__, found);
        return ZEMA_OK;
    }
    return entry.pfnProc == nullptr ? ZEMA_OK : entry.pfnProc(count, strings);
}

// ---- The receivers of ZEMA_EVENT_CMD ----

// The strings of a message, with a null pointer behind the last one.
using MessageStrings = std::array<const char *, ZEMA_CMD_MAX_STRINGS + 1>;

// The area comes from another process: its count may be wrong and its last string without an end. What does
// not end inside the area, and all that would follow it, is empty.
static void CMDAgent_SplitArgs(const char *area, uint32_t count, const char **strings)
{
    const char *const end = area + ZEMA_CMD_AREA_SIZE;
    for (uint32_t i = 0; i < count; ++i) {
        const void *const zero = std::memchr(area, '\0', static_cast<size_t>(end - area));
        strings[i] = zero == nullptr ? "" : area;
        area = zero == nullptr ? end : static_cast<const char *>(zero) + 1;
    }
}

namespace {

uint32_t terminalOf(const char *text)
{
    uint32_t terminal = 0;
    (void)QX_OS_StrToUInt32(text, &terminal);
    return terminal;
}

// Answers a message that names something under the root, two words behind usr or more.
void answerFromTree(uint32_t terminal, std::span<const char *const> strings)
{
    const auto words = strings.subspan(3);
    const auto [node, reached, depth] = zema::walkTree(Usr_Root, words.first(words.size() - 1));
    const auto rest = words.subspan(depth); // the word that the walk stopped at, and what is behind it

    if (rest.size() <= 2 && std::string_view(rest.back()) == "?") {
        if (reached != nullptr && reached->pfnHelp != nullptr) {
            reached->pfnHelp(terminal);
        } else {
            (void)CmdTree_PrintHelp(terminal, &strings[1], static_cast<uint32_t>(depth + 2), node);
        }
        return;
    }
    if (reached == nullptr || reached->pfnExec == nullptr) {
        return;
    }
    const auto arguments = rest.subspan(1);
    if (reached->ulArgNum != 0 && reached->ulArgNum != arguments.size()) {
        return;
    }
    const uint32_t done =
        reached->pfnExec(terminal, static_cast<uint32_t>(arguments.size()), arguments.data());
    if (done != 0 && reached->pfnHelp != nullptr) {
        reached->pfnHelp(terminal);
    }
}

} // namespace

static uint32_t CMDAgent_OnCmdEvent(void *data)
{
    const auto *const message = static_cast<const ZemaCmdMsg *>(data);
    if (message == nullptr || message->ulArgc > ZEMA_CMD_MAX_STRINGS) {
        report(__LINE__, ZEMA_ERR, addressValue(message));
        return ZEMA_ERR;
    }
    const uint32_t count = message->ulArgc;
    MessageStrings strings = {};
    CMDAgent_SplitArgs(message->acArgs, count, strings.data());
    uint32_t result = ZEMA_OK;
    if (count == 2) {
        result = CMDAgent_ListKerCmds(terminalOf(strings[0]));
    } else if (count > 2) {
        result = CMDAgent_CallKerCmd(count, strings.data());
    }
    if (result != ZEMA_OK) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    return ZEMA_OK;
}

static uint32_t CMDAgent_OnUsrCmdEvent(void *data)
{
    const auto *const message = static_cast<const ZemaCmdMsg *>(data);
    if (message == nullptr || message->ulArgc > ZEMA_CMD_MAX_STRINGS) {
        report(__LINE__, ZEMA_ERR, addressValue(message));
        return ZEMA_ERR;
    }
    const uint32_t count = message->ulArgc;
    MessageStrings strings = {};
    CMDAgent_SplitArgs(message->acArgs, count, strings.data());
    if (count < 3 || QX_OS_StrCaseCmp(strings[2], "usr") != 0) {
        return ZEMA_OK;
    }
    const uint32_t terminal = terminalOf(strings[0]);
    if (count <= 4) {
        (void)CmdTree_PrintHelp(terminal, &strings[1], 2, &Usr_Root);
    } else {
        answerFromTree(terminal, {strings.data(), count});
    }
    return ZEMA_OK;
}

// ---- Start and stop ----

namespace {

constexpr std::array kRpcTable = {
    QxRpcRow{.ulId = ZEMA_RPC_ID_DBGCMD, .pfnHandler = QX_ZEMA_RPC_ZemaDbg},
    QxRpcRow{.ulId = ZEMA_RPC_ID_CMD, .pfnHandler = QX_ZEMA_RPC_Zemaara},
    QxRpcRow{.ulId = QX_RPC_END_OF_TABLE, .pfnHandler = nullptr},
};

} // namespace

uint32_t CMDAgent_Init(void)
{
    const auto rows = kRpcTable;
    (void)QX_OS_MemSet_S(g_mid_dbg_level, sizeof g_mid_dbg_level, 255, sizeof g_mid_dbg_level);
    uint32_t result = QX_MSG_RegOverWriteRpcCalls(rows.data());
    if (result != 0) {
        report(__LINE__, result);
        return result;
    }
    result = EventCenter_SubscribeEvent(ZEMA_EVENT_CMD, CMDAgent_OnCmdEvent);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t CMDAgent_UnInit(void)
{
    const uint32_t result = EventCenter_RemoveEvent(ZEMA_EVENT_CMD, CMDAgent_OnCmdEvent);
    if (result != 0) {
        report(__LINE__, result);
    }
    return result;
}

uint32_t CMDAgent_Reg(void)
{
    return EventCenter_SubscribeEvent(ZEMA_EVENT_CMD, CMDAgent_OnUsrCmdEvent);
}
