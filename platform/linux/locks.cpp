#include "platform/linux/locks.h"

#include <algorithm>
#include <array>
#include <span>

namespace qx {
namespace {

constexpr pthread_mutex_t kRecursiveLock = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

constinit std::array<pthread_mutex_t, kLockCount> gLocks = [] {
    std::array<pthread_mutex_t, kLockCount> locks{};
    locks.fill(PTHREAD_MUTEX_INITIALIZER);
    locks[static_cast<size_t>(LockId::sync)] = kRecursiveLock;
    return locks;
}();

} // namespace

pthread_mutex_t &lockOf(LockId id)
{
    return gLocks[static_cast<size_t>(id)];
}

// Not the first one, which is held for as long as a handler runs: a fork does not wait for that, and the
// child has no owner's handler any more.
void holdLocks()
{
    for (pthread_mutex_t &lock : std::span(gLocks).subspan<1>()) {
        pthread_mutex_lock(&lock);
    }
}

void releaseLocks()
{
    for (auto lock = gLocks.rbegin(); lock != gLocks.rend() - 1; ++lock) {
        pthread_mutex_unlock(&*lock);
    }
}

void renewLocks()
{
    releaseLocks();
    lockOf(LockId::sync) = kRecursiveLock; // a recursive lock knows its thread, and that is the parent's
}

} // namespace qx
