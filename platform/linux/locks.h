// The platform's process-wide locks, in the order in which one thread may take several. They stand together
// so that a fork can hold all of them: the child then starts from a state that no other thread was changing.
#pragma once

#include <pthread.h>

namespace qx {

// The first one is held while a handler runs, which may ask its own process again: it is recursive, and a
// fork does not hold it.
enum class LockId {
    sync,
    events,
    procedures,
    terminals,
    kernel,
    modules,
    monitor,
    handles,
    lists,
    join,
    roles,
    peers,
    channels,
    directory,
    ring
};
constexpr unsigned kLockCount = static_cast<unsigned>(LockId::ring) + 1;

pthread_mutex_t &lockOf(LockId id);

// For a fork: the others, and what becomes of all of them in its parent and in its child.
void holdLocks();
void releaseLocks();
void renewLocks();

class Lock {
public:
    explicit Lock(LockId id) : mutex_(lockOf(id)) { pthread_mutex_lock(&mutex_); }
    explicit Lock(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~Lock() { pthread_mutex_unlock(&mutex_); }
    Lock(const Lock &) = delete;
    Lock &operator=(const Lock &) = delete;

private:
    pthread_mutex_t &mutex_;
};

} // namespace qx
