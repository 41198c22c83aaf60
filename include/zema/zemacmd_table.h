/*
 * The 38 commands that an operator may send, in the order in which they are searched: the first row of the
 * wanted class with whose text a command begins wins. For consoles that offer or complete commands, and for
 * the library.
 */
#ifndef ZEMA_ZEMACMD_TABLE_H
#define ZEMA_ZEMACMD_TABLE_H

#include "zema/zemacmd.h"

/* clang-format off */
#ifdef __cplusplus
inline constexpr ZemacmdCheckItem ZemacmdCheckTable[] = {
#else
static const ZemacmdCheckItem ZemacmdCheckTable[] __attribute__((unused)) = {
#endif
    {.pcCmd = "wan show layer all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "mac show all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "fw show all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "fw show stats", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "fw dbg pktinfo info", .pfnCheck = QX_ZEMA_Zemacmd_CheckForPktInfo, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "vbr-fw show stat", .pfnCheck = QX_ZEMA_Zemacmd_CheckForVbrFw, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbr-fw clean vbr-id", .pfnCheck = QX_ZEMA_Zemacmd_CheckForVbrFw, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "vbr-fw dbg hook", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "vbr-fw dbg all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "vbr-fw dbg vbr-id", .pfnCheck = QX_ZEMA_Zemacmd_CheckForVbrFw, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "user_flow show ctp", .pfnCheck = QX_ZEMA_Zemacmd_CheckForCtpDetail, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "user_flow show", .pfnCheck = QX_ZEMA_Zemacmd_CheckForDetail, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "user_flow bctbl br", .pfnCheck = QX_ZEMA_Zemacmd_CheckForVbrFw, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbridge bridge-info", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbridge uni-binding", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbridge nni-binding", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbridge uplink-binding", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "vbridge port-binding", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "ffwd show all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "ffwd show stat", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "ffwd dbg all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "ffwd dbg timer", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "ffwd dbg event", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "ffwd dbg lsw", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "ffwd dbg napt", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "ffwd dbg fwd", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "l2ffwd acc-item", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "napt show all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "ctp show_ctp all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "ctp show_ctp detail", .pfnCheck = QX_ZEMA_Zemacmd_CheckForCtpDetail, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "cpu dbg on", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "cpu dbg off", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "dbg", .pfnCheck = QX_ZEMA_Zemacmd_CheckForDbg, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "acl show chain all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "route show", .pfnCheck = QX_ZEMA_Zemacmd_CheckRouteShowPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "tunnel show all", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DISPLAY},
    {.pcCmd = "cmd_debug on", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
    {.pcCmd = "cmd_debug off", .pfnCheck = QX_ZEMA_Zemacmd_ComCheckPara, .ulDbgFlag = ZEMA_CMD_DEBUG},
};
/* clang-format on */

#define ZEMA_ZEMACMD_ROW_COUNT 38U

#ifdef __cplusplus
static_assert(sizeof ZemacmdCheckTable / sizeof ZemacmdCheckTable[0] == ZEMA_ZEMACMD_ROW_COUNT);
#else
_Static_assert(sizeof ZemacmdCheckTable / sizeof ZemacmdCheckTable[0] == ZEMA_ZEMACMD_ROW_COUNT, "38 rows");
#endif

#endif
