// How long the items of a table are, as MultiHashtable_GetLength reads it. Callers keep to one length a
// table, so that the word of the table's owner is all there is to know and an item costs nothing; items of
// another length are listed, by index, in a table that the owner's pointer holds. An empty item is always
// listed: the word is 0 while no length is known.
#pragma once

#include "qx/hashtable.h"

namespace zema {

// An item that its table's owner removed by itself may still be listed.
inline void forgetLength(const Hashtable &table, uint32_t index)
{
    if (auto *const others = static_cast<Hashtable *>(table.pvOwner)) {
        (void)others->pfnRemove(others, index, nullptr, 0);
    }
}

// False when there is no memory to list the item.
inline bool noteLength(Hashtable &table, uint32_t index, uint32_t length)
{
    forgetLength(table, index);
    if (table.ulOwner == 0) {
        table.ulOwner = length;
    }
    if (length == table.ulOwner && length != 0) {
        return true;
    }
    if (table.pvOwner == nullptr) {
        Hashtable *made = nullptr;
        table.pvOwner = Hashtable_Create(&made, 0, 0);
    }
    auto *const others = static_cast<Hashtable *>(table.pvOwner);
    return others != nullptr &&
           others->pfnPut(others, index, reinterpret_cast<void *>(uintptr_t{length})) == 0;
}

} // namespace zema
