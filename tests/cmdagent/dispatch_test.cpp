// From the operator's text to the kernel and to every process: compilation, dispatch, HLP messages.
#include "qx/base.h"
#include "tests/support/platform_double.h"
#include "zema/cmdagent.h"
#include "zema/hlp.h"

#include <cstring>

using namespace zema::test;
using namespace std::string_literals;

namespace {

constexpr const char *kFile = "qx_zema_cmdagent.cpp";
constexpr const char *kHlpFile = "qx_hlp_send.cpp";

std::string padded(std::string text)
{
    text.resize(ZEMA_CMD_AREA_SIZE, '\0');
    return text;
}

class Compilation : public PlatformTest {
protected:
    uint32_t compile(uint32_t terminal, std::string text)
    {
        area.assign(ZEMA_CMD_AREA_SIZE, '\0');
        count = 4711;
        return QX_ZEMA_Zemacmd_CompileCmd(terminal, text.data(), area.data(), &count);
    }

    std::string area;
    uint32_t count = 0;
};

// A formatting step that fails leaves an empty string, and the next string stands behind it.
TEST_F(Compilation, PutsTheStringsBackToBack)
{
    struct Row {
        const char *reason;
        uint32_t terminal;
        std::string text;
        uint32_t result;
        uint32_t count;
        std::string area;
        std::vector<Values> records;
        uint32_t failing = UINT32_MAX; // of the formatting steps
        int32_t failure = -1;
    };
    const std::string w244(244, 'w');
    constexpr uint32_t kMinusOne = UINT32_MAX;
    const Row rows[] = {
        {"a plain command", 3, "fw show all", 0, 5, "3\0Zemacmd\0fw\0show\0all"s, {}},
        {"spaces around and between make no word", 3, "  fw   all ", 0, 4, "3\0Zemacmd\0fw\0all"s, {}},
        {"no word at all", 0, " ", 0, 2, "0\0Zemacmd"s, {}},
        {"the highest terminal", 65535, "fw", 0, 3, "65535\0Zemacmd\0fw"s, {}},
        {"a terminal number that does not fit", 12345678, "fw", 0, 3, "\0Zemacmd\0fw"s, {{1, 0, 0}}},
        {"the last zero at byte 254", 3, w244, 0, 3, "3\0Zemacmd\0"s + w244, {}},
        {"the last zero at byte 255", 3, w244 + "w", 1, 4711, "3\0Zemacmd"s, {{1, 10, 245}}},
        {"the words before stay", 3, "ab " + w244 + w244, 1, 4711, "3\0Zemacmd\0ab"s, {{1, 13, 488}}},
        {"no terminal", 3, "fw all", 0, 4, "\0Zemacmd\0fw\0all"s, {{1, 0, kMinusOne}}, 1},
        {"no prefix", 3, "fw all", 0, 4, "3\0\0fw\0all"s, {{1, 2, kMinusOne}}, 2},
        {"nothing written", 3, "fw all", 0, 4, "3\0Zemacmd\0\0all"s, {{1, 10, 0}}, 3, 0},
        {"no last word", 3, "fw all", 0, 4, "3\0Zemacmd\0fw"s, {{1, 13, kMinusOne}}, 4},
    };
    for (const Row &row : rows) {
        platform.reset();
        platform.fail("snprintf_s", row.failing, row.failure);
        EXPECT_EQ(compile(row.terminal, row.text), row.result) << row.reason;
        EXPECT_EQ(count, row.count) << row.reason;
        EXPECT_EQ(area, padded(row.area)) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    EXPECT_EQ(platform.places.size(), 4U) << "a word that does not fit, and three formatting steps";
    platform.reset();
    EXPECT_EQ(compile(3, "fw"), 0U);
    const std::vector<Call> bounds = {
        {"snprintf_s", {256, 255}, "%s"}, {"snprintf_s", {254, 253}, "%s"}, {"snprintf_s", {246, 245}, "%s"}};
    EXPECT_EQ(platform.calls({"snprintf_s"}), bounds) << "each step is bounded by what is left of the area";
}

TEST_F(Compilation, RefusesMissingArguments)
{
    char text[] = "fw";
    area.resize(ZEMA_CMD_AREA_SIZE);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CompileCmd(3, nullptr, area.data(), &count), 1U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CompileCmd(3, text, nullptr, &count), 1U);
    EXPECT_EQ(QX_ZEMA_Zemacmd_CompileCmd(3, text, area.data(), nullptr), 1U);
    QX_ZEMA_Cmd_Send_Hlp(nullptr, 2);
    EXPECT_EQ(platform.journal.size(), 4U) << "nothing but the records";
    EXPECT_TRUE(platform.recorded(kFile, {{1}, {1}, {1}, {1}}));
    EXPECT_EQ(platform.places.size(), 2U);
}

// ---- Dispatch ----

class Dispatch : public PlatformTest {
protected:
    static constexpr uint32_t kCallerWord = 0xFFFFBEEF; // terminal 65535

