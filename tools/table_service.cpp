#include "table_service.h"

#include "qx/diag.h"
#include "table_requests.h"
#include "zema/multi_hashtable_ex.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace tools {
namespace {

constexpr uint32_t kWord = sizeof(uint32_t);
constexpr uint32_t kAnySize = 0xFFFFFFFF;

uint32_t word(const QxSyncRequest &request, uint32_t number)
{
    uint32_t value = 0;
    std::memcpy(&value, static_cast<const char *>(request.pvData) + size_t{number} * kWord, sizeof value);
    return value;
}

uint32_t save(const QxSyncRequest &request)
{
    constexpr uint32_t kHead = 3 * kWord;
    if (request.ulSize < kHead || word(request, 2) != request.ulSize - kHead) {
        return QX_ERR_PROTOCOL;
    }
    return MultiHashtable_SaveData(word(request, 0), word(request, 1),
                                   static_cast<const char *>(request.pvData) + kHead, word(request, 2));
}

uint32_t remove(const QxSyncRequest &request)
{
    return MultiHashtable_DeleteData(word(request, 0), word(request, 1));
}

uint32_t read(const QxSyncRequest &request)
{
    if (word(request, 2) != request.ulReplySize) {
        return QX_ERR_PROTOCOL;
    }
    return MultiHashtable_GetData(word(request, 0), word(request, 1), request.pvReply, request.ulReplySize);
}

uint32_t list(const QxSyncRequest &request)
{
    if (request.ulReplySize < kWord) {
        return QX_ERR_PROTOCOL;
    }
    auto *const reply = static_cast<uint32_t *>(request.pvReply);
    const uint32_t most = std::min(word(request, 1), request.ulReplySize / kWord - 1);
    uint32_t count = 0;
    const uint32_t result = MultiHashtable_GetIndexList(word(request, 0), reply + 1, most, &count);
    if (result == ZEMA_OK) {
        reply[0] = count;
        const uint32_t used = (1 + count) * kWord;
        std::memset(reinterpret_cast<char *>(reply) + used, 0, request.ulReplySize - used);
    }
    return result;
}

// ---- What the console asks ----

struct Listing {
    Page &page;
    uint32_t skip;
    uint32_t (*valueOf)(const Hashtable *table, uint32_t key, void *value);
    const Hashtable *table;
};

uint32_t addRow(uint32_t key, void *value, void *argument, void *, void *)
{
    auto &listing = *static_cast<Listing *>(argument);
    Page &page = listing.page;
    if (page.total++ >= listing.skip && page.count < Page::kMaxRows) {
        page.rows[page.count++] = {.key = key, .value = listing.valueOf(listing.table, key, value)};
    }
    return QX_OK;
}

uint32_t fillPage(const QxSyncRequest &request, Hashtable *table, Listing listing)
{
    std::memset(request.pvReply, 0, request.ulReplySize);
    return table->pfnForEach(table, addRow, &listing, nullptr, nullptr);
}

Hashtable *findTable(uint32_t id)
{
    void *table = nullptr;
    const bool found =
        g_MultiHashtable != nullptr && g_MultiHashtable->pfnGet(g_MultiHashtable, id, &table) == 0;
    return found ? static_cast<Hashtable *>(table) : nullptr;
}

uint32_t listTables(const QxSyncRequest &request)
{
    Hashtable *const tables = Hashtable_GetHashtable3(&g_MultiHashtable);
    if (tables == nullptr) {
        return QX_ERR_NO_MEMORY;
    }
    return fillPage(request, tables,
                    {.page = *static_cast<Page *>(request.pvReply),
                     .skip = word(request, 0),
                     .valueOf =
                         [](const Hashtable *, uint32_t, void *value) {
                             auto *const table = static_cast<Hashtable *>(value);
                             return table->pfnGetCount(table);
                         },
                     .table = tables});
}

uint32_t listItems(const QxSyncRequest &request)
{
    Hashtable *const table = findTable(word(request, 0));
    if (table == nullptr) {
        return QX_ERR_NOT_FOUND;
    }
    return fillPage(request, table,
                    {.page = *static_cast<Page *>(request.pvReply),
                     .skip = word(request, 1),
                     .valueOf = [](const Hashtable *items, uint32_t key,
                                   void *) { return MultiHashtable_GetLength(items, key); },
                     .table = table});
}

uint32_t itemLength(const QxSyncRequest &request)
{
    Hashtable *const table = findTable(word(request, 0));
    if (table == nullptr || table->pfnHasKey(table, word(request, 1)) == 0) {
        return QX_ERR_NOT_FOUND;
    }
    const uint32_t length = MultiHashtable_GetLength(table, word(request, 1));
    std::memcpy(request.pvReply, &length, sizeof length);
    return QX_OK;
}

struct Service {
    uint32_t code;
    uint32_t size;      // of the request
    uint32_t replySize; // or any
    uint32_t (*answer)(const QxSyncRequest &request);
};

constexpr Service kServices[] = {
    {MULTIHASHTABLEEX_CODE_SAVE, kAnySize, 0, save},
    {MULTIHASHTABLEEX_CODE_DELETE, 2 * kWord, 0, remove},
    {MULTIHASHTABLEEX_CODE_GET, 3 * kWord, kAnySize, read},
    {MULTIHASHTABLEEX_CODE_LIST, 2 * kWord, kAnySize, list},
    {kListTables, kWord, sizeof(Page), listTables},
    {kListItems, 2 * kWord, sizeof(Page), listItems},
    {kItemLength, 2 * kWord, kWord, itemLength},
};

bool isOfSize(uint32_t wanted, uint32_t size)
{
    return wanted == kAnySize || wanted == size;
}

} // namespace

uint32_t serveTables(void * /*context*/, const QxSyncRequest *request)
{
    const auto *const service = std::ranges::find(kServices, request->ulCode, &Service::code);
    if (service == std::end(kServices)) {
        return QX_ERR_NOT_FOUND;
    }
    const bool fits =
        isOfSize(service->size, request->ulSize) && isOfSize(service->replySize, request->ulReplySize);
    const uint32_t result = fits ? service->answer(*request) : QX_ERR_PROTOCOL;
    if (result == QX_ERR_PROTOCOL) {
        QX_PROC_DBG_LastWord("table_service.cpp", __LINE__, result, request->ulCode, request->ulSize,
                             request->ulReplySize, request->ulPid);
    }
    return result;
}

} // namespace tools
