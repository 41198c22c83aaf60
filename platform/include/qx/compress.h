/*
 * Compression of a block of bytes, for what leaves the process and comes back on the same machine. Any
 * thread. Nothing is allocated.
 */
#ifndef QX_COMPRESS_H
#define QX_COMPRESS_H

#include "qx/base.h"

QX_BEGIN_DECLS

/*
 * Compresses n bytes into at most capacity bytes at dst, and tells how many it wrote: never more than n + 1,
 * however little the bytes shrink. 0; QX_ERR when an argument is missing or capacity is 0; QX_ERR_TOO_LARGE
 * when they do not fit, which they always do into n + 1. After a failure dst holds anything and *written is
 * untouched.
 */
QX_API uint32_t QX_OS_Compress(const void *src, uint32_t n, void *dst, uint32_t capacity, uint32_t *written);

/*
 * Restores exactly rawSize bytes at dst from n bytes that QX_OS_Compress wrote. src may be anything: what is
 * no such block, or of another size, gives QX_ERR, and nothing outside the rawSize bytes is written.
 */
QX_API uint32_t QX_OS_Decompress(const void *src, uint32_t n, void *dst, uint32_t rawSize);

QX_END_DECLS

#endif
