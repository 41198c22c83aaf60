/*
 * Sockets, as the system calls have them: negative is a failure, and QX_OS_GetLastErr tells which. Any
 * thread.
 */
#ifndef QX_SOCKET_H
#define QX_SOCKET_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* A descriptor, closed in programs that the process starts. */
QX_API int32_t QX_OS_Socket(int32_t domain, int32_t type, int32_t protocol);

/* Gives the socket an address: a socket address structure of size bytes. */
QX_API int32_t QX_OS_Bind(int32_t fd, const void *address, uint32_t size);

/* Sends to an address, or on a connected socket to its peer with address null and addressSize 0. The number
 * of bytes taken, which on a stream may be fewer than size. */
QX_API int32_t QX_OS_Sendto(int32_t fd, const void *bytes, uint32_t size, int32_t flags, const void *address,
                            uint32_t addressSize);

/* Receives at most size bytes, one message where the socket keeps messages apart. Their number; 0 also at the
 * end of a stream. */
QX_API int32_t QX_OS_Recv(int32_t fd, void *bytes, uint32_t size, int32_t flags);

/* Issues a request with its structure, which the request's number gives the shape. */
QX_API int32_t QX_OS_IoctlSocket(int32_t fd, unsigned long request, void *argument);

/* 0 when closed. */
QX_API int32_t QX_OS_Close(int32_t fd);
QX_API int32_t QX_OS_CloseSocket(int32_t fd);

/* The number of the calling thread's last error, and the words for a number, which live forever. */
QX_API int32_t QX_OS_GetLastErr(void);
QX_API const char *QX_OS_StrError(int32_t error);

QX_END_DECLS

#endif
