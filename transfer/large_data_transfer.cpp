#include "zema/large_data.h"

#include "common/platform_buffer.h"
#include "common/record.h"
#include "qx/compress.h"
#include "qx/vdata.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

constexpr uint32_t kCompressRoom = 772; // what a compressor may add

static_assert(sizeof(LargeDataDesc) == 12 && offsetof(LargeDataDesc, ulRawLen) == 4 &&
              offsetof(LargeDataDesc, ulStoredLen) == 8);

void report(uint32_t line, uint32_t code)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, 0, 0, 0, 0);
}

void report(uint32_t line, uint32_t code, uint32_t detail)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail, 0, 0, 0);
}

void reportTwo(uint32_t line, uint32_t code, uint32_t detail1, uint32_t detail2)
{
    (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), line, code, detail1, detail2, 0, 0);
}

constexpr bool isPacked(uint32_t rawLen, uint32_t wanted)
{
    return wanted != 0 && rawLen > ZEMA_LARGEDATA_PLAIN_MAX;
}

// The block is filled even when it could not be made, and both results count.
uint32_t store(LargeDataDesc &desc, const void *source)
{
    uint32_t result = QX_VDATA_CreShm(desc.ulStoredLen, &desc.ulShmId);
    result |= QX_VDATA_UpdateData(desc.ulShmId, desc.ulStoredLen, source);
    if (result != ZEMA_OK) {
        (void)QX_PROC_DBG_LastWord(zema::baseName(__FILE__), __LINE__, result, desc.ulStoredLen, desc.ulShmId,
                                   desc.ulRawLen, 0);
        (void)QX_VDATA_FreeShm(desc.ulShmId);
    }
    return result;
}

uint32_t storePacked(LargeDataDesc &desc, const void *data)
{
    const uint32_t length = desc.ulRawLen;
    const uint32_t room = length + kCompressRoom;
    const auto packed = room > length ? zema::PlatformBuffer::zeroed(room) : zema::PlatformBuffer::none();
    if (!packed) {
        report(__LINE__, ZEMA_ERR_LARGEDATA_NOMEM, length);
        return ZEMA_ERR_LARGEDATA_NOMEM;
    }
    const uint32_t result = QX_OS_Compress(data, length, packed.data(), room, &desc.ulStoredLen);
    if (result != ZEMA_OK) {
        reportTwo(__LINE__, result, zema::addressValue(data), length);
        return result;
    }
    return store(desc, packed.data());
}

// The block's bytes, of which the block is rid whatever comes; 0 or why not.
uint32_t fetch(const LargeDataDesc &desc, void *stored)
{
    uint32_t result = QX_VDATA_ReadData(desc.ulShmId, desc.ulStoredLen, stored);
    if (result != ZEMA_OK) {
        reportTwo(__LINE__, result, desc.ulShmId, desc.ulStoredLen);
        (void)QX_VDATA_FreeShm(desc.ulShmId);
        return result;
    }
    result = QX_VDATA_FreeShm(desc.ulShmId);
    if (result != ZEMA_OK) {
        report(__LINE__, result, desc.ulShmId);
    }
    return result;
}

// What the data are when nothing is to be restored: the block's bytes, cut or followed by zeros. As a rule
// they were read to their place at once.
void fillPlain(const LargeDataDesc &desc, const zema::PlatformBuffer &raw, const void *read)
{
    const uint32_t length = std::min(desc.ulStoredLen, desc.ulRawLen);
    auto *const bytes = static_cast<std::byte *>(raw.data());
    if (read != bytes) {
        std::memcpy(bytes, read, length);
    }
    std::memset(bytes + length, 0, desc.ulRawLen - length);
}

} // namespace

uint32_t QX_LargeDataWriteInner(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen,
                                uint32_t ulCompress)
{
    if (pstDesc == nullptr || pvData == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    pstDesc->ulRawLen = ulLen;
    pstDesc->ulStoredLen = ulLen;
    return isPacked(ulLen, ulCompress) ? storePacked(*pstDesc, pvData) : store(*pstDesc, pvData);
}

uint32_t QX_LargeDataWrite(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen)
{
    return QX_LargeDataWriteInner(pstDesc, pvData, ulLen, 1);
}

uint32_t QX_LargeDataWriteNoCompress(LargeDataDesc *pstDesc, const void *pvData, uint32_t ulLen)
{
    return QX_LargeDataWriteInner(pstDesc, pvData, ulLen, 0);
}

uint32_t QX_LargeDataReadInner(const LargeDataDesc *pstDesc, void **ppvData, uint32_t ulDecompress)
{
    if (ppvData == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    *ppvData = nullptr;
    if (pstDesc == nullptr) {
        report(__LINE__, ZEMA_ERR);
        return ZEMA_ERR;
    }
    zema::PlatformBuffer stored(pstDesc->ulStoredLen);
    if (!stored) {
        reportTwo(__LINE__, ZEMA_ERR_LARGEDATA_NOMEM, pstDesc->ulShmId, pstDesc->ulStoredLen);
        (void)QX_VDATA_FreeShm(pstDesc->ulShmId);
        return ZEMA_ERR_LARGEDATA_NOMEM;
    }
    zema::PlatformBuffer raw(pstDesc->ulRawLen);
    if (!raw) {
        reportTwo(__LINE__, ZEMA_ERR_LARGEDATA_NOMEM, pstDesc->ulShmId, pstDesc->ulRawLen);
        stored.reset();
        (void)QX_VDATA_FreeShm(pstDesc->ulShmId);
        return ZEMA_ERR_LARGEDATA_NOMEM;
    }
    const bool packed = isPacked(pstDesc->ulRawLen, ulDecompress);
    void *const place = packed || stored.size() > raw.size() ? stored.data() : raw.data();
    uint32_t result = fetch(*pstDesc, place);
    if (result != ZEMA_OK) {
        return result;
    }
    if (!packed) {
        fillPlain(*pstDesc, raw, place);
    } else {
        std::memset(raw.data(), 0, raw.size());
        result = QX_OS_Decompress(stored.data(), stored.size(), raw.data(), raw.size());
        if (result != ZEMA_OK) {
            stored.reset();
            raw.reset();
            report(__LINE__, result, pstDesc->ulRawLen);
            return result;
        }
    }
    stored.reset();
    *ppvData = raw.release();
    return ZEMA_OK;
}

uint32_t QX_LargeDataRead(const LargeDataDesc *pstDesc, void **ppvData)
{
    return QX_LargeDataReadInner(pstDesc, ppvData, 1);
}

uint32_t QX_LargeDataReadNoDecompress(const LargeDataDesc *pstDesc, void **ppvData)
{
    return QX_LargeDataReadInner(pstDesc, ppvData, 0);
}
