#include "qx/process.h"

#include "qx/host.h"

#include <atomic>
#include <unistd.h>

static constinit std::atomic<uint32_t> gState{0};

uint32_t QX_OS_GetPID(void)
{
    return static_cast<uint32_t>(getpid());
}

uint32_t QX_OS_GetThreadID(void)
{
    return static_cast<uint32_t>(gettid());
}

// pthread_self() is an address and may be the same in two processes; the kernel's identifier is not.
uint32_t QX_OS_PthreadSelf(void)
{
    return static_cast<uint32_t>(gettid());
}

uint32_t QxHost_SetState(uint32_t state)
{
    gState.store(state);
    return QX_OK;
}

uint32_t QX_OS_StatGet(uint32_t *state)
{
    if (state == nullptr) {
        return QX_ERR;
    }
    *state = gState.load();
    return QX_OK;
}

// The lock checks its use: a thread that takes it twice, or gives back what it does not hold, is told so
// instead of hanging or letting another thread in.
uint32_t QX_OS_MutexInit(QxMutex *mutex, uint32_t /*reserved*/)
{
    if (mutex == nullptr) {
        return QX_ERR;
    }
    pthread_mutexattr_t attributes;
    int error = pthread_mutexattr_init(&attributes);
    if (error != 0) {
        return static_cast<uint32_t>(error);
    }
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_ERRORCHECK);
    error = pthread_mutex_init(mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return static_cast<uint32_t>(error);
}

uint32_t QX_OS_MutexLock(QxMutex *mutex)
{
    return mutex != nullptr ? static_cast<uint32_t>(pthread_mutex_lock(mutex)) : QX_ERR;
}

uint32_t QX_OS_MutexUnLock(QxMutex *mutex)
{
    return mutex != nullptr ? static_cast<uint32_t>(pthread_mutex_unlock(mutex)) : QX_ERR;
}

uint32_t QX_OS_MutexDestroy(QxMutex *mutex)
{
    return mutex != nullptr ? static_cast<uint32_t>(pthread_mutex_destroy(mutex)) : QX_ERR;
}
