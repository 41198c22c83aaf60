// A file, held by one owner and closed on every path.
#pragma once

#include "qx/file.h"

#include <utility>

namespace zema {

class FileGuard {
public:
    FileGuard(const char *path, const char *mode) : file_(QX_OS_Fopen(path, mode)) {}
    ~FileGuard() { close(); }
    FileGuard(FileGuard &&other) noexcept : file_(std::exchange(other.file_, nullptr)) {}
    FileGuard &operator=(FileGuard &&) = delete;
    FileGuard(const FileGuard &) = delete;
    FileGuard &operator=(const FileGuard &) = delete;

    explicit operator bool() const { return file_ != nullptr; }
    void *get() const { return file_; }

    void close()
    {
        if (file_ != nullptr) {
            (void)QX_OS_Fclose(std::exchange(file_, nullptr));
        }
    }

private:
    void *file_;
};

} // namespace zema
