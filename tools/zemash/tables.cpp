#include "tables.h"

#include "command.h"
#include "json.h"
#include "qx/data_sync.h"
#include "table_requests.h"
#include "text.h"
#include "zema/layer_base.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace zemash {
namespace {

constexpr uint32_t kLargestRead = 0xFFFF;
constexpr size_t kBytesALine = 16;

using Bytes = std::vector<uint8_t>;
using Rows = std::vector<tools::Page::Row>;

uint32_t ask(uint32_t code, std::vector<uint32_t> words, void *reply, size_t size)
{
    return DataSync_SyncData1(code, words.data(), static_cast<uint16_t>(words.size() * sizeof(uint32_t)),
                              reply, static_cast<uint16_t>(size));
}

// All rows of a listing, whose last word is how many to skip.
uint32_t askRows(uint32_t code, std::vector<uint32_t> words, Rows &rows)
{
    const auto page = std::make_unique<tools::Page>();
    words.push_back(0);
    do {
        words.back() = static_cast<uint32_t>(rows.size());
        const uint32_t result = ask(code, words, page.get(), sizeof *page);
        if (result != QX_OK) {
            return result;
        }
        const uint32_t count = std::min(page->count, tools::Page::kMaxRows);
        rows.insert(rows.end(), page->rows, page->rows + count);
    } while (page->count != 0 && rows.size() < page->total);
    std::ranges::sort(rows, {}, &tools::Page::Row::key);
    return QX_OK;
}

uint32_t askItem(uint32_t table, uint32_t index, uint32_t length, Bytes &bytes)
{
    if (length > kLargestRead) {
        return QX_ERR_TOO_LARGE;
    }
    bytes.resize(length);
    return MultiHashtableEx_GetData(table, index, bytes.data(), length);
}

std::string hexOf(const uint8_t *bytes, size_t size, const char *between)
{
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        std::array<char, 4> two{};
        std::snprintf(two.data(), two.size(), "%02x", bytes[i]);
        text += (i == 0 ? "" : between) + std::string(two.data());
    }
    return text;
}

void dump(const Bytes &bytes)
{
    for (size_t at = 0; at < bytes.size(); at += kBytesALine) {
        const size_t size = std::min(kBytesALine, bytes.size() - at);
        std::string shown(reinterpret_cast<const char *>(&bytes[at]), size);
        std::ranges::replace_if(
            shown, [](unsigned char c) { return c < ' ' || c > '~'; }, '.');
        std::printf("%08zx  %-47s  |%s|\n", at, hexOf(&bytes[at], size, " ").c_str(), shown.c_str());
    }
}

// The header is the record's own word for itself: its index and table need not be those it stands under.
std::string layerText(const LayerBaseHeader &header)
{
    std::array<char, 160> text{};
    std::snprintf(text.data(), text.size(), "table %u index %u: state %u, 2 since %u, 3 since %u, %s",
                  header.ulTableId, header.ulIndex, header.ulState, header.ulState2Jiffies,
                  header.ulState3Jiffies, header.ulVisible != 0 ? "visible" : "hidden");
    return text.data();
}

std::string layerJson(const LayerBaseHeader &header)
{
    return JsonObject()
        .number("index", header.ulIndex)
        .number("state", header.ulState)
        .number("state2Jiffies", header.ulState2Jiffies)
        .number("state3Jiffies", header.ulState3Jiffies)
        .number("table", header.ulTableId)
        .json("visible", header.ulVisible != 0 ? "true" : "false")
        .str();
}

uint32_t showItem(const TableQuery &query, uint32_t table, uint32_t index, uint32_t length)
{
    Bytes bytes;
    const uint32_t result = askItem(table, index, length, bytes);
    if (result != QX_OK) {
        return result;
    }
    LayerBaseHeader header{};
    const bool isLayer = query.layer && bytes.size() >= sizeof header;
    if (isLayer) {
        std::memcpy(&header, bytes.data(), sizeof header);
    }
    if (query.json) {
        JsonObject object;
        object.number("table", table).number("index", index).number("length", length);
        if (query.layer) {
            object.json("layer", isLayer ? layerJson(header) : "null");
        }
        std::puts(object.text("hex", hexOf(bytes.data(), bytes.size(), "")).str().c_str());
        return QX_OK;
    }
    if (query.layer) {
        std::puts(isLayer ? layerText(header).c_str() : "shorter than a layer record");
    }
    if (query.index) {
        dump(bytes);
    }
    return QX_OK;
}

uint32_t showOne(const TableQuery &query)
{
    uint32_t length = 0;
    const uint32_t found = ask(tools::kItemLength, {*query.table, *query.index}, &length, sizeof length);
    return found == QX_OK ? showItem(query, *query.table, *query.index, length) : found;
}

uint32_t showItems(const TableQuery &query)
{
    Rows rows;
    const uint32_t listed = askRows(tools::kListItems, {*query.table}, rows);
    if (listed != QX_OK) {
        return listed;
    }
    for (const tools::Page::Row &row : rows) {
        if (query.layer) {
            const uint32_t shown = showItem(query, *query.table, row.key, row.value);
            if (shown != QX_OK && shown != QX_ERR_NOT_FOUND) { // it may have been deleted since
                return shown;
            }
        } else if (query.json) {
            std::puts(JsonObject()
                          .number("table", *query.table)
                          .number("index", row.key)
                          .number("length", row.value)
                          .str()
                          .c_str());
        } else {
            std::printf("index %u: %u bytes\n", row.key, row.value);
        }
    }
    return QX_OK;
}

uint32_t showAll(const TableQuery &query)
{
    Rows rows;
    const uint32_t listed = askRows(tools::kListTables, {}, rows);
    for (const tools::Page::Row &row : rows) {
        if (query.json) {
            std::puts(JsonObject().number("table", row.key).number("items", row.value).str().c_str());
        } else {
            std::printf("table %u: %u item%s\n", row.key, row.value, row.value == 1 ? "" : "s");
        }
    }
    return listed;
}

} // namespace

uint32_t countTables(TableCount &count)
{
    Rows rows;
    const uint32_t result = askRows(tools::kListTables, {}, rows);
    for (const tools::Page::Row &row : rows) {
        ++count.tables;
        count.items += row.value;
    }
    return result;
}

int showTables(const TableQuery &query)
{
    const auto show = query.index ? showOne : query.table ? showItems : showAll;
    const uint32_t result = show(query);
    if (result == QX_OK) {
        return kAnswered;
    }
    std::fprintf(stderr, "zemash: cannot read the tables: %s\n",
                 result == QX_ERR_NOT_FOUND ? "no such table or item" : tools::reasonOf(result).c_str());
    return result == QX_ERR_NOT_FOUND ? kRefused : kNoAnswer;
}

} // namespace zemash
