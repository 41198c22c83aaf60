#include "text.h"

#include "qx/base.h"
#include "zema/result.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace tools {
namespace {

struct ResultWords {
    uint32_t result;
    std::string_view words;
};

constexpr std::array kResultWords = {
    ResultWords{QX_ERR_NO_MEMORY, "no memory"},
    ResultWords{QX_ERR_RUNTIME_DIR, "the runtime directory is missing, not ours, or open to others"},
    ResultWords{QX_ERR_NOBODY, "no live process holds the role"},
    ResultWords{QX_ERR_PEER_GONE, "the other process died"},
    ResultWords{QX_ERR_TIMEOUT, "the other process took nothing in time"},
    ResultWords{QX_ERR_TOO_LARGE, "too many bytes for one message"},
    ResultWords{QX_ERR_NOT_FOUND, "not found"},
    ResultWords{QX_ERR_TAKEN, "another live process holds the role"},
    ResultWords{QX_ERR_BUSY, "busy"},
    ResultWords{QX_ERR_PROTOCOL, "the other side broke the rules of the bus"},
    ResultWords{QX_ERR_STOPPED, "stopped"},
    ResultWords{ZEMA_ERR_LARGEDATA_NOMEM, "no buffer for a large block"},
    ResultWords{ZEMA_ERR_CMD_REJECTED, "command rejected"},
    ResultWords{ZEMA_ERR_NETDEV_PARA, "bad argument for a device"},
    ResultWords{ZEMA_ERR_NETDEV_SOCKET, "no socket for a device"},
    ResultWords{ZEMA_ERR_NETDEV_IOCTL, "device request failed"},
    ResultWords{ZEMA_ERR_HLP_MSG_INIT, "HLP message not initialised"},
    ResultWords{ZEMA_ERR_HLP_ALLOC, "no HLP request or no memory for it"},
};

std::string hex(const char *format, uint32_t value)
{
    std::array<char, 24> text{};
    std::snprintf(text.data(), text.size(), format, value);
    return text.data();
}

} // namespace

std::string_view wordsFor(uint32_t result)
{
    const auto *const row = std::find_if(kResultWords.begin(), kResultWords.end(),
                                         [&](const ResultWords &each) { return each.result == result; });
    return row == kResultWords.end() ? std::string_view() : row->words;
}

std::string reasonOf(uint32_t result)
{
    const std::string_view words = wordsFor(result);
    return std::string(words.empty() ? "it failed" : words) + hex(" (0x%08X)", result);
}

size_t utf8Length(std::string_view bytes)
{
    const auto at = [&](size_t i) { return i < bytes.size() ? static_cast<uint8_t>(bytes[i]) : 0U; };
    const uint32_t first = at(0);
    if (first < 0x80) {
        return bytes.empty() ? 0 : 1;
    }
    if (first < 0xC2 || first > 0xF4) {
        return 0;
    }
    // The second byte's range rules out overlong forms, surrogates and what is above the last code point.
    const uint32_t lowest = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
    const uint32_t highest = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    bool valid = at(1) >= lowest && at(1) <= highest;
    for (size_t i = 2; i < length; ++i) {
        valid = valid && (at(i) & 0xC0U) == 0x80;
    }
    return valid ? length : 0;
}

std::string harmless(std::string_view bytes, std::string_view kept)
{
    std::string out;
    while (!bytes.empty()) {
        const auto first = static_cast<uint8_t>(bytes.front());
        const size_t length = std::max<size_t>(utf8Length(bytes), 1);
        // U+0080 to U+009F are control characters too.
        const bool control =
            first < 0x20 || first == 0x7F || (first == 0xC2 && length == 2 && uint8_t(bytes[1]) < 0xA0);
        const bool text = !control && (first < 0x80 || length > 1);
        if (text || kept.find(bytes.front()) != std::string_view::npos) {
            out += bytes.substr(0, length);
        } else {
            for (const char byte : bytes.substr(0, length)) {
                out += hex("\\x%02x", static_cast<uint8_t>(byte));
            }
        }
        bytes.remove_prefix(length);
    }
    return out;
}

std::string clockText(uint64_t realTimeNs, bool utc)
{
    const auto seconds = static_cast<time_t>(realTimeNs / 1'000'000'000U);
    const auto rest = static_cast<unsigned>(realTimeNs % 1'000'000'000U);
    std::tm broken{};
    utc ? gmtime_r(&seconds, &broken) : localtime_r(&seconds, &broken);
    std::array<char, 32> text{};
    const size_t length =
        std::strftime(text.data(), text.size(), utc ? "%Y-%m-%dT%H:%M:%S" : "%Y-%m-%d %H:%M:%S", &broken);
    std::snprintf(text.data() + length, text.size() - length, utc ? ".%09uZ" : ".%06u",
                  utc ? rest : rest / 1000U);
    return text.data();
}

} // namespace tools
