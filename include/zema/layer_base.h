/*
 * Records of the WAN stack's layers, kept in the tables of multi_hashtable_ex.h.
 *
 * Every record begins with a LayerBaseHeader, which names its table and its index; what follows is the
 * layer's own. A record is saved and read whole, and all records of a table have one size. A record shorter
 * than its header counts as missing.
 *
 * Each function is one or more synchronous requests on the calling thread, but LayerBase_SetState, which
 * changes the caller's memory only. Saves to the tables of IPv6 and IPv4 interfaces, PPP interfaces, Ethernet
 * links and basic WAN settings (1, 2, 5, 6, 7) belong on the service's main thread: from another one they
 * print a warning and a back trace, and are carried out. The main thread is, in system state 6, one of module
 * 0 (QX_MSG_GetCurThreadMid), else the first of the process.
 *
 * Results are result codes. Failures are recorded under layer_base.cpp.
 */
#ifndef ZEMA_LAYER_BASE_H
#define ZEMA_LAYER_BASE_H

#include "zema/multi_hashtable_ex.h"

QX_BEGIN_DECLS

typedef struct LayerBaseHeader {
    uint32_t ulIndex;
    uint32_t ulState;         /* LayerBase_SetState */
    uint32_t ulState2Jiffies; /* when the state last became 2 */
    uint32_t ulState3Jiffies; /* when the state last became 3 */
    uint32_t ulTableId;
    uint32_t ulVisible; /* 0 hides the record from LayerBase_ForeachDataItem */
} LayerBaseHeader;

/* The most records that one pass reaches. */
#define LAYERBASE_FOREACH_MAX 128U

/* Saves the record of ulLen bytes under its header's table and index. 1, recorded (1), when it is missing;
 * the code of a failed save, recorded. */
ZEMA_API uint32_t LayerBase_SaveData(const void *pRecord, uint32_t ulLen);

/* Reads ulLen bytes of a record. 1, recorded (1), when pBuf is missing; else as MultiHashtableEx_GetData. */
ZEMA_API uint32_t LayerBase_GetData(uint32_t ulTableId, uint32_t ulIndex, void *pBuf, uint32_t ulLen);

/*
 * Lists at most LAYERBASE_FOREACH_MAX records of ulSize bytes, reads each and calls the visitor with the
 * copies of those that are visible, in one buffer for all. 0, or 1 for every failure and when the visitor
 * ends the pass by a nonzero result. Recorded: a missing visitor or a size below the header's, and no memory
 * for the indexes (1); no memory for a record (1, the table); a failed listing (the code, the table); a
 * failed read and the visitor's result (the code, the table, the index).
 */
ZEMA_API uint32_t LayerBase_ForeachDataItem(uint32_t ulTableId, uint32_t ulSize,
                                            MultiHashtableVisitor pfnVisitor, void *pUser);

/* Sets the record's state; 2 and 3 stamp the time of their entry with the low word of QX_PROC_DBG_GetJiffies.
 * A missing record is ignored. */
ZEMA_API void LayerBase_SetState(void *pRecord, uint32_t ulState);

QX_END_DECLS

#endif
