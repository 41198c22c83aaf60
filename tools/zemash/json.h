// What little JSON the console writes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace zemash {

// A JSON string. Bytes that are no UTF-8 become U+FFFD, so that the output is valid whatever comes.
std::string quoted(std::string_view bytes);

class JsonObject {
public:
    JsonObject &text(std::string_view key, std::string_view value) { return json(key, quoted(value)); }
    JsonObject &number(std::string_view key, uint64_t value) { return json(key, std::to_string(value)); }
    JsonObject &json(std::string_view key, std::string_view value);
    std::string str() const { return "{" + members_ + "}"; }

private:
    std::string members_;
};

// ["a", "b"] of texts that are JSON already.
template <typename Range, typename ToJson>
std::string jsonArray(const Range &range, ToJson toJson)
{
    std::string out;
    for (const auto &each : range) {
        out += out.empty() ? "" : ", ";
        out += toJson(each);
    }
    return "[" + out + "]";
}

} // namespace zemash
