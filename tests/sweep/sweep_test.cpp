// Every failure, everywhere: each exported function is driven through a scenario in which the platform's
// first, second, ... call fails, that one alone or all from then on, until the scenario has no such call any
// more. Whatever fails, the result is one that the function may give, a failure is on record, nothing is left
// behind, and the next call works.
#include "qx/cli.h"
#include "qx/host.h"
#include "qx/vdata.h"
#include "tests/support/processes.h"
#include "tests/sweep/failing_host.h"
#include "zema/zema.h"

#include <cstring>
#include <fstream>
#include <gmock/gmock.h>
#include <set>
#include <sstream>
#include <vector>

namespace {

using namespace zema::test;
using namespace std::string_literals;

FailingHost &host = FailingHost::instance();

constexpr uint32_t kTable = 3;
constexpr uint32_t kIndex = 7;

// The owner's answers: one item, of zeros but for what makes a layer record visible.
uint32_t serve(void *, const QxSyncRequest *request)
{
    const std::vector<uint32_t> words = request->ulCode == MULTIHASHTABLEEX_CODE_LIST
                                            ? std::vector<uint32_t>{1, kIndex}
                                            : std::vector<uint32_t>{kIndex, 0, 0, 0, kTable, 1};
    if (request->ulReplySize > 0) {
        std::memset(request->pvReply, 0, request->ulReplySize);
        std::memcpy(request->pvReply, words.data(), std::min<size_t>(request->ulReplySize, words.size() * 4));
    }
    return 0;
}

uint32_t visit(uint32_t, void *, void *)
{
    return 0;
}

uint32_t answer(uint32_t, const char *const *)
{
    return 0;
}

uint32_t onEvent(void *)
{
    return 0;
}

// What the kernel's side answers: the family, or a packet of two bytes.
std::string attribute(uint16_t type, const std::string &value)
{
    const auto size = static_cast<uint16_t>(4 + value.size());
    std::string text = std::string(reinterpret_cast<const char *>(&size), 2) +
                       std::string(reinterpret_cast<const char *>(&type), 2) + value;
    text.resize((text.size() + 3) / 4 * 4);
    return text;
}

std::string netlink(const std::string &attributes)
{
    const auto size = static_cast<uint32_t>(20 + attributes.size());
    return std::string(reinterpret_cast<const char *>(&size), 4) + "\x20\0\0\0"s + std::string(8, '\0') +
           "\1\1\0\0"s + attributes;
}

const std::string kFamily = netlink(attribute(2, "QXPKT\0"s) + attribute(1, "\x20\0"s));

struct State {
    char bytes[4096];
    LargeDataDesc desc;
    void *data;
    PktTunnelLink link;
    IndexArray pool;
    QxParaList *list;
    OptionValueList values;
    uint32_t word;
};
State st;

const auto nothing = [] {};

void forgetItem()
{
    MultiHashtable_DeleteData(kTable, kIndex);
}

void haveItem()
{
    MultiHashtable_SaveData(kTable, kIndex, "12345678", 8);
}

void haveBlock()
{
    QX_LargeDataWrite(&st.desc, st.bytes, sizeof st.bytes);
}

void freeData()
{
    QX_OS_MemFreeD(st.data);
    st.data = nullptr;
    QX_VDATA_FreeShm(st.desc.ulShmId);
    st.desc = {};
}

void haveLink()
{
    QX_PKT_TUNNEL_CreateLinkSocket(3, &st.link);
}

void dropLink()
{
    QX_PKT_TUNNEL_ReleaseLinkSocket(0, &st.link);
    st.link = {.ulPortId = 0, .ulFamilyId = 0, .lSockFd = -1, .ulLinkType = 0};
}

constexpr IndexArray kPool{.usInitialised = 0, .pusFree = nullptr, .usCapacity = 100, .usUsed = 0};

void havePool()
{
    st.pool = kPool;
    QX_UTL_InitIndexArray(&st.pool);
}

void dropPool()
{
    QX_UTL_FreeAllIndex(&st.pool);
    QX_OS_MemFreeD(st.pool.pusFree);
    st.pool = {};
}

void takeMessages()
{
    while (QxHost_Dispatch(0) == QX_OK) {
    }
}

uint32_t visitKey(uint32_t, void *, void *, void *, void *)
{
    return 0;
}

uint32_t saveRecord()
{
    LayerBaseHeader record{};
    record.ulIndex = kIndex;
    record.ulTableId = kTable;
    LayerBase_SetState(&record, 2);
    return LayerBase_SaveData(&record, sizeof record);
}

void unregister()
{
    DataAsync_UnregisterOnDataAsyncEvent(7, onEvent);
}

uint32_t receiveMessage()
{
    DataAsyncHeader message[2] = {};
    message[0].ulSender = ZEMA_MODULE_ID;
    message[0].ulPayloadSize = 8;
    return DataAsync_OnAsynDataReceive(message);
}

void havePacket()
{
    haveLink();
    host.kernelReply = netlink(attribute(2, "ab"));
}

uint32_t receivePacket()
{
    uint8_t *packet = nullptr;
    return QX_PKT_TUNNEL_RecvPkgBuf(&st.link, st.bytes, PKT_TUNNEL_BUFFER_SIZE, &packet, &st.word);
}

void leaveAgent()
{
    CMDAgent_UnInit();
}

void withdrawWord()
{
    qx_ker_zema_cmd_unreg("fw");
}

uint32_t command()
{
    char text[] = "fw show all";
    return QX_ZEMA_RPC_Zemaara(0x00030000, text, 0, 0, 0);
}

uint32_t appendRow()
{
    const DbAppendRow row{.ulFirst = 1, .ulSecond = 2, .ulThird = 3};
    return QX_UTL_DBAppendAllList(&row, sizeof row, st.list);
}

uint32_t useItsPool()
{
    uint16_t id = 0;
    return QX_UTL_NewIndex(&st.pool, &id) | QX_UTL_FreeIndex(&st.pool, id) | QX_UTL_FreeAllIndex(&st.pool);
}

uint32_t useABitMap()
{
    BitMap *const map = BitMapAlloc(100);
    uint32_t result = map == nullptr ? 1 : BitMapHold(map);
    if (result == 0) {
        BitMapSet(map, 0);
        EXPECT_TRUE(BitMapTestBit(map, 0) == 1 && BitMapFindFirstZeroBit(map) == 1);
        BitMapClr(map, 0);
        BitMapClrAll(map);
        result = BitMapPut(map);
    }
    BitMapFree(map);
    return result;
}

std::set<std::string> wordsOf(std::istream &&text)
{
    std::set<std::string> words;
    for (std::string word; text >> word;) {
        words.insert(word);
    }
    return words;
}

// Calls that may fail and all go well: their results are not looked at, or another way is taken.
const std::set<std::string> kUnnoticed{
    "QX_OS_MemFreeD",          "QX_OS_ExecShellCmd", "QX_OS_CmdEscape", "pfnGet",      "pfnFind",
    "EventCenter_InvokeEvent", "QX_OS_CloseSocket",  "QX_OS_Fclose",    "QX_OS_Remove"};

using Results = std::set<uint32_t>;
using Calls = std::set<std::string>;

const Results kNone{};
const Results kOne{1};
const Results kPassed{kInjected};
const Results kEither{1, kInjected};
const Results kDevice{ZEMA_ERR_NETDEV_SOCKET, ZEMA_ERR_NETDEV_IOCTL};
const Results kStored{ZEMA_ERR_LARGEDATA_NOMEM, kInjected, kInjected | QX_ERR, kInjected | QX_ERR_NOT_FOUND};
const Results kFetched{ZEMA_ERR_LARGEDATA_NOMEM, kInjected};

struct Row {
    const char *functions; // that are driven
    Results results;       // that they may give, but for 0
    Calls silent;          // whose failure leaves no record, as the function's header says
    void (*prepare)();
    void (*cleanUp)();
    uint32_t (*run)(); // 0 when all went well
};

Row row(const char *functions, const Results &results, const Calls &silent, void (*prepare)(),
        void (*cleanUp)(), uint32_t (*run)())
{
    return {functions, results, silent, prepare, cleanUp, run};
}

Row row(const char *functions, const Results &results, uint32_t (*run)())
{
    return {functions, results, {}, nothing, nothing, run};
}

const std::vector<Row> kRows = {
    row("MultiHashtable_GetTable", kOne, [] { return MultiHashtable_GetTable(kTable) ? 0U : 1U; }),
    row("MultiHashtable_SaveData MultiHashtable_AddData", kEither, {}, forgetItem, forgetItem,
        [] { return MultiHashtable_SaveData(kTable, kIndex, "12345678", 8); }),
    row("MultiHashtable_SaveData", {1, kInjected, QX_ERR_TAKEN}, {}, haveItem, forgetItem,
        [] { return MultiHashtable_SaveData(kTable, kIndex, "12", 2); }),
    row("MultiHashtable_GetData", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_GetData(kTable, kIndex, st.bytes, 8); }),
    row("MultiHashtable_DeleteData MultiHashtable_ReleaseData", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_DeleteData(kTable, kIndex); }),
    row("MultiHashtable_GetIndexList", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_GetIndexList(kTable, &st.word, 1, &st.word); }),
    row("MultiHashtable_ForeachDataItem", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_ForeachDataItem(kTable, visit, nullptr); }),
    row("MultiHashtable_FindDataItem", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_FindDataItem(kTable, visit, nullptr); }),
    row("MultiHashtable_ForeachDataItemExt", kEither, {}, haveItem, forgetItem,
        [] { return MultiHashtable_ForeachDataItemExt(kTable, visitKey, nullptr, nullptr, nullptr); }),
    row("MultiHashtableEx_SaveData", kEither,
        [] { return MultiHashtableEx_SaveData(kTable, kIndex, "12345678", 8); }),
    row("MultiHashtableEx_DeleteData", kPassed, [] { return MultiHashtableEx_DeleteData(kTable, kIndex); }),
    row("MultiHashtableEx_GetData", kPassed, {"DataSync_SyncData1"}, nothing, nothing,
        [] { return MultiHashtableEx_GetData(kTable, kIndex, st.bytes, 8); }),
    row("MultiHashtableEx_GetIndexList", kEither,
        [] { return MultiHashtableEx_GetIndexList(kTable, &st.word, 1, &st.word); }),
    row("MultiHashtableEx_ForeachDataItem", kEither,
        [] { return MultiHashtableEx_ForeachDataItem(kTable, 24, visit, nullptr); }),
    row("LayerBase_SetState LayerBase_SaveData", kEither, saveRecord),
    row("LayerBase_GetData", kPassed, {"DataSync_SyncData1"}, nothing, nothing,
        [] { return LayerBase_GetData(kTable, kIndex, st.bytes, 24); }),
    row("LayerBase_ForeachDataItem", kOne,
        [] { return LayerBase_ForeachDataItem(kTable, 24, visit, nullptr); }),
    row("DataAsync_GetEventHandle", kOne, {"EventHandle_GetEventHandle"}, nothing, nothing,
        [] { return DataAsync_GetEventHandle() != nullptr ? 0U : 1U; }),
    row("DataAsync_RegisterOnDataAsyncEvent", kEither, {}, nothing, unregister,
        [] { return DataAsync_RegisterOnDataAsyncEvent(7, onEvent); }),
    row(
        "DataAsync_UnregisterOnDataAsyncEvent", kEither, {},
        [] { DataAsync_RegisterOnDataAsyncEvent(7, onEvent); }, unregister,
        [] { return DataAsync_UnregisterOnDataAsyncEvent(7, onEvent); }),
    row("DataAsync_InvokeDataAsyncEvent", kEither, {"pfnInvoke"}, nothing, nothing,
        [] { return DataAsync_InvokeDataAsyncEvent(7, nullptr); }),
    row("DataAsync_AsyncSendData", kEither, {}, nothing, takeMessages,
        [] { return DataAsync_AsyncSendData(7, "data", 5); }),
    row("DataAsync_AsyncSendData", kEither, {}, nothing, takeMessages,
        [] { return DataAsync_AsyncSendData(7, nullptr, 0); }),
    row("DataAsync_OnAsynDataReceive", kEither, receiveMessage),
    row("QX_LargeDataWrite QX_LargeDataWriteInner", kStored, {}, nothing, freeData,
        [] { return QX_LargeDataWrite(&st.desc, st.bytes, sizeof st.bytes); }),
    row("QX_LargeDataWriteNoCompress", kStored, {}, nothing, freeData,
        [] { return QX_LargeDataWriteNoCompress(&st.desc, st.bytes, sizeof st.bytes); }),
    row("QX_LargeDataRead QX_LargeDataReadInner", kFetched, {}, haveBlock, freeData,
        [] { return QX_LargeDataRead(&st.desc, &st.data); }),
    row("QX_LargeDataReadNoDecompress", kFetched, {}, haveBlock, freeData,
        [] { return QX_LargeDataReadNoDecompress(&st.desc, &st.data); }),
    row("QX_PKT_TUNNEL_CreateLinkSocket", kOne, {}, nothing, dropLink,
        [] { return QX_PKT_TUNNEL_CreateLinkSocket(3, &st.link); }),
    row("QX_PKT_TUNNEL_SendPkg", kOne, {}, haveLink, dropLink,
        [] { return QX_PKT_TUNNEL_SendPkg(&st.link, "packet", 6); }),
    row("QX_PKT_TUNNEL_RecvPkgBuf", {UINT32_MAX}, {"QX_OS_Recv"}, havePacket, dropLink, receivePacket),
    row("QX_PKT_TUNNEL_ReleaseLinkSocket", kOne, {}, haveLink, nothing,
        [] { return QX_PKT_TUNNEL_ReleaseLinkSocket(0, &st.link); }),
    row("CMDAgent_Init CMDAgent_UnInit", kEither, {}, nothing, leaveAgent,
        [] { return CMDAgent_Init() != 0 ? 1U : CMDAgent_UnInit(); }),
    row("CMDAgent_Reg", kPassed, {"EventCenter_SubscribeEvent"}, nothing, leaveAgent, CMDAgent_Reg),
    row("qx_ker_zema_cmd_reg", kEither, {"ArrayList_GetArrayList"}, nothing, withdrawWord,
        [] { return qx_ker_zema_cmd_reg("fw", answer); }),
    row(
        "qx_ker_zema_cmd_unreg", kEither, {"ArrayList_GetArrayList", "pfnRemove"},
        [] { qx_ker_zema_cmd_reg("fw", answer); }, withdrawWord, [] { return qx_ker_zema_cmd_unreg("fw"); }),
    row("QX_ZEMA_RPC_Zemaara QX_ZEMA_Zemacmd_CheckPara QX_ZEMA_Zemacmd_CompileCmd QX_ZEMA_Cmd_Send_Hlp "
        "QX_ZEMA_Hlpsnd "
        "QX_ZEMA_AddTlvToHlpMsg",
        kEither, {"QX_CLI_SynPrint", "QX_OS_AddTlvToHlpMsg", "EventCenter_GlobalInvokeEvent2"}, nothing,
        nothing, command),
    row("NETDEV_GetIndexByDevName", kDevice,
        [] { return NETDEV_GetIndexByDevName("lo", reinterpret_cast<int32_t *>(&st.word)); }),
    row("NETDEV_GetDevNameByIndex", kDevice, [] { return NETDEV_GetDevNameByIndex(1, st.bytes, 16); }),
    row("NETDEV_GetNetDevStatus", kDevice, [] { return NETDEV_GetNetDevStatus("lo", &st.word); }),
    row("NETDEV_GetIpAddByDeviceName", kOne,
        [] { return NETDEV_GetIpAddByDeviceName("lo", &st.word, &st.word); }),
    row("NETDEV_GetMacByDeviceName NETDEV_GetMacByDeviceName_Inner", kDevice,
        [] { return NETDEV_GetMacByDeviceName("lo", st.bytes, 18); }),
    row("NETDEV_SetNetDevMac", kDevice, [] { return NETDEV_SetNetDevMac("lo", "0:1:2:3:4:5"); }),
    row("NETDEV_ConfigDevIntfUpDown", kEither, {"QX_OS_ExecShellCmd", "QX_OS_MemFreeD"}, nothing, nothing,
        [] { return NETDEV_ConfigDevIntfUpDown("eth0", 1); }),
    row("NETDEV_EnableGenerateLinkLocalAddr", kOne,
        [] { return NETDEV_EnableGenerateLinkLocalAddr("eth0", 1); }),
    row("NETDEV_DeleteNetDeviceByIndex", kPassed, [] { return NETDEV_DeleteNetDeviceByIndex(1); }),
    row("NETDEV_SetNetDevPrivFlag", kPassed, [] { return NETDEV_SetNetDevPrivFlag("lo", 1); }),
    row("get_dev_mac", kNone,
        [] { return get_dev_mac("lo", reinterpret_cast<uint8_t *>(st.bytes)) == 1 ? 0U : 1U; }),
    row(
        "QX_UTL_GetPid", kEither, {}, nothing,
        [] { std::filesystem::remove(host.scratch + "/zemad_key_pid.txt"); },
        [] { return QX_UTL_GetPid("zemad", "key", &st.word); }),
    row("QX_UTL_PrintToAllTerminal", kNone, {"QX_OS_MemMallocSet", "QX_CLI_SynPrint"}, nothing, nothing,
        [] { return QX_UTL_PrintToAllTerminal("%d", 1), 0U; }),
    row("QX_UTL_GetOptionValue", kOne, {"QX_OS_Fopen", "QX_OS_Fgets", "QX_OS_MemFreeD"}, nothing, nothing,
        [] { return QX_UTL_GetOptionValue("1", "name", &st.values); }),
    row("QX_UTL_GetDhcpHdrOptValue", kOne, {"QX_OS_Fopen", "QX_OS_Fgets", "QX_OS_MemFreeD"}, nothing, nothing,
        [] { return QX_UTL_GetDhcpHdrOptValue("1", "name", st.bytes, 16); }),
    row(
        "QX_UTL_DBAppendAllList", kPassed, {}, [] { st.list = QxHost_ParaListOpen(); },
        [] { QxHost_ParaListClose(st.list); }, appendRow),
    row(
        "QX_UTL_InitIndexArray", kOne, {}, [] { st.pool = kPool; }, dropPool,
        [] { return QX_UTL_InitIndexArray(&st.pool); }),
    row("QX_UTL_NewIndex QX_UTL_FreeIndex QX_UTL_FreeAllIndex", kNone, {}, havePool, dropPool, useItsPool),
    row("BitMapAlloc BitMapFree BitMapHold BitMapPut BitMapSet BitMapClr BitMapClrAll BitMapTestBit "
        "BitMapFindFirstZeroBit",
        kEither, {"QX_OS_MemMallocSet", "QX_OS_MemFreeD", "QX_OS_MutexLock", "QX_OS_MutexUnLock"}, nothing,
        nothing, useABitMap),
    row("QX_StrReplaceSubStr", kOne, [] { return QX_StrReplaceSubStr("a-b", "-", "+", st.bytes, 16); }),
    row("QX_UTL_ValidateSubnetMask QX_UTL_ValidateHostIpWithSubnetMask QX_UTL_IsMask24BitOrMore", kEither,
        {"QX_OS_InetPton", "QX_OS_MemMallocD"}, nothing, nothing,
        [] {
            return QX_UTL_ValidateSubnetMask("255.255.255.0") | QX_UTL_IsMask24BitOrMore("255.255.255.0") |
                   QX_UTL_ValidateHostIpWithSubnetMask("10.0.0.1", "255.0.0.0");
        }),
    row("QX_UTL_ValidateIpv6Address QX_UTL_ValidateIpv6Mask IPv6Address_ConvertFromString "
        "IPv6Address_ConvertToString",
        kEither, {"QX_OS_InetPton"}, nothing, nothing,
        [] {
            auto *const address = reinterpret_cast<uint8_t *>(st.bytes);
            return QX_UTL_ValidateIpv6Address("fe80::1") | QX_UTL_ValidateIpv6Mask("ffff::", &st.word) |
                   IPv6Address_ConvertFromString("fe80::1", address) |
                   IPv6Address_ConvertToString(address, st.bytes + 16, 64);
        }),
    row("QX_UTL_ConvHostNameToIpAddr QX_UTL_IpStrToAddr QX_UTL_GetIpAddrStr QX_UTL_IsIpAddrValid "
        "QX_UTL_CheckIPV6_FE8_AND_FEC",
        kEither, {"QX_OS_InetPton"}, nothing, nothing,
        [] {
            IpAddrRecord record{};
            const bool right = QX_UTL_IpStrToAddr("fe80::1", &record) != nullptr &&
                               QX_UTL_GetIpAddrStr(&record, st.bytes, 64) != nullptr &&
                               QX_UTL_IsIpAddrValid(&record) == 1;
            return right && QX_UTL_CheckIPV6_FE8_AND_FEC("2001::1") == 0
                       ? QX_UTL_ConvHostNameToIpAddr("10.0.0.1", &record)
                       : 1U;
        }),
};

