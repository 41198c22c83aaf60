#include "options.h"

#include "command.h"
#include "json.h"
#include "qx/process.h"
#include "text.h"
#include "zema/wan_options.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

// What the library prints on the console while it reads is no part of the answer.
uint32_t QX_OS_Printf(const char *format, ...)
{
    std::array<char, 4096> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return std::fputs(tools::harmless(text.data(), "\r\n").c_str(), stderr) >= 0 ? QX_OK : QX_ERR;
}

namespace zemash {
namespace {

using Values = std::vector<std::string>;

std::optional<Values> valuesOf(const std::string &wan, const std::string &option)
{
    const auto list = std::make_unique<OptionValueList>();
    if (QX_UTL_GetOptionValue(wan.c_str(), option.c_str(), list.get()) != ZEMA_OK) {
        return std::nullopt;
    }
    return Values(list->aacValue, list->aacValue + list->ucCount);
}

// The names in the order of the file, each once.
std::vector<std::string> namesIn(std::istream &file)
{
    std::vector<std::string> names;
    for (std::string line; std::getline(file, line);) {
        line.erase(0, std::min(line.find_first_not_of('='), line.size()));
        const size_t end = line.find('=');
        line.resize(end == std::string::npos ? 0 : end);
        if (!line.empty() && std::find(names.begin(), names.end(), line) == names.end()) {
            names.push_back(line);
        }
    }
    return names;
}

void print(const std::string &option, const Values &values, bool json, bool named)
{
    if (json) {
        std::puts(
            JsonObject().text("option", option).json("values", jsonArray(values, quoted)).str().c_str());
        return;
    }
    std::string text = named ? "" : tools::harmless(option);
    for (const std::string &value : values) {
        text += (named ? (text.empty() ? "" : "\n") : "  ") + tools::harmless(value);
    }
    std::puts(text.c_str());
}

} // namespace

int showOptions(const std::vector<std::string> &words, bool json)
{
    const std::string &wan = words.front();
    const std::string path = "/var/wan/" + wan + "/config";
    std::error_code error;
    const bool isFile = std::filesystem::is_regular_file(path, error);
    std::ifstream file(path);
    if (!isFile || !file) {
        std::fprintf(stderr, "zemash: cannot read %s: %s\n", tools::harmless(path).c_str(),
                     error ? error.message().c_str() : "no regular file, or not open to you");
        return kNoAnswer;
    }
    const bool named = words.size() > 1;
    for (const std::string &option : named ? std::vector{words[1]} : namesIn(file)) {
        const std::optional<Values> values = valuesOf(wan, option);
        if (named && !values) {
            std::fprintf(stderr, "zemash: %s has no option %s with a value\n", tools::harmless(path).c_str(),
                         tools::harmless(option).c_str());
            return kRefused;
        }
        print(option, values.value_or(Values()), json, named);
    }
    return kAnswered;
}

} // namespace zemash
