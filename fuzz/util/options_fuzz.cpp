// Option files of any bytes: both readers beside a model that is built from the C library's tokenizer.
#include "qx/diag.h"
#include "qx/file.h"
#include "qx/process.h"
#include "zema/wan_options.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

std::string content;
std::string printed;
uint32_t records = 0;

} // namespace

// ---- This host's own functions ----

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    ++records;
    return 0;
}

uint32_t QX_OS_Printf(const char *format, ...)
{
    char text[2048];
    va_list arguments;
    va_start(arguments, format);
    (void)std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    printed += text;
    return 0;
}

void *QX_OS_Fopen(const char * /*path*/, const char *mode)
{
    return content.empty() ? std::fopen("/dev/null", mode) : fmemopen(content.data(), content.size(), mode);
}

namespace {

void require(bool holds)
{
    if (!holds) {
        std::abort();
    }
}

// What a reader makes of the file, a step at a time.
struct Model {
    OptionValueList list;
    std::string out;
    std::string printed;
    uint32_t result = 1;
    uint32_t records = 0;

    Model() : out() { std::memset(static_cast<void *>(&list), '#', sizeof list); }

    void print(const char *name, const char *text) { printed += std::string(name) + "=[" + text + "]\r\n"; }

    void all(const std::string &option, char *rest)
    {
        list.ucState = 0;
        const bool joins = option == "tr069srv" && std::strlen(rest) > 2 && rest[2] == ' ';
        if (joins) {
            print("pcSaveStr", rest);
            rest[2] = '!';
            print("pcSaveStr", rest);
        }
        char *save = nullptr;
        char *value = strtok_r(rest, " ", &save);
        if (value == nullptr) {
            ++records;
            return;
        }
        uint8_t count = 0;
        for (; value != nullptr && count < 32; value = strtok_r(nullptr, " ", &save)) {
            value[std::min<size_t>(std::strlen(value), 255)] = '\0';
            std::strcpy(list.aacValue[count], value); // NOLINT
            if (joins && count == 0) {
                list.aacValue[0][1] =
                    static_cast<char>(list.aacValue[0][1] - (list.aacValue[0][1] != '\0' ? 1 : 0));
                print("acValue", list.aacValue[0]);
            }
            ++count;
        }
        char *const last = list.aacValue[count - 1];
        if (*last != '\0' && last[std::strlen(last) - 1] == '\n') {
            last[std::strlen(last) - 1] = '\0';
        }
        list.ucCount = count;
        result = 0;
    }

    void first(char *rest, uint32_t size)
    {
        char *save = nullptr;
        const char *const value = strtok_r(rest, " ", &save);
        if (value == nullptr) {
            ++records;
            return;
        }
        std::string text = std::string(value).substr(0, 255);
        text = text.size() >= size ? "" : text;
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        out = text;
        result = 0;
    }

    void read(const std::string &option, bool wantsAll, uint32_t size)
    {
        char line[1200] = {};
        FILE *const file = static_cast<FILE *>(QX_OS_Fopen("", "r"));
        for (bool found = false; !found && std::fgets(line, sizeof line, file) != nullptr;) {
            char *save = nullptr;
            const bool hasValue = strchr(line + strspn(line, "="), '=') != nullptr;
            const char *const name = *line == '\n' ? "\n" : strtok_r(line, "=", &save);
            if (name == nullptr && !wantsAll) {
                ++records;
                break;
            }
            found = hasValue && name != nullptr && *line != '\n' && option == name;
            if (found) {
                wantsAll ? all(option, save) : first(save, size);
            }
        }
        std::fclose(file);
    }
};

void compareAll(const std::string &option)
{
    Model model;
    model.read(option, true, 0);
    records = 0;
    printed.clear();
    const auto list = std::make_unique<OptionValueList>();
    std::memset(static_cast<void *>(list.get()), '#', sizeof *list);
    require(QX_UTL_GetOptionValue("w", option.c_str(), list.get()) == model.result);
    require(std::memcmp(list.get(), &model.list, 2) == 0);
    for (uint32_t i = 0; i < 32; ++i) {
        const bool stored = model.result == 0 && i < model.list.ucCount;
        require(stored ? std::strcmp(list->aacValue[i], model.list.aacValue[i]) == 0
                       : *list->aacValue[i] == '#');
    }
    require(printed == model.printed && records == model.records);
}

void compareFirst(const std::string &option, uint32_t size)
{
    Model model;
    model.read(option, false, size);
    records = 0;
    const auto out = std::make_unique<char[]>(size); // not null, even of size 0
    std::fill_n(out.get(), size, '#');
    require(QX_UTL_GetDhcpHdrOptValue("w", option.c_str(), out.get(), size) == model.result);
    require(size == 0 || (model.result == 0 ? model.out == out.get() : out[0] == '#'));
    require(records == model.records);
}

} // namespace

// Two bytes are the size of the buffer; then the option's name, a line; then the file.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const std::string text(reinterpret_cast<const char *>(data) + 2, size - 2);
    const size_t end = std::min(text.find('\n'), text.size());
    const std::string option = text.substr(0, end).c_str();
    content = text.substr(std::min(end + 1, text.size()));
    for (const std::string &name : {option, std::string("tr069srv")}) {
        compareAll(name);
        compareFirst(name, (data[0] + 256U * data[1]) % 300U);
    }
    return 0;
}
