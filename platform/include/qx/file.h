/*
 * Files, as the stdio functions have them. What Fopen opens is closed in programs that the process starts.
 * One file is used by one thread at a time.
 */
#ifndef QX_FILE_H
#define QX_FILE_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* As fopen: null when the file cannot be opened or an argument is missing. End it with QX_OS_Fclose: 0 when
 * all that was written has reached the file. */
QX_API void *QX_OS_Fopen(const char *path, const char *mode);
QX_API int32_t QX_OS_Fclose(void *file);

/* As fgets: at most size - 1 bytes, up to and with a newline. out when there is one byte or more; null at the
 * end of the file, on an error, for a size of 0 or a missing argument. */
QX_API char *QX_OS_Fgets(char *out, uint32_t size, void *file);

/* As feof: nonzero when a read has met the end of the file; a missing file is at its end. */
QX_API int32_t QX_OS_Feof(void *file);

/* As remove: 0 when the file or the empty directory is gone. */
QX_API int32_t QX_OS_Remove(const char *path);

QX_END_DECLS

#endif