    uint32_t command(std::string text) { return QX_ZEMA_RPC_Zemaara(kCallerWord, text.data(), 0, 0, 0); }

    // What leaves the process, and what is recorded, in order.
    std::vector<Call> effects() const
    {
        return platform.calls({"QX_CLI_SynPrint", "QX_CLI_AsynPrint", "QX_OS_AddTlvToHlpMsg",
                               "QX_OS_HLP_Send", "EventCenter_GlobalInvokeEvent2", "record"});
    }

    static constexpr uint32_t kCount = 5;
    const std::string fwShowAll = std::string(reinterpret_cast<const char *>(&kCount), sizeof kCount) +
                                  padded("65535\0Zemacmd\0fw\0show\0all"s);
    const Call emptyLine = {"QX_CLI_SynPrint", {65535}, "\r\n\0"s};
    const Call item = {"QX_OS_AddTlvToHlpMsg", {2, 260}, fwShowAll};
    const Call send = {"QX_OS_HLP_Send", {0, 0}, {}};
    const Call event = {"EventCenter_GlobalInvokeEvent2", {8853}, fwShowAll};
};

TEST_F(Dispatch, PrintsThenTellsTheKernelThenEveryProcess)
{
    EXPECT_EQ(command("user_flow show ctp 5"), 0U);
    platform.reset(); // nothing of the longer command may be left
    EXPECT_EQ(command("fw show all"), 0U);
    EXPECT_EQ(effects(), (std::vector{emptyLine, item, send, event}));
    EXPECT_EQ(platform.calls({"QX_OS_InitHlpMsg"}),
              (std::vector<Call>{{"QX_OS_InitHlpMsg", {0, 0x2002A002, 0, 0}, {}}}));
}

TEST_F(Dispatch, SendsNothingOfWhatItRejects)
{
    struct Row {
        const char *reason;
        std::string text;
        std::vector<Values> records;
    };
    const Row rows[] = {
        {"a debug command on the display entry", "cpu dbg on", {{1, 38, 10}, {0xF7202001, kCallerWord, 0}}},
        {"an empty text", "", {{1, kSomeAddress, 0}, {0xF7202001, kCallerWord, 0}}},
        {"only spaces", "  ", {{1, 38, 2}, {0xF7202001, kCallerWord, 0}}},
        {"accepted by its beginning, but too long to compile",
         "user_flow show 1" + std::string(250, ' ') + std::string(250, '2'),
         {{1, 31, 250}, {1, kCallerWord, 0}}},
    };
    for (const Row &row : rows) {
        platform.reset();
        EXPECT_EQ(command(row.text), 0xF7202001U) << row.reason;
        EXPECT_EQ(effects().size(), row.records.size()) << row.reason;
        EXPECT_TRUE(platform.recorded(kFile, row.records)) << row.reason;
    }
    platform.reset();
    EXPECT_EQ(QX_ZEMA_RPC_Zemaara(kCallerWord, nullptr, 0, 0, 0), 1U) << "no text";
    EXPECT_EQ(effects(), std::vector{recordOf(kFile, {1})});
    EXPECT_EQ(platform.places.size(), 6U) << "two of the check, one of the compilation, three of the entry";
}

TEST_F(Dispatch, NoFailureOfTheSendingStopsWhatFollows)
{
    platform.fail("QX_CLI_SynPrint", 1, 9);
    platform.fail("QX_OS_HLP_Send", 1, 0xBAD1);
    platform.fail("EventCenter_GlobalInvokeEvent2", 1, 0xBAD2);
    EXPECT_EQ(command("fw show all"), 0U);
    EXPECT_EQ(effects(), (std::vector{emptyLine, item, send, recordOf(kHlpFile, {0xBAD1}),
                                      recordOf(kFile, {0xBAD1}), event, recordOf(kFile, {0xBAD2})}));
    EXPECT_EQ(platform.places.size(), 3U);
}

// ---- HLP messages ----

class Hlp : public PlatformTest {
protected:
    uint32_t send(uint32_t type, uint16_t length)
    {
        std::vector<uint32_t> storage(4 + length / 4 + 1, 0xA5A5A5A5);
        auto *request = reinterpret_cast<HlpTlvMsg *>(storage.data());
        request->ulMsgType = type;
        request->usLen = length;
        request->ulHdrPara1 = 11;
        request->ulHdrPara2 = 22;
        const std::vector<uint32_t> before = storage;
        const uint32_t result = QX_ZEMA_Hlpsnd(request, 33, 44);
        EXPECT_EQ(storage, before) << "the request is only read";
        return result;
    }

