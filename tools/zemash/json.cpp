#include "json.h"

#include "text.h"

#include <array>
#include <cstdio>

namespace zemash {
namespace {

std::string escaped(uint8_t byte)
{
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "\\u%04x", byte);
    return text.data();
}

} // namespace

std::string quoted(std::string_view bytes)
{
    std::string out = "\"";
    while (!bytes.empty()) {
        const auto first = static_cast<uint8_t>(bytes.front());
        const size_t length = tools::utf8Length(bytes);
        if (first == '"' || first == '\\') {
            out += {'\\', bytes.front()};
        } else if (first < 0x20 || first == 0x7F) {
            out += escaped(first);
        } else if (length == 2 && first == 0xC2 && static_cast<uint8_t>(bytes[1]) < 0xA0) {
            out += escaped(static_cast<uint8_t>(bytes[1])); // a control character of more than ASCII
        } else if (length == 0) {
            out += "\\ufffd";
        } else {
            out += bytes.substr(0, length);
        }
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
    return out + "\"";
}

JsonObject &JsonObject::json(std::string_view key, std::string_view value)
{
    members_ += members_.empty() ? "" : ", ";
    members_ += quoted(key) + ": ";
    members_ += value;
    return *this;
}

} // namespace zemash
