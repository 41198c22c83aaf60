// A consumer in C++: a host that takes the place of a platform function.
#include <qx/qx.h>
#include <zema/zema.h>

namespace {

int records = 0;

}

extern "C" uint32_t QX_PROC_DBG_LastWord(const char *, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t,
                                         uint32_t)
{
    ++records;
    return 0;
}

int main()
{
    return QX_ZEMA_Zemacmd_CheckPara("no such command", 15, ZEMA_CMD_DISPLAY) == 0 && records == 1 ? 0 : 1;
}
