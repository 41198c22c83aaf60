// The stores that ours is measured against: tables by identifier, items by index, a block of its own for each
// item, and no access beyond its length. On the allocator and the bounded copy of the platform, as ours, and
// in a shared object, as ours: within the benchmark's program the compiler makes copies of them that know the
// one table and the one length that the benchmark uses, even of functions that it may not inline.
#pragma once

#include <cstdint>

#define STORE_PEER_API __attribute__((visibility("default")))

// On std::unordered_map.
STORE_PEER_API uint32_t stdStoreSave(uint32_t table, uint32_t index, const void *data, uint32_t length);
STORE_PEER_API uint32_t stdStoreGet(uint32_t table, uint32_t index, void *out, uint32_t length);
STORE_PEER_API uint32_t stdStoreRemove(uint32_t table, uint32_t index);
STORE_PEER_API void stdStoreDrop(uint32_t table);

// On absl::flat_hash_map.
STORE_PEER_API uint32_t abslStoreSave(uint32_t table, uint32_t index, const void *data, uint32_t length);
STORE_PEER_API uint32_t abslStoreGet(uint32_t table, uint32_t index, void *out, uint32_t length);
STORE_PEER_API uint32_t abslStoreRemove(uint32_t table, uint32_t index);
STORE_PEER_API void abslStoreDrop(uint32_t table);
