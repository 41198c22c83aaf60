/*
 * Tables of records that another process holds: the operations of multi_hashtable.h as synchronous requests.
 *
 * The calling thread waits until the owning process has answered; what it answers is the result, unchanged,
 * and so is the failure of the request itself (qx/data_sync.h). Any thread, at once. Requests and replies are
 * 32-bit words in host byte order, followed by bytes as they are:
 *
 *   request      words                       bytes   reply
 *   14 save      table, index, length N      N       none
 *   15 delete    table, index                        none
 *   16 read      table, index, length N              the first N bytes of the item
 *   17 list      table, maximum M                    the count K, then K indexes, of at most M
 *
 * Lengths travel in 16 bits: a save has at most MULTIHASHTABLEEX_SAVE_MAX bytes, a read 65535, a list
 * MULTIHASHTABLEEX_LIST_MAX indexes. Callers keep to that: a length above is cut to its low 16 bits.
 *
 * Results are result codes: 1 and nothing recorded when an argument is missing (which data and buffers are
 * not while the length is 0), 1, recorded (1), when there is no memory. Out values are untouched then.
 * Failures are recorded under multi_hashtable_ex.cpp.
 */
#ifndef ZEMA_MULTI_HASHTABLE_EX_H
#define ZEMA_MULTI_HASHTABLE_EX_H

#include "zema/multi_hashtable.h"

QX_BEGIN_DECLS

#define MULTIHASHTABLEEX_CODE_SAVE 14U
#define MULTIHASHTABLEEX_CODE_DELETE 15U
#define MULTIHASHTABLEEX_CODE_GET 16U
#define MULTIHASHTABLEEX_CODE_LIST 17U

#define MULTIHASHTABLEEX_SAVE_MAX 65523U
#define MULTIHASHTABLEEX_LIST_MAX 16382U

/* The most items that one pass reaches. */
#define MULTIHASHTABLEEX_FOREACH_MAX 128U

/* Saves ulLen bytes under the index. A failed request is recorded (the code). */
ZEMA_API uint32_t MultiHashtableEx_SaveData(uint32_t ulTableId, uint32_t ulIndex, const void *pData,
                                            uint32_t ulLen);

/* Deletes the item. A failed request is recorded (the code, the table, the index). */
ZEMA_API uint32_t MultiHashtableEx_DeleteData(uint32_t ulTableId, uint32_t ulIndex);

/* Reads the first ulLen bytes of the item into pBuf. A failed request is not recorded. */
ZEMA_API uint32_t MultiHashtableEx_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen);

/* Lists the indexes of the table, at most ulMax of them, and their number in *pulCount. A missing argument is
 * recorded (1) too, and so is a failed request (the code). */
ZEMA_API uint32_t MultiHashtableEx_GetIndexList(uint32_t ulTableId, uint32_t *pulIndexes, uint32_t ulMax,
                                                uint32_t *pulCount);

/*
 * Lists at most MULTIHASHTABLEEX_FOREACH_MAX indexes, then reads each item, ulItemSize bytes of it, and calls
 * the visitor with this copy, in one buffer for all items; changes to it are not saved. The pass is not
 * atomic: an item that was deleted since the listing ends it with the read's code, and a nonzero result of
 * the visitor ends it with that.
 *
 * A failed listing is recorded as (the code, the table), then (the code, the table, the address of the item
 * buffer, the count); a failed read and the visitor's nonzero result as (the code, the table, the index),
 * then the same as for the listing, behind which the visitor's has the read's result. No memory for an item:
 * 1, recorded (1, the table).
 */
ZEMA_API uint32_t MultiHashtableEx_ForeachDataItem(uint32_t ulTableId, uint32_t ulItemSize,
                                                   MultiHashtableVisitor pfnVisitor, void *pUser);

QX_END_DECLS

#endif
