/* The whole public interface of the library. */
#ifndef ZEMA_ZEMA_H
#define ZEMA_ZEMA_H

#include "zema/bit_map.h"
#include "zema/cmd_tree.h"
#include "zema/cmdagent.h"
#include "zema/data_async.h"
#include "zema/data_validator.h"
#include "zema/domain.h"
#include "zema/hlp.h"
#include "zema/index.h"
#include "zema/index_array.h"
#include "zema/ipv4.h"
#include "zema/ipv6.h"
#include "zema/large_data.h"
#include "zema/layer_base.h"
#include "zema/mac.h"
#include "zema/multi_hashtable.h"
#include "zema/multi_hashtable_ex.h"
#include "zema/name_value_map.h"
#include "zema/netdev.h"
#include "zema/pkt_tunnel.h"
#include "zema/process.h"
#include "zema/result.h"
#include "zema/strings.h"
#include "zema/wan_options.h"
#include "zema/zemacmd.h"
#include "zema/zemacmd_table.h"

#endif
