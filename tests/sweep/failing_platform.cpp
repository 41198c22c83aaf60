#include "tests/sweep/failing_platform.h"

#include "qx/qx.h"
#include "zema/multi_hashtable.h"

#include <cerrno>
#include <concepts>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <tuple>
#include <unistd.h>

#pragma GCC diagnostic ignored "-Wignored-attributes" // a function's format, when a template takes it

using zema::test::kCode;
using zema::test::platform;

// As the library calls them; the system's headers declare them noexcept or with variable arguments.
extern "C" int socket(int domain, int type, int protocol);
extern "C" int ioctl(int fd, unsigned long request, void *argument);

zema::test::FailingPlatform zema::test::platform;

bool zema::test::FailingPlatform::due(std::string name)
{
    if (!watching) {
        return false;
    }
    for (const std::string prefix : {"QX_", "OS_"}) {
        name.erase(0, name.starts_with(prefix) ? prefix.size() : 0);
    }
    const uint32_t count = ++counts[name];
    if (++fallible != failAt && (failAt == 0 || !allLater || fallible < failAt)) {
        return false;
    }
    failed.push_back(name + "." + std::to_string(count));
    errno = EIO;
    return true;
}

namespace {

enum How { kFails, kReleases, kSaysNo, kSaysAllOnes, kNever };

template <auto *Function>
auto *behind(const char *name)
{
    static auto *const found = reinterpret_cast<decltype(Function)>(dlsym(RTLD_NEXT, name));
    return found;
}

void makeEmpty(auto... /*others*/) {}
void makeEmpty(char *text, std::unsigned_integral auto size, auto... /*others*/)
{
    std::memset(text, 0, size > 0 ? 1 : 0);
}

// A call of a function, or of what stands for it. One that fails: null, -1, a code, "no" or an address of
// ones; what releases does so even then, and a text to be written becomes empty, as the platform's own do.
template <auto Function, typename... A, typename Own = decltype(Function)>
auto answer(const char *name, std::tuple<A...> arguments, How how = kFails, Own own = {})
{
    using Result = decltype(std::apply(own, arguments));
    if constexpr (std::is_same_v<Own, decltype(Function)>) {
        own = behind<Function>(name);
    }
    platform.calls += platform.watching ? 1 : 0;
    const bool fails = how != kNever && platform.due(name);
    if (!fails || how == kReleases) {
        ++platform.depth;
        const Result result = std::apply(own, arguments);
        --platform.depth;
        if (!fails) {
            return result;
        }
    }
    std::apply([](auto... each) { makeEmpty(each...); }, arguments);
    if constexpr (std::is_pointer_v<Result>) {
        return Result{};
    } else {
        const uint32_t code = how == kSaysNo ? 0 : how == kSaysAllOnes ? UINT32_MAX : kCode;
        return std::is_signed_v<Result> ? Result(-1) : static_cast<Result>(code);
    }
}

// The library's own system calls fail; not those that the platform makes for it.
How systemCall(How how)
{
    return platform.depth == 0 ? how : kNever;
}

std::string inRoot(const char *path)
{
    return platform.root + path;
}

// A new block; one that is not zeroed is full of something else, always the same.
void *taken(void *block, uint32_t size, int fill)
{
    platform.blocks.insert(block);
    return std::memset(block, fill, size);
}

// The shell makes the file that a command writes to.
uint32_t execute(const std::string &line)
{
    if (const size_t path = line.find('>'); path != std::string::npos) {
        std::ofstream(inRoot(line.c_str() + path + 1)) << "   42 it\n";
    }
    return 0;
}

// Puts an operation that can fail into the place of an object's own, which all objects of the kind share.
// Those of the table of tables have names of their own; what removes does so even then.
template <auto Member, typename Object, typename First, typename... A>
void replace(Object *object, const std::string &name, uint32_t (*Object::* /*member*/)(First, A...))
{
    static const std::string called = name;
    static uint32_t (*const own)(First, A...) = object->*Member;
    object->*Member = [](First first, A... a) {
        const bool isRoot = static_cast<void *>(first) == g_MultiHashtable;
        const bool fails = platform.due((isRoot ? "tables." : "") + called);
        const uint32_t result = !fails || called == "remove" ? own(first, a...) : kCode;
        return fails ? kCode : result;
    };
}

template <auto... Members>
auto *watched(auto *object, auto... names)
{
    object == nullptr ? void() : (replace<Members>(object, names, Members), ...);
    return object;
}

Hashtable *watchedTable(Hashtable *table)
{
    return watched<&Hashtable::pfnPut, &Hashtable::pfnGet, &Hashtable::pfnGetKeys, &Hashtable::pfnRemove,
                   &Hashtable::pfnForEach>(table, "put", "get", "keys", "remove", "forEach");
}

template <typename Function>
struct Signature;
template <typename R, typename... A>
struct Signature<R(A...)> {
    using Result = R;
    using Arguments = std::tuple<A...>;
};

} // namespace

