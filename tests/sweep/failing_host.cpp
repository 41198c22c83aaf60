#include "tests/sweep/failing_host.h"

#include "qx/qx.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <fstream>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace zema::test {

FailingHost &FailingHost::instance()
{
    static FailingHost host;
    return host;
}

void FailingHost::arm(uint32_t which, bool stays)
{
    armed = true;
    staysSo = stays;
    nth = which;
    calls = 0;
    failed.clear();
    codes.clear();
}

bool FailingHost::fails(const char *function)
{
    if (!armed) {
        return false;
    }
    ++calls;
    const bool due = nth != 0 && (staysSo ? calls >= nth : calls == nth);
    if (due) {
        failed.emplace_back(function);
        errno = EIO;
    }
    return due;
}

} // namespace zema::test

namespace {

using zema::test::FailingHost;
using zema::test::kInjected;

FailingHost &host = FailingHost::instance();

// The definition behind ours.
template <typename Result, typename... Parameters>
auto real(Result (&/*ours*/)(Parameters...), const char *name)
{
    return reinterpret_cast<Result (*)(Parameters...)>(dlsym(RTLD_NEXT, name));
}

template <typename Result, typename... Parameters, typename... Arguments>
Result attempt(Result (&ours)(Parameters...), const char *name, Result failure, Arguments... arguments)
{
    return host.fails(name) ? failure : real(ours, name)(arguments...);
}

// What gives something back does so even where it says that it failed: what is left is then our doing.
template <typename Result, typename... Parameters, typename... Arguments>
Result giveBack(Result (&ours)(Parameters...), const char *name, Result failure, Arguments... arguments)
{
    const bool fails = host.fails(name);
    const Result result = real(ours, name)(arguments...);
    return fails ? failure : result;
}

void *counted(void *block)
{
    host.blocks += block != nullptr ? 1 : 0;
    return block;
}

// An object of the platform with operations of ours in front of its own.
template <typename Object>
Object &own()
{
    static Object operations{};
    return operations;
}

uint32_t markGetCount(Hashtable *table)
{
    return own<Hashtable>().pfnGetCount(table);
}

Hashtable *watch(Hashtable *table)
{
    if (table == nullptr || table->pfnGetCount == markGetCount) {
        return table;
    }
    own<Hashtable>() = *table;
    table->pfnGetCount = markGetCount;
    table->pfnPut = [](Hashtable *t, uint32_t key, void *value) {
        return host.fails("pfnPut") ? kInjected : own<Hashtable>().pfnPut(t, key, value);
    };
    table->pfnGet = [](Hashtable *t, uint32_t key, void **value) {
        return host.fails("pfnGet") ? kInjected : own<Hashtable>().pfnGet(t, key, value);
    };
    table->pfnGetKeys = [](Hashtable *t, uint32_t *keys, uint32_t most, uint32_t *count) {
        return host.fails("pfnGetKeys") ? kInjected : own<Hashtable>().pfnGetKeys(t, keys, most, count);
    };
    table->pfnRemove = [](Hashtable *t, uint32_t key, HashtableRelease release, uintptr_t zero) {
        return host.fails("pfnRemove") ? kInjected : own<Hashtable>().pfnRemove(t, key, release, zero);
    };
    table->pfnForEach = [](Hashtable *t, HashtableVisitor visitor, void *a, void *b, void *c) {
        return host.fails("pfnForEach") ? kInjected : own<Hashtable>().pfnForEach(t, visitor, a, b, c);
    };
    return table;
}

ArrayList *watch(ArrayList *list)
{
    if (list == nullptr || own<ArrayList>().pfnAdd != nullptr) {
        return list;
    }
    own<ArrayList>() = *list;
    *list = {.pfnFind =
                 [](ArrayList *l, ArrayListCompare compare, const void *key, void *out) {
                     return host.fails("pfnFind") ? kInjected
                                                  : own<ArrayList>().pfnFind(l, compare, key, out);
                 },
             .pfnAdd =
                 [](ArrayList *l, const void *element, uint32_t size) {
                     return host.fails("pfnAdd") ? kInjected : own<ArrayList>().pfnAdd(l, element, size);
                 },
             .pfnRemove =
                 [](ArrayList *l, ArrayListCompare compare, const void *key) {
                     return host.fails("pfnRemove") ? kInjected : own<ArrayList>().pfnRemove(l, compare, key);
                 },
             .pfnForEach =
                 [](ArrayList *l, ArrayListVisitor visitor, void *context) {
                     return host.fails("pfnForEach") ? kInjected
                                                     : own<ArrayList>().pfnForEach(l, visitor, context);
                 }};
    return list;
}

EventHandle *watch(EventHandle *handle)
{
    if (handle == nullptr || own<EventHandle>().pfnInvoke != nullptr) {
        return handle;
    }
    own<EventHandle>() = *handle;
    handle->pfnRegister = [](EventHandle *h, uint32_t event, EventHandleCallback callback) {
        return host.fails("pfnRegister") ? kInjected : own<EventHandle>().pfnRegister(h, event, callback);
    };
    handle->pfnUnregister = [](EventHandle *h, uint32_t event, EventHandleCallback callback) {
        return host.fails("pfnUnregister") ? kInjected : own<EventHandle>().pfnUnregister(h, event, callback);
    };
    handle->pfnInvoke = [](EventHandle *h, uint32_t event, void *data, uintptr_t zero1, uintptr_t zero2) {
        return host.fails("pfnInvoke") ? kInjected
                                       : own<EventHandle>().pfnInvoke(h, event, data, zero1, zero2);
    };
    return handle;
}

std::string inScratch(const char *path)
{
    return std::strncmp(path, "/var/", 5) == 0 ? host.scratch + (path + 4) : path;
}

} // namespace

