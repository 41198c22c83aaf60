/*
 * Bit maps: numbers from 0 to a fixed count, each free (its bit is clear) or in use (set).
 *
 * A map is one block of memory, the caller's from BitMapAlloc to BitMapFree; its size never changes, and
 * nothing but BitMapAlloc allocates. The operations on bits do not lock. Threads that share a map put
 * BitMapHold and BitMapPut around each sequence of operations, above all around a search and the BitMapSet of
 * what it found, so that two of them cannot take the same number; the lock is not recursive.
 *
 * A missing map is no crash: each function says what it does then. Refusals are recorded under bit_map.cpp
 * with 0xFFFFFFFF as the first value.
 */
#ifndef ZEMA_BIT_MAP_H
#define ZEMA_BIT_MAP_H

#include "qx/process.h"
#include "zema/result.h"

QX_BEGIN_DECLS

typedef struct BitMap {
    uint32_t ulBitCount;
    QxMutex stLock;
    /* Bit n is bit n mod 32, from the least significant one, of word n / 32. Bits of the last word that are
     * no numbers of the map stay clear. */
    __extension__ uint32_t aulWords[];
} BitMap;

/* A new map of ulBitCount bits, all clear; null when the count is 0 or there is no memory. */
ZEMA_API BitMap *BitMapAlloc(uint32_t ulBitCount);

/* Ends a map that no thread holds; a missing one is ignored. */
ZEMA_API void BitMapFree(BitMap *pstMap);

/* Take and give back the map's lock. The result of QX_OS_MutexLock or QX_OS_MutexUnLock, 0 when done; 0 for a
 * missing map, without locking. */
ZEMA_API uint32_t BitMapHold(BitMap *pstMap);
ZEMA_API uint32_t BitMapPut(BitMap *pstMap);

/* Set and clear one bit, whatever it was. A missing map or a number that is not below the bit count is
 * refused, recorded (0xFFFFFFFF, the map's address, the number), and nothing changes. */
ZEMA_API void BitMapSet(BitMap *pstMap, uint32_t ulBit);
ZEMA_API void BitMapClr(BitMap *pstMap, uint32_t ulBit);

/* Clears every bit. A missing map is recorded (0xFFFFFFFF). */
ZEMA_API void BitMapClrAll(BitMap *pstMap);

/* 1 when the bit is set; 0 when it is clear, the map is missing or there is no such bit. */
ZEMA_API uint32_t BitMapTestBit(const BitMap *pstMap, uint32_t ulBit);

/* The lowest clear bit; -1 when every bit is set or the map is missing. A number above INT32_MAX, which only
 * larger maps have, comes as the negative value of the same bits. */
ZEMA_API int32_t BitMapFindFirstZeroBit(const BitMap *pstMap);

QX_END_DECLS

#endif
