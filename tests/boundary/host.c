/*
 * A host that takes the place of one platform function, linked with libzema.so alone and without exporting
 * its names by hand, as a program of any build system would be: the linker must see that the library needs
 * this one.
 */
#include "zema/zema.h"

static uint32_t gRecords;

uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                              uint32_t value3, uint32_t value4, uint32_t value5)
{
    (void)file;
    (void)line;
    (void)(value1 + value2 + value3 + value4 + value5);
    gRecords++;
    return 0;
}

int main(void)
{
    return QX_ZEMA_Zemacmd_CheckPara("no such command", 15, ZEMA_CMD_DISPLAY) == 0 && gRecords == 1 ? 0 : 1;
}
