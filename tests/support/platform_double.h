// A host that watches: it defines platform functions of its own, which take the place of libqxplatform's,
// keeps a journal of their calls and can make any of them fail. What is not of the test's interest goes on to
// the real one.
#pragma once

#include "qx/list.h"
#include "qx/message.h"

#include <gtest/gtest.h>

#include <array>
#include <dlfcn.h>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace zema::test {

using Values = std::array<uint32_t, 5>;

// Stands for a recorded value that the test cannot know (an address), but for 0.
inline constexpr uint32_t kSomeAddress = 0xABCDABCD;

struct Call {
    std::string function;
    std::vector<uint64_t> values; // the arguments that are numbers, in order
    std::string bytes;            // what the call was handed to print, send, raise or copy

    bool operator==(const Call &) const = default;
};

// How the journal keeps a record.
Call recordOf(const std::string &file, const Values &values);

// What a reset forgets.
struct PlatformState {
    struct Failure {
        uint32_t nth; // 0: every call
        int64_t result;
    };

    // While off, calls are neither kept nor failed and records only counted: for many thousand calls.
    bool watching = true;

    std::vector<Call> journal; // the records too, among the calls
    size_t recordCount = 0;
    std::vector<QxRpcRow> rpcRows;
    std::set<void *> blocks;          // of the allocator, not yet given back
    std::set<uint32_t> addresses;     // of all that it handed out, as records hold them
    std::vector<std::string> visited; // elements that a list's visitor marked as visited
    bool visitMissingElement = false; // for-each visits a null element first
    std::vector<std::pair<uint32_t, uint32_t (*)(void *)>> subscriptions;
    std::map<const ArrayList *, std::vector<std::string>> elements;
    std::map<std::string, Failure> failures;
};

class PlatformDouble : public PlatformState {
public:
    static PlatformDouble &instance();

    // Forgets all calls, records, failures, subscriptions and list elements, but no place.
    void reset();

    // Makes the nth call from now on (1 is the next one, 0 every one) of a function yield a result (a null
    // pointer for functions that yield one) instead of acting.
    void fail(const std::string &function, uint32_t nth, int64_t result = 1);

    std::set<std::pair<std::string, uint32_t>> places; // that recorded: a file and a line
    std::mutex lock;

    // The calls of these functions, in order.
    std::vector<Call> calls(const std::set<std::string> &functions) const;

    // Calls the subscribers of an event with data; their results.
    std::vector<uint32_t> deliver(uint32_t event, void *data) const;

    // Whether exactly these values were recorded under this file, in this order.
    testing::AssertionResult recorded(std::string_view file, const std::vector<Values> &expected) const;

    // For the functions that the double defines.
    std::optional<int64_t> enter(Call call);
    void note(const std::string &file, uint32_t line, const Values &values);
};

// Keeps the call; yields the failure that is due (null where that is a pointer), or what action yields.
template <typename Action>
auto watched(Call call, Action action) -> decltype(action())
{
    const std::optional<int64_t> failure = PlatformDouble::instance().enter(std::move(call));
    if constexpr (std::is_pointer_v<decltype(action())>) {
        return failure ? nullptr : action();
    } else {
        return failure ? static_cast<decltype(action())>(*failure) : action();
    }
}

// The definition behind the test program's own.
template <typename Function>
Function *real(Function & /*own*/, const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

// The calls as text, "; " between them: function, numbers in hexadecimal (of a record without the zeros at
// its end), bytes; without those that only compute or read.
std::string textOf(const std::vector<Call> &calls,
                   const std::set<std::string> &silent = {"QX_OS_Fgets", "snprintf_s", "QX_OS_MemMallocD"});

class PlatformTest : public testing::Test {
protected:
    PlatformTest()
    {
        platform.reset();
        platform.places.clear();
    }
    // The allocator's balance holds after every test.
    ~PlatformTest() override { EXPECT_TRUE(platform.blocks.empty()) << "a block was not given back"; }

    PlatformDouble &platform = PlatformDouble::instance();
};

} // namespace zema::test
