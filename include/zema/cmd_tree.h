/*
 * The command tree: nodes that modules hang under Usr_Root, walked by name for commands that begin with usr.
 *
 * The library never adds or removes nodes. A module links nodes that it owns through pstChild and pstNext,
 * and they stay valid and linked while the process serves the tree (CMDAgent_Reg): it is read without a lock,
 * on the thread that dispatches. Names are compared ignoring case.
 *
 * For n words after usr, where the walk goes down one level a word and never looks at the last one:
 *
 *   none or one                       the children of Usr_Root are listed
 *   a leaf, then ?                    the leaf's help, or without one the children of its parent
 *   a leaf, then k words              pfnExec with them, if ulArgNum is 0 or k; help after a nonzero result
 *   nodes with children, then ?       the last node's help, or its children
 *   nodes with children, then a word  the last node's pfnExec without words, if ulArgNum is 0; help as above
 *   nodes, an unknown word, then ?    the children of the last node
 *   any other unknown word            nothing
 */
#ifndef ZEMA_CMD_TREE_H
#define ZEMA_CMD_TREE_H

#include "qx/cli.h"
#include "qx/diag.h"
#include "qx/memory.h"
#include "qx/text.h"
#include "zema/result.h"

QX_BEGIN_DECLS

#define CMD_TREE_NAME_SIZE 16U

typedef struct CmdTreeNode CmdTreeNode;

struct CmdTreeNode {
    char acName[CMD_TREE_NAME_SIZE]; /* at most 15 characters, NUL-terminated */
    /* Prints the node's help on the terminal; may be null, then its children are listed. */
    void (*pfnHelp)(uint32_t ulTerminal);
    /* Executes with the words after the node's own: 0 when done, nonzero when the words were not acceptable,
     * which makes the help appear. The words are valid during the call; a null pointer follows them. May be
     * null. */
    uint32_t (*pfnExec)(uint32_t ulTerminal, uint32_t ulArgc, const char *const *ppcArgv);
    uint32_t ulArgNum;     /* how many words pfnExec needs; 0 for any number */
    CmdTreeNode *pstNext;  /* next sibling, or null */
    CmdTreeNode *pstChild; /* first child, or null: a leaf */
};

/* The root of this process's tree: "usr_root", without children until modules hang some under it. */
extern ZEMA_API CmdTreeNode Usr_Root;

/*
 * Lists the children of a node on a terminal, a line each: the words, each followed by a space, and the
 * child's name in brackets. The words are cut to 63 characters together and the listing to 511; a missing
 * word counts as empty; nothing is printed when there is no child. 0, or 1, recorded under
 * include/zema/cmd_tree.h, when the node is missing.
 */
static inline uint32_t CmdTree_PrintHelp(uint32_t ulTerminal, const char *const *ppcWords, uint32_t ulCount,
                                         const CmdTreeNode *pstNode)
{
    char acPrefix[64] = {0};
    char acListing[512] = {0};
    uint32_t ulUsed = 0;

    if (!pstNode) {
        (void)QX_PROC_DBG_LastWord("include/zema/cmd_tree.h", __LINE__, ZEMA_ERR, 0, 0, 0, 0);
        return ZEMA_ERR;
    }
    /* What stands in a buffer is measured after each append, whatever the formatting said of itself. */
    for (uint32_t i = 0; i < ulCount; i++) {
        const char *pcWord = (ppcWords && ppcWords[i]) ? ppcWords[i] : "";
        (void)QX_OS_Snprintf_S(acPrefix + ulUsed, sizeof acPrefix - ulUsed, sizeof acPrefix - ulUsed - 1,
                               "%s ", pcWord);
        ulUsed = QX_OS_StrNLen(acPrefix, sizeof acPrefix - 1);
    }
    ulUsed = 0;
    for (const CmdTreeNode *pstChild = pstNode->pstChild; pstChild; pstChild = pstChild->pstNext) {
        (void)QX_OS_Snprintf_S(acListing + ulUsed, sizeof acListing - ulUsed, sizeof acListing - ulUsed - 1,
                               "%s[%s]\n", acPrefix, pstChild->acName);
        ulUsed = QX_OS_StrNLen(acListing, sizeof acListing - 1);
    }
    if (ulUsed > 0) {
        (void)QX_CLI_AsynPrint(ulTerminal, acListing, ulUsed);
    }
    return ZEMA_OK;
}

QX_END_DECLS

#endif
