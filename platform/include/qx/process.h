/*
 * The process: its identifiers, its console, its shell, its locks.
 */
#ifndef QX_PROCESS_H
#define QX_PROCESS_H

#include "qx/base.h"

#include <pthread.h>

QX_BEGIN_DECLS

/* The process identifier; the kernel's thread identifier, equal to it on the main thread; an identifier of
 * the calling thread that no other live thread of the machine has. */
QX_API uint32_t QX_OS_GetPID(void);
QX_API uint32_t QX_OS_GetThreadID(void);
QX_API uint32_t QX_OS_PthreadSelf(void);

/* The system state that the host set with QxHost_SetState, 0 until then. 0, or nonzero when state is missing.
 */
QX_API uint32_t QX_OS_StatGet(uint32_t *state);

/* Writes to the process's console (standard output), in one piece. 0 when written. */
QX_API uint32_t QX_OS_Printf(const char *format, ...) QX_PRINTF(1, 2);

/* Writes the calling thread's call stack to the console, headed by file and line: its caller, and beyond it
 * as far as the code has unwind tables. 0 when written. */
QX_API uint32_t QX_OS_BackTrace(const char *file, uint32_t line);

/*
 * Runs a line through /bin/sh -c and waits for its end. The shell starts with no signal blocked or ignored,
 * whatever the process does with its own, and with its descriptors but for those that are close-on-exec. 0
 * when it exited with 0, else its status as a shell counts it (1 to 255, 128 and the signal's number when it
 * was killed); QX_ERR when the line is missing, no shell could be started, or the process has its children's
 * ends taken by someone else (SIGCHLD ignored, a handler that waits for all). Any thread.
 */
QX_API uint32_t QX_OS_ExecShellCmd(const char *line);

/* A lock that lives inside its owner's structure. Not recursive. The second argument of QX_OS_MutexInit is
 * reserved and 0. Each returns 0 when done, QX_ERR when the lock is missing, else the number of the error. */
typedef pthread_mutex_t QxMutex;
QX_API uint32_t QX_OS_MutexInit(QxMutex *mutex, uint32_t reserved);
QX_API uint32_t QX_OS_MutexLock(QxMutex *mutex);
QX_API uint32_t QX_OS_MutexUnLock(QxMutex *mutex);
QX_API uint32_t QX_OS_MutexDestroy(QxMutex *mutex);

QX_END_DECLS

#endif
