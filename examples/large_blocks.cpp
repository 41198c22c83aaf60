// Large blocks: "large_blocks write FILE" puts a file into a block of shared memory and prints its
// descriptor, "large_blocks read DESCRIPTOR" takes it out again and prints it. --plain, for both or neither,
// leaves out the compression.
#include <qx/memory.h>
#include <qx/vdata.h>
#include <zema/large_data.h>

#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

namespace {

bool readFile(const char *path, std::vector<char> &bytes)
{
    std::FILE *const file = std::fopen(path, "rb");
    if (file == nullptr) {
        return false;
    }
    char piece[65536];
    for (size_t got = 1; got > 0;) {
        got = std::fread(piece, 1, sizeof piece, file);
        bytes.insert(bytes.end(), piece, piece + got);
    }
    const bool failed = std::ferror(file) != 0;
    return std::fclose(file) == 0 && !failed;
}

// The descriptor travels by means of one's own: here as text.
uint32_t write(const char *path, bool plain)
{
    std::vector<char> bytes;
    bytes.reserve(1); // an empty file has an address too
    if (!readFile(path, bytes) || bytes.size() > UINT32_MAX) {
        return ZEMA_ERR;
    }
    LargeDataDesc desc = {};
    const auto put = plain ? QX_LargeDataWriteNoCompress : QX_LargeDataWrite;
    const uint32_t result = put(&desc, bytes.data(), static_cast<uint32_t>(bytes.size()));
    if (result != 0) {
        return result;
    }
    std::printf("%u:%u:%u\n", desc.ulShmId, desc.ulRawLen, desc.ulStoredLen);
    if (std::fflush(stdout) != 0) { // nobody will know of the block
        QX_VDATA_FreeShm(desc.ulShmId);
        return ZEMA_ERR;
    }
    return 0;
}

// The block is gone after this, whatever comes of it; the buffer is ours.
uint32_t read(const char *text, bool plain)
{
    LargeDataDesc desc = {};
    if (std::sscanf(text, "%u:%u:%u", &desc.ulShmId, &desc.ulRawLen, &desc.ulStoredLen) != 3) {
        return ZEMA_ERR;
    }
    void *data = nullptr;
    uint32_t result = (plain ? QX_LargeDataReadNoDecompress : QX_LargeDataRead)(&desc, &data);
    if (result == 0 &&
        (std::fwrite(data, 1, desc.ulRawLen, stdout) != desc.ulRawLen || std::fflush(stdout) != 0)) {
        result = ZEMA_ERR;
    }
    QX_OS_MemFreeD(data);
    return result;
}

} // namespace

int main(int argc, char **argv)
{
    const std::string_view verb = argc > 1 ? argv[1] : "";
    const bool plain = argc == 4 && std::strcmp(argv[3], "--plain") == 0;
    if ((verb != "write" && verb != "read") || (argc != 3 && !plain)) {
        std::fputs("usage: large_blocks write FILE [--plain] | large_blocks read DESCRIPTOR [--plain]\n",
                   stderr);
        return 2;
    }
    const uint32_t result = verb == "write" ? write(argv[2], plain) : read(argv[2], plain);
    if (result != 0) {
        std::fprintf(stderr, "large_blocks: failed (0x%08X)\n", result);
    }
    return result == 0 ? 0 : 1;
}
