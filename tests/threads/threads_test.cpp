// From eight threads at once, for ThreadSanitizer and natively: stateless functions, locked ones, records,
// and requests to another process, while the main thread dispatches.
#include "qx/qx.h"
#include "table_service.h"
#include "tests/support/processes.h"
#include "zema/zema.h"

#include <array>
#include <barrier>
#include <set>

namespace {

using namespace zema::test;

constexpr uint32_t kThreads = 8;
constexpr uint32_t kRounds = 200;
constexpr uint32_t kEvent = 8853;

class Threads : public Scratch {};

uint32_t isEqual(const void *element, const void *key)
{
    return memcmp(element, key, sizeof(uint32_t)) == 0 ? 0 : 1;
}

bool compresses(uint32_t n)
{
    const std::string raw(300, static_cast<char>('a' + n % 26));
    std::string packed(1072, '?'), out(300, '?');
    uint32_t size = 0;
    return QX_OS_Compress(raw.data(), 300, packed.data(), 1072, &size) == QX_OK &&
           QX_OS_Decompress(packed.data(), size, out.data(), 300) == QX_OK && out == raw;
}

bool convertsAndValidates(uint32_t n)
{
    const std::string address = "10.0.3." + std::to_string(n % 256);
    std::array<char, 64> text{};
    return QX_UTL_ValidateIpAddress(address.c_str()) + QX_UTL_ValidateSubnetMask("255.255.254.0") == 0 &&
           QX_UTL_ISDomainValid(("a" + address).c_str()) == 1 &&
           QX_UTL_ConvertIpAddrToStandard(address.c_str(), text.data(), 64) == 0 && text.data() == address;
}

bool knowsTheLoopback(uint32_t n)
{
    int32_t index = 0;
    uint32_t status = 9;
    return NETDEV_GetIndexByDevName("lo", &index) == 0 && index == 1 &&
           NETDEV_GetNetDevStatus("lo", &status) == 0 && status < 2 && Index_IsBrIndex(0x30000000U | n) == 1;
}

// A number that is handed out is nobody else's until it is given back.
bool handsOutNumbers(uint32_t)
{
    static BitMap *const map = BitMapAlloc(kThreads);
    static std::array<uint32_t, kThreads> taken{}; // guarded by nothing but the map's lock
    bool holds = BitMapHold(map) == 0;
    const auto bit = static_cast<uint32_t>(BitMapFindFirstZeroBit(map));
    BitMapSet(map, bit);
    holds = ++taken.at(bit) == 1 && BitMapPut(map) == 0 && BitMapHold(map) == 0 && holds;
    BitMapClr(map, bit);
    return --taken.at(bit) == 0 && BitMapPut(map) == 0 && holds;
}

// All make the same list, and none loses another's elements.
bool sharesAList(uint32_t n)
{
    static std::array<ArrayList *, kRounds> holders{};
    ArrayList *const list = ArrayList_GetArrayList(&holders.at(n % kRounds));
    bool holds = true;
    for (uint32_t i = 0; i < 50; ++i) {
        holds = list->pfnAdd(list, &n, sizeof n) == QX_OK && holds;
    }
    for (uint32_t i = 0; i < 50; ++i) {
        holds = list->pfnRemove(list, isEqual, &n) == QX_OK && holds;
    }
    return holds && list->pfnRemove(list, isEqual, &n) == QX_ERR_NOT_FOUND;
}

TEST_F(Threads, CallWhatHasNoStateOrALock)
{
    const std::pair<const char *, bool (*)(uint32_t)> rows[] = {
        {"a list", sharesAList},       {"a bit map", handsOutNumbers}, {"texts", convertsAndValidates},
        {"devices", knowsTheLoopback}, {"compression", compresses},
    };
    std::barrier start(kThreads);
    inThreads(kThreads, [&](uint32_t thread) {
        for (uint32_t round = 0; round < kRounds; ++round) {
            start.arrive_and_wait();
            for (const auto &[reason, holds] : rows) {
                EXPECT_TRUE(holds(thread * kRounds + round)) << reason;
            }
        }
    });
}

TEST_F(Threads, RecordWhole)
{
    using Numbers = std::set<uint64_t>;
    const auto check = [](void *numbers, const QxRecord *record) {
        for (uint32_t i = 0; i < 5; ++i) {
            EXPECT_EQ(record->aulValue[i], record->ulLine + i) << "torn";
        }
        return static_cast<Numbers *>(numbers)->insert(record->ullNumber).second ? 0U : 1U;
    };
    inThreads(kThreads, [&](uint32_t thread) {
        for (uint32_t n = thread * 1000; n < (thread + 1) * 1000; ++n) {
            QX_PROC_DBG_LastWord("threads.cpp", n, n, n + 1, n + 2, n + 3, n + 4);
            Numbers numbers;
            EXPECT_TRUE(n % 100 != 0 || QxHost_ReadRecords(check, &numbers) == QX_OK);
        }
    });
    Numbers numbers;
    EXPECT_EQ(QxHost_ReadRecords(check, &numbers), QX_OK);
    EXPECT_EQ(numbers.size(), 256U);
    EXPECT_EQ(*numbers.rbegin(), kThreads * 1000U) << "a number was given twice";
}

uint32_t post(void *)
{
    std::array<char, QX_MSG_HEADER_SIZE> header{};
    header[QX_MSG_RECEIVER_OFFSET] = 49;
    return QX_MSG_AsynSend("payload", 7, header.data(), 4);
}

TEST_F(Threads, RequestWhileTheMainThreadDispatches)
{
    static std::thread::id dispatching;
    dispatching = std::this_thread::get_id();
    uint32_t received = 0; // guarded by nothing: one thread dispatches
    const auto take = [](void *count, void *, uint32_t size) {
        EXPECT_TRUE(size == QX_MSG_HEADER_SIZE + 7 && std::this_thread::get_id() == dispatching);
        return ++*static_cast<uint32_t *>(count);
    };
    const Child owner([] { EXPECT_EQ(QxHost_ServeSync(tools::serveTables, nullptr), QX_OK); });
    const Child echo([] { EXPECT_EQ(EventCenter_SubscribeEvent(kEvent, post), QX_OK); });
    ASSERT_EQ(QxHost_ServeModule(49, take, &received), QX_OK);
    std::thread others([] {
        inThreads(kThreads, [](uint32_t thread) {
            for (uint32_t n = 0; n < kRounds; ++n) {
                uint32_t out = 0;
                EXPECT_EQ(MultiHashtableEx_SaveData(n % 3, thread, &n, sizeof n), 0U);
                EXPECT_EQ(MultiHashtableEx_GetData(n % 3, thread, &out, sizeof out), 0U);
                EXPECT_EQ(out, n);
                EXPECT_EQ(post(nullptr) + EventCenter_GlobalInvokeEvent2(kEvent, nullptr, 0), QX_OK);
            }
        });
    });
    EXPECT_TRUE(
        eventually([&] { return QxHost_Dispatch(10) != QX_OK && received >= 2 * kThreads * kRounds; }));
    others.join();
    EXPECT_EQ(received, 2 * kThreads * kRounds);
}

} // namespace
