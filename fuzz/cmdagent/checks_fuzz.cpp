// Operators' texts: every check, with any command text, and the compilation of what a check let through.
#include "qx/diag.h"
#include "zema/cmdagent.h"
#include "zema/zemacmd_table.h"

#include <cstdlib>
#include <cstring>
#include <string>

uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

// The strings of a compiled command end inside the area, and zeros fill the rest.
void checkArea(const std::string &area, uint32_t count)
{
    size_t end = 0;
    for (uint32_t i = 0; i < count; ++i) {
        end = area.find('\0', end) + 1;
    }
    if (end > ZEMA_CMD_AREA_SIZE - 1 || area.find_first_not_of('\0', end) != std::string::npos) {
        std::abort();
    }
}

} // namespace

// The first byte chooses a row for the direct calls, the second one the class, the third by how much the
// length lies.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 3) {
        return 0;
    }
    const ZemacmdCheckItem &row = ZemacmdCheckTable[data[0] % ZEMA_ZEMACMD_ROW_COUNT];
    std::string text(reinterpret_cast<const char *>(data) + 3, size - 3);
    text.resize(std::strlen(text.c_str()));
    const auto length = static_cast<uint32_t>(text.size()) + data[2] % 4;
    uint32_t value = 0;
    int32_t first = 0;
    int32_t second = 0;

    const uint32_t accepted = QX_ZEMA_Zemacmd_CheckPara(text.c_str(), length, data[1] % 2);
    (void)row.pfnCheck(row.pcCmd, text.c_str(), length);
    (void)row.pfnCheck(text.c_str(), row.pcCmd, length + 1);
    (void)QX_ZEMA_Zemacmd_Check1DigPara(text.c_str(), text.c_str(), length + 1, &value);
    (void)QX_ZEMA_Zemacmd_Check2DigPara("", text.c_str(), length + 1, &first, &second);
    if (accepted > 1) {
        std::abort();
    }
    std::string area(ZEMA_CMD_AREA_SIZE, '\0');
    uint32_t count = 0;
    if (QX_ZEMA_Zemacmd_CompileCmd(data[0], text.data(), area.data(), &count) == 0) {
        checkArea(area, count);
    }
    return 0;
}