// What computes and calls nothing that can fail is driven by nothing: its tests see all that it does.
const std::set<std::string> kPure = wordsOf(std::istringstream(R"(
    DataValidator_CheckOnlyValidate DataValidator_CheckValidate DataValidator_IsElementOf DataValidator_IsInRangeOf
    DataValidator_IsLengthInRangeOf DataValidator_IsValidateString1 DataValidator_IsValidateString2
    Index_GetId Index_GetPrototype Index_GetValidWanDevInst Index_Gettype Index_IsBrIndex Index_IsDMZIfIndex
    Index_IsIndexTypeEqual Index_IsSshifIndex Index_IsTunnel6RDIndex Index_IsTunnelIndex Index_IsTwampIndex
    Index_IsVlanIfIndex Index_IsWanIndex Index_MakeIndex NameValueMap_GetName NameValueMap_GetValue
    TR181_Common_BridgeIndexToPath TR181_Common_GetPrototype TR181_Common_MakeIndex QX_UTL_ATOI
    QX_UTL_CheckIPv6MaskNum QX_UTL_CheckIpAddressIsValid QX_UTL_CheckNum QX_UTL_Checksum QX_UTL_ConvertIpAddrToStandard
    QX_UTL_GetIPv6MaskBitLen QX_UTL_GetSubNetMaskNum QX_UTL_ISDomainSplitValid QX_UTL_ISDomainValid QX_UTL_IpAddrSplit
    QX_UTL_IsIpRange QX_UTL_MacArrToStr QX_UTL_MacStrToArr QX_UTL_ValidateHostIpAddress QX_UTL_ValidateIpAddress
    QX_UTL_ValidateIpSameSubNet QX_UTL_ValidateMacAddress QX_UTL_ValidateMacAddress_Inner QX_UTL_ValidateNumber
    QX_UTL_ValidateThreeNumber QX_ZEMA_Zemacmd_Check1DigPara QX_ZEMA_Zemacmd_Check2DigPara
    QX_ZEMA_Zemacmd_CheckForCtpDetail QX_ZEMA_Zemacmd_CheckForDbg QX_ZEMA_Zemacmd_CheckForDetail
    QX_ZEMA_Zemacmd_CheckForPktInfo QX_ZEMA_Zemacmd_CheckForVbrFw QX_ZEMA_Zemacmd_CheckRouteShowPara
    QX_ZEMA_Zemacmd_ComCheckPara
)"));

// What a scenario may leave behind.
struct Holding {
    int64_t blocks = host.blocks;
    int64_t locks = host.locks;
    size_t descriptors = entriesOf("/proc/self/fd");
    size_t sharedMemory = entriesOf("/dev/shm");
    size_t files = entriesOf(host.scratch);

    bool operator==(const Holding &) const = default;
    static size_t entriesOf(const std::string &folder)
    {
        size_t count = 0;
        for ([[maybe_unused]] const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
            ++count;
        }
        return count;
    }
};

class Sweep : public Scratch {
protected:
    Sweep()
    {
        host.scratch = dir_ + "/var";
        std::filesystem::create_directories(host.scratch + "/wan/1");
        std::ofstream(host.scratch + "/wan/1/config") << "name=a b c\n";
        QxHost_ServeSync(serve, nullptr);
        QxHost_ServeModule(
            ZEMA_MODULE_ID, [](void *, void *, uint32_t) { return 0U; }, nullptr);
        QxHost_ServeKernel([](void *, const void *, uint32_t) { return 0U; }, nullptr);
        QxHost_ServeTerminal(
            3, [](void *, const QxPrint *) { return 0U; }, nullptr);
    }

    // With the nth call failing: false when there is no such call.
    static bool run(const Row &row, uint32_t nth, bool staysSo)
    {
        host.kernelReply = kFamily;
        row.prepare();
        host.arm(nth, staysSo);
        const uint32_t result = row.run();
        host.disarm();
        const std::string failed = host.failed.empty() ? "nothing" : host.failed.back();
        SCOPED_TRACE("call " + std::to_string(nth) + (staysSo ? " and all later" : "") + " failing, last " +
                     failed);
        EXPECT_TRUE(result == 0 || row.results.count(result) != 0) << std::hex << result;
        EXPECT_TRUE(!host.failed.empty() || result == 0) << "without a failure";
        EXPECT_TRUE(result == 0 || !host.codes.empty() || row.silent.count(failed) != 0) << "no record";
        EXPECT_TRUE(result != 0 || host.failed.empty() || !host.codes.empty() ||
                    kUnnoticed.count(failed) != 0 || row.silent.count(failed) != 0)
            << "not noticed";
        row.cleanUp();
        return !host.failed.empty();
    }

    static uint32_t sweep(const Row &row, bool staysSo)
    {
        run(row, 0, false); // what stays for the life of the process is made
        const Holding before;
        uint32_t nth = 1;
        while (run(row, nth, staysSo)) {
            EXPECT_EQ(Holding(), before) << "left behind: call " << nth << " of " << row.functions;
            run(row, 0, false);
            EXPECT_EQ(Holding(), before) << "left behind by the next call: " << row.functions;
            ++nth;
        }
        return nth - 1;
    }
};

TEST_F(Sweep, EveryFailureGivesAResultARecordAndEverythingBack)
{
    uint32_t injected = 0;
    std::set<std::string> driven = kPure;
    for (const Row &row : kRows) {
        SCOPED_TRACE(row.functions);
        driven.merge(wordsOf(std::istringstream(row.functions)));
        injected += sweep(row, false) + sweep(row, true);
    }
    std::set<std::string> exported;
    for (std::string word : wordsOf(std::ifstream(ZEMA_EXPORTS))) {
        const bool isFunction =
            word.back() == ';' && word.rfind("g_", 0) != 0 && word != "Usr_Root;" && word.size() > 3;
        word.pop_back();
        isFunction ? (void)exported.insert(word) : (void)0;
    }
    EXPECT_THAT(driven, testing::ContainerEq(exported));
    std::printf("sweep: %u failures injected in %zu scenarios of %zu functions\n", injected, kRows.size(),
                driven.size() - kPure.size());
}

} // namespace
