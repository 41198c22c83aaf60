// What the report functions of every source file share.
#pragma once

#include "qx/diag.h"

namespace zema {

// The base name under which a source file records its failures.
consteval const char *baseName(const char *path)
{
    const char *name = path;
    for (const char *p = path; *p != '\0'; ++p) {
        if (*p == '/') {
            name = p + 1;
        }
    }
    return name;
}

// A pointer as a recorded value: its low 32 bits.
inline uint32_t addressValue(const volatile void *pointer)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(pointer));
}

} // namespace zema