// The definitions, by the number of arguments.
// clang-format off
#define R(f) Signature<decltype(f)>::Result
#define A(f, i) std::tuple_element_t<i, Signature<decltype(f)>::Arguments>
#define GO(f, arguments, ...) { return answer<f>(#f, std::tuple arguments __VA_OPT__(,) __VA_ARGS__); }
#define F0(f, ...) R(f) f() { return answer<f>(#f, std::tuple<>() __VA_OPT__(,) __VA_ARGS__); }
#define F1(f, ...) R(f) f(A(f, 0) a) GO(f, (a) __VA_OPT__(,) __VA_ARGS__)
#define F2(f, ...) R(f) f(A(f, 0) a, A(f, 1) b) GO(f, (a, b) __VA_OPT__(,) __VA_ARGS__)
#define F3(f, ...) R(f) f(A(f, 0) a, A(f, 1) b, A(f, 2) c) GO(f, (a, b, c) __VA_OPT__(,) __VA_ARGS__)
#define F4(f, ...) R(f) f(A(f, 0) a, A(f, 1) b, A(f, 2) c, A(f, 3) d) GO(f, (a, b, c, d) __VA_OPT__(,) __VA_ARGS__)
#define F5(f, ...) R(f) f(A(f, 0) a, A(f, 1) b, A(f, 2) c, A(f, 3) d, A(f, 4) e) GO(f, (a, b, c, d, e) __VA_OPT__(,) __VA_ARGS__)
#define F6(f, ...) R(f) f(A(f, 0) a, A(f, 1) b, A(f, 2) c, A(f, 3) d, A(f, 4) e, A(f, 5) g) GO(f, (a, b, c, d, e, g) __VA_OPT__(,) __VA_ARGS__)
#define F7(f, ...) R(f) f(A(f, 0) a, A(f, 1) b, A(f, 2) c, A(f, 3) d, A(f, 4) e, A(f, 5) g, A(f, 6) h) GO(f, (a, b, c, d, e, g, h) __VA_OPT__(,) __VA_ARGS__)
#define LISTED(r, f, last, parameters, arguments, own) r f parameters { va_list list; va_start(list, last); \
    const r result = answer<0>(#f, std::tuple arguments, kFails, [&](auto...) -> r { return own; }); va_end(list); return result; }

F3(socket, systemCall(kFails)) F3(ioctl, systemCall(kFails)) F1(close, systemCall(kReleases))
F1(ArrayList_GetArrayList, kFails, [](ArrayList **p) { return
    watched<&ArrayList::pfnFind, &ArrayList::pfnAdd, &ArrayList::pfnRemove, &ArrayList::pfnForEach>(behind<ArrayList_GetArrayList>("ArrayList_GetArrayList")(p), "find", "add", "remove", "forEach"); })
F1(EventHandle_GetEventHandle, kFails, [](EventHandle **p) { return
    watched<&EventHandle::pfnRegister, &EventHandle::pfnUnregister, &EventHandle::pfnInvoke>(behind<EventHandle_GetEventHandle>("EventHandle_GetEventHandle")(p), "register", "unregister", "invoke"); })
F3(Hashtable_Create, kFails, [](auto... p) { return watchedTable(behind<Hashtable_Create>("Hashtable_Create")(p...)); })
F1(Hashtable_GetHashtable3, kFails, [](Hashtable **p) { return watchedTable(behind<Hashtable_GetHashtable3>("Hashtable_GetHashtable3")(p)); })
F3(DataSync_SyncData) F5(DataSync_SyncData1) F3(EventCenter_GlobalInvokeEvent2) F4(EventCenter_InvokeEvent)
F2(EventCenter_RemoveEvent) F2(EventCenter_SubscribeEvent) F3(QX_CLI_AsynPrint) F3(QX_CLI_SynPrint)
F1(QX_Feature_IsSupportByFeatureName, kSaysNo) F4(QX_MSG_AsynSend) F0(QX_MSG_GetCurThreadMid, kNever)
F1(QX_MSG_RegOverWriteRpcCalls) F4(QX_OS_AddTlvToHlpMsg) F2(QX_OS_BackTrace, kFails, [](auto...) { return 0U; })
F3(QX_OS_Bind, kFails, [](auto...) { return 0; }) F1(QX_OS_Close, kReleases) F1(QX_OS_CloseSocket, kReleases)
F3(QX_OS_CmdEscape) F5(QX_OS_Compress) F4(QX_OS_Decompress) F1(QX_OS_ExecShellCmd, kFails, execute)
F1(QX_OS_Fclose, kReleases) F1(QX_OS_Feof) F3(QX_OS_Fgets) F0(QX_OS_GetLastErr, kNever) F0(QX_OS_GetPID, kNever)
F2(QX_OS_Fopen, kFails, [](const char *path, const char *mode) -> void * { return std::fopen(inRoot(path).c_str(), mode); })
F0(QX_OS_GetThreadID, kNever) F3(QX_OS_HLP_Send) F1(QX_OS_InetAddr, kSaysAllOnes) F4(QX_OS_InetNtop)
F3(QX_OS_InetPton) F5(QX_OS_InitHlpMsg) F3(QX_OS_IoctlSocket, kFails, [](auto...) { return 0; }) F3(QX_OS_IpAddrToStr)
F1(QX_OS_IsDigitStr, kSaysNo) F4(QX_OS_MemSet_S) F1(QX_OS_MutexDestroy, kReleases) F2(QX_OS_MutexInit)
F1(QX_OS_MemMallocD, kFails, [](uint32_t n) { return taken(behind<QX_OS_MemMallocD>("QX_OS_MemMallocD")(n), n, 0xA5); })
F1(QX_OS_MemMallocSet, kFails, [](uint32_t n) { return taken(behind<QX_OS_MemMallocSet>("QX_OS_MemMallocSet")(n), n, 0); })
F1(QX_OS_MemFreeD, kNever, [](void *p) { EXPECT_EQ(platform.blocks.erase(p), 1U) << "freed twice"; return behind<QX_OS_MemFreeD>("QX_OS_MemFreeD")(p); })
F1(QX_OS_MutexLock) F1(QX_OS_MutexUnLock, kReleases) F0(QX_OS_PthreadSelf, kNever)
F4(QX_OS_Recv, kFails, [](int32_t, void *out, uint32_t n, int32_t) { return static_cast<int32_t>(platform.received.copy(static_cast<char *>(out), n)); })
F1(QX_OS_Remove, kReleases, [](const char *path) { return std::remove(inRoot(path).c_str()); })
F6(QX_OS_Sendto, kFails, [](int32_t, const void *, uint32_t n, auto...) { return static_cast<int32_t>(n); })
F3(QX_OS_Socket, kFails, [](auto...) { return open("/dev/null", O_RDWR | O_CLOEXEC); }) F1(QX_OS_StatGet)
F2(QX_OS_StripSpace) F2(QX_OS_StrCaseCmp, kNever) F2(QX_OS_StrCaseStr, kNever) F1(QX_OS_StrError, kNever)
F1(QX_OS_StrLen, kNever) F2(QX_OS_StrNLen, kNever) F3(QX_OS_StrtokR, kNever) F2(QX_OS_StrToInt32) F2(QX_OS_StrToIpAddr)
F2(QX_OS_StrToUInt32) F3(QX_OS_UInt32ToStr_S) F1(QX_PROC_DBG_GetJiffies) F2(QX_VDATA_CreShm) F1(QX_VDATA_FreeShm, kReleases)
F7(QX_PROC_DBG_LastWord, kNever, [](auto, auto, uint32_t code, auto...) { platform.watching ? platform.records.push_back(code) : void(); return 0U; })
F3(QX_VDATA_ReadData) F3(QX_VDATA_UpdateData) F7(QX_XML_DBAppendAllParaToParaList) F4(memcpy_s) F4(memset_s) F4(strncat_s)
F4(strncpy_s) F5(vsnprintf_s)
LISTED(int32_t, snprintf_s, f, (char *p, size_t n, size_t m, const char *f, ...), (p, n), behind<vsnprintf_s>("vsnprintf_s")(p, n, m, f, list))
LISTED(int32_t, QX_OS_Snprintf_S, f, (char *p, size_t n, size_t m, const char *f, ...), (p, n), behind<vsnprintf_s>("vsnprintf_s")(p, n, m, f, list))
LISTED(int32_t, sscanf_s, f, (const char *text, const char *f, ...), (text), std::vsscanf(text, f, list))
LISTED(uint32_t, QX_OS_Printf, f, (const char *f, ...), (f), 0U)
LISTED(uint32_t, QX_PROC_DBG_TraceN, f, (uint32_t m, const char *, uint32_t, const char *f, ...), (m), 0U)
