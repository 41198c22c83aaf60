#include "tests/support/platform_double.h"

#include "qx/cli.h"
#include "qx/diag.h"
#include "qx/event.h"
#include "qx/hlp.h"
#include "qx/memory.h"
#include "qx/text.h"

#include <algorithm>
#include <cstring>
#include <deque>
#include <sstream>

namespace zema::test {

Call recordOf(const std::string &file, const Values &values)
{
    return {"record", {values.begin(), values.end()}, file};
}

PlatformDouble &PlatformDouble::instance()
{
    static PlatformDouble instance;
    return instance;
}

void PlatformDouble::reset()
{
    const std::scoped_lock guard(lock);
    static_cast<PlatformState &>(*this) = {};
}

void PlatformDouble::fail(const std::string &function, uint32_t nth, int64_t result)
{
    const std::scoped_lock guard(lock);
    failures[function] = {nth, result};
}

std::vector<Call> PlatformDouble::calls(const std::set<std::string> &functions) const
{
    std::vector<Call> found;
    for (const Call &call : journal) {
        if (functions.contains(call.function)) {
            found.push_back(call);
        }
    }
    return found;
}

std::vector<uint32_t> PlatformDouble::deliver(uint32_t event, void *data) const
{
    std::vector<uint32_t> results;
    for (const auto &[subscribed, handler] : std::vector(subscriptions)) {
        if (subscribed == event) {
            results.push_back(handler(data));
        }
    }
    return results;
}

testing::AssertionResult PlatformDouble::recorded(std::string_view file,
                                                  const std::vector<Values> &expected) const
{
    std::vector<Values> actual;
    for (const Call &record : calls({"record"})) {
        if (record.bytes != file || places.contains({record.bytes, 0})) {
            return testing::AssertionFailure() << "recorded under " << record.bytes;
        }
        Values &values = actual.emplace_back();
        for (size_t i = 0; i < values.size(); ++i) {
            const bool anyAddress = actual.size() <= expected.size() && record.values[i] != 0 &&
                                    expected[actual.size() - 1][i] == kSomeAddress;
            values[i] = anyAddress ? kSomeAddress : static_cast<uint32_t>(record.values[i]);
        }
    }
    if (actual != expected) {
        return testing::AssertionFailure() << "recorded " << testing::PrintToString(actual) << "\nexpected "
                                           << testing::PrintToString(expected);
    }
    return testing::AssertionSuccess();
}

std::optional<int64_t> PlatformDouble::enter(Call call)
{
    const std::scoped_lock guard(lock);
    if (!watching) {
        return std::nullopt;
    }
    const auto failure = failures.find(call.function);
    journal.push_back(std::move(call));
    if (failure == failures.end()) {
        return std::nullopt;
    }
    const auto [nth, result] = failure->second;
    if (nth == 0) {
        return result;
    }
    if (--failure->second.nth > 0) {
        return std::nullopt;
    }
    failures.erase(failure);
    return result;
}

void PlatformDouble::note(const std::string &file, uint32_t line, const Values &values)
{
    const std::scoped_lock guard(lock);
    ++recordCount;
    if (watching) {
        journal.push_back(recordOf(file, values));
        places.emplace(file, line);
    }
}

std::string textOf(const std::vector<Call> &calls, const std::set<std::string> &silent)
{
    std::ostringstream text;
    for (Call call : calls) {
        if (silent.contains(call.function)) {
            continue;
        }
        const bool isRecord = call.function == "record";
        while (isRecord && call.values.size() > 1 && call.values.back() == 0) {
            call.values.pop_back();
        }
        text << (text.tellp() > 0 ? "; " : "")
             << call.function.substr(call.function.find("QX_OS_") == 0 ? 6 : 0);
        for (const uint64_t value : call.values) {
            text << " " << std::hex << value;
        }
        text << (isRecord || call.bytes.empty() ? "" : " " + call.bytes);
    }
    return text.str();
}

} // namespace zema::test

using namespace zema::test;

