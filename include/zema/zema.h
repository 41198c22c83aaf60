/* The whole public interface of the library. */
#ifndef ZEMA_ZEMA_H
#define ZEMA_ZEMA_H

#include "zema/cmd_tree.h"
#include "zema/cmdagent.h"
#include "zema/hlp.h"
#include "zema/result.h"
#include "zema/zemacmd.h"
#include "zema/zemacmd_table.h"

#endif
