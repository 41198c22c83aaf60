/*
 * Tables of records within the process: blocks of bytes by table identifier and index.
 *
 * Any table identifier and any index is allowed. A table comes into being with the first call that names it,
 * be it a read, and stays. The table owns a copy of each item, a block of exactly the length of its first
 * save from QX_OS_MemMallocD, which stays where it is until it is deleted. A later save or read may be
 * shorter and concerns the first bytes; a longer one is refused: 1, recorded (1, the index, the length given,
 * the item's).
 *
 * Nothing is locked: calls that concern one table come one at a time, and those that name a new table alone.
 * Results are result codes: 1 and nothing recorded when an argument is missing, which data and buffers are
 * not while the length is 0; 1, recorded (1), when there is no memory or the table cannot be had; the code of
 * the table's operation that failed, recorded. A table that cannot be had is recorded by
 * MultiHashtable_GetTable first. Out values are untouched then. Failures are recorded under
 * multi_hashtable.cpp.
 */
#ifndef ZEMA_MULTI_HASHTABLE_H
#define ZEMA_MULTI_HASHTABLE_H

#include "qx/hashtable.h"
#include "zema/result.h"

QX_BEGIN_DECLS

/* The most items that one pass reaches. */
#define MULTIHASHTABLE_FOREACH_MAX 256U
#define MULTIHASHTABLE_FIND_MAX 128U

/* Holds the table of tables; empty until Hashtable_GetHashtable3 has filled it. */
extern ZEMA_API Hashtable *g_MultiHashtable;

/* Called with the table's own copy of an item, which it may change in place, as far as the item's length. */
typedef uint32_t (*MultiHashtableVisitor)(uint32_t ulTableId, void *pItem, void *pUser);

/* The table, made when absent; null, recorded (1, or the code with which it could not be entered), when it
 * cannot be had. */
ZEMA_API Hashtable *MultiHashtable_GetTable(uint32_t ulTableId);

/* Overwrites the first ulLen bytes of the item in place, or adds it when the index is new. A failure to add
 * is recorded once more (the result), behind the record of MultiHashtable_AddData. */
ZEMA_API uint32_t MultiHashtable_SaveData(uint32_t ulTableId, uint32_t ulIndex, const void *pData,
                                          uint32_t ulLen);

/* Adds an item to a table of MultiHashtable_GetTable without looking for the index. The code of pfnPut when
 * it cannot be entered, as when it is there already; recorded (the code, the index). No memory for its length
 * is recorded with the index too. */
ZEMA_API uint32_t MultiHashtable_AddData(Hashtable *pstTable, uint32_t ulIndex, const void *pData,
                                         uint32_t ulLen);

/* Copies the first ulLen bytes of the item into pBuf. The code of pfnGet, recorded, when there is none. */
ZEMA_API uint32_t MultiHashtable_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen);

/* Deletes the item. The code of pfnRemove, recorded, when there is none. */
ZEMA_API uint32_t MultiHashtable_DeleteData(uint32_t ulTableId, uint32_t ulIndex);

/* The length of an item that is in the table: that of its first save; 0xFFFFFFFF of one that came into a
 * table without any other past the library. The table's owner's words hold it: one length for all, and those
 * of the items that differ in a table of their own. */
static inline uint32_t MultiHashtable_GetLength(const Hashtable *pstTable, uint32_t ulIndex)
{
    Hashtable *pstOthers = (Hashtable *)pstTable->pvOwner;
    void *pLength;

    if (pstOthers && pstOthers->pfnGet(pstOthers, ulIndex, &pLength) == 0) {
        return (uint32_t)(uintptr_t)pLength;
    }
    return pstTable->ulOwner != 0 ? pstTable->ulOwner : 0xFFFFFFFFU;
}

/* Gives an item's block back: what a table's pfnRemove is handed. */
ZEMA_API uint32_t MultiHashtable_ReleaseData(void *pItem);

/* Lists the indexes of the table, at most ulMax of them, and their number in *pulCount. The order stays the
 * same while the table is not changed. */
ZEMA_API uint32_t MultiHashtable_GetIndexList(uint32_t ulTableId, uint32_t *pulIndexes, uint32_t ulMax,
                                              uint32_t *pulCount);

/*
 * Visits the items, at most MULTIHASHTABLE_FOREACH_MAX, in the order of the list of indexes taken before the
 * first visit, so that the visitor may save, add and delete. A nonzero result of the visitor ends the pass
 * and is its result, recorded (the result, the table). An item that is gone by its turn ends it with the code
 * of pfnGet, recorded (the code, the table, how many were listed).
 */
ZEMA_API uint32_t MultiHashtable_ForeachDataItem(uint32_t ulTableId, MultiHashtableVisitor pfnVisitor,
                                                 void *pUser);

/* Tries the items, at most MULTIHASHTABLE_FIND_MAX, in the same way until the matcher returns 0: 0. When it
 * never does: 1, not recorded. A failure is recorded (the code, the table). */
ZEMA_API uint32_t MultiHashtable_FindDataItem(uint32_t ulTableId, MultiHashtableVisitor pfnMatcher,
                                              void *pUser);

/* Calls the table's own pfnForEach with the four arguments, and returns its result; when nonzero, recorded
 * (the result, the table). */
ZEMA_API uint32_t MultiHashtable_ForeachDataItemExt(uint32_t ulTableId, HashtableVisitor pfnVisitor,
                                                    void *pArg1, void *pArg2, void *pArg3);

QX_END_DECLS

#endif