namespace {

PlatformDouble &platform()
{
    return PlatformDouble::instance();
}

std::string bytesAt(const void *bytes, size_t size)
{
    return bytes == nullptr ? std::string() : std::string(static_cast<const char *>(bytes), size);
}

// ---- A list of elements in order, as the platform's ----

uint32_t findElement(ArrayList *list, ArrayListCompare compare, const void *key, void *out)
{
    return watched({"ArrayList.find", {}, static_cast<const char *>(key)}, [&]() -> uint32_t {
        for (const std::string &element : platform().elements[list]) {
            if (compare(element.data(), key) == 0) {
                std::memcpy(out, element.data(), element.size());
                return 0;
            }
        }
        return QX_ERR_NOT_FOUND;
    });
}

uint32_t addElement(ArrayList *list, const void *element, uint32_t size)
{
    return watched({"ArrayList.add", {size}, bytesAt(element, size)}, [&]() -> uint32_t {
        platform().elements[list].push_back(bytesAt(element, size));
        return 0;
    });
}

uint32_t removeElement(ArrayList *list, ArrayListCompare compare, const void *key)
{
    return watched({"ArrayList.remove", {}, static_cast<const char *>(key)}, [&]() -> uint32_t {
        auto &elements = platform().elements[list];
        const auto found = std::find_if(elements.begin(), elements.end(), [&](const std::string &element) {
            return compare(element.data(), key) == 0;
        });
        if (found == elements.end()) {
            return QX_ERR_NOT_FOUND;
        }
        elements.erase(found);
        return 0;
    });
}

uint32_t visitElements(ArrayList *list, ArrayListVisitor visitor, void *context)
{
    return watched({"ArrayList.forEach", {}, {}}, [&]() -> uint32_t {
        uint32_t visited = 0;
        if (platform().visitMissingElement && visitor(nullptr, &visited, context) != 0) {
            return 1;
        }
        for (std::string element : std::vector(platform().elements[list])) {
            visited = 0;
            if (visitor(element.data(), &visited, context) != 0) {
                return 1;
            }
            if (visited == 1) {
                platform().visited.push_back(element.data());
            }
        }
        return 0;
    });
}

constexpr ArrayList kList = {
    .pfnFind = findElement, .pfnAdd = addElement, .pfnRemove = removeElement, .pfnForEach = visitElements};

} // namespace

// ---- Diagnostics, terminals, messages, events, lists: the double's own ----

uint32_t QX_PROC_DBG_LastWord(const char *file, uint32_t line, uint32_t value1, uint32_t value2,
                              uint32_t value3, uint32_t value4, uint32_t value5)
{
    platform().note(file, line, {value1, value2, value3, value4, value5});
    return 0;
}

uint32_t QX_CLI_SynPrint(uint32_t terminal, const char *bytes, uint32_t size)
{
    return watched({"QX_CLI_SynPrint", {terminal}, bytesAt(bytes, size)}, [] { return 0U; });
}

uint32_t QX_CLI_AsynPrint(uint32_t terminal, const char *bytes, uint32_t size)
{
    return watched({"QX_CLI_AsynPrint", {terminal}, bytesAt(bytes, size)}, [] { return 0U; });
}

uint32_t QX_OS_HLP_Send(void * /*message*/, uint32_t option1, uint32_t option2)
{
    return watched({"QX_OS_HLP_Send", {option1, option2}, {}}, [] { return 0U; });
}

uint32_t QX_MSG_RegOverWriteRpcCalls(const QxRpcRow *rows)
{
    return watched({"QX_MSG_RegOverWriteRpcCalls", {}, {}}, [&] {
        platform().rpcRows.clear();
        for (; rows->ulId != QX_RPC_END_OF_TABLE; ++rows) {
            platform().rpcRows.push_back(*rows);
        }
        return 0U;
    });
}

uint32_t EventCenter_SubscribeEvent(uint32_t event, QxEventHandler handler)
{
    return watched({"EventCenter_SubscribeEvent", {event}, {}}, [&] {
        platform().subscriptions.emplace_back(event, handler);
        return 0U;
    });
}

