/*
 * Hashtable: values, which are pointers, by 32-bit keys.
 *
 * Any key and any value is allowed; the table never looks behind a value. Nothing is locked: one thread at a
 * time uses a table, but the two functions that make one may be called from any thread.
 *
 * A table that grows, or has lost most of its keys, moves the others a few at a time, with the calls of
 * pfnPut and pfnRemove that follow, so that none of them takes long unless somebody chose the keys to that
 * end.
 *
 * A host may hand out tables of its own making: what it hands out begins with this structure, all the
 * operations set and the owner's words 0.
 */
#ifndef QX_HASHTABLE_H
#define QX_HASHTABLE_H

#include "qx/base.h"

QX_BEGIN_DECLS

typedef struct Hashtable Hashtable;

/* What becomes of a value that leaves the table. The result is not looked at. */
typedef uint32_t (*HashtableRelease)(void *value);

/* 0 to go on; the first other result ends the iteration and becomes its result. */
typedef uint32_t (*HashtableVisitor)(uint32_t key, void *value, void *argument1, void *argument2,
                                     void *argument3);

struct Hashtable {
    /* How many keys there are. */
    uint32_t (*pfnGetCount)(Hashtable *table);
    /* 1 when the key is present, else 0. */
    uint32_t (*pfnHasKey)(Hashtable *table, uint32_t key);

    /* Enters a new key. 0; QX_ERR_TAKEN, and nothing changed, when the key is present; QX_ERR_NO_MEMORY;
     * QX_ERR_BUSY from inside pfnForEach. */
    uint32_t (*pfnPut)(Hashtable *table, uint32_t key, void *value);
    /* 0 and the key's value; QX_ERR_NOT_FOUND, and *value untouched, when the key is absent. */
    uint32_t (*pfnGet)(Hashtable *table, uint32_t key, void **value);
    /* Lists the keys, at most max of them, and how many it listed. The order is the same every time until a
     * key is entered or removed, and a smaller max lists the first ones. 0; QX_ERR for a missing argument. */
    uint32_t (*pfnGetKeys)(Hashtable *table, uint32_t *keys, uint32_t max, uint32_t *count);
    /* Changes the value of a key that is present. 0; QX_ERR_NOT_FOUND. */
    uint32_t (*pfnReplace)(Hashtable *table, uint32_t key, void *value);
    /* Removes the key, then hands its value to release, which may be null and may use the table. reserved is
     * 0. 0; QX_ERR_NOT_FOUND; QX_ERR_BUSY from inside pfnForEach. */
    uint32_t (*pfnRemove)(Hashtable *table, uint32_t key, HashtableRelease release, uintptr_t reserved);
    /* Frees the holder's table, not its values, and makes the holder null. 0; QX_ERR when there is none;
     * QX_ERR_BUSY from inside pfnForEach. */
    uint32_t (*pfnDestroy)(Hashtable **holder);
    /* Visits all keys in the order of pfnGetKeys, handing the three arguments on. The visitor may read the
     * table and replace values, not enter or remove keys. 0; the visitor's first nonzero result; QX_ERR for a
     * missing visitor. */
    uint32_t (*pfnForEach)(Hashtable *table, HashtableVisitor visitor, void *argument1, void *argument2,
                           void *argument3);

    /* For whoever made the table to keep what belongs with it; 0 at first, and nothing to the table. */
    void *pvOwner;
    uint32_t ulOwner;
};

/* A new table, which is also put in the holder, with room for ulRoom keys before it grows; ulReserved is 0.
 * Null, and the holder untouched, when the holder is missing or no table can be made. */
QX_API Hashtable *Hashtable_Create(Hashtable **holder, uint32_t ulRoom, uint32_t ulReserved);

/* The holder's table, made on first use and put there; null when the holder is missing or no table can be
 * made. */
QX_API Hashtable *Hashtable_GetHashtable3(Hashtable **holder);

QX_END_DECLS

#endif
