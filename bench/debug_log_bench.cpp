// Cost of the debug log: a line whose level is off (the common case in production), and whole
// lines written to a file from one and from several threads at once.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "base/debug_log.h"

namespace {

std::string benchFile() {
    return (std::filesystem::temp_directory_path() / "vtagent_debug_bench.txt").string();
}

void configure(bool enabled) {
    vt::DebugLogSettings s;
    s.enabled = enabled;
    s.mask = vt::DBG_ERROR | vt::DBG_MINIMUM;
    s.fileName = benchFile();
    s.circular = true;
    s.numberOfFiles = 2;
    s.maxFileSizeKb = 64 * 1024;
    vt::debugConfigure(s);
}

void BM_LevelOff(benchmark::State& state) {
    configure(true);
    for (auto _ : state) vt::debugPrintf(vt::DBG_ULTRA, "CQueManList|Working: unit %d", 42);
}
BENCHMARK(BM_LevelOff);

void BM_WriteLine(benchmark::State& state) {
    if (state.thread_index() == 0) configure(true);
    for (auto _ : state)
        vt::debugPrintf(vt::DBG_MINIMUM, "CQueManList|Working: processed unit %d of rule set '%s'",
                        static_cast<int>(state.iterations()), "Default RuleSet");
    state.SetItemsProcessed(state.iterations());
    if (state.thread_index() == 0) {
        configure(false);
        for (int i = 1; i <= 2; ++i) std::remove((benchFile() + "_" + std::to_string(i)).c_str());
    }
}
BENCHMARK(BM_WriteLine)->Threads(1)->Threads(8)->UseRealTime();

}  // namespace
