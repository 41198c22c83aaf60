// A line of an option file: NAME=VALUES.
#pragma once

#include <cstring>
#include <string_view>

namespace zema {

struct OptionLine {
    std::string_view name; // empty when the line has none
    char *value;           // behind the "=", to the end of the line; null without "="
};

// Splits as strtok_r does at the first "=" behind the name's start; each "=" before the name is skipped.
inline OptionLine splitOptionLine(char *line)
{
    char *name = line;
    while (*name == '=') {
        ++name;
    }
    char *const end = strchrnul(name, '=');
    return {.name = {name, end}, .value = *end == '=' ? end + 1 : nullptr};
}

} // namespace zema
