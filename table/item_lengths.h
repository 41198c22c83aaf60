// How long the items of a table are. Callers keep to one length a table, so that the word of the table's
// owner is all there is to know and an item costs nothing; items of another length are listed, by index, in a
// table that the owner's pointer holds. An empty item is always listed: the word is 0 while no length is
// known, and of an item that came into the table past the library none ever is.
#pragma once

#include "qx/hashtable.h"

#include <limits>

namespace zema {

class ItemLengths {
public:
    explicit ItemLengths(Hashtable &table) : table_(table) {}

    static constexpr uint32_t kUnknown = std::numeric_limits<uint32_t>::max();

    // The length of an item that is in the table.
    uint32_t of(uint32_t index) const
    {
        return others() == nullptr && table_.ulOwner != 0 ? table_.ulOwner : listed(index);
    }

    // False when there is no memory to list it.
    bool note(uint32_t index, uint32_t length)
    {
        forget(index); // an item that was removed past the library
        if (table_.ulOwner == 0) {
            table_.ulOwner = length;
        }
        if (length == table_.ulOwner && length != 0) {
            return true;
        }
        if (others() == nullptr) {
            Hashtable *made = nullptr;
            table_.pvOwner = Hashtable_Create(&made, 0, 0);
        }
        return others() != nullptr &&
               others()->pfnPut(others(), index, reinterpret_cast<void *>(uintptr_t{length})) == 0;
    }

    void forget(uint32_t index)
    {
        if (others() != nullptr) {
            (void)others()->pfnRemove(others(), index, nullptr, 0);
        }
    }

private:
    [[gnu::cold]] uint32_t listed(uint32_t index) const
    {
        void *length = nullptr;
        if (others() == nullptr || others()->pfnGet(others(), index, &length) != 0) {
            return table_.ulOwner != 0 ? table_.ulOwner : kUnknown;
        }
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(length));
    }

    Hashtable *others() const { return static_cast<Hashtable *>(table_.pvOwner); }

    Hashtable &table_;
};

} // namespace zema
