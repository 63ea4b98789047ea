// Throughput of the rule engine: a queue with 5 workers and a rule set of 10 rules. Rules 1-9
// test a string or an integer property and never match the benchmark's units; rule 10 has no
// filter, matches everything and runs an action that only counts. Units per second are
// measured from 1 and from 4 producer threads, from the first Enqueue until the last unit has
// been counted.
#include <benchmark/benchmark.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/config_settings.h"
#include "engine/action_config.h"
#include "engine/action_list.h"
#include "engine/action_types.h"
#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"
#include "model/info_unit_types.h"
#include "platform/registry.h"

namespace {

constexpr int32_t kCountActionType = 9100;
std::atomic<int64_t> g_counted{0};

class CActionConfigCount : public CActionConfig {
  public:
    explicit CActionConfigCount(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
};

class CActionCount : public CAction {
  public:
    explicit CActionCount(CActionConfigCount&) {}
    void doAction(CInfoUnit&, const CConfigSettings&, CActionListEntry&) override {
        g_counted.fetch_add(1, std::memory_order_relaxed);
    }
};

void setDword(const std::u16string& key, std::u16string_view name, uint32_t value) {
    vt::RegKey k;
    k.create(vt::RegRoot::LocalMachine, key);
    const auto bytes = vt::regDwordBytes(value);
    k.setValue(name, vt::kRegDword, bytes.data(), bytes.size());
}

void setString(const std::u16string& key, std::u16string_view name, std::u16string_view value) {
    vt::RegKey k;
    k.create(vt::RegRoot::LocalMachine, key);
    const auto bytes = vt::regStringBytes(value);
    k.setValue(name, vt::kRegSz, bytes.data(), bytes.size());
}

std::u16string num(int n) {
    std::string s = std::to_string(n);
    return std::u16string(s.begin(), s.end());
}

// The engine, built once for all runs.
struct Engine {
    Engine() {
        hiveDir = std::filesystem::temp_directory_path() /
                  ("vtagent-bench-" + std::to_string(std::random_device{}()));
        std::filesystem::create_directories(hiveDir);
        vt::regSetHivePath((hiveDir / "registry.db").string());
        const std::u16string sets = u"SOFTWARE\\VtBench\\RuleSets";
        setDword(sets, u"nRuleSetsVersion", 1);
        setDword(sets, u"nRuleSetCount", 1);
        setString(sets, u"szRSName1", u"Bench");
        const std::u16string rs = sets + u"\\RS1";
        setDword(rs, u"nRuleCount", 10);
        for (int r = 1; r <= 10; ++r) {
            const std::u16string rule = rs + u"\\R" + num(r);
            setDword(rule, u"nActionCount", 1);
            setDword(rule, u"nActionType1", kCountActionType);
            if (r == 10) continue;  // no filter: matches everything
            const std::u16string filters = rule + u"\\Filters";
            setDword(filters, u"nFilterCount", 1);
            const std::u16string f1 = filters + u"\\F1";
            setDword(f1, u"nOperationType", 4);
            if (r % 2) {
                setDword(f1, u"PropertyType", 1);
                setString(f1, u"PropertyName", u"msg");
                setString(f1, u"PropertyValue", u"no such text " + num(r));
            } else {
                setDword(f1, u"PropertyType", 0);
                setString(f1, u"PropertyName", u"syslogfacility");
                setString(f1, u"PropertyValue", num(100 + r));
            }
        }
        ruleSets.load(CQuilletString(std::u16string_view(sets)));
        rules = &ruleSets.findRuleSet(u"Bench")->getRuleList();
        settings.workerThreads = 5;
        queue = std::make_unique<CQueManList>(&settings);
    }
    ~Engine() {
        queue.reset();
        ruleSets.unload();
        std::error_code ec;
        std::filesystem::remove_all(hiveDir, ec);
    }

    vt::ScopedActionType countType{
        vt::ActionType{kCountActionType, "Count", &vt::makeActionConfig<CActionConfigCount>,
                       &vt::makeAction<CActionConfigCount, CActionCount>}};
    std::filesystem::path hiveDir;
    CConfigSettings settings;
    CRuleSetList ruleSets;
    CRuleList* rules = nullptr;
    std::unique_ptr<CQueManList> queue;
};

Engine& engine() {
    static Engine e;
    return e;
}

void produce(CQueManList& queue, CRuleList* rules, int count) {
    for (int i = 0; i < count; ++i) {
        auto* unit = new CInfoUnitSyslog;
        unit->setMsg(u"<13>Nov 22 02:45:00 host app[42]: a benchmark message of ordinary length");
        queue.Enqueue(unit, rules);
    }
}

void BM_UnitsThroughRuleSet(benchmark::State& state) {
    Engine& e = engine();
    const int producers = static_cast<int>(state.range(0));
    constexpr int kUnitsPerRun = 20000;
    for (auto _ : state) {
        const int64_t target = g_counted.load() + kUnitsPerRun;
        std::vector<std::thread> threads;
        for (int p = 0; p < producers; ++p)
            threads.emplace_back(produce, std::ref(*e.queue), e.rules, kUnitsPerRun / producers);
        for (auto& t : threads) t.join();
        while (g_counted.load(std::memory_order_relaxed) < target) std::this_thread::yield();
    }
    state.SetItemsProcessed(state.iterations() * kUnitsPerRun);
    state.counters["producers"] = producers;
}

// The rule engine's own share: one unit run through the 10 rules on the calling thread, with
// no queue and no unit construction.
void BM_RuleListProcess(benchmark::State& state) {
    Engine& e = engine();
    CInfoUnitSyslog unit;
    unit.setMsg(u"<13>Nov 22 02:45:00 host app[42]: a benchmark message of ordinary length");
    for (auto _ : state) benchmark::DoNotOptimize(e.rules->process(unit, e.settings));
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_RuleListProcess);

BENCHMARK(BM_UnitsThroughRuleSet)->Arg(1)->Arg(4)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