    static std::vector<Call> wholeSend(uint32_t type, uint16_t length)
    {
        const uint64_t size = length + 52U;
        return {{"QX_OS_MemMallocD", {size}, {}},
                {"memset_s", {size, 0, size}, {}},
                {"QX_OS_InitHlpMsg", {0, type, 11, 22}, {}},
                {"QX_OS_AddTlvToHlpMsg", {type & 0xFF, length}, std::string(length, '\xA5')},
                {"QX_OS_HLP_Send", {33, 44}, {}},
                {"QX_OS_MemFreeD", {}, {}}};
    }
};

TEST_F(Hlp, SendsAValueOfAnyLength)
{
    for (const uint16_t length : std::initializer_list<uint16_t>{0, 1, 260, 65535}) {
        platform.reset();
        EXPECT_EQ(send(0x000001FF, length), 0U) << length;
        EXPECT_EQ(platform.journal, wholeSend(0x1FF, length)) << length;
    }
}

TEST_F(Hlp, EveryFailureIsRecordedAndTheBufferGivenBack)
{
    struct Row {
        const char *failing;
        int64_t failure;
        uint32_t result;
        uint32_t recorded;
        std::vector<size_t> steps; // of the whole send; 6 is the record
    };
    const Row rows[] = {
        {"QX_OS_MemMallocD", 0, 0xF7307002, 0xF7307002, {0, 6}},
        {"QX_OS_InitHlpMsg", 0xBAD, 0xF7307001, 0xF7307001, {0, 1, 2, 6, 5}},
        {"QX_OS_AddTlvToHlpMsg", 0xBAD, 0, 0xBAD, {0, 1, 2, 3, 6, 4, 5}},
        {"QX_OS_HLP_Send", 0xBAD, 0xBAD, 0xBAD, {0, 1, 2, 3, 4, 6, 5}},
    };
    for (const Row &row : rows) {
        platform.reset();
        platform.fail(row.failing, 1, row.failure);
        EXPECT_EQ(send(0x2002A002, 260), row.result) << row.failing;
        std::vector<Call> all = wholeSend(0x2002A002, 260);
        all.push_back(recordOf(kHlpFile, {row.recorded}));
        std::vector<Call> expected;
        for (const size_t step : row.steps) {
            expected.push_back(all[step]);
        }
        EXPECT_EQ(platform.journal, expected) << row.failing;
    }
    platform.reset();
    platform.fail("QX_OS_AddTlvToHlpMsg", 1, 0xBAD1);
    platform.fail("QX_OS_HLP_Send", 1, 0xBAD2);
    EXPECT_EQ(send(0x2002A002, 4), 0xBAD2U) << "the send's result counts after a failed item";
    EXPECT_EQ(QX_ZEMA_Hlpsnd(nullptr, 0, 0), 0xF7307002U);
    EXPECT_TRUE(platform.recorded(kHlpFile, {{0xBAD1}, {0xBAD2}, {0xF7307002}}));
    EXPECT_EQ(platform.places.size(), 5U);
}

} // namespace
