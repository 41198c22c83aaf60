/*
 * Memory and bounded copies.
 *
 * The allocator is the one place through which the library gets memory. Sizes are bytes. The bounded
 * functions take the destination's whole size before the count, never write outside it, and terminate every
 * text they write. All of them may be called from any thread.
 */
#ifndef QX_MEMORY_H
#define QX_MEMORY_H

#include "qx/base.h"

#include <stdarg.h>

QX_BEGIN_DECLS

/* A block of size bytes with undefined content, aligned for any type; null when there is none. The caller
 * owns it and gives it back with QX_OS_MemFreeD. A size of 0 yields a block that may be freed but not
 * written. */
QX_API void *QX_OS_MemMallocD(uint32_t size);

/* As QX_OS_MemMallocD, every byte 0. */
QX_API void *QX_OS_MemMallocSet(uint32_t size);

/* Gives a block back; null is ignored. Returns 0. */
QX_API uint32_t QX_OS_MemFreeD(void *block);

/* Writes value into the first count bytes of dst. 0 when done; nonzero, and nothing written, when dst is
 * missing or count is above dstSize. */
QX_API uint32_t QX_OS_MemSet_S(void *dst, uint32_t dstSize, int32_t value, uint32_t count);
QX_API int32_t memset_s(void *dst, size_t dstSize, int32_t value, size_t count);

/* Copies count bytes; the two blocks may overlap. 0 when done; nonzero, and nothing written, when count is
 * above dstSize or a needed pointer is missing. A count of 0 succeeds and touches nothing. */
QX_API int32_t memcpy_s(void *dst, size_t dstSize, const void *src, size_t count);

/* Copies at most count characters of src and terminates. When that text does not fit dstSize - 1 characters,
 * or src is missing, dst becomes the empty text and the result is nonzero. dst of size 0 is never written. At
 * most count characters of src are read. */
QX_API int32_t strncpy_s(char *dst, size_t dstSize, const char *src, size_t count);

/* As strncpy_s, behind the text that dst holds already; on refusal dst becomes the empty text. A dst without
 * a terminating zero within dstSize is refused. */
QX_API int32_t strncat_s(char *dst, size_t dstSize, const char *src, size_t count);

/* Formats, cut to count characters, and returns the number of characters written. When the cut text does not
 * fit dstSize - 1 characters, or the format fails, dst becomes the empty text and the result is -1. */
QX_API int32_t snprintf_s(char *dst, size_t dstSize, size_t count, const char *format, ...) QX_PRINTF(4, 5);
QX_API int32_t QX_OS_Snprintf_S(char *dst, size_t dstSize, size_t count, const char *format, ...)
    QX_PRINTF(4, 5);
QX_API int32_t vsnprintf_s(char *dst, size_t dstSize, size_t count, const char *format, va_list arguments)
    QX_PRINTF(4, 0);

/* As sscanf: the number of items converted, or EOF. */
QX_API int32_t sscanf_s(const char *text, const char *format, ...) QX_SCANF(2, 3);

QX_END_DECLS

#endif
