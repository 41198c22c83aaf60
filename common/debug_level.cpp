#include "zema/result.h"

uint8_t g_mid_dbg_level[ZEMA_DBG_LEVEL_COUNT];
