// Hashtable: open addressing in buckets of one cache line each. A key's home is the top of its product with
// an odd 64-bit number; a bucket that is full passes its keys on to the next one, and what is removed closes
// up, so that a search goes on only behind full buckets and there are no tombstones. A table that changes its
// size has two arrays of buckets until the puts and removes that follow have moved the old one's keys; keys
// are only ever put into the new one.
#include "qx/hashtable.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <limits>
#include <new>
#include <type_traits>
#if defined(__x86_64__) && defined(__LP64__)
#define QX_COMPARES_FOUR_KEYS
#include <emmintrin.h>
#endif

namespace {

constexpr size_t kLine = 64;
constexpr uint32_t kSlots = (kLine - sizeof(uint32_t)) / (sizeof(uint32_t) + sizeof(void *));
constexpr uint32_t kFirstBits = 1;
constexpr uint32_t kMaxBits = 29;
constexpr uint32_t kBucketsAStep = 16;

// A table that is left half moved is searched twice for each key: one of so many buckets is moved at once.
constexpr uint32_t kMovedAtOnce = 256;

// The golden ratio: sequences, and multiples of any power of two, come to lie evenly.
constexpr uint64_t kFirstMultiplier = 0x9E3779B97F4A7C15U;

// Scattered keys hardly ever stray further from their homes than so many buckets and two for each bit of the
// table's number of buckets. A table where that happens has keys that go badly with its multiplier.
constexpr uint32_t kFarFromHome = 8;

struct alignas(kLine) Bucket {
    uint32_t keys[kSlots];
    uint32_t count; // the first ones are in use
    void *values[kSlots];

    bool isFull() const { return count == kSlots; }

    // The position of the key; the count or above when it is not here.
    uint32_t search(uint32_t key) const
    {
#ifdef QX_COMPARES_FOUR_KEYS
        static_assert(kSlots == 5);
        const __m128i first = _mm_load_si128(reinterpret_cast<const __m128i *>(keys));
        const __m128i equal = _mm_cmpeq_epi32(first, _mm_set1_epi32(static_cast<int>(key)));
        const auto found = static_cast<uint32_t>(_mm_movemask_ps(_mm_castsi128_ps(equal)));
        return static_cast<uint32_t>(std::countr_zero(found | (keys[4] == key ? 0x10U : 0x20U)));
#else
        uint32_t position = 0;
        while (position < count && keys[position] != key) {
            ++position;
        }
        return position;
#endif
    }

    void add(uint32_t key, void *value)
    {
        keys[count] = key;
        values[count] = value;
        ++count;
    }

    void drop(uint32_t position)
    {
        --count;
        keys[position] = keys[count];
        values[position] = values[count];
    }
};
static_assert(sizeof(Bucket) == kLine);

constinit Bucket gNoBuckets[1U << kFirstBits] = {}; // of every table that is empty; never written

class Buckets {
public:
    Buckets() = default;
    explicit Buckets(uint32_t bits, uint64_t multiplier)
        : memory_(std::calloc((size_t{1} << bits) + 1, kLine)), multiplier_(multiplier),
          mask_((1U << bits) - 1), shift_(32 - bits)
    {
        const auto address = reinterpret_cast<uintptr_t>(memory_);
        buckets_ = reinterpret_cast<Bucket *>((address + kLine - 1) / kLine * kLine);
    }

    bool exist() const { return memory_ != nullptr; }
    uint32_t size() const { return exist() ? mask_ + 1 : 0; }
    uint32_t bits() const { return 32 - shift_; }
    uint64_t multiplier() const { return multiplier_; }
    uint32_t count() const { return count_; }
    uint32_t limit() const { return limitOf(size()); }
    Bucket &operator[](uint32_t index) const { return buckets_[index]; }
    uint32_t next(uint32_t index) const { return (index + 1) & mask_; }

    static constexpr uint32_t limitOf(uint32_t size) { return size * kSlots / 4 * 3; }

    // The first bucket with a key; any one when there is none. Looked for only from where it was last, so
    // that whoever lists and removes keys again and again does not pass over what is empty already each time.
    uint32_t firstUsed() const
    {
        while (count_ > 0 && buckets_[first_].count == 0) {
            ++first_;
        }
        return first_;
    }

