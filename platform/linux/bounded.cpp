#include "qx/memory.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// Looks no further into src than the answer needs. Source and destination may be parts of one text.
int32_t copyText(char *dst, size_t room, const char *src, size_t count)
{
    if (src == nullptr) {
        return EINVAL;
    }
    const size_t length = strnlen(src, std::min(count, room));
    if (length >= room) {
        return ERANGE;
    }
    std::memmove(dst, src, length);
    dst[length] = '\0';
    return 0;
}

} // namespace

int32_t memset_s(void *dst, size_t dstSize, int32_t value, size_t count)
{
    if (dst == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memset(dst, value, count);
    return 0;
}

uint32_t QX_OS_MemSet_S(void *dst, uint32_t dstSize, int32_t value, uint32_t count)
{
    return static_cast<uint32_t>(memset_s(dst, dstSize, value, count));
}

int32_t memcpy_s(void *dst, size_t dstSize, const void *src, size_t count)
{
    if (count == 0) {
        return 0;
    }
    if (dst == nullptr || src == nullptr) {
        return EINVAL;
    }
    if (count > dstSize) {
        return ERANGE;
    }
    std::memmove(dst, src, count);
    return 0;
}

int32_t strncpy_s(char *dst, size_t dstSize, const char *src, size_t count)
{
    if (dst == nullptr || dstSize == 0) {
        return EINVAL;
    }
    const int32_t result = copyText(dst, dstSize, src, count);
    if (result != 0) {
        *dst = '\0';
    }
    return result;
}

int32_t strncat_s(char *dst, size_t dstSize, const char *src, size_t count)
{
    if (dst == nullptr || dstSize == 0) {
        return EINVAL;
    }
    const size_t used = strnlen(dst, dstSize);
    const int32_t result = copyText(dst + used, dstSize - used, src, count);
    if (result != 0) {
        *dst = '\0';
    }
    return result;
}

int32_t vsnprintf_s(char *dst, size_t dstSize, size_t count, const char *format, va_list arguments)
{
    if (dst == nullptr || dstSize == 0) {
        return -1;
    }
    const size_t room = std::min(count, dstSize - 1);
    const int length = format != nullptr ? std::vsnprintf(dst, room + 1, format, arguments) : -1;
    const size_t cut = std::min(static_cast<size_t>(length), count);
    if (length < 0 || cut > room) {
        *dst = '\0';
        return -1;
    }
    return static_cast<int32_t>(cut);
}

int32_t snprintf_s(char *dst, size_t dstSize, size_t count, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t written = vsnprintf_s(dst, dstSize, count, format, arguments);
    va_end(arguments);
    return written;
}

int32_t QX_OS_Snprintf_S(char *dst, size_t dstSize, size_t count, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t written = vsnprintf_s(dst, dstSize, count, format, arguments);
    va_end(arguments);
    return written;
}

int32_t sscanf_s(const char *text, const char *format, ...)
{
    if (text == nullptr || format == nullptr) {
        return EOF;
    }
    va_list arguments;
    va_start(arguments, format);
    const int32_t converted = std::vsscanf(text, format, arguments);
    va_end(arguments);
    return converted;
}
