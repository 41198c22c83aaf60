// Synchronous requests of processes that do not keep the rules, as the owner of the tables gets them, beside
// a model of what it then holds.
#include "tools/table_requests.h"
#include "tools/table_service.h"
#include "zema/multi_hashtable_ex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;
using Model = std::map<std::pair<uint32_t, uint32_t>, Bytes>;

constexpr uint32_t kHead = 12; // of a save: table, index, length

struct Step {
    uint8_t code;
    uint8_t isRight; // 0: the sizes and the length stay as they come
    uint16_t size;
    uint16_t replySize;
};

constexpr std::array<uint32_t, 8> kCodes{MULTIHASHTABLEEX_CODE_SAVE, MULTIHASHTABLEEX_CODE_DELETE,
                                         MULTIHASHTABLEEX_CODE_GET,  MULTIHASHTABLEEX_CODE_LIST,
                                         tools::kListTables,         tools::kListItems,
                                         tools::kItemLength,         0xFFFFFFFF};

void require(bool holds, const char *what)
{
    if (!holds) {
        std::fprintf(stderr, "%s\n", what);
        std::abort();
    }
}

uint32_t wordOf(const Bytes &request, size_t number)
{
    uint32_t word = 0;
    std::memcpy(&word, request.data() + number * sizeof word, sizeof word);
    return word;
}

void setWord(Bytes &request, size_t number, uint32_t word)
{
    std::memcpy(request.data() + number * sizeof word, &word, sizeof word);
}

// Few tables and indexes, so that requests meet, and the sizes that the code wants.
void makeRight(uint32_t code, Bytes &request, Bytes &reply)
{
    const bool isSave = code == MULTIHASHTABLEEX_CODE_SAVE;
    const bool isRead = code == MULTIHASHTABLEEX_CODE_GET;
    request.resize(isSave ? std::max<size_t>(request.size(), kHead)
                          : size_t{isRead                       ? kHead
                                   : code == tools::kListTables ? 4U
                                                                : 8U});
    setWord(request, 0, wordOf(request, 0) % 4);
    if (request.size() > 4) {
        setWord(request, 1, wordOf(request, 1) % 16);
    }
    if (isSave || isRead) {
        setWord(request, 2, static_cast<uint32_t>(isSave ? request.size() - kHead : reply.size()));
    }
    const bool isPage = code == tools::kListTables || code == tools::kListItems;
    reply.resize(isPage                                           ? sizeof(tools::Page)
                 : isSave || code == MULTIHASHTABLEEX_CODE_DELETE ? 0
                                                                  : reply.size());
}

bool keep(Model &model, const Bytes &request)
{
    const auto [item, isNew] =
        model.try_emplace({wordOf(request, 0), wordOf(request, 1)}, request.begin() + kHead, request.end());
    if (!isNew && request.size() - kHead > item->second.size()) {
        return false;
    }
    std::copy(request.begin() + kHead, request.end(), item->second.begin());
    return true;
}

bool isAsHeld(const Model &model, const Bytes &request, const Bytes &reply)
{
    const auto item = model.find({wordOf(request, 0), wordOf(request, 1)});
    return item != model.end() && reply.size() <= item->second.size() &&
           std::equal(reply.begin(), reply.end(), item->second.begin());
}

// Whether the model answers the request; a listing is right as long as it stays within its reply.
bool answer(Model &model, uint32_t code, const Bytes &request, const Bytes &reply, bool result)
{
    switch (code) {
    case MULTIHASHTABLEEX_CODE_SAVE:
        return request.size() >= kHead && wordOf(request, 2) == request.size() - kHead && reply.empty() &&
               keep(model, request);
    case MULTIHASHTABLEEX_CODE_DELETE:
        return request.size() == 8 && reply.empty() &&
               model.erase({wordOf(request, 0), wordOf(request, 1)}) == 1;
    case MULTIHASHTABLEEX_CODE_GET:
        return request.size() == kHead && wordOf(request, 2) == reply.size() &&
               isAsHeld(model, request, reply);
    default:
        return code != 0xFFFFFFFF && result;
    }
}

// Every block is of just its size, so that a sanitizer sees each step beyond it.
void ask(Model &model, const Step &step, const uint8_t *bytes, size_t size)
{
    const uint32_t code = kCodes[step.code % kCodes.size()];
    Bytes request(bytes, bytes + size);
    Bytes reply(step.replySize);
    if (step.isRight != 0) {
        makeRight(code, request, reply);
    }
    request.shrink_to_fit();
    reply.shrink_to_fit();
    const QxSyncRequest whole{.ulCode = code,
                              .ulPid = 1,
                              .pvData = request.data(),
                              .ulSize = static_cast<uint32_t>(request.size()),
                              .pvReply = reply.data(),
                              .ulReplySize = static_cast<uint32_t>(reply.size())};
    const bool result = tools::serveTables(nullptr, &whole) == 0;
    require(answer(model, code, request, reply, result) == result, "the tables and the model differ");
}

void forgetAll(const Model &model)
{
    for (const auto &[key, bytes] : model) {
        require(MultiHashtable_DeleteData(key.first, key.second) == 0, "an item of the model is not there");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Model model;
    Step step{};
    while (size >= sizeof step) {
        std::memcpy(&step, data, sizeof step);
        data += sizeof step;
        size -= sizeof step;
        const size_t taken = std::min<size_t>(step.size % 128U, size);
        ask(model, step, data, taken);
        data += taken;
        size -= taken;
    }
    forgetAll(model);
    return 0;
}
