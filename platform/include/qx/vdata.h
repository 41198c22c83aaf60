/*
 * Shared memory: blocks of bytes that live until they are freed, known by identifiers on the whole machine.
 *
 * A block belongs to its user: processes of other users can neither open nor remove it, and what they put in
 * its place is refused. It outlives the process that made it (QxHost_ListBlocks shows those that are left).
 * An identifier is random, never 0 and never that of two blocks at once. Whoever knows it may write and read:
 * a block has one writer and then one reader, or its users agree in another way.
 *
 * size is the block's own in every call; another one is refused. Results: 0; QX_ERR when an argument is
 * missing, the identifier is 0, the size is another, or the block is not ours; QX_ERR_NOT_FOUND when there is
 * no such block; QX_ERR_NO_MEMORY when the memory, or the process's descriptors, are at an end. Any thread.
 */
#ifndef QX_VDATA_H
#define QX_VDATA_H

#include "qx/base.h"

QX_BEGIN_DECLS

/* A block of size bytes, all 0; 0 is a size. Beyond the process's limit of file sizes (RLIMIT_FSIZE) the
 * system sends SIGXFSZ. *id is 0, which names no block, when it fails. */
QX_API uint32_t QX_VDATA_CreShm(uint32_t size, uint32_t *id);

/* Overwrites all of the block. data may be missing when size is 0, also below. */
QX_API uint32_t QX_VDATA_UpdateData(uint32_t id, uint32_t size, const void *data);

/* Copies all of the block to data. */
QX_API uint32_t QX_VDATA_ReadData(uint32_t id, uint32_t size, void *data);

/* The block is gone, and its identifier may come again. Whatever else of this user's stands under its name
 * goes as well. */
QX_API uint32_t QX_VDATA_FreeShm(uint32_t id);

QX_END_DECLS

#endif