uint32_t EventCenter_RemoveEvent(uint32_t event, QxEventHandler handler)
{
    return watched({"EventCenter_RemoveEvent", {event}, {}}, [&] {
        return std::erase(platform().subscriptions, std::pair(event, handler)) > 0 ? 0U : QX_ERR_NOT_FOUND;
    });
}

uint32_t EventCenter_GlobalInvokeEvent2(uint32_t event, void *data, uint32_t size)
{
    return watched({"EventCenter_GlobalInvokeEvent2", {event}, bytesAt(data, size)}, [] { return 0U; });
}

ArrayList *ArrayList_GetArrayList(ArrayList **holder)
{
    static std::deque<ArrayList> lists;
    return watched({"ArrayList_GetArrayList", {}, {}},
                   [&] { return *holder = *holder == nullptr ? &lists.emplace_back(kList) : *holder; });
}

// ---- Memory, texts, HLP messages: the real ones, watched ----

void *QX_OS_MemMallocD(uint32_t size)
{
    return watched({"QX_OS_MemMallocD", {size}, {}}, [&] {
        void *const block = real(QX_OS_MemMallocD, "QX_OS_MemMallocD")(size);
        const std::scoped_lock guard(platform().lock);
        platform().blocks.insert(block);
        platform().addresses.insert(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(block)));
        return block;
    });
}

uint32_t QX_OS_MemFreeD(void *block)
{
    return watched({"QX_OS_MemFreeD", {}, {}}, [&] {
        const std::scoped_lock guard(platform().lock);
        EXPECT_EQ(platform().blocks.erase(block), 1U)
            << "a block that is not the allocator's, or freed twice";
        return real(QX_OS_MemFreeD, "QX_OS_MemFreeD")(block);
    });
}

uint32_t QX_OS_MemSet_S(void *dst, uint32_t dstSize, int32_t value, uint32_t count)
{
    return watched({"QX_OS_MemSet_S", {dstSize, static_cast<uint64_t>(value), count}, {}},
                   [&] { return real(QX_OS_MemSet_S, "QX_OS_MemSet_S")(dst, dstSize, value, count); });
}

int32_t memset_s(void *dst, size_t dstSize, int32_t value, size_t count)
{
    return watched({"memset_s", {dstSize, static_cast<uint64_t>(value), count}, {}},
                   [&] { return real(memset_s, "memset_s")(dst, dstSize, value, count); });
}

int32_t snprintf_s(char *dst, size_t dstSize, size_t count, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t written = watched({"snprintf_s", {dstSize, count}, format}, [&] {
        return real(vsnprintf_s, "vsnprintf_s")(dst, dstSize, count, format, arguments);
    });
    va_end(arguments);
    return written;
}

int32_t QX_OS_Snprintf_S(char *dst, size_t dstSize, size_t count, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const int32_t written = watched({"QX_OS_Snprintf_S", {dstSize, count}, format}, [&] {
        return real(vsnprintf_s, "vsnprintf_s")(dst, dstSize, count, format, arguments);
    });
    va_end(arguments);
    return written;
}

uint32_t QX_OS_IsDigitStr(const char *text)
{
    return watched({"QX_OS_IsDigitStr", {}, text},
                   [&] { return real(QX_OS_IsDigitStr, "QX_OS_IsDigitStr")(text); });
}

uint32_t QX_OS_InitHlpMsg(void *message, uint32_t zero, uint32_t type, uint32_t para1, uint32_t para2)
{
    return watched({"QX_OS_InitHlpMsg", {zero, type, para1, para2}, {}}, [&] {
        return real(QX_OS_InitHlpMsg, "QX_OS_InitHlpMsg")(message, zero, type, para1, para2);
    });
}

uint32_t QX_OS_AddTlvToHlpMsg(void *message, uint8_t type, uint16_t size, const void *value)
{
    return watched({"QX_OS_AddTlvToHlpMsg", {type, size}, bytesAt(value, size)}, [&] {
        return real(QX_OS_AddTlvToHlpMsg, "QX_OS_AddTlvToHlpMsg")(message, type, size, value);
    });
}
