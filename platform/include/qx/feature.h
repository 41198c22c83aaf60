/*
 * Feature switches: what of the product is switched on, by name.
 *
 * A feature is on when one of two lists holds its name: $ZEMA_FEATURES, names separated by commas, and a file
 * of one name a line: $ZEMA_FEATURES_FILE, or `features` in the runtime directory (see qx/host.h). Names are
 * compared byte by byte; blanks are part of a name, and nothing is a comment. A file that is not a regular
 * one, is longer than QX_FEATURES_FILE_MAX bytes or cannot be read is no list.
 *
 * Both are read anew at every call, which costs a few microseconds and keeps nothing: a change counts from
 * the next call on. Replace the file by renaming a new one over it, so that no call meets half of it.
 */
#ifndef QX_FEATURE_H
#define QX_FEATURE_H

#include "qx/base.h"

QX_BEGIN_DECLS

#define QX_FEATURES_FILE_MAX 65536U

/* 1 when the feature is on; 0 when it is off or unknown, or its name is missing or empty. Any thread. */
QX_API uint32_t QX_Feature_IsSupportByFeatureName(const char *name);

QX_END_DECLS

#endif
