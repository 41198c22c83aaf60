#include "qx/text.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace {

// The character classes of the C library follow the locale of the process; these do not.
constexpr bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

constexpr bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr char toLower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// What every shell in every locale takes as itself, wherever it stands in a word. Listing these rather than
// the dangerous ones leaves no byte to be forgotten.
constexpr bool isPlainToShell(char c)
{
    const char lower = toLower(c);
    return isDigit(c) || (lower >= 'a' && lower <= 'z') ||
           std::string_view("%+,-./:@_").find(c) != std::string_view::npos;
}

int32_t signOf(int difference)
{
    return (difference > 0) - (difference < 0);
}

// A missing text sorts before every other, so that one in a list to be searched or sorted does no harm.
int32_t compareMissing(const char *a, const char *b)
{
    return signOf((a != nullptr) - (b != nullptr));
}

bool startsWithFolded(const char *text, const char *start)
{
    while (*start != '\0' && toLower(*text) == toLower(*start)) {
        ++text;
        ++start;
    }
    return *start == '\0';
}

} // namespace

uint32_t QX_OS_StrLen(const char *text)
{
    return text == nullptr ? 0 : static_cast<uint32_t>(std::min<size_t>(std::strlen(text), UINT32_MAX));
}

uint32_t QX_OS_StrNLen(const char *text, uint32_t max)
{
    return text == nullptr ? 0 : static_cast<uint32_t>(strnlen(text, max));
}

int32_t QX_OS_StrCmp(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        return compareMissing(a, b);
    }
    return signOf(std::strcmp(a, b));
}

int32_t QX_OS_StrNCmp(const char *a, const char *b, uint32_t count)
{
    if (a == nullptr || b == nullptr) {
        return compareMissing(a, b);
    }
    return signOf(std::strncmp(a, b, count));
}

int32_t QX_OS_StrCaseCmp(const char *a, const char *b)
{
    if (a == nullptr || b == nullptr) {
        return compareMissing(a, b);
    }
    while (*a != '\0' && toLower(*a) == toLower(*b)) {
        ++a;
        ++b;
    }
    return signOf(static_cast<unsigned char>(toLower(*a)) - static_cast<unsigned char>(toLower(*b)));
}

char *QX_OS_StrStr(const char *text, const char *find)
{
    if (text == nullptr || find == nullptr) {
        return nullptr;
    }
    return const_cast<char *>(std::strstr(text, find));
}

char *QX_OS_StrCaseStr(const char *text, const char *find)
{
    if (text == nullptr || find == nullptr) {
        return nullptr;
    }
    while (!startsWithFolded(text, find)) {
        if (*text == '\0') {
            return nullptr;
        }
        ++text;
    }
    return const_cast<char *>(text);
}

char *QX_OS_StrtokR(char *text, const char *separators, char **save)
{
    if (separators == nullptr || save == nullptr || (text == nullptr && *save == nullptr)) {
        return nullptr;
    }
    return strtok_r(text, separators, save);
}

uint32_t QX_OS_StripSpace(const char *text, char *out)
{
    if (text == nullptr || out == nullptr) {
        return QX_ERR;
    }
    for (; *text != '\0'; ++text) {
        if (!isBlank(*text)) {
            *out++ = *text;
        }
    }
    *out = '\0';
    return QX_OK;
}

uint32_t QX_OS_IsDigitStr(const char *text)
{
    if (text == nullptr || *text == '\0') {
        return 0;
    }
    while (isDigit(*text)) {
        ++text;
    }
    return *text == '\0' ? 1 : 0;
}

uint32_t QX_OS_CmdEscape(const char *text, char *out, uint32_t size)
{
    if (out == nullptr || size == 0) {
        return QX_ERR;
    }
    uint32_t used = 0;
    for (; text != nullptr && *text != '\0'; ++text) {
        const uint32_t length = isPlainToShell(*text) ? 1 : 2;
        if (length >= size - used) {
            *out = '\0';
            return QX_ERR;
        }
        out[used] = '\\';
        out[used + length - 1] = *text;
        used += length;
    }
    out[used] = '\0';
    return text != nullptr ? QX_OK : QX_ERR;
}
