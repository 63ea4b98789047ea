// Throughput of the write-file action: 1,000,000 units with 120-byte messages written through
// one action on one worker-like thread (with its timer queue, so the file stays open), in line
// format 0 (every field) and in format 3 with the template "%msg%%$CRLF%". The files go to
// $VT_BENCH_DIR (default: a fresh temporary directory), so that a script can compare the rate
// with what dd reaches on the same disk.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "actions/write_file/write_file_config.h"
#include "base/config_settings.h"
#include "engine/action_list.h"
#include "engine/timer_queue.h"
#include "model/info_unit_types.h"
#include "platform/registry.h"
#include "platform/utf_codec.h"
#include "service/action_type_table.h"

namespace {

namespace fs = std::filesystem;
constexpr int kUnits = 1000000;
constexpr size_t kMessageBytes = 120;

fs::path benchDir() {
    static const fs::path dir = [] {
        fs::path d;
        if (const char* env = std::getenv("VT_BENCH_DIR"); env && *env)
            d = env;
        else
            d = fs::temp_directory_path() /
                ("vtagent-wfbench-" + std::to_string(std::random_device{}()));
        fs::create_directories(d);
        vt::regSetHivePath((d / "registry.db").string());
        return d;
    }();
    return dir;
}

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

// A pool of units, reused round robin: the action reads them only, and making a million
// units would measure the event model instead of the action.
std::vector<std::unique_ptr<CInfoUnitSyslog>> makeUnits() {
    std::vector<std::unique_ptr<CInfoUnitSyslog>> units;
    for (int i = 0; i < 1000; ++i) {
        auto unit = std::make_unique<CInfoUnitSyslog>();
        std::string msg = "<13>Nov 22 03:00:00 host app[" + std::to_string(1000 + i) + "]: ";
        msg.append(kMessageBytes - msg.size(), static_cast<char>('a' + i % 26));
        unit->setMsg(vt::utf8ToUtf16(msg));
        unit->setPropertyString(u"source", u"192.168.10.20");
        unit->setSyslogFacility(1);
        unit->setSyslogPriority(5);
        units.push_back(std::move(unit));
    }
    return units;
}

void runWrites(benchmark::State& state, int format) {
    const fs::path dir = benchDir() / ("format" + std::to_string(format));
    const std::u16string key =
        u"SOFTWARE\\VtWriteFileBench\\F" + vt::utf8ToUtf16(std::to_string(format));
    const std::u8string dir8 = dir.u8string();
    setString(key, u"szFilePath", vt::utf8ToUtf16(std::string(dir8.begin(), dir8.end())));
    setString(key, u"szFileBaseName", u"bench");
    setDword(key, u"nUniqueFileName", 0);
    setDword(key, u"nFileFormat", static_cast<uint32_t>(format));
    setString(key, u"szLineFormat", u"%msg%%$CRLF%");
    CActionListEntry entry(CQuilletString(u"Write"), CQuilletString(key), 1003,
                           vt::ActionLoadContext{nullptr, vt::agentActionTypes()});
    auto& config = static_cast<CActionConfigWriteFile&>(*entry.getConfig());
    CConfigSettings settings;
    const auto units = makeUnits();
    vt::TimerQueueScope timers;  // as on a queue worker
    uint64_t bytes = 0;
    for (auto _ : state) {
        std::error_code ec;
        fs::remove(dir / "bench.log", ec);
        for (int i = 0; i < kUnits; ++i) entry.CallAction(*units[i % units.size()], settings);
        timers.queue().runAll();  // the idle close
        bytes = fs::file_size(dir / "bench.log");
    }
    state.counters["units_per_s"] =
        benchmark::Counter(static_cast<double>(kUnits) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate);
    state.counters["line_bytes"] = static_cast<double>(bytes) / kUnits;
    state.SetBytesProcessed(static_cast<int64_t>(bytes) * state.iterations());
    if (config.isFileOpen()) state.SkipWithError("the idle close did not close the file");
    fs::remove(dir / "bench.log");
}

void BM_WriteFileFormat0(benchmark::State& state) {
    runWrites(state, 0);
}
void BM_WriteFileFormat3(benchmark::State& state) {
    runWrites(state, 3);
}

BENCHMARK(BM_WriteFileFormat0)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_WriteFileFormat3)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
