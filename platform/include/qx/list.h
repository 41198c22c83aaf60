/*
 * ArrayList: a growing array of elements of one size, copied in and out.
 *
 * The first pfnAdd fixes the element size; an element of another size is refused. The operations may be
 * called from any thread; a visitor may add and remove elements of the list that it visits: it is called once
 * for each element that was there when the visit began and is still there when its turn comes. The list lives
 * until the process ends.
 */
#ifndef QX_LIST_H
#define QX_LIST_H

#include "qx/base.h"

QX_BEGIN_DECLS

typedef struct ArrayList ArrayList;

/* 0 when the element is the one that the key names. Called with the list locked: it must not use the list. */
typedef uint32_t (*ArrayListCompare)(const void *element, const void *key);

/* 0 when the visit succeeded; the first other result ends the iteration and becomes its result. The element
 * is a copy that lives during the visit. *visited is for the visitor to set to 1. */
typedef uint32_t (*ArrayListVisitor)(void *element, uint32_t *visited, void *context);

struct ArrayList {
    /* Copies the first element that compare accepts for key to out (which may be null). 0, QX_ERR for a
     * missing list or compare, QX_ERR_NOT_FOUND. */
    uint32_t (*pfnFind)(ArrayList *list, ArrayListCompare compare, const void *key, void *out);
    /* Appends a copy of the size bytes at element. 0, QX_ERR for a missing one, a size of 0 or
     * another size than the first element's, QX_ERR_NO_MEMORY. */
    uint32_t (*pfnAdd)(ArrayList *list, const void *element, uint32_t size);
    /* Removes the first element that compare accepts for key. The results of pfnFind. */
    uint32_t (*pfnRemove)(ArrayList *list, ArrayListCompare compare, const void *key);
    /* Visits the elements in the order of their addition. 0, the first nonzero result of the visitor, or
     * QX_ERR_NO_MEMORY when there is none for the copies of elements above 256 bytes. */
    uint32_t (*pfnForEach)(ArrayList *list, ArrayListVisitor visitor, void *context);
};

/* The holder's list, made on first use and put there; null when the holder is missing or no list can be made.
 */
QX_API ArrayList *ArrayList_GetArrayList(ArrayList **holder);

QX_END_DECLS

#endif
