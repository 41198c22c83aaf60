// Matching a text against the whitelist, beside a plain loop over its rows; a whole check; compilation of a
// command.
#include "cmdagent/whitelist.h"
#include "qx/diag.h"
#include "zema/cmdagent.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

// Records would measure the diagnostic layer.
uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

using Finder = uint32_t (*)(const char *text, uint32_t flag);

struct Question {
    std::string text;
    uint32_t flag;
};

// What the bucketed search is measured against; the lengths are known beforehand.
__attribute__((noinline)) uint32_t findPlainly(const char *text, uint32_t flag)
{
    static const auto lengths = [] {
        std::array<size_t, ZEMA_ZEMACMD_ROW_COUNT> all = {};
        for (size_t i = 0; i < all.size(); ++i) {
            all[i] = std::strlen(ZemacmdCheckTable[i].pcCmd);
        }
        return all;
    }();
    for (uint32_t i = 0; i < ZEMA_ZEMACMD_ROW_COUNT; ++i) {
        const ZemacmdCheckItem &row = ZemacmdCheckTable[i];
        if (row.ulDbgFlag == flag && std::strncmp(text, row.pcCmd, lengths[i]) == 0) {
            return i;
        }
    }
    return ZEMA_ZEMACMD_ROW_COUNT;
}

__attribute__((noinline)) uint32_t findInBucket(const char *text, uint32_t flag)
{
    return zema::whitelist::find(text, flag);
}

// Half of them commands with parameters, half of them a little beside one or in the other class.
std::vector<Question> randomMix()
{
    std::mt19937 engine(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same texts in every run
    const auto below = [&engine](size_t limit) { return static_cast<size_t>(engine() % limit); };
    std::vector<Question> questions;
    while (questions.size() < 1024) {
        const ZemacmdCheckItem &row = ZemacmdCheckTable[below(ZEMA_ZEMACMD_ROW_COUNT)];
        Question question = {.text = std::string(row.pcCmd) + " 5", .flag = row.ulDbgFlag};
        switch (below(6)) {
        case 0:
            question.flag = 1 - question.flag;
            break;
        case 1:
            question.text[below(question.text.size())] = '#';
            break;
        case 2:
            question.text.resize(below(question.text.size()));
            break;
        default:
            break;
        }
        questions.push_back(question);
    }
    return questions;
}

void match(benchmark::State &state, Finder find, const std::vector<Question> &questions)
{
    for (const Question &question : questions) {
        if (find(question.text.c_str(), question.flag) != findPlainly(question.text.c_str(), question.flag)) {
            state.SkipWithError("the two searches differ");
            return;
        }
    }
    size_t i = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(find(questions[i].text.c_str(), questions[i].flag));
        i = i + 1 < questions.size() ? i + 1 : 0;
    }
}

void compile(benchmark::State &state, const std::string &command)
{
    while (state.KeepRunning()) {
        char text[256];
        char area[ZEMA_CMD_AREA_SIZE] = {};
        uint32_t count = 0;
        std::memcpy(text, command.c_str(), command.size() + 1);
        benchmark::DoNotOptimize(QX_ZEMA_Zemacmd_CompileCmd(3, text, area, &count));
        benchmark::ClobberMemory();
    }
}

const bool registered = [] {
    const std::pair<const char *, std::vector<Question>> sets[] = {
        {"firstRow", {{"wan show layer all", ZEMA_CMD_DISPLAY}}},
        {"lastRow", {{"cmd_debug off", ZEMA_CMD_DEBUG}}},
        {"lastDisplayRow", {{"tunnel show all", ZEMA_CMD_DISPLAY}}},
        {"fullestBucket", {{"vbridge port-binding", ZEMA_CMD_DISPLAY}}},
        {"noMatch", {{"vbridge nothing", ZEMA_CMD_DISPLAY}}},
        {"noBucket", {{"ifconfig eth0", ZEMA_CMD_DISPLAY}}},
        {"randomMix", randomMix()},
    };
    for (const auto &[name, questions] : sets) {
        benchmark::RegisterBenchmark(("match/" + std::string(name)).c_str(), match, findInBucket, questions);
        benchmark::RegisterBenchmark(("matchPlainly/" + std::string(name)).c_str(), match, findPlainly,
                                     questions);
    }
    const auto check = [](const char *text, uint32_t flag) {
        return QX_ZEMA_Zemacmd_CheckPara(text, static_cast<uint32_t>(std::strlen(text)), flag);
    };
    benchmark::RegisterBenchmark("check/noParameter", [check](benchmark::State &state) {
        while (state.KeepRunning()) {
            benchmark::DoNotOptimize(check("tunnel show all", ZEMA_CMD_DISPLAY));
        }
    });
    benchmark::RegisterBenchmark("check/oneNumber", [check](benchmark::State &state) {
        while (state.KeepRunning()) {
            benchmark::DoNotOptimize(check("vbr-fw dbg vbr-id 12", ZEMA_CMD_DEBUG));
        }
    });
    benchmark::RegisterBenchmark("compile/threeWords", compile, "fw show all");
    benchmark::RegisterBenchmark("compile/thirtyWords", compile,
                                 "dbg 1 2 3 4 5 6 7 8 9 a b c d e f g h i j k l m n o p q r s t");
    return true;
}();

} // namespace
