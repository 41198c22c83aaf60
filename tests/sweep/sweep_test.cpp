// Every exported function in a scenario, again and again, with its first, second, third platform call
// failing, alone or with all behind it: results, records, what is left behind, and that the next call works.
#include "qx/qx.h"
#include "table_service.h"
#include "tests/support/processes.h"
#include "tests/sweep/failing_platform.h"
#include "zema/zema.h"

#include <array>
#include <cstring>
#include <dlfcn.h>
#include <fstream>
#include <regex>
#include <sstream>

using namespace zema::test;
using namespace std::string_literals;

namespace {

// What the scenarios work on.
struct Things {
    uint32_t table = 0x1000;      // another one for each failure
    uint32_t newTable = 0x100000; // that was not there
    uint32_t word = 0, words[4] = {};
    int32_t number = 0;
    uint16_t id = 0;
    alignas(4) char event[88] = {};
    char text[256] = {}, large[4096] = {};
    uint8_t bytes[2072] = {}, *packet = nullptr;
    void *blocks[3] = {};
    BitMap *maps[2] = {};
    Hashtable *items = nullptr;
    QxParaList *list = nullptr;
    IndexArray pools[2] = {};
    LargeDataDesc descs[3] = {};
    PktTunnelLink link = {};
    IpAddrRecord address = {};
    OptionValueList values = {};
    DataValidatorCheckOnlyRule rule = {};
    LayerBaseHeader layer = {1, 0, 0, 0, 7, 1};
    CmdTreeNode node = {"wan", nullptr, nullptr, 0, nullptr, nullptr};
} t;

constexpr char kList[] = "/var/it_key_pid.txt";
const DbAppendRow kAppend[2] = {};
const HlpTlvMsg kRequest = {7, 0, 0, 0, 0};
const NameValueMapEntry kMap[1] = {{"a", 1}};
const std::string kFamily =
    "\x28\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0\1\1\0\0\xA\0\2\0QXPKT\0\0\0\6\0\1\0\x1C\0\0\0"s;
const std::string kPacket = "\x1C\0\0\0\x1C\0\0\0\0\0\0\0\0\0\0\0\2\1\0\0\x8\0\2\0abcd"s;

// The owner's side is another process's: its calls are none of the scenario's.
uint32_t serve(void *context, const QxSyncRequest *request)
{
    const bool watching = std::exchange(platform.watching, false);
    const bool isTable = request->ulCode >= MULTIHASHTABLEEX_CODE_SAVE && request->ulCode < 18;
    const uint32_t result = isTable ? tools::serveTables(context, request) : QX_OK;
    platform.watching = watching;
    return result;
}

constexpr auto accept = [](auto...) { return 0U; };
constexpr uint32_t (*kCallback)(void *) = accept;

// What every scenario may need.
void prepare()
{
    EXPECT_EQ(QxHost_ServeSync(serve, nullptr) | QxHost_ServeModule(ZEMA_MODULE_ID, accept, nullptr) |
                  QxHost_ServeTerminal(3, accept, nullptr) | QxHost_ServeKernel(accept, nullptr),
              QX_OK);
    EXPECT_EQ(MultiHashtable_SaveData(t.table, 1, "12345678", 8), 0U);
    EXPECT_EQ(MultiHashtable_SaveData(7, 2, &t.layer, sizeof t.layer), 0U);
    EXPECT_EQ(DataAsync_RegisterOnDataAsyncEvent(8, kCallback) | qx_ker_zema_cmd_reg("old", accept), 0U);
    EXPECT_EQ(QX_OS_InitHlpMsg(t.bytes, 0, 1, 0, 0), QX_OK);
    t.event[36] = ZEMA_MODULE_ID, t.event[76] = 4;
    t.link = {1, 28, QX_OS_Socket(0, 0, 0), 3}, platform.received = kPacket;
    t.maps[0] = BitMapAlloc(40);
    t.list = QxHost_ParaListOpen();
    t.pools[0] = t.pools[1] = {0, nullptr, 4, 0};
    t.blocks[0] = QX_OS_MemMallocD(4);
    std::fill_n(t.descs, 3, LargeDataDesc{});
    std::memset(t.text, 0, sizeof t.text);
}

void give(void *block)
{
    block != nullptr ? (void)QX_OS_MemFreeD(block) : void();
}

// Takes back what the scenario made, or did not.
void tidy()
{
    for (BitMap *&map : t.maps) {
        EXPECT_TRUE(map == nullptr || pthread_mutex_trylock(&map->stLock) == 0) << "held";
        EXPECT_TRUE(map == nullptr || pthread_mutex_unlock(&map->stLock) == 0);
        BitMapFree(std::exchange(map, nullptr));
    }
    for (void *const block : {t.blocks[0], t.blocks[1], t.blocks[2]}) {
        give(block);
    }
    std::fill_n(t.blocks, 3, nullptr);
    give(t.pools[0].pusFree), give(t.pools[1].pusFree);
    for (const LargeDataDesc &desc : t.descs) {
        (void)QX_VDATA_FreeShm(desc.ulShmId);
    }
    for (const char *word :
         {"old", "new", "fw", "usr", ""}) { // the last one is that of a word that was not copied
        (void)qx_ker_zema_cmd_unreg(word);
    }
    for (const uint32_t index : {1U, 2U, 3U}) {
        for (const uint32_t table : {t.table, t.newTable, 7U}) {
            (void)MultiHashtable_DeleteData(table, index);
        }
    }
    (void)(DataAsync_UnregisterOnDataAsyncEvent(7, kCallback) +
           DataAsync_UnregisterOnDataAsyncEvent(8, kCallback));
    for (const std::string &call : platform.failed) { // a list that could not be opened or named stays
        call.starts_with("Fopen") || call.starts_with("snprintf_s") ? (void)QX_OS_Remove(kList) : void();
    }
    (void)close(t.link.lSockFd); // as a rule
    EXPECT_EQ(QxHost_ParaListClose(t.list) | QxHost_Leave(), QX_OK);
}

void command(const std::string &text)
{
    text.copy(t.text, sizeof t.text);
    Usr_Root.pstChild = &t.node;
    EXPECT_EQ(qx_ker_zema_cmd_reg("fw", accept) | qx_ker_zema_cmd_reg("usr", accept), 0U);
    EXPECT_EQ(CMDAgent_Init() | CMDAgent_Reg(), 0U);
}

void write()
{
    EXPECT_EQ(QX_LargeDataWrite(t.descs, t.large, 4096) | QX_LargeDataWrite(t.descs + 2, t.large, 4096) |
                  QX_LargeDataWriteNoCompress(t.descs + 1, t.large, 4096),
              0U);
}

// What a failed call hands out or leaves is no one's to take back. There is data, or an item, or a failure.
uint32_t isWritten(LargeDataDesc &desc, uint32_t result)
{
    desc.ulShmId = result == 0 ? desc.ulShmId : 0;
    return result;
}

uint32_t isRead(LargeDataDesc &desc, void *data, uint32_t result)
{
    desc = {};
    return (result == 0) == (data != nullptr) ? result : 99;
}

uint32_t isAdded(uint32_t index, uint32_t result)
{
    return (result == 0) == (t.items->pfnHasKey(t.items, index) == 1) ? result : 99;
}

// Of several results that of the first failure.
uint32_t first(std::initializer_list<uint32_t> results)
{
    return *std::find_if(results.begin(), results.end() - 1, [](uint32_t result) { return result != 0; });
}

// A scenario's result; what becomes of it when a platform call fails: "NAME:RESULT" or "NAME:RESULT!RECORD"
// in hexadecimal, # for the call's own code, "!" alone for a record of the result, NAME.2 for the second call
// only. A failure that is not named changes neither result nor records; "-": there is no call at all, not
// even of what cannot fail.
struct Row {
    uint32_t success;
    std::string outcomes;
    std::string text; // of what follows, which names the functions
    uint32_t (*act)();
    void (*before)() = [] {};
};

const std::string kSend = "MemMallocD:0!f7307002 InitHlpMsg:0!f7307001 AddTlvToHlpMsg:0!# HLP_Send:0!# "
                          "EventCenter_GlobalInvokeEvent2:0!# ArrayList_GetArrayList:0!1 ";

// clang-format off
#define SCENARIO(...) #__VA_ARGS__, [] __VA_ARGS__
const Row kRows[] = {
    {1, "MemMallocSet:0 EventHandle_GetEventHandle:0 InetPton:0 InetNtop:0 Hashtable_GetHashtable3:0!1 "
     "Hashtable_Create:0!1 tables.put:0!#",
     SCENARIO({ return uint32_t{(t.maps[1] = BitMapAlloc(40)) != nullptr &&
                MultiHashtable_GetTable(t.newTable) != nullptr && DataAsync_GetEventHandle() != nullptr &&
                QX_UTL_IpStrToAddr("1.2.3.4", &t.address) != nullptr && QX_UTL_IsIpAddrValid(&t.address) == 1 &&
                QX_UTL_GetIpAddrStr(&t.address, t.text, 99) != nullptr}; }), [] { ++t.newTable; }},
    {0, "MutexLock:# MutexUnLock:#",
     SCENARIO({ const uint32_t held = BitMapHold(t.maps[0]); return held != 0 ? held : BitMapPut(t.maps[0]); })},
    {0, "",
     SCENARIO({ return first({(BitMapFree(std::exchange(t.maps[0], nullptr)), 0U),
                MultiHashtable_ReleaseData(std::exchange(t.blocks[0], nullptr)),
                (QX_UTL_PrintToAllTerminal("%d", 1), LayerBase_SetState(&t.layer, 2), LayerBase_SetState(&t.layer, 3),
                0U), NameValueMap_GetName(kMap, 1, 1, t.text, 9), QX_UTL_ConvHostNameToIpAddr("1.2.3.4", &t.address),
                QX_StrReplaceSubStr("abc", "b", "d", t.text, 1) - 1}); })},
    {0, "MSG_RegOverWriteRpcCalls:#! EventCenter_SubscribeEvent.1:#! EventCenter_SubscribeEvent.2:# "
     "EventCenter_RemoveEvent:#!",
     SCENARIO({ return first({CMDAgent_Init(), CMDAgent_Reg(), CMDAgent_UnInit()}); })},
    {0, "ArrayList_GetArrayList.1:1 ArrayList_GetArrayList.2:1! add:1! remove:1!",
     SCENARIO({ return first({qx_ker_zema_cmd_reg("new", accept), qx_ker_zema_cmd_unreg("old")}); })},
    {0, kSend + "find:0!# snprintf_s:0!1 UInt32ToStr_S:0!1 memcpy_s:0!f1000007",
     SCENARIO({ return QX_ZEMA_RPC_Zemaara(0x30000, t.text, 0, 0, 0); }), [] { command("fw show all"); }},
    {0, kSend + "forEach:0!1 snprintf_s:0!1",
     SCENARIO({ return QX_ZEMA_Cmd_Send_Hlp(t.text, 2), 0U; }), [] { command("3\0Zemacmd"s); }},
    {0, kSend + "find:0!# memcpy_s:0!f1000007",
     SCENARIO({ return QX_ZEMA_Cmd_Send_Hlp(t.text, 3), 0U; }), [] { command("3\0Zemacmd\0usr"s); }},
    {0, "MemMallocD:f7307002! InitHlpMsg:f7307001! AddTlvToHlpMsg:0!# HLP_Send:#!",
     SCENARIO({ return QX_ZEMA_AddTlvToHlpMsg(t.bytes, 1, 4, "abcd"), QX_ZEMA_Hlpsnd(&kRequest, 0, 0); })},
    {1, "IsDigitStr:0!1 StrToUInt32:0!1 StrToInt32.1:0!1 strncpy_s:0!1",
     SCENARIO({ return QX_ZEMA_Zemacmd_CheckPara("vbr-fw dbg vbr-id 5", 19, 1) &
                QX_ZEMA_Zemacmd_CheckForVbrFw("c", "c 5", 3) & QX_ZEMA_Zemacmd_CheckForCtpDetail("c", "c 5", 3) &
                QX_ZEMA_Zemacmd_CheckForDetail("c", "c 5", 3) & QX_ZEMA_Zemacmd_CheckForDbg("c", "c 5 6", 5); })},
    {1, "IsDigitStr:0!1 strncpy_s:0!1",
     SCENARIO({ return QX_ZEMA_Zemacmd_CheckForPktInfo("c", "c 5", 3) &
                QX_ZEMA_Zemacmd_CheckRouteShowPara("c", "c all", 5) &
                QX_ZEMA_Zemacmd_Check1DigPara("c", "c 5", 3, &t.word) &
                QX_ZEMA_Zemacmd_Check2DigPara("c", "c 5 6", 5, &t.number, &t.number); })},
    {0, "EventHandle_GetEventHandle:1! register:#! unregister:#! invoke:#! MemMallocD:1! MSG_AsynSend:#!",
     SCENARIO({ return first({DataAsync_RegisterOnDataAsyncEvent(7, kCallback),
                DataAsync_UnregisterOnDataAsyncEvent(8, kCallback), DataAsync_OnAsynDataReceive(t.event),
                DataAsync_AsyncSendData(7, "abcd", 4), DataAsync_AsyncSendData(7, nullptr, 0)}); })},
    {0, "EventHandle_GetEventHandle:1! invoke:#", SCENARIO({ return DataAsync_InvokeDataAsyncEvent(8, nullptr); })},
    {0, "Hashtable_GetHashtable3:1! Hashtable_Create:1! tables.get.1:0 tables.get:1! tables.put:1!# MemMallocD:1! "
     "get.3:f1000008! put.3:1! put:#!",
     SCENARIO({ return first({MultiHashtable_SaveData(t.newTable, 1, "abcdefgh", 8),
                MultiHashtable_SaveData(t.newTable, 2, "abcd", 4),
                MultiHashtable_SaveData(t.newTable, 1, "ijkl", 4)}); }), [] { ++t.newTable; }},
    {0, "MemMallocD:1! put.1:#! Hashtable_Create:1! put.2:1!",
     SCENARIO({ return isAdded(3, MultiHashtable_AddData(t.items, 3, "abcd", 4)); }),
                [] { t.items = MultiHashtable_GetTable(t.table); }},
    {0, "Hashtable_GetHashtable3:1! tables.get:1! MemMallocD:1! keys:#! get:#! remove:#! forEach:#!",
     SCENARIO({ return first({MultiHashtable_GetData(t.table, 1, t.words, 8),
                MultiHashtable_GetIndexList(t.table, t.words, 4, &t.word),
                MultiHashtable_ForeachDataItem(t.table, accept, nullptr),
                MultiHashtable_FindDataItem(t.table, accept, nullptr),
                MultiHashtable_ForeachDataItemExt(t.table, accept, nullptr, nullptr, nullptr),
                MultiHashtable_DeleteData(t.table, 1)}); })},
    {0, "MemMallocD:1! DataSync_SyncData1:#! memcpy_s.1:f100000a! memcpy_s.4:f1000007!",
     SCENARIO({ return first({MultiHashtableEx_SaveData(t.table, 1, "abcd", 4),
                MultiHashtableEx_GetIndexList(t.table, t.words, 4, &t.word),
                MultiHashtableEx_ForeachDataItem(t.table, 8, accept, nullptr),
                MultiHashtableEx_DeleteData(t.table, 1)}); })},
    {0, "DataSync_SyncData1:#",
     SCENARIO({ return first({MultiHashtableEx_GetData(t.table, 1, t.words, 8),
                LayerBase_GetData(7, 2, t.bytes, 24)}); })},
    {0, "MemMallocD:1! DataSync_SyncData1.1:#! DataSync_SyncData1:1!# memcpy_s.1:f100000a! memcpy_s.3:1!f1000007",
     SCENARIO({ return first({LayerBase_SaveData(&t.layer, 24), LayerBase_ForeachDataItem(7, 24, accept, nullptr)});
                })},
    {0, "MemMallocSet:f7108001! Compress:#! VDATA_CreShm:1235! VDATA_UpdateData:#!",
     SCENARIO({ return first({isWritten(t.descs[0], QX_LargeDataWrite(&t.descs[0], t.large, 4096)),
                isWritten(t.descs[1], QX_LargeDataWriteNoCompress(&t.descs[1], t.large, 4096)),
                isWritten(t.descs[2], QX_LargeDataWriteInner(&t.descs[2], t.large, 4096, 1))}); })},
    {0, "MemMallocD:f7108001! VDATA_ReadData:#! VDATA_FreeShm:#! Decompress:#!",
     SCENARIO({ const uint32_t results[] = {QX_LargeDataRead(&t.descs[0], &t.blocks[0]),
                QX_LargeDataReadNoDecompress(&t.descs[1], &t.blocks[1]),
                QX_LargeDataReadInner(&t.descs[2], &t.blocks[2], 1)};
                return first({isRead(t.descs[0], t.blocks[0], results[0]),
                isRead(t.descs[1], t.blocks[1], results[1]), isRead(t.descs[2], t.blocks[2], results[2])}); }),
                [] { give(t.blocks[0]), write(); }},
    {0, "Socket:1! Bind:1! MemMallocD:1! memset_s:1! Sendto:1! Recv:1! memcpy_s:0!1",
     SCENARIO({ return QX_PKT_TUNNEL_CreateLinkSocket(3, &t.link); }),
                [] { (void)close(std::exchange(t.link.lSockFd, -1)), platform.received = kFamily; }},
    {0, "MemMallocD:1! memset_s:1! Sendto:1! Recv:ffffffff memcpy_s:0!1 Close:1!",
     SCENARIO({ return first({QX_PKT_TUNNEL_SendPkg(&t.link, "abcd", 4),
                QX_PKT_TUNNEL_RecvPkgBuf(&t.link, t.bytes, 2072, &t.packet, &t.word),
                QX_PKT_TUNNEL_ReleaseLinkSocket(0, &t.link)}); })},
    {0, "MemMallocSet:1! ExecShellCmd.1:#",
     SCENARIO({ return first({NETDEV_ConfigDevIntfUpDown("lo", 1), NETDEV_EnableGenerateLinkLocalAddr("lo", 1)}); })},
    {0, "DataSync_SyncData:#! Socket:f730100a! IoctlSocket:f7301015! sscanf_s:0!1",
     SCENARIO({ return first({NETDEV_DeleteNetDeviceByIndex(1), NETDEV_SetNetDevPrivFlag("lo", 1),
                NETDEV_GetDevNameByIndex(1, t.text, 16), NETDEV_GetIndexByDevName("lo", &t.number),
                NETDEV_GetNetDevStatus("lo", &t.word), NETDEV_GetMacByDeviceName("lo", t.text, 18),
                NETDEV_GetMacByDeviceName_Inner("lo", t.text, 18), NETDEV_SetNetDevMac("lo", "0:1:2:3:4:5")}); })},
    {0, "Socket:1!ffffffff IoctlSocket:1!ffffffff",
     SCENARIO({ return NETDEV_GetIpAddByDeviceName("lo", &t.word, t.words); })},
    {1, "socket:ffffffff!1 ioctl:ffffffff!1 strncpy_s:ffffffff!1",
     SCENARIO({ return static_cast<uint32_t>(get_dev_mac("lo", t.bytes)); })},
    {0, "StripSpace:#! MemMallocSet:1! snprintf_s:1! ExecShellCmd:1! Fopen:1! Feof:1! Fgets:1! sscanf_s:1!",
     SCENARIO({ return QX_UTL_GetPid("it", "k ey", &t.word); })},
    {0, "MemMallocD:1! Fopen:1 Fgets:1 snprintf_s:1!",
     SCENARIO({ return first({QX_UTL_GetOptionValue("w", "tr069srv", &t.values),
                QX_UTL_GetDhcpHdrOptValue("w", "tr069srv", t.text, 99)}); })},
    {0, "XML_DBAppendAllParaToParaList:#!",
     SCENARIO({ return QX_UTL_DBAppendAllList(kAppend, sizeof kAppend, t.list); })},
    {0, "MemMallocD:1!",
     SCENARIO({ return first({QX_UTL_InitIndexArray(t.pools), QX_UTL_NewIndex(t.pools + 1, &t.id)}); })},
    {0, "InetPton:1 InetNtop:1 StrToIpAddr:1 MemMallocD:1 InetAddr:1 StrToInt32:1233",
     SCENARIO({ return first({IPv6Address_ConvertFromString("::2", t.bytes),
                IPv6Address_ConvertToString(t.bytes, t.text, 99), QX_UTL_ConvHostNameToIpAddr("::2", &t.address),
                QX_UTL_ConvertIpAddrToStandard("010.1.1.1", t.text, 16), QX_UTL_ValidateSubnetMask("255.0.0.0"),
                QX_UTL_ValidateHostIpWithSubnetMask("192.168.1.5", "255.255.255.0"),
                QX_UTL_IsMask24BitOrMore("255.255.255.0"), QX_UTL_ValidateHostIpAddress("0004.1.1.1") - 1,
                QX_UTL_CheckIpAddressIsValid("0004.1.1.1") - 1}); })},
    {1, "strncpy_s:0!1 InetAddr:0!1", SCENARIO({ return QX_UTL_IsIpRange("192.168.1.1-192.168.1.9"); })},
    {0, "InetPton:1!",
     SCENARIO({ return first({QX_UTL_ValidateIpv6Address("::2"), QX_UTL_CheckIPV6_FE8_AND_FEC("::2"),
                QX_UTL_ValidateIpv6Mask("ffff::", &t.word)}); })},
    {0, "sscanf_s:0!1 snprintf_s:0!1 strncat_s:0!1 UInt32ToStr_S:0!1",
     SCENARIO({ return first({QX_UTL_MacStrToArr("0:1:2:3:4:5", t.bytes), QX_UTL_MacArrToStr(t.bytes, t.text, 99),
                TR181_Common_BridgeIndexToPath(&t.word, t.text, 99), QX_StrReplaceSubStr("abc", "b", "d", t.text, 99),
                QX_ZEMA_Zemacmd_CompileCmd(3, t.large, t.text, &t.word)}); })},
    {1, "-",
     SCENARIO({ BitMapClrAll(t.maps[0]), BitMapSet(t.maps[0], 0), BitMapSet(t.maps[0], 1), BitMapClr(t.maps[0], 1);
                return BitMapTestBit(t.maps[0], 0) & static_cast<uint32_t>(BitMapFindFirstZeroBit(t.maps[0])); })},
    {1, "-",
     SCENARIO({ return QX_UTL_FreeIndex(t.pools,
                t.id) | QX_UTL_FreeAllIndex(t.pools) | QX_ZEMA_Zemacmd_ComCheckPara("c", "c", 1); }),
                [] { (void)QX_UTL_NewIndex(t.pools, &t.id); }},
    {0, "-",
     SCENARIO({ return first({NameValueMap_GetValue(kMap, 1, "A", &t.word), DataValidator_IsElementOf("a", kMap, 1),
                DataValidator_IsInRangeOf(2, 1, 3), DataValidator_IsLengthInRangeOf("a", 1, 2),
                DataValidator_IsValidateString1("a", 1, 2, "b"), DataValidator_IsValidateString2("a", "b"),
                DataValidator_CheckValidate(&t.rule.stRule, 1), DataValidator_CheckOnlyValidate(&t.rule, 1)}); })},
    {10, "-",
     SCENARIO({ return Index_IsBrIndex(3U << 28U) + Index_IsTunnelIndex(4U << 28U) +
                Index_IsTunnel6RDIndex(13U << 28U) + Index_IsDMZIfIndex(15U << 28U) +
                Index_IsIndexTypeEqual(3U << 28U, 3) + Index_IsSshifIndex(ZEMA_INDEX_SSHIF) +
                Index_IsTwampIndex(ZEMA_INDEX_TWAMP) + Index_IsWanIndex(1U << 28U) + Index_IsVlanIfIndex(11U << 28U) +
                static_cast<uint32_t>(Index_GetValidWanDevInst(99)); })},
    {9, "-",
     SCENARIO({ TR181_Common_MakeIndex(9, 1, 2, 3, t.words),
                TR181_Common_GetPrototype(t.words[0], &t.word, t.bytes, t.bytes, t.bytes);
                Index_MakeIndex(t.word, 1, 2, 3, t.words),
                Index_GetPrototype(t.words[0], &t.word, t.bytes, t.bytes, &t.id);
                Index_GetId(t.words[0], t.bytes, t.bytes, &t.id), Index_Gettype(t.words[0], &t.word); return t.word;
                })},
    {0, "-",
     SCENARIO({ return first({QX_UTL_ATOI("1", &t.word), QX_UTL_GetSubNetMaskNum(1, &t.word),
                QX_UTL_IpAddrSplit("1.2.3.4", t.words), QX_UTL_GetIPv6MaskBitLen(0xF0, t.bytes),
                QX_UTL_ValidateNumber("1"), QX_UTL_ValidateThreeNumber("1"), QX_UTL_CheckNum(0),
                QX_UTL_CheckIPv6MaskNum(0), QX_UTL_ValidateIpAddress("1.2.3.4"),
                QX_UTL_ValidateIpSameSubNet(t.words, t.words, t.words, t.words),
                QX_UTL_ValidateMacAddress("0:1:2:3:4:5"), QX_UTL_ValidateMacAddress_Inner("0:1:2:3:4:5")}); })},
    {1, "-",
     SCENARIO({ return QX_UTL_Checksum("\0", 2) & QX_UTL_ISDomainSplitValid("a") & QX_UTL_ISDomainValid("a"); })},
};
// clang-format on

// The names in a text.
std::set<std::string> namesIn(const std::string &text)
{
    static const std::regex name("[A-Za-z]\\w*");
    return {std::sregex_token_iterator(text.begin(), text.end(), name), {}};
}

struct Outcome {
    uint32_t result;
    int64_t record; // -1 for none
};

// What the row says of a call that failed, as of "Socket.1".
Outcome outcomeOf(const Row &row, const std::string &call)
{
    const auto value = [](const std::string &text) {
        return text == "#" ? kCode : std::stoul(text, nullptr, 16);
    };
    std::istringstream words(row.outcomes);
    for (std::string name, rest; std::getline(words >> std::ws, name, ':') && words >> rest;) {
        if (name == call || name == call.substr(0, call.rfind('.'))) {
            const size_t mark = std::min(rest.find('!'), rest.size());
            const std::string result = rest.substr(0, mark);
            const std::string record = mark + 1 < rest.size() ? rest.substr(mark + 1) : result;
            return {static_cast<uint32_t>(value(result)),
                    mark < rest.size() ? static_cast<int64_t>(value(record)) : -1};
        }
    }
    return {row.success, -1};
}

size_t entries(const std::string &folder)
{
    const std::filesystem::recursive_directory_iterator all(folder);
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

// What may be left behind: blocks of the allocator, descriptors, files, shared-memory blocks.
std::array<size_t, 4> held()
{
    size_t shared = 0;
    const auto count = [](void *context, const QxBlock *block) {
        *static_cast<size_t *>(context) += block->ulPid == static_cast<uint32_t>(getpid()) ? 1 : 0;
        return QX_OK;
    };
    EXPECT_EQ(QxHost_ListBlocks(count, &shared), QX_OK);
    return {platform.blocks.size(), entries("/proc/self/fd"), entries(platform.root), shared};
}

size_t gFailures = 0;

class Sweep : public testing::TestWithParam<Row> {
protected:
    // The result with one call failing, the later ones too or not; 0 for none.
    static uint32_t run(uint32_t failAt, bool allLater)
    {
        prepare();
        GetParam().before();
        static_cast<Injection &>(platform) = {.watching = true, .failAt = failAt, .allLater = allLater};
        const uint32_t result = GetParam().act();
        platform.watching = false;
        tidy();
        return result;
    }

    // Of several calls that failed any may have decided.
    static void check(uint32_t result)
    {
        const uint32_t success = GetParam().success;
        const std::multiset<int64_t> records(platform.records.begin(), platform.records.end());
        bool expected = false, unchanged = result == success, silent = true;
        for (const std::string &call : platform.failed) {
            const auto [wanted, record] = outcomeOf(GetParam(), call);
            const bool isIgnored = wanted == success && record < 0;
            expected |= !isIgnored && wanted == result && (record < 0 || records.contains(record));
            unchanged &= isIgnored;
            silent &= record < 0;
        }
        EXPECT_TRUE(expected || unchanged) << "result " << std::hex << result;
        EXPECT_TRUE(!silent || records.empty());
    }
};

TEST_P(Sweep, FailsWell)
{
    const Row &row = GetParam();
    run(0, false);
    const auto before = held();
    EXPECT_EQ(platform.calls == 0, row.outcomes == "-");
    for (const bool allLater : {false, true}) {
        for (uint32_t failAt = 1; !HasFailure(); ++failAt) {
            ++t.table;
            const uint32_t result = run(failAt, allLater);
            SCOPED_TRACE(row.text + testing::PrintToString(platform.failed) +
                         testing::PrintToString(platform.records));
            check(result);
            EXPECT_EQ(held(), before) << "blocks, descriptors, files, shared memory";
            if (platform.failed.empty()) {
                break;
            }
            ++gFailures;
            EXPECT_EQ(run(0, false), row.success) << "the next call";
            EXPECT_TRUE(platform.records.empty());
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Every, Sweep, testing::ValuesIn(kRows));

// The functions of a map, but for those that the library does not call.
std::set<std::string> exported(const std::string &map)
{
    std::ifstream file(MAPS + map);
    const std::string text(std::istreambuf_iterator<char>(file), {});
    std::set<std::string> names = namesIn(text.substr(text.find("global:") + 7));
    for (const char *other : {"local", "Usr_Root", "g_DataAsyncEvent", "g_MultiHashtable", "g_mid_dbg_level",
                              "QX_OS_StrCmp", "QX_OS_StrNCmp", "QX_OS_StrStr", "QX_OS_Strtol"}) {
        names.erase(other);
    }
    return names;
}

// Every function has a scenario, and what it may call is this program's.
TEST(SweepTable, IsWhole)
{
    std::set<std::string> named;
    for (const Row &row : kRows) {
        named.merge(namesIn(row.text));
    }
    for (const std::string &name : exported("zema.map")) {
        EXPECT_TRUE(named.contains(name)) << name;
    }
    Dl_info own{};
    dladdr(&platform, &own);
    for (const std::string &name : exported("qxplatform.map")) {
        Dl_info at{};
        EXPECT_TRUE(name.starts_with("QxHost_") ||
                    (dladdr(dlsym(RTLD_DEFAULT, name.c_str()), &at) != 0 && at.dli_fbase == own.dli_fbase))
            << name;
    }
}

} // namespace

int main(int argc, char **argv)
{
    testing::InitGoogleTest(&argc, argv);
    platform.root = testing::TempDir() + "zema-sweep-XXXXXX";
    if (mkdtemp(platform.root.data()) == nullptr) {
        return 1;
    }
    setenv("ZEMA_RUNTIME_DIR", (platform.root + "/run").c_str(), 1);
    std::filesystem::create_directories(platform.root + "/var/wan/w");
    std::ofstream(platform.root + "/var/wan/w/config") << "tr069srv=ab cd\n";
    QxHost_SetState(6); // in which thread 5 is not the main one
    QxHost_SetCurThreadMid(5);
    const int result = RUN_ALL_TESTS();
    std::filesystem::remove_all(platform.root);
    std::printf("sweep: %zu failures injected in %zu scenarios of %zu functions\n", gFailures,
                std::size(kRows), exported("zema.map").size());
    return result;
}
