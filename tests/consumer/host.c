/* A consumer in C. */
#include <qx/host.h>
#include <qx/qx.h>
#include <zema/zema.h>

#include <string.h>

int main(void)
{
    char text[8];

    if (QX_ZEMA_Zemacmd_CheckPara("no such command", 15, ZEMA_CMD_DISPLAY) != 0) {
        return 1;
    }
    return QX_OS_Snprintf_S(text, sizeof text, 7, "%u", 42u) == 2 && strcmp(text, "42") == 0 ? 0 : 1;
}
