// Blocks and descriptors of any content: what is read from them is right, or nothing; and what is compressed
// comes back.
#include "qx/compress.h"
#include "qx/diag.h"
#include "qx/memory.h"
#include "qx/vdata.h"
#include "zema/large_data.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

std::vector<uint8_t> gBlock;
uint32_t gBuffers = 0; // not yet given back
uint32_t gReleased = 0;

void check(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

} // namespace

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t value1, uint32_t /*value2*/,
                              uint32_t /*value3*/, uint32_t /*value4*/, uint32_t /*value5*/)
{
    check(value1 != 0);
    return 0;
}

void *QX_OS_MemMallocD(uint32_t size)
{
    void *const block = size > 1U << 20U ? nullptr : std::malloc(std::max(size, 1U));
    gBuffers += block != nullptr ? 1 : 0;
    return block;
}

uint32_t QX_OS_MemFreeD(void *block)
{
    gBuffers -= block != nullptr ? 1 : 0;
    std::free(block);
    return 0;
}

uint32_t QX_VDATA_ReadData(uint32_t id, uint32_t size, void *data)
{
    if (id == 0 || size != gBlock.size()) {
        return QX_ERR;
    }
    std::copy(gBlock.begin(), gBlock.end(), static_cast<uint8_t *>(data));
    return QX_OK;
}

uint32_t QX_VDATA_FreeShm(uint32_t id)
{
    ++gReleased;
    return id == 0 ? QX_ERR_NOT_FOUND : QX_OK;
}

namespace {

void roundTrip()
{
    const auto size = static_cast<uint32_t>(gBlock.size());
    std::vector<uint8_t> packed(size + 772);
    uint32_t written = 0;
    check(QX_OS_Compress(gBlock.data(), size, packed.data(), size + 772, &written) == QX_OK);
    check(written <= size + 1);
    packed.resize(written);
    packed.shrink_to_fit();
    std::vector<uint8_t> back(size);
    check(QX_OS_Decompress(packed.data(), written, back.data(), size) == QX_OK && back == gBlock);
}

} // namespace

// The first byte says which fields are made right, so that the fuzzer reaches what is behind each check; then
// the descriptor, then the block, as often as the second byte says, so that large ones are tried too.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    LargeDataDesc desc;
    if (size < 2 + sizeof desc) {
        return 0;
    }
    const uint8_t right = data[0];
    std::memcpy(&desc, data + 2, sizeof desc);
    gBlock.clear();
    for (uint32_t n = 0; n <= data[1] % 64U; ++n) {
        gBlock.insert(gBlock.end(), data + 2 + sizeof desc, data + size);
    }
    desc.ulStoredLen = (right & 1) != 0 ? static_cast<uint32_t>(gBlock.size()) : desc.ulStoredLen;
    desc.ulRawLen = (right & 2) != 0 ? desc.ulRawLen % 70000 : desc.ulRawLen;
    desc.ulShmId |= (right & 4) != 0 ? 1U : 0U;
    if ((right & 8) != 0 && !gBlock.empty()) {
        gBlock[0] %= 2; // a method
    }
    gReleased = 0;
    void *out = &desc;
    const uint32_t result = QX_LargeDataReadInner(&desc, &out, right & 16U);
    check((result == ZEMA_OK) == (out != nullptr));
    check(gReleased == 1);
    for (uint32_t i = 0, sum = 0; out != nullptr && i < desc.ulRawLen; ++i) { // all of it may be read
        sum += static_cast<const uint8_t *>(out)[i];
        check(sum != UINT32_MAX);
    }
    QX_OS_MemFreeD(out);
    check(gBuffers == 0);
    roundTrip();
    return 0;
}