    // The key's value, null when it is not here.
    void **find(uint32_t key) const
    {
        for (uint32_t index = home(key);; index = next(index)) {
            Bucket &bucket = buckets_[index];
            const uint32_t position = bucket.search(key);
            if (position < bucket.count) {
                return &bucket.values[position];
            }
            if (!bucket.isFull()) {
                return nullptr;
            }
        }
    }

    // The same, when the key's home has it, which is the most frequent case by far.
    void **findAtHome(uint32_t key) const
    {
        Bucket &bucket = buckets_[home(key)];
        const uint32_t position = bucket.search(key);
        return position < bucket.count ? &bucket.values[position] : nullptr;
    }

    // Enters a new key, for which there is room; how far from its home.
    uint32_t put(uint32_t key, void *value)
    {
        const uint32_t first = home(key);
        uint32_t index = first;
        while (buckets_[index].isFull()) {
            index = next(index);
        }
        buckets_[index].add(key, value);
        ++count_;
        first_ = std::min(first_, index);
        return distance(first, index);
    }

    // Removes the key of a value that find has found.
    void remove(void *const *value)
    {
        const auto offset = reinterpret_cast<uintptr_t>(value) - reinterpret_cast<uintptr_t>(buckets_);
        const auto index = static_cast<uint32_t>(offset / kLine);
        Bucket &bucket = buckets_[index];
        const bool wasFull = bucket.isFull();
        bucket.drop(static_cast<uint32_t>(value - bucket.values));
        --count_;
        if (wasFull) {
            closeUp(index);
        }
    }

    void clear(uint32_t index)
    {
        count_ -= buckets_[index].count;
        buckets_[index].count = 0;
    }

    void free()
    {
        std::free(memory_);
        *this = Buckets();
    }

private:
    uint32_t home(uint32_t key) const { return static_cast<uint32_t>((key * multiplier_) >> 32U) >> shift_; }
    uint32_t distance(uint32_t from, uint32_t to) const { return (to - from) & mask_; }

    // A full bucket has lost a key: one that it passed on comes back, and leaves a hole in its turn.
    void closeUp(uint32_t hole)
    {
        bool goesOn = true;
        for (uint32_t index = next(hole); goesOn; index = next(index)) {
            Bucket &bucket = buckets_[index];
            goesOn = bucket.isFull();
            for (uint32_t position = 0; position < bucket.count; ++position) {
                const uint32_t key = bucket.keys[position];
                if (distance(home(key), index) >= distance(hole, index)) {
                    buckets_[hole].add(key, bucket.values[position]);
                    bucket.drop(position);
                    hole = index;
                    break;
                }
            }
        }
    }

    void *memory_ = nullptr;
    Bucket *buckets_ = gNoBuckets;
    uint64_t multiplier_ = kFirstMultiplier;
    uint32_t mask_ = (1U << kFirstBits) - 1;
    uint32_t shift_ = 32 - kFirstBits;
    uint32_t count_ = 0;
    mutable uint32_t first_ = 0; // no bucket before this one has a key
};

struct Table {
    Hashtable operations;
    Buckets buckets{};
    Buckets old{};          // of which some, one behind the other up to the cursor, have been moved
    uint32_t cursor = 0;    // the next one to move; no key has been passed on to it
    uint32_t visits = 0;    // that are in progress
    uint32_t calmUntil = 0; // this many keys: the multiplier stays before

    uint32_t count() const { return buckets.count() + old.count(); }

    void **find(uint32_t key) const
    {
        void **const value = buckets.find(key);
        return value == nullptr && old.count() != 0 ? old.find(key) : value;
    }

