/*
 * Running processes, and what all operators see. Texts are NUL-terminated. Failures are recorded under
 * qx_util_common.cpp.
 */
#ifndef ZEMA_PROCESS_H
#define ZEMA_PROCESS_H

#include "zema/result.h"

QX_BEGIN_DECLS

/*
 * Finds the process whose line of the list that "ps w" prints matches both pcProcess and pcKeyword, as grep
 * matches its pattern. Of several the first one counts; a line that holds "ps" anywhere, or does not begin
 * with a number, does not. The list passes through a file under /var that the two texts name, the second one
 * without its blanks, as "pcProcess_pcKeyword_pid.txt": they hold no "/" and are short enough for a file's
 * name, and two lookups that name the same file must not run at once; others may, on any thread. A text that
 * begins with "-" is an option to grep.
 *
 * 0 and the identifier in *pulPid. 1, and *pulPid untouched, when an argument is missing (not recorded), or,
 * recorded (1), when pcKeyword has more than 255 characters, there is no memory to escape the texts for the
 * shell, there is no list or no such line in it. A nonzero result of QX_OS_StripSpace is recorded and
 * returned.
 */
ZEMA_API uint32_t QX_UTL_GetPid(const char *pcProcess, const char *pcKeyword, uint32_t *pulPid);

/* Prints a text on every terminal (QX_CLI_SynPrint), cut to 2046 characters. Nothing is printed without
 * memory for it; there is no report of that. Any thread. */
ZEMA_API void QX_UTL_PrintToAllTerminal(const char *pcFormat, ...) QX_PRINTF(1, 2);

QX_END_DECLS

#endif
