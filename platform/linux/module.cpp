#include "qx/host.h"
#include "qx/message.h"

static constinit thread_local uint32_t gModule = 0;

void QxHost_SetCurThreadMid(uint32_t mid)
{
    gModule = mid;
}

uint32_t QX_MSG_GetCurThreadMid(void)
{
    return gModule;
}
