#include "tests/support/platform_double_system.h"

#include "qx/data_sync.h"
#include "qx/diag.h"
#include "qx/event.h"
#include "qx/file.h"
#include "qx/memory.h"
#include "qx/process.h"
#include "qx/socket.h"
#include "qx/text.h"
#include "qx/xml.h"

#include <cstdarg>
#include <cstring>
#include <fstream>
#include <net/if.h>

using namespace zema::test;

namespace {

PlatformDouble &platform = PlatformDouble::instance();

// Keeps the call; yields the failure that is due, or the result.
template <typename Result>
Result answer(Call call, Result result)
{
    return watched(std::move(call), [&] { return result; });
}

// Keeps the call; yields the failure that is due, or hands on to the definition behind ours.
template <typename Result, typename... Parameters, typename... Arguments>
Result passOn(Result (&ours)(Parameters...), const Call &call, Arguments... arguments)
{
    return watched(call, [&] { return real(ours, call.function.c_str())(arguments...); });
}

void keepText(const char *function, std::vector<uint64_t> values, const char *format, va_list arguments)
{
    char text[2048];
    (void)std::vsnprintf(text, sizeof text, format, arguments);
    platform.enter({function, std::move(values), text});
}

} // namespace

System &System::instance()
{
    static System instance;
    return instance;
}

int32_t QX_OS_Socket(int32_t domain, int32_t type, int32_t protocol)
{
    System::instance().error = 19;
    return answer<int32_t>({"QX_OS_Socket", {uint64_t(domain), uint64_t(type), uint64_t(protocol)}, {}}, 7);
}

int32_t QX_OS_IoctlSocket(int32_t fd, unsigned long number, void *argument)
{
    auto *const request = static_cast<char *>(argument);
    std::string bytes(request, sizeof(ifreq));
    bytes.resize(bytes.find_last_not_of('\0') + 1);
    System::instance().error = 19;
    const int32_t result = answer<int32_t>({"QX_OS_IoctlSocket", {uint64_t(fd), number}, bytes}, 0);
    const std::string &kernels = System::instance().answer;
    std::copy(kernels.begin(), kernels.end(), request + (kernels.size() < IFNAMSIZ ? IFNAMSIZ : 0));
    return result;
}

int32_t QX_OS_CloseSocket(int32_t fd)
{
    System::instance().error = 5;
    return answer<int32_t>({"QX_OS_CloseSocket", {uint64_t(fd)}, {}}, 0);
}

int32_t QX_OS_GetLastErr(void)
{
    return System::instance().error;
}

uint32_t QX_PROC_DBG_TraceN(uint32_t module, const char *file, uint32_t line, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    keepText("trace", {module}, format, arguments);
    va_end(arguments);
    System::instance().error = 5;
    platform.places.emplace(file, line);
    return 0;
}

uint32_t QX_OS_Printf(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    keepText("QX_OS_Printf", {}, format, arguments);
    va_end(arguments);
    return 0;
}

uint32_t EventCenter_InvokeEvent(uint32_t event, uintptr_t parameter, uintptr_t first, uintptr_t second)
{
    return answer<uint32_t>({"EventCenter_InvokeEvent", {event, parameter, first, second}, {}}, 0);
}

uint32_t DataSync_SyncData(uint32_t operation, const void *payload, uint32_t size)
{
    return answer<uint32_t>({"DataSync_SyncData", {operation}, {static_cast<const char *>(payload), size}},
                            0);
}

uint32_t QX_XML_DBAppendAllParaToParaList(void *list, uint32_t first, uint32_t second, uint32_t third,
                                          uint32_t fourth, uint32_t fifth, uint32_t sixth)
{
    const std::vector<uint64_t> values = {first, second, third, fourth, fifth, sixth};
    return answer<uint32_t>({"append", values, static_cast<const char *>(list)}, 0);
}

uint32_t QX_OS_ExecShellCmd(const char *line)
{
    const uint32_t result = answer<uint32_t>({"QX_OS_ExecShellCmd", {}, line}, 0);
    if (const char *const path = std::strchr(line, '>'); path != nullptr && result == 0) {
        std::ofstream(System::instance().root + (path + 1)) << System::instance().listing;
    }
    return result;
}

void *QX_OS_Fopen(const char *path, const char *mode)
{
    const std::string inRoot = System::instance().root + path;
    return passOn(QX_OS_Fopen, {"QX_OS_Fopen", {}, std::string(path) + " " + mode}, inRoot.c_str(), mode);
}

char *QX_OS_Fgets(char *out, uint32_t size, void *file)
{
    return passOn(QX_OS_Fgets, {"QX_OS_Fgets", {size}, {}}, out, size, file);
}

int32_t QX_OS_Fclose(void *file)
{
    return passOn(QX_OS_Fclose, {"QX_OS_Fclose", {}, {}}, file);
}

int32_t QX_OS_Remove(const char *path)
{
    return passOn(QX_OS_Remove, {"QX_OS_Remove", {}, path}, (System::instance().root + path).c_str());
}

uint32_t QX_OS_StripSpace(const char *text, char *out)
{
    return passOn(QX_OS_StripSpace, {"QX_OS_StripSpace", {}, text}, text, out);
}

void *QX_OS_MemMallocSet(uint32_t size)
{
    void *const block = passOn(QX_OS_MemMallocSet, {"QX_OS_MemMallocSet", {size}, {}}, size);
    const std::scoped_lock guard(platform.lock);
    block != nullptr ? (void)platform.blocks.insert(block) : (void)0;
    return block;
}