    // Calls what for each key and its value, until it returns false.
    template <typename What>
    void each(What what) const
    {
        for (const Buckets *part : {&buckets, &old}) {
            uint32_t left = part->count();
            for (uint32_t index = part->firstUsed(); left > 0; ++index) {
                const Bucket &bucket = (*part)[index];
                left -= bucket.count;
                for (uint32_t position = 0; position < bucket.count; ++position) {
                    if (!what(bucket.keys[position], bucket.values[position])) {
                        return;
                    }
                }
            }
        }
    }
};
static_assert(std::is_standard_layout_v<Table>, "a table is known by the address of its operations");

Table &tableOf(Hashtable *operations)
{
    return *reinterpret_cast<Table *>(operations);
}

// Moves about as many buckets as wanted, and on to the end of a row of full ones: what they have passed on
// would not be found without them.
void move(Table &table, uint32_t wanted)
{
    Buckets &old = table.old;
    bool passesOn = false;
    for (uint32_t moved = 0; old.count() > 0 && (moved < wanted || passesOn); ++moved) {
        const Bucket &bucket = old[table.cursor];
        passesOn = bucket.isFull();
        for (uint32_t position = 0; position < bucket.count; ++position) {
            table.buckets.put(bucket.keys[position], bucket.values[position]);
        }
        old.clear(table.cursor);
        table.cursor = old.next(table.cursor);
    }
    if (old.count() == 0) {
        old.free();
    }
}

constexpr uint32_t kAll = std::numeric_limits<uint32_t>::max();

// Gives the table new buckets, into which the keys are moved step by step.
bool renew(Table &table, uint32_t bits, uint64_t multiplier)
{
    if (bits > kMaxBits) {
        return false;
    }
    move(table, kAll);
    const Buckets made(bits, multiplier);
    if (!made.exist()) {
        return false;
    }
    table.old = table.buckets;
    table.buckets = made;
    table.cursor = 0;
    while (table.old[table.cursor].isFull()) {
        table.cursor = table.old.next(table.cursor);
    }
    table.cursor = table.old.next(table.cursor);
    move(table, table.old.size() <= kMovedAtOnce ? kAll : kBucketsAStep);
    return true;
}

bool grow(Table &table)
{
    const uint32_t bits = table.buckets.exist() ? table.buckets.bits() + 1 : kFirstBits;
    return renew(table, bits, table.buckets.multiplier());
}

// A table that has lost most of its keys gets fewer buckets, if there is memory to move to.
void shrink(Table &table)
{
    const bool isWide = table.buckets.size() > kMovedAtOnce && table.count() < table.buckets.limit() / 8;
    if (isWide) {
        renew(table, table.buckets.bits() - 1, table.buckets.multiplier());
    }
}

// Without memory the ways stay long, and the table works on. Keys that go badly with every multiplier are
// moved no more often than those of a table that grows.
void changeMultiplier(Table &table)
{
    constexpr uint64_t kStep = 0xD1342543DE82EF95U;
    if (table.count() >= table.calmUntil) {
        table.calmUntil = table.count() + table.count() / 2;
        const uint32_t more = table.count() > table.buckets.limit() / 2 ? 1 : 0;
        renew(table, table.buckets.bits() + more, table.buckets.multiplier() * kStep);
    }
}

uint32_t getCount(Hashtable *operations)
{
    return operations != nullptr ? tableOf(operations).count() : 0;
}

uint32_t hasKey(Hashtable *operations, uint32_t key)
{
    return operations != nullptr && tableOf(operations).find(key) != nullptr ? 1 : 0;
}

uint32_t put(Hashtable *operations, uint32_t key, void *value)
{
    if (operations == nullptr) {
        return QX_ERR;
    }
    Table &table = tableOf(operations);
    if (table.visits != 0) {
        return QX_ERR_BUSY;
    }
    if (table.find(key) != nullptr) {
        return QX_ERR_TAKEN;
    }
    if (table.count() >= table.buckets.limit() && !grow(table)) {
        return QX_ERR_NO_MEMORY;
    }
    const uint32_t distance = table.buckets.put(key, value);
    if (table.old.exist()) {
        move(table, kBucketsAStep);
    } else if (distance > kFarFromHome + 2 * table.buckets.bits()) {
        changeMultiplier(table);
    }
    return QX_OK;
}

[[gnu::noinline]] uint32_t getFromAnywhere(const Table &table, uint32_t key, void **value)
{
    void *const *const found = table.find(key);
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    *value = *found;
    return QX_OK;
}

uint32_t get(Hashtable *operations, uint32_t key, void **value)
{
    if (operations == nullptr || value == nullptr) {
        return QX_ERR;
    }
    void *const *const found = tableOf(operations).buckets.findAtHome(key);
    if (found == nullptr) {
        return getFromAnywhere(tableOf(operations), key, value);
    }
    *value = *found;
    return QX_OK;
}

uint32_t getKeys(Hashtable *operations, uint32_t *keys, uint32_t max, uint32_t *count)
{
    if (operations == nullptr || count == nullptr || (keys == nullptr && max > 0)) {
        return QX_ERR;
    }
    uint32_t listed = 0;
    if (max > 0) {
        tableOf(operations).each([&](uint32_t key, const void *) {
            keys[listed++] = key;
            return listed < max;
        });
    }
    *count = listed;
    return QX_OK;
}

uint32_t replace(Hashtable *operations, uint32_t key, void *value)
{
    if (operations == nullptr) {
        return QX_ERR;
    }
    void **const found = tableOf(operations).find(key);
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    *found = value;
    return QX_OK;
}

uint32_t remove(Hashtable *operations, uint32_t key, HashtableRelease release, uintptr_t /*reserved*/)
{
    if (operations == nullptr) {
        return QX_ERR;
    }
    Table &table = tableOf(operations);
    if (table.visits != 0) {
        return QX_ERR_BUSY;
    }
    void **found = table.buckets.find(key);
    Buckets &part = found != nullptr ? table.buckets : table.old;
    found = found != nullptr ? found : part.find(key);
    if (found == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    void *const value = *found;
    part.remove(found);
    if (table.old.exist()) {
        move(table, kBucketsAStep);
    } else {
        shrink(table);
    }
    if (release != nullptr) {
        release(value);
    }
    return QX_OK;
}

uint32_t destroy(Hashtable **holder)
{
    if (holder == nullptr || *holder == nullptr) {
        return QX_ERR;
    }
    Table &table = tableOf(*holder);
    if (table.visits != 0) {
        return QX_ERR_BUSY;
    }
    table.buckets.free();
    table.old.free();
    std::free(*holder);
    *holder = nullptr;
    return QX_OK;
}

uint32_t forEach(Hashtable *operations, HashtableVisitor visitor, void *argument1, void *argument2,
                 void *argument3)
{
    if (operations == nullptr || visitor == nullptr) {
        return QX_ERR;
    }
    Table &table = tableOf(operations);
    uint32_t result = QX_OK;
    ++table.visits;
    table.each([&](uint32_t key, void *value) {
        result = visitor(key, value, argument1, argument2, argument3);
        return result == 0;
    });
    --table.visits;
    return result;
}

constexpr Hashtable kOperations{.pfnGetCount = getCount,
                                .pfnHasKey = hasKey,
                                .pfnPut = put,
                                .pfnGet = get,
                                .pfnGetKeys = getKeys,
                                .pfnReplace = replace,
                                .pfnRemove = remove,
                                .pfnDestroy = destroy,
                                .pfnForEach = forEach,
                                .pvOwner = nullptr,
                                .ulOwner = 0};

Hashtable *makeTable(uint32_t room)
{
    void *const block = std::malloc(sizeof(Table));
    if (block == nullptr) {
        return nullptr;
    }
    auto *const table = ::new (block) Table{.operations = kOperations};
    uint32_t bits = kFirstBits;
    while (bits <= kMaxBits && Buckets::limitOf(1U << bits) < room) {
        ++bits;
    }
    if (room > 0 && !renew(*table, bits, kFirstMultiplier)) {
        std::free(block);
        return nullptr;
    }
    return &table->operations;
}

// The holder's first table, or that of the thread that was there before. Not inline: the caller finds a table
// nearly always, and saves no registers then.
[[gnu::noinline]] Hashtable *makeHeld(Hashtable *&holder)
{
    Hashtable *made = makeTable(0);
    if (made == nullptr) {
        return nullptr;
    }
    Hashtable *present = nullptr;
    if (std::atomic_ref(holder).compare_exchange_strong(present, made, std::memory_order_acq_rel,
                                                        std::memory_order_acquire)) {
        return made;
    }
    made->pfnDestroy(&made);
    return present;
}

} // namespace

Hashtable *Hashtable_Create(Hashtable **holder, uint32_t ulRoom, uint32_t /*ulReserved*/)
{
    Hashtable *const made = holder != nullptr ? makeTable(ulRoom) : nullptr;
    if (made != nullptr) {
        *holder = made;
    }
    return made;
}

Hashtable *Hashtable_GetHashtable3(Hashtable **holder)
{
    if (holder == nullptr) {
        return nullptr;
    }
    Hashtable *const present = std::atomic_ref(*holder).load(std::memory_order_acquire);
    return present != nullptr ? present : makeHeld(*holder);
}
