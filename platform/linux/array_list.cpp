// ArrayList: the elements stand packed in the order of their addition. Each has a serial number that is never
// used again, and the numbers ascend with the elements, so a visit keeps its place by number while the list
// changes.
#include "qx/list.h"

#include "platform/linux/locks.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <type_traits>

namespace {

constexpr size_t kFirstCapacity = 8;
constexpr size_t kSmallElement = 256;

// The lock guards all that follows it. It is held while a comparison function runs, which therefore must not
// call the list, and never while a visitor runs.
struct List {
    ArrayList operations;
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    uint32_t elementSize = 0; // 0 until the first element
    size_t count = 0;
    size_t capacity = 0;
    unsigned char *elements = nullptr;
    uint64_t *serials = nullptr;
    uint64_t nextSerial = 1;

    unsigned char *at(size_t index) { return elements + index * elementSize; }
};
static_assert(std::is_standard_layout_v<List>, "a list is known by the address of its operations");

List &listOf(ArrayList *operations)
{
    return *reinterpret_cast<List *>(operations);
}

// A block that grew keeps what it held, so an array that has one new block of two is as good as before.
template <typename T>
bool regrow(T *&block, size_t capacity, size_t elementSize)
{
    size_t bytes = 0;
    if (__builtin_mul_overflow(capacity, elementSize, &bytes)) {
        return false;
    }
    auto *const grown = static_cast<T *>(std::realloc(block, bytes));
    block = grown != nullptr ? grown : block;
    return grown != nullptr;
}

bool grow(List &list, uint32_t elementSize)
{
    const size_t capacity = std::max(list.capacity * 2, kFirstCapacity);
    if (!regrow(list.serials, capacity, sizeof(uint64_t)) || !regrow(list.elements, capacity, elementSize)) {
        return false;
    }
    list.capacity = capacity;
    return true;
}

// The index of the first element that the key names, the count when there is none.
size_t indexOf(List &list, ArrayListCompare compare, const void *key)
{
    size_t index = 0;
    while (index < list.count && compare(list.at(index), key) != 0) {
        ++index;
    }
    return index;
}

uint32_t find(ArrayList *operations, ArrayListCompare compare, const void *key, void *out)
{
    if (operations == nullptr || compare == nullptr) {
        return QX_ERR;
    }
    List &list = listOf(operations);
    const qx::Lock lock(list.mutex);
    const size_t index = indexOf(list, compare, key);
    if (index == list.count) {
        return QX_ERR_NOT_FOUND;
    }
    if (out != nullptr) {
        std::memcpy(out, list.at(index), list.elementSize);
    }
    return QX_OK;
}

uint32_t add(ArrayList *operations, const void *element, uint32_t size)
{
    if (operations == nullptr || element == nullptr || size == 0) {
        return QX_ERR;
    }
    List &list = listOf(operations);
    const qx::Lock lock(list.mutex);
    if (list.elementSize != 0 && list.elementSize != size) {
        return QX_ERR;
    }
    if (list.count == list.capacity && !grow(list, size)) {
        return QX_ERR_NO_MEMORY;
    }
    list.elementSize = size;
    list.serials[list.count] = list.nextSerial++;
    std::memcpy(list.at(list.count), element, size);
    ++list.count;
    return QX_OK;
}

uint32_t remove(ArrayList *operations, ArrayListCompare compare, const void *key)
{
    if (operations == nullptr || compare == nullptr) {
        return QX_ERR;
    }
    List &list = listOf(operations);
    const qx::Lock lock(list.mutex);
    const size_t index = indexOf(list, compare, key);
    if (index == list.count) {
        return QX_ERR_NOT_FOUND;
    }
    std::memmove(list.at(index), list.at(index + 1), (list.count - index - 1) * list.elementSize);
    std::copy(list.serials + index + 1, list.serials + list.count, list.serials + index);
    --list.count;
    return QX_OK;
}

// What a visit has still to see: the elements with serial numbers from next up to end. The copy that is
// handed to the visitor needs memory only when the elements are large.
class Visit {
public:
    explicit Visit(List &list) : list_(list)
    {
        const qx::Lock lock(list_.mutex);
        end_ = list_.nextSerial;
        copy_ = small_.data();
        if (list_.elementSize > small_.size()) {
            large_ = std::malloc(list_.elementSize);
            copy_ = large_;
        }
    }
    ~Visit() { std::free(large_); }
    Visit(const Visit &) = delete;
    Visit &operator=(const Visit &) = delete;

    // The copy of the next element, null after the last.
    void *take()
    {
        const qx::Lock lock(list_.mutex);
        const uint64_t *const first = list_.serials;
        const uint64_t *const last = first + list_.count;
        const uint64_t *const serial = std::lower_bound(first, last, next_);
        if (serial == last || *serial >= end_) {
            return nullptr;
        }
        std::memcpy(copy_, list_.at(static_cast<size_t>(serial - first)), list_.elementSize);
        next_ = *serial + 1;
        return copy_;
    }

    bool hasMemory() const { return copy_ != nullptr; }

private:
    List &list_;
    uint64_t next_ = 0;
    uint64_t end_ = 0;
    alignas(std::max_align_t) std::array<unsigned char, kSmallElement> small_;
    void *large_ = nullptr;
    void *copy_ = nullptr;
};

uint32_t forEach(ArrayList *operations, ArrayListVisitor visitor, void *context)
{
    if (operations == nullptr || visitor == nullptr) {
        return QX_ERR;
    }
    Visit visit(listOf(operations));
    if (!visit.hasMemory()) {
        return QX_ERR_NO_MEMORY;
    }
    while (void *element = visit.take()) {
        uint32_t visited = 0;
        const uint32_t result = visitor(element, &visited, context);
        if (result != 0) {
            return result;
        }
    }
    return QX_OK;
}

constexpr ArrayList kOperations{.pfnFind = find, .pfnAdd = add, .pfnRemove = remove, .pfnForEach = forEach};

List *makeList()
{
    void *const block = std::malloc(sizeof(List));
    return block != nullptr ? ::new (block) List{.operations = kOperations} : nullptr;
}

} // namespace

ArrayList *ArrayList_GetArrayList(ArrayList **holder)
{
    if (holder == nullptr) {
        return nullptr;
    }
    const std::atomic_ref<ArrayList *> held(*holder);
    ArrayList *present = held.load(std::memory_order_acquire);
    if (present != nullptr) {
        return present;
    }
    List *const made = makeList();
    if (made == nullptr) {
        return nullptr;
    }
    if (held.compare_exchange_strong(present, &made->operations, std::memory_order_acq_rel,
                                     std::memory_order_acquire)) {
        return &made->operations;
    }
    std::free(made);
    return present;
}
