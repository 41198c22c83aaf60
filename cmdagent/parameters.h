// The parameters of a command: what follows the command text, split at spaces.
#pragma once

#include "qx/memory.h"
#include "qx/text.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace zema {

class Parameters {
public:
    Parameters(const char *command, const char *text)
    {
        // Zeros behind the copy let a command text that is longer than the operator's leave no parameter.
        (void)strncpy_s(copy_, sizeof copy_, text, sizeof copy_ - 1);
        rest_ = copy_ + std::min(std::strlen(command), sizeof copy_ - 1);
    }
    Parameters(const Parameters &) = delete;
    Parameters &operator=(const Parameters &) = delete;

    // The next parameter, or null.
    const char *next() { return QX_OS_StrtokR(std::exchange(rest_, nullptr), " ", &save_); }

private:
    char copy_[256] = {};
    char *rest_;
    char *save_ = nullptr;
};

} // namespace zema
