#include "tests/support/platform_double_table.h"

#include "qx/qx.h"
#include "zema/multi_hashtable.h"

#include <cstdarg>
#include <cstring>

using namespace zema::test;

namespace {

// The operations of the platform's tables.
const Hashtable &own()
{
    static const Hashtable operations = [] {
        Hashtable *table = nullptr;
        const Hashtable copy = *real(Hashtable_Create, "Hashtable_Create")(&table, 0, 0);
        copy.pfnDestroy(&table);
        return copy;
    }();
    return operations;
}

Hashtable *watch(Hashtable *table)
{
    table->pfnPut = [](Hashtable *t, uint32_t key, void *value) {
        return watched({"put", {}, {}}, [&] { return own().pfnPut(t, key, value); });
    };
    table->pfnGet = [](Hashtable *t, uint32_t key, void **value) {
        return watched({"get", {}, {}}, [&] { return own().pfnGet(t, key, value); });
    };
    table->pfnGetKeys = [](Hashtable *t, uint32_t *keys, uint32_t max, uint32_t *count) {
        return watched({"keys", {}, {}}, [&] { return own().pfnGetKeys(t, keys, max, count); });
    };
    table->pfnRemove = [](Hashtable *t, uint32_t key, HashtableRelease release, uintptr_t reserved) {
        return watched({"remove", {}, {}}, [&] { return own().pfnRemove(t, key, release, reserved); });
    };
    table->pfnDestroy = [](Hashtable **holder) {
        return watched({"destroy", {}, {}}, [&] { return own().pfnDestroy(holder); });
    };
    table->pfnForEach = [](Hashtable *t, HashtableVisitor visitor, void *a, void *b, void *c) {
        return watched({"forEach", {}, {}}, [&] { return own().pfnForEach(t, visitor, a, b, c); });
    };
    return table;
}

// The owning process of one table.
uint32_t serve(uint32_t code, const uint32_t *words, const std::string &bytes, void *reply, uint32_t size)
{
    auto &items = TableTest::around.items;
    if (code == 14) {
        items[words[1]] = bytes;
    } else if (code == 15) {
        items.erase(words[1]);
    } else if (code == 16) {
        std::memcpy(reply, items.at(words[1]).data(), std::min<size_t>(size, items.at(words[1]).size()));
    } else if (size > 0) {
        auto *list = static_cast<uint32_t *>(reply);
        *list = static_cast<uint32_t>(items.size()); // whatever fits
        for (auto item = items.begin(); item != items.end() && (size -= 4) >= 4; ++item) {
            *++list = item->first;
        }
    }
    return 0;
}

} // namespace

namespace zema::test {

Surroundings TableTest::around;

void TableTest::dropTables()
{
    platform.watching = false;
    const HashtableVisitor drop = [](uint32_t, void *item, void *, void *, void *) {
        return MultiHashtable_ReleaseData(item);
    };
    const HashtableVisitor dropTable = [](uint32_t, void *value, void *visitor, void *, void *) {
        auto *table = static_cast<Hashtable *>(value);
        auto *others = static_cast<Hashtable *>(table->pvOwner);
        own().pfnForEach(table, *static_cast<const HashtableVisitor *>(visitor), nullptr, nullptr, nullptr);
        own().pfnDestroy(&others);
        return own().pfnDestroy(&table);
    };
    if (g_MultiHashtable != nullptr) {
        own().pfnForEach(g_MultiHashtable, dropTable, const_cast<HashtableVisitor *>(&drop), nullptr,
                         nullptr);
        own().pfnDestroy(&g_MultiHashtable);
    }
    platform.watching = true;
}

std::string TableTest::deeds()
{
    static const std::map<std::string, std::string> names = {{"QX_OS_MemMallocD", "malloc"},
                                                             {"QX_OS_MemFreeD", "free"},
                                                             {"multi_hashtable.cpp", ""},
                                                             {"layer_base.cpp", "layer"},
                                                             {"multi_hashtable_ex.cpp", "ex"}};
    const auto nameOf = [](const std::string &long_) {
        return names.contains(long_) ? names.at(long_) : long_;
    };
    std::string all;
    for (const Call &call : std::exchange(platform.journal, {})) {
        const bool isRecord = call.function == "record";
        std::vector<uint64_t> values = call.values;
        while (isRecord && values.size() > 1 && values.back() == 0) {
            values.pop_back();
        }
        std::string numbers;
        for (const uint64_t value : values) {
            const bool isAddress =
                isRecord && !numbers.empty() && platform.addresses.count(static_cast<uint32_t>(value)) != 0;
            numbers += (numbers.empty() ? "" : ",") + (isAddress ? "@" : std::to_string(value));
        }
        all += (all.empty() ? "" : " ") + nameOf(isRecord ? call.bytes : call.function);
        all += isRecord ? "{" + numbers + "}" : numbers + call.bytes;
    }
    return all;
}

} // namespace zema::test

Hashtable *Hashtable_Create(Hashtable **holder, uint32_t room, uint32_t reserved)
{
    EXPECT_TRUE(room == 0 && reserved == 0);
    return watched({"create", {}, {}},
                   [&] { return watch(real(Hashtable_Create, "Hashtable_Create")(holder, 0, 0)); });
}

Hashtable *Hashtable_GetHashtable3(Hashtable **holder)
{
    static auto *const get = real(Hashtable_GetHashtable3, "Hashtable_GetHashtable3");
    EXPECT_EQ(holder, &g_MultiHashtable);
    return watched({"root", {}, {}}, [&] { return watch(get(holder)); });
}

uint32_t DataSync_SyncData1(uint32_t code, const void *request, uint16_t size, void *reply,
                            uint16_t replySize)
{
    std::array<uint32_t, 3> words{};
    const size_t head = std::min<size_t>(size, code == 14 || code == 16 ? 12 : 8);
    std::memcpy(words.data(), request, head);
    const std::string bytes(static_cast<const char *>(request) + head, size - head);
    std::string shown = " " + bytes.substr(0, 4) + "+" + std::to_string(bytes.size()) + ">";
    shown += (reply != nullptr ? "" : "none") + std::to_string(replySize);
    return watched({"sync", {code, words[0], words[1], words[2]}, shown},
                   [&] { return serve(code, words.data(), bytes, reply, replySize); });
}

uint32_t QX_OS_StatGet(uint32_t *state)
{
    EXPECT_EQ(*state, 0U);
    *state = TableTest::around.state;
    return 1;
}

uint32_t QX_OS_GetPID(void)
{
    return TableTest::around.process;
}

uint32_t QX_OS_GetThreadID(void)
{
    return TableTest::around.thread;
}

uint32_t QX_MSG_GetCurThreadMid(void)
{
    return TableTest::around.module;
}

uint32_t QX_OS_Printf(const char *format, ...)
{
    std::array<char, 256> text{};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    return watched({"print ", {}, text.data()}, [] { return 0U; });
}

uint32_t QX_OS_BackTrace(const char *file, uint32_t line)
{
    return watched({"backTrace ", {}, line != 0 ? file : ""}, [] { return 0U; });
}

uint32_t QX_PROC_DBG_GetJiffies(uint32_t words[2])
{
    EXPECT_TRUE(words[0] == 0 && words[1] == 0);
    std::copy_n(TableTest::around.jiffies.begin(), 2, words);
    return 0;
}