uint32_t QX_PROC_DBG_LastWord(const char *, uint32_t, uint32_t code, uint32_t, uint32_t, uint32_t, uint32_t)
{
    host.codes.push_back(code);
    return 0;
}

// ---- Memory, locks ----

void *QX_OS_MemMallocD(uint32_t size)
{
    return counted(attempt(QX_OS_MemMallocD, __func__, static_cast<void *>(nullptr), size));
}

void *QX_OS_MemMallocSet(uint32_t size)
{
    return counted(attempt(QX_OS_MemMallocSet, __func__, static_cast<void *>(nullptr), size));
}

uint32_t QX_OS_MemFreeD(void *block)
{
    host.blocks -= block != nullptr ? 1 : 0;
    return giveBack(QX_OS_MemFreeD, __func__, kInjected, block);
}

uint32_t QX_OS_MutexLock(QxMutex *mutex)
{
    const uint32_t result = attempt(QX_OS_MutexLock, __func__, kInjected, mutex);
    host.locks += result == 0 ? 1 : 0;
    return result;
}

uint32_t QX_OS_MutexUnLock(QxMutex *mutex)
{
    --host.locks;
    return giveBack(QX_OS_MutexUnLock, __func__, kInjected, mutex);
}

// ---- Containers ----

Hashtable *Hashtable_Create(Hashtable **holder, uint32_t room, uint32_t reserved)
{
    return watch(
        attempt(Hashtable_Create, __func__, static_cast<Hashtable *>(nullptr), holder, room, reserved));
}

Hashtable *Hashtable_GetHashtable3(Hashtable **holder)
{
    return watch(attempt(Hashtable_GetHashtable3, __func__, static_cast<Hashtable *>(nullptr), holder));
}

ArrayList *ArrayList_GetArrayList(ArrayList **holder)
{
    return watch(attempt(ArrayList_GetArrayList, __func__, static_cast<ArrayList *>(nullptr), holder));
}

EventHandle *EventHandle_GetEventHandle(EventHandle **holder)
{
    return watch(attempt(EventHandle_GetEventHandle, __func__, static_cast<EventHandle *>(nullptr), holder));
}

