/*
 * Diagnostics: last-word records and trace lines.
 *
 * Records go to a ring in a file of the runtime directory, one file a process, written without allocation
 * and, but for the first of a process, which makes the file, without a lock; readable after the process died
 * (QxHost_ReadRecords). With ZEMA_DIAG=stderr in the environment, records and trace lines are also printed on
 * standard error. The functions may be called from any thread; a caller need not look at their results.
 */
#ifndef QX_DIAG_H
#define QX_DIAG_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* Stores one record: a source file, its line and five values, the first by convention the failure code. 0
 * when stored, QX_ERR_RUNTIME_DIR when there is no file to store it in or no room on its disk. */
QX_API uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                                     uint32_t value3, uint32_t value4, uint32_t value5);

/* Writes one trace line for a module. 0. */
QX_API uint32_t QX_PROC_DBG_TraceN(uint32_t module, const char *file, uint32_t line, const char *format, ...)
    QX_PRINTF(4, 5);

/* The time since the machine started, in milliseconds: words[0] is its high word, words[1] its low one, which
 * comes round after 49 days. 0, or QX_ERR when words is missing. */
QX_API uint32_t QX_PROC_DBG_GetJiffies(uint32_t words[2]);

QX_END_DECLS

#endif
