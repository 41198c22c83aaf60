// A table of rules and the lookups of a map, beside plain loops with strcasecmp; the check of a text.
#include "qx/diag.h"
#include "zema/data_validator.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <random>
#include <string>
#include <strings.h>
#include <vector>

// Records would measure the diagnostic layer.
uint32_t QX_PROC_DBG_LastWord(const char * /*file*/, uint32_t /*line*/, uint32_t /*value1*/,
                              uint32_t /*value2*/, uint32_t /*value3*/, uint32_t /*value4*/,
                              uint32_t /*value5*/)
{
    return 0;
}

namespace {

constexpr uint32_t kNames = 50;
constexpr uint32_t kRules = 100;

using Map = std::array<NameValueMapEntry, kNames>;
using Lookup = uint32_t (*)(const NameValueMapEntry *map, uint32_t count, const char *name, uint32_t *value);
using Check = uint32_t (*)(const DataValidatorRule *rules, uint32_t count);

__attribute__((noinline)) uint32_t lookUpPlainly(const NameValueMapEntry *map, uint32_t count,
                                                 const char *name, uint32_t *value)
{
    for (uint32_t i = 0; i < count; ++i) {
        if (strcasecmp(map[i].acName, name) == 0) {
            *value = map[i].ulValue;
            return 0;
        }
    }
    return 1;
}

__attribute__((noinline)) uint32_t checkPlainly(const DataValidatorRule *rules, uint32_t count)
{
    for (uint32_t i = 0; i < count; ++i) {
        const DataValidatorRule &rule = rules[i];
        uint32_t value = 0;
        const bool fails =
            rule.ulType == DATAVALIDATOR_TYPE_RANGE
                ? rule.ulValue < rule.ulLower || rule.ulValue > rule.ulUpper
                : lookUpPlainly(rule.pstMap, static_cast<uint32_t>(rule.ulCount), rule.pcName, &value) != 0;
        if (fails && rule.ulErrCode != 0) {
            return static_cast<uint32_t>(rule.ulErrCode);
        }
    }
    return 0;
}

Map makeMap(const char *prefix)
{
    std::mt19937 engine(20240229); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same names in every run
    Map map = {};
    for (uint32_t i = 0; i < kNames; ++i) {
        std::string name = prefix;
        for (size_t left = 3 + engine() % 10; left > 0; --left) {
            name += static_cast<char>('a' + engine() % 26);
        }
        std::memcpy(map[i].acName, name.c_str(), name.size() + 1);
        map[i].ulValue = i;
    }
    return map;
}

std::vector<std::string> namesOf(const Map &map)
{
    std::vector<std::string> names;
    for (const NameValueMapEntry &entry : map) {
        names.emplace_back(entry.acName);
        names.back()[0] = static_cast<char>(names.back()[0] - 'a' + 'A');
    }
    return names;
}

void lookUp(benchmark::State &state, Lookup lookup, const Map &map, const std::vector<std::string> &names)
{
    size_t i = 0;
    uint32_t value = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(lookup(map.data(), kNames, names[i].c_str(), &value));
        i = i + 1 < names.size() ? i + 1 : 0;
    }
}

// Every elementStep-th rule asks for a name, the others for a range; all of them pass.
void checkRules(benchmark::State &state, Check check, const Map &map, uint32_t elementStep)
{
    const std::vector<std::string> names = namesOf(map);
    std::vector<DataValidatorRule> rules;
    for (uint32_t i = 0; i < kRules; ++i) {
        DataValidatorRule rule = {.ulType = DATAVALIDATOR_TYPE_RANGE,
                                  .ulValue = i,
                                  .ulLower = 0,
                                  .ulUpper = kRules,
                                  .ulErrCode = 7};
        if (i % elementStep == elementStep - 1) {
            rule = {.ulType = DATAVALIDATOR_TYPE_ELEMENT,
                    .pcName = names[i * 7 % kNames].c_str(),
                    .pstMap = map.data(),
                    .ulCount = kNames,
                    .ulErrCode = 7};
        }
        rules.push_back(rule);
    }
    if (check(rules.data(), kRules) != 0) {
        state.SkipWithError("a rule fails");
    }
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(check(rules.data(), kRules));
    }
}

void checkText(benchmark::State &state)
{
    const std::string text(static_cast<size_t>(state.range(0)), 'x');
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize(DataValidator_IsValidateString1(text.c_str(), 0, 4096, "\"'<>&`$;|"));
    }
}
BENCHMARK(checkText)->Arg(16)->Arg(64)->Arg(1024);

const bool registered = [] {
    static const std::pair<const char *, Map> maps[] = {
        {"names", makeMap("")}, {"prefix", makeMap("p2p-")}, {"longPrefix", makeMap("interface-mode-of-")}};
    for (const auto &[name, map] : maps) {
        const std::pair<const char *, std::vector<std::string>> wanted[] = {
            {"all", namesOf(map)}, {"last", {map.back().acName}}, {"none", {"no-such-name"}}};
        for (const auto &[which, names] : wanted) {
            const std::string what = std::string("/") + name + "/" + which;
            benchmark::RegisterBenchmark(("lookUp" + what).c_str(), lookUp, NameValueMap_GetValue, map,
                                         names);
            benchmark::RegisterBenchmark(("lookUpPlainly" + what).c_str(), lookUp, lookUpPlainly, map, names);
        }
    }
    for (const uint32_t step : {2U, 10U, kRules + 1}) {
        const std::string what = step > kRules ? "/rangesOnly" : "/elementEvery" + std::to_string(step);
        benchmark::RegisterBenchmark(("checkRules" + what).c_str(), checkRules, DataValidator_CheckValidate,
                                     maps[0].second, step);
        benchmark::RegisterBenchmark(("checkRulesPlainly" + what).c_str(), checkRules, checkPlainly,
                                     maps[0].second, step);
    }
    return true;
}();

} // namespace