// A function that goes on to the platform's own, or yields a failure.
#define FAILS_WITH(failure, Result, function, parameters, ...)                                               \
    Result function parameters                                                                               \
    {                                                                                                        \
        return attempt(function, #function, failure, __VA_ARGS__);                                           \
    }

// ---- Between processes ----

FAILS_WITH(kInjected, uint32_t, DataSync_SyncData1,
           (uint32_t code, const void *request, uint16_t size, void *reply, uint16_t replySize), code,
           request, size, reply, replySize)
FAILS_WITH(kInjected, uint32_t, DataSync_SyncData, (uint32_t operation, const void *payload, uint32_t size),
           operation, payload, size)
FAILS_WITH(kInjected, uint32_t, QX_MSG_AsynSend,
           (const void *payload, uint32_t size, const void *header, uint32_t option), payload, size, header,
           option)
FAILS_WITH(kInjected, uint32_t, QX_MSG_RegOverWriteRpcCalls, (const QxRpcRow *rows), rows)
FAILS_WITH(kInjected, uint32_t, EventCenter_SubscribeEvent, (uint32_t event, QxEventHandler handler), event,
           handler)
FAILS_WITH(kInjected, uint32_t, EventCenter_RemoveEvent, (uint32_t event, QxEventHandler handler), event,
           handler)
FAILS_WITH(kInjected, uint32_t, EventCenter_GlobalInvokeEvent2, (uint32_t event, void *data, uint32_t size),
           event, data, size)
FAILS_WITH(kInjected, uint32_t, EventCenter_InvokeEvent,
           (uint32_t event, uintptr_t parameter, uintptr_t zero1, uintptr_t zero2), event, parameter, zero1,
           zero2)
FAILS_WITH(kInjected, uint32_t, QX_CLI_SynPrint, (uint32_t terminal, const char *bytes, uint32_t size),
           terminal, bytes, size)
FAILS_WITH(kInjected, uint32_t, QX_CLI_AsynPrint, (uint32_t terminal, const char *bytes, uint32_t size),
           terminal, bytes, size)
FAILS_WITH(kInjected, uint32_t, QX_OS_InitHlpMsg,
           (void *message, uint32_t zero, uint32_t type, uint32_t para1, uint32_t para2), message, zero, type,
           para1, para2)
FAILS_WITH(kInjected, uint32_t, QX_OS_AddTlvToHlpMsg,
           (void *message, uint8_t type, uint16_t size, const void *value), message, type, size, value)
FAILS_WITH(kInjected, uint32_t, QX_OS_HLP_Send, (void *message, uint32_t option1, uint32_t option2), message,
           option1, option2)
FAILS_WITH(kInjected, uint32_t, QX_VDATA_CreShm, (uint32_t size, uint32_t *id), size, id)
FAILS_WITH(kInjected, uint32_t, QX_VDATA_UpdateData, (uint32_t id, uint32_t size, const void *data), id, size,
           data)
FAILS_WITH(kInjected, uint32_t, QX_VDATA_ReadData, (uint32_t id, uint32_t size, void *data), id, size, data)
FAILS_WITH(kInjected, uint32_t, QX_OS_Compress,
           (const void *src, uint32_t n, void *dst, uint32_t capacity, uint32_t *written), src, n, dst,
           capacity, written)
FAILS_WITH(kInjected, uint32_t, QX_OS_Decompress, (const void *src, uint32_t n, void *dst, uint32_t rawSize),
           src, n, dst, rawSize)

uint32_t QX_VDATA_FreeShm(uint32_t id)
{
    return giveBack(QX_VDATA_FreeShm, __func__, kInjected, id);
}

// ---- The kernel, files, the shell ----

// No machine needs to have netlink: its sockets are the host's own.
int32_t QX_OS_Socket(int32_t domain, int32_t type, int32_t protocol)
{
    if (domain != AF_NETLINK) {
        return attempt(QX_OS_Socket, __func__, -1, domain, type, protocol);
    }
    return host.fails(__func__) ? -1 : open("/dev/null", O_RDWR | O_CLOEXEC);
}

int32_t QX_OS_Bind(int32_t, const void *, uint32_t)
{
    return host.fails(__func__) ? -1 : 0;
}

int32_t QX_OS_Sendto(int32_t, const void *, uint32_t size, int32_t, const void *, uint32_t)
{
    return host.fails(__func__) ? -1 : static_cast<int32_t>(size);
}

int32_t QX_OS_Recv(int32_t, void *bytes, uint32_t size, int32_t)
{
    const size_t got = std::min<size_t>(size, host.kernelReply.size());
    std::memcpy(bytes, host.kernelReply.data(), got);
    return host.fails(__func__) ? -1 : static_cast<int32_t>(got);
}

// Nothing of the machine is changed.
int32_t QX_OS_IoctlSocket(int32_t fd, unsigned long request, void *argument)
{
    if (request == SIOCSIFHWADDR) {
        return host.fails(__func__) ? -1 : 0;
    }
    return attempt(QX_OS_IoctlSocket, __func__, -1, fd, request, argument);
}

int32_t QX_OS_Close(int32_t fd)
{
    return giveBack(QX_OS_Close, __func__, -1, fd);
}

int32_t QX_OS_CloseSocket(int32_t fd)
{
    return giveBack(QX_OS_CloseSocket, __func__, -1, fd);
}

void *QX_OS_Fopen(const char *path, const char *mode)
{
    return attempt(QX_OS_Fopen, __func__, static_cast<void *>(nullptr), inScratch(path).c_str(), mode);
}

char *QX_OS_Fgets(char *out, uint32_t size, void *file)
{
    return attempt(QX_OS_Fgets, __func__, static_cast<char *>(nullptr), out, size, file);
}

int32_t QX_OS_Fclose(void *file)
{
    return giveBack(QX_OS_Fclose, __func__, -1, file);
}

int32_t QX_OS_Remove(const char *path)
{
    return giveBack(QX_OS_Remove, __func__, -1, inScratch(path).c_str());
}

// Lists one process where a list is asked for; a failing shell has written nothing.
uint32_t QX_OS_ExecShellCmd(const char *line)
{
    const char *const target = std::strchr(line, '>');
    if (host.fails(__func__)) {
        return kInjected;
    }
    if (target != nullptr) {
        std::ofstream(inScratch(target + 1)) << "  321 root  1234 S  zemad key\n";
    }
    return 0;
}

FAILS_WITH(kInjected, uint32_t, QX_OS_StripSpace, (const char *text, char *out), text, out)
FAILS_WITH(kInjected, uint32_t, QX_OS_CmdEscape, (const char *text, char *out, uint32_t size), text, out,
           size)
FAILS_WITH(0, int32_t, QX_OS_InetPton, (int32_t family, const char *text, void *out), family, text, out)
FAILS_WITH(kInjected, uint32_t, QX_XML_DBAppendAllParaToParaList,
           (void *list, uint32_t a, uint32_t b, uint32_t c, uint32_t d, uint32_t e, uint32_t f), list, a, b,
           c, d, e, f)
