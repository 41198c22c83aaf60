/* The whole platform interface as the library uses it. What a host process calls is in qx/host.h. */
#ifndef QX_QX_H
#define QX_QX_H

#include "qx/base.h"
#include "qx/cli.h"
#include "qx/compress.h"
#include "qx/data_sync.h"
#include "qx/diag.h"
#include "qx/event.h"
#include "qx/event_handle.h"
#include "qx/feature.h"
#include "qx/file.h"
#include "qx/hashtable.h"
#include "qx/hlp.h"
#include "qx/list.h"
#include "qx/memory.h"
#include "qx/message.h"
#include "qx/process.h"
#include "qx/socket.h"
#include "qx/text.h"
#include "qx/vdata.h"
#include "qx/xml.h"

#endif
