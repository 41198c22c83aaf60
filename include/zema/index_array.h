/*
 * Identifier pools: numbers from 1 to a capacity of at most 65535, handed out and taken back.
 *
 * The pool record is the caller's: all zero but for the capacity, which is set before the first call and
 * stays. Free identifiers form a stack, so that the one released last is the next to be handed out; of a new
 * pool they come in the order 1, 2, 3 and so on, and 0 never does. The stack is made by the first call that
 * needs it and lasts as long as the process.
 *
 * A pool does not know which identifiers are out: its owner releases only those it holds, each once. It has
 * no lock either: threads that share one hold a lock of the owner's around every call.
 *
 * Results are result codes, 0 or 1; a refusal changes nothing. Failures are recorded under
 * qx_util_common.cpp with 1 as the first value.
 */
#ifndef ZEMA_INDEX_ARRAY_H
#define ZEMA_INDEX_ARRAY_H

#include "zema/result.h"

QX_BEGIN_DECLS

typedef struct IndexArray {
    uint16_t usInitialised; /* 0, then 1 */
    uint16_t *pusFree;      /* the stack: entries usUsed to usCapacity - 1 are the free identifiers */
    uint16_t usCapacity;
    uint16_t usUsed; /* how many are out */
} IndexArray;

/* Makes the stack, with every identifier free. 0 when the pool is ready, also when it was before; 1 when it
 * is missing, its capacity is 0 (neither is recorded) or there is no memory (recorded: the capacity). */
ZEMA_API uint32_t QX_UTL_InitIndexArray(IndexArray *pstPool);

/* Hands out an identifier, in *pusId, of a pool that is made ready first when it is not yet. 0; 1, and *pusId
 * untouched, when an argument is missing (recorded), all identifiers are out (recorded: how many are, the
 * capacity) or there is no stack (recorded). */
ZEMA_API uint32_t QX_UTL_NewIndex(IndexArray *pstPool, uint16_t *pusId);

/* Takes an identifier back. 0, also when it is ignored: because none is out, or because it is 0 or above the
 * capacity (recorded: the identifier, the capacity, how many are out). 1, recorded, when the pool is missing.
 */
ZEMA_API uint32_t QX_UTL_FreeIndex(IndexArray *pstPool, uint16_t usId);

/* Takes all identifiers back: they come in the order of a new pool again, unless none was out, which changes
 * nothing. 0; 1, recorded, when the pool is missing. */
ZEMA_API uint32_t QX_UTL_FreeAllIndex(IndexArray *pstPool);

QX_END_DECLS

#endif
