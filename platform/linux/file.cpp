#include "qx/file.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstring>

void *QX_OS_Fopen(const char *path, const char *mode)
{
    constexpr char kCloseOnExec = 'e';

    std::array<char, 16> flags{};
    const size_t length = mode != nullptr ? strnlen(mode, flags.size()) : 0;
    if (path == nullptr || length == 0 || length > flags.size() - 2) {
        return nullptr;
    }
    *std::copy_n(mode, length, flags.begin()) = kCloseOnExec;
    return std::fopen(path, flags.data());
}

int32_t QX_OS_Fclose(void *file)
{
    return file != nullptr ? std::fclose(static_cast<FILE *>(file)) : EOF;
}

char *QX_OS_Fgets(char *out, uint32_t size, void *file)
{
    if (out == nullptr || size == 0 || file == nullptr) {
        return nullptr;
    }
    return std::fgets(out, static_cast<int>(std::min<uint32_t>(size, INT_MAX)), static_cast<FILE *>(file));
}

int32_t QX_OS_Feof(void *file)
{
    return file != nullptr ? std::feof(static_cast<FILE *>(file)) : 1;
}

int32_t QX_OS_Remove(const char *path)
{
    return path != nullptr ? std::remove(path) : -1;
}
