// Splits a text as strtok_r does with one separator: a run of separators counts as one, separators at either
// end yield no part, and so no part is empty.
#pragma once

#include <string_view>

namespace zema {

class Parts {
public:
    constexpr Parts(std::string_view text, char separator) : rest_(text), separator_(separator) {}

    // The next part; an empty one when there is none.
    constexpr std::string_view next()
    {
        size_t start = 0;
        while (start < rest_.size() && rest_[start] == separator_) {
            ++start;
        }
        size_t end = start;
        while (end < rest_.size() && rest_[end] != separator_) {
            ++end;
        }
        const std::string_view part(rest_.data() + start, end - start); // substr may throw
        rest_.remove_prefix(end);
        return part;
    }

private:
    std::string_view rest_;
    char separator_;
};

} // namespace zema
