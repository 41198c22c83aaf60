#include "bench/table/store_peers.h"

#include "qx/memory.h"

#include <absl/container/flat_hash_map.h>

#include <unordered_map>

namespace {

template <template <typename...> typename Map>
class Store {
public:
    uint32_t save(uint32_t table, uint32_t index, const void *data, uint32_t length)
    {
        auto &items = tables_[table];
        const auto found = items.find(index);
        if (found != items.end()) {
            if (length > found->second.length) {
                return 1;
            }
            (void)memcpy_s(found->second.block, found->second.length, data, length);
            return 0;
        }
        void *const block = QX_OS_MemMallocD(length);
        if (block == nullptr) {
            return 1;
        }
        (void)memcpy_s(block, length, data, length);
        items.emplace(index, Held{block, length});
        return 0;
    }

    uint32_t get(uint32_t table, uint32_t index, void *out, uint32_t length)
    {
        auto &items = tables_[table];
        const auto found = items.find(index);
        if (found == items.end() || length > found->second.length) {
            return 1;
        }
        (void)memcpy_s(out, length, found->second.block, length);
        return 0;
    }

    uint32_t remove(uint32_t table, uint32_t index)
    {
        auto &items = tables_[table];
        const auto found = items.find(index);
        if (found == items.end()) {
            return 1;
        }
        (void)QX_OS_MemFreeD(found->second.block);
        items.erase(found);
        return 0;
    }

    void drop(uint32_t table) { tables_.erase(table); }

private:
    struct Held {
        void *block;
        uint32_t length;
    };
    Map<uint32_t, Map<uint32_t, Held>> tables_;
};

template <typename Key, typename Value>
using StdMap = std::unordered_map<Key, Value>;
template <typename Key, typename Value>
using FlatMap = absl::flat_hash_map<Key, Value>;

Store<StdMap> stdStore;
Store<FlatMap> abslStore;

} // namespace

uint32_t stdStoreSave(uint32_t table, uint32_t index, const void *data, uint32_t length)
{
    return stdStore.save(table, index, data, length);
}

uint32_t stdStoreGet(uint32_t table, uint32_t index, void *out, uint32_t length)
{
    return stdStore.get(table, index, out, length);
}

uint32_t stdStoreRemove(uint32_t table, uint32_t index)
{
    return stdStore.remove(table, index);
}

void stdStoreDrop(uint32_t table)
{
    stdStore.drop(table);
}

uint32_t abslStoreSave(uint32_t table, uint32_t index, const void *data, uint32_t length)
{
    return abslStore.save(table, index, data, length);
}

uint32_t abslStoreGet(uint32_t table, uint32_t index, void *out, uint32_t length)
{
    return abslStore.get(table, index, out, length);
}

uint32_t abslStoreRemove(uint32_t table, uint32_t index)
{
    return abslStore.remove(table, index);
}

void abslStoreDrop(uint32_t table)
{
    abslStore.drop(table);
}
