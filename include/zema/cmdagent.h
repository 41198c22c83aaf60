/*
 * The command agent: the road of an operator's debug command.
 *
 * A command arrives as a remote procedure call, is checked against the whitelist (zema/zemacmd.h), compiled
 * into a ZemaCmdMsg, sent to the kernel modules as an HLP message and raised as the global event
 * ZEMA_EVENT_CMD. In every process that started the agent, the handler that a module registered for the
 * command's word answers on the operator's terminal; a process that serves the command tree (zema/cmd_tree.h)
 * walks it for the word usr.
 *
 * Texts are NUL-terminated. The library adds no lock: handlers run on the thread that dispatches, and
 * registration relies on the platform's list. Failures are recorded under qx_zema_cmdagent.cpp.
 */
#ifndef ZEMA_CMDAGENT_H
#define ZEMA_CMDAGENT_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_RPC_ID_CMD 0x4830514FU    /* display commands */
#define ZEMA_RPC_ID_DBGCMD 0x4710203EU /* debug commands */
#define ZEMA_EVENT_CMD 8853U           /* its data is one ZemaCmdMsg */
#define ZEMA_HLP_MSG_CMD 0x2002A002U   /* its value is one ZemaCmdMsg */

#define ZEMA_CMD_AREA_SIZE 256U
#define ZEMA_CMD_MAX_STRINGS 32U /* a receiver refuses a message of more */

/*
 * A compiled command. It crosses process and kernel borders. The strings stand back to back from the start of
 * the area, each with its terminating zero, and zeros fill the rest; the last byte is always zero. String 0
 * is the terminal number in decimal, string 1 is "Zemacmd", the words of the command follow.
 */
typedef struct ZemaCmdMsg {
    uint32_t ulArgc; /* number of strings, host byte order */
    char acArgs[ZEMA_CMD_AREA_SIZE];
} ZemaCmdMsg;

/* ---- Registered command words ---- */

/* Called with all strings of a message whose third one is the registered word. The strings are valid during
 * the call; they come from another process, and one that the message does not hold is empty. A null pointer
 * follows them. Any result but 0 is recorded. */
typedef uint32_t (*ZemaCmdHandler)(uint32_t ulArgc, const char *const *ppcArgv);

/*
 * Registers a handler for a command word, compared case-sensitively; of a longer word the first 31 characters
 * are stored. 0 when registered, also when the word was there already, whose handler then stays. 1 for a
 * missing argument (recorded), a missing list (not recorded) or a failed addition (recorded with the list's
 * result).
 */
ZEMA_API uint32_t qx_ker_zema_cmd_reg(const char *pcCmd, ZemaCmdHandler pfnProc);

/* Removes a command word. 0 when removed; 1, recorded, for a missing word, a missing list or a word that is
 * not there. */
ZEMA_API uint32_t qx_ker_zema_cmd_unreg(const char *pcCmd);

/* ---- Start and stop ---- */

/*
 * Starts the agent in this process: sets every debug level to 255, registers both remote procedures and
 * subscribes the receiver of registered words to ZEMA_EVENT_CMD. 0, or the result, recorded, of the step that
 * failed; the steps before it stay done.
 */
ZEMA_API uint32_t CMDAgent_Init(void);

/* Ends the dispatch to registered words. The remote procedures stay registered and the tree stays served. 0,
 * or the result, recorded, of the removal. */
ZEMA_API uint32_t CMDAgent_UnInit(void);

/* Serves the command tree under Usr_Root in this process. The result of the subscription, not recorded. */
ZEMA_API uint32_t CMDAgent_Reg(void);

/* ---- The steps of the road ---- */

/*
 * The remote procedure for display commands. The upper 16 bits of the caller word are the operator's
 * terminal; the last three arguments are not used. The text is split in place. 0 when the command was
 * accepted, compiled and sent, whatever became of the sending; 1, recorded, without a text;
 * ZEMA_ERR_CMD_REJECTED, recorded (that code, the caller word, the check's result), when the whitelist
 * rejects it, and with the compilation's result and the caller word when it cannot be compiled. A rejected
 * command prints and sends nothing.
 */
ZEMA_API uint32_t QX_ZEMA_RPC_Zemaara(uint32_t ulCallerWord, char *pcText, uintptr_t reserved1,
                                      uintptr_t reserved2, uintptr_t reserved3);

/*
 * Compiles a text, which it splits in place at spaces, into pcArea: ZEMA_CMD_AREA_SIZE bytes that the caller
 * zeroed. 0 and the number of strings in *pulArgc. 1, recorded (1, the position, the word's length), and
 * *pulArgc untouched, when a word's terminating zero would fall behind byte 254; the words before it are in
 * the area then. 1, recorded, for a missing argument. A string that cannot be formatted is recorded (1, the
 * position, the result) and stays empty.
 */
ZEMA_API uint32_t QX_ZEMA_Zemacmd_CompileCmd(uint32_t ulTerminal, char *pcText, char *pcArea,
                                             uint32_t *pulArgc);

/* Sends a compiled command to the kernel modules, then raises ZEMA_EVENT_CMD. Each failure is recorded with
 * its result, neither stops the other. pcArea is ZEMA_CMD_AREA_SIZE bytes; a missing one is recorded (1), and
 * nothing is sent. */
ZEMA_API void QX_ZEMA_Cmd_Send_Hlp(const char *pcArea, uint32_t ulArgc);

QX_END_DECLS

#endif
