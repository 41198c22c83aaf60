/*
 * Large data transfer: a block of data too large for a message, through shared memory.
 *
 * The writer puts the data into a block and passes the filled descriptor on by means of its own; the reader
 * copies the data out. Each block is read once: a read releases it, whether it succeeds or not. Data of more
 * than 2048 bytes is compressed when the write asks for that, and restored when the read does; the descriptor
 * does not tell, so what QX_LargeDataWrite wrote is read with QX_LargeDataRead, and what
 * QX_LargeDataWriteNoCompress wrote with QX_LargeDataReadNoDecompress. Up to 2048 bytes either will do.
 *
 * A writer that cannot pass its descriptor on releases the block (QX_VDATA_FreeShm in qx/vdata.h): nobody
 * else will. A descriptor that comes from another process may be wrong without harm but for what it asks for:
 * a read takes ulStoredLen and ulRawLen bytes of memory. Nothing is locked and nothing kept between calls;
 * any thread.
 *
 * Results: 0; 1, recorded (1), for a missing argument, before anything is done; ZEMA_ERR_LARGEDATA_NOMEM;
 * else the platform's result. All failures are recorded under large_data_transfer.cpp.
 */
#ifndef ZEMA_LARGE_DATA_H
#define ZEMA_LARGE_DATA_H

#include "zema/result.h"

QX_BEGIN_DECLS

#define ZEMA_LARGEDATA_PLAIN_MAX 2048U /* bytes that are never compressed */

/* Host byte order. */
typedef struct LargeDataDesc {
    uint32_t ulShmId;
    uint32_t ulRawLen;    /* of the data */
    uint32_t ulStoredLen; /* of the block */
} LargeDataDesc;

/*
 * Writes ulLen bytes, 0 too, into a new block and fills the descriptor, which after a failure is of no use.
 * Recorded are: ZEMA_ERR_LARGEDATA_NOMEM and the length; the compressor's result, the data's address and the
 * length; the two results of making and filling the block, joined by OR, the block's length, its identifier
 * and the data's length. The block is released then.
 */
ZEMA_API uint32_t QX_LargeDataWriteInner(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen,
                                         uint32_t ulCompress);
ZEMA_API uint32_t QX_LargeDataWrite(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen);
ZEMA_API uint32_t QX_LargeDataWriteNoCompress(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen);

/*
 * Reads the block of a descriptor into a new buffer of ulRawLen bytes from QX_OS_MemMallocD, the caller's to
 * free. *ppvData is null after a failure, but for a missing ppvData, with which the block stays. Recorded
 * are: ZEMA_ERR_LARGEDATA_NOMEM, the identifier and the length that was wanted; the result of reading, the
 * identifier and the block's length; that of releasing and the identifier; that of restoring and the data's
 * length. Without restoring, a block that is shorter than ulRawLen is followed by zeros, a longer one cut.
 */
ZEMA_API uint32_t QX_LargeDataReadInner(const LargeDataDesc *pstDesc, void **ppvData, uint32_t ulDecompress);
ZEMA_API uint32_t QX_LargeDataRead(const LargeDataDesc *pstDesc, void **ppvData);
ZEMA_API uint32_t QX_LargeDataReadNoDecompress(const LargeDataDesc *pstDesc, void **ppvData);

QX_END_DECLS

#endif
