#include "qx/memory.h"

#include <algorithm>
#include <cstdlib>

// Not every C library answers a request for nothing with a block, and a null would read as "no memory".
static size_t blockSize(uint32_t size)
{
    return std::max<size_t>(size, 1);
}

void *QX_OS_MemMallocD(uint32_t size)
{
    return std::malloc(blockSize(size));
}

void *QX_OS_MemMallocSet(uint32_t size)
{
    return std::calloc(blockSize(size), 1);
}

uint32_t QX_OS_MemFreeD(void *block)
{
    std::free(block);
    return QX_OK;
}
