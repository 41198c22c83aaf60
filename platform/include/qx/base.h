/*
 * What every platform header needs: linkage, visibility and the platform's own result codes.
 *
 * The platform is the seam of the system: the library reaches everything outside itself through the functions
 * of these headers, libqxplatform.so defines them for Linux, and a host process that defines one of them
 * takes its place. No function lets an exception out, and none allocates on a path that reports a failure.
 */
#ifndef QX_BASE_H
#define QX_BASE_H

#include <stddef.h>
#include <stdint.h>

#define QX_API __attribute__((visibility("default")))
#define QX_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))
#define QX_SCANF(formatIndex, firstArgument) __attribute__((format(scanf, formatIndex, firstArgument)))

#ifdef __cplusplus
#define QX_BEGIN_DECLS extern "C" {
#define QX_END_DECLS }
#else
#define QX_BEGIN_DECLS
#define QX_END_DECLS
#endif

/*
 * Results of platform functions: 0 is success. A function that can fail in one way only returns QX_ERR; what
 * crosses a process tells its failures apart, so that a record shows an operator whether to look for a
 * missing process, a hung one or a full disk.
 */
#define QX_OK 0U
#define QX_ERR 1U                      /* the call failed, or an argument is missing */
#define QX_ERR_NO_MEMORY 0xF1000001U   /* no memory for what the call has to keep */
#define QX_ERR_RUNTIME_DIR 0xF1000002U /* the runtime directory is missing, not ours, or open to others */
#define QX_ERR_NOBODY 0xF1000003U      /* no live process holds the role that is addressed */
#define QX_ERR_PEER_GONE 0xF1000004U   /* the other process died before it answered */
#define QX_ERR_TIMEOUT                                                                                       \
    0xF1000005U                      /* nothing came, or the other process took nothing, within the time set \
                                      */
#define QX_ERR_TOO_LARGE 0xF1000006U /* more bytes than one frame of the bus carries */
#define QX_ERR_NOT_FOUND 0xF1000007U /* no such element, handler or registration */
#define QX_ERR_TAKEN 0xF1000008U     /* another live process holds a role that only one may hold */
#define QX_ERR_BUSY 0xF1000009U      /* called from inside a handler, or while another thread dispatches */
#define QX_ERR_PROTOCOL 0xF100000AU  /* the other side sent what the bus does not allow */
#define QX_ERR_STOPPED 0xF100000BU   /* QxHost_Stop was called */

#endif
