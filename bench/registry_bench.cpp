// Cost of the configuration store on the hive: a traced-off DWORD read through CRegAccess (the
// agent's start-up and rule loading do thousands) and a committed DWORD write (state values).
#include <benchmark/benchmark.h>

#include <filesystem>
#include <random>

#include "base/reg_access.h"
#include "platform/registry.h"

namespace {

struct BenchHive {
    std::filesystem::path dir;
    BenchHive() {
        dir = std::filesystem::temp_directory_path() /
              ("vtagent-bench-" + std::to_string(std::random_device{}()));
        std::filesystem::create_directories(dir);
        vt::regSetHivePath((dir / "registry.db").string());
    }
    ~BenchHive() {
        vt::regSetHivePath({});
        std::filesystem::remove_all(dir);
    }
};

void BM_ReadDword(benchmark::State& state) {
    BenchHive hive;
    CRegAccess reg;
    reg.CreateKey(vt::RegRoot::LocalMachine, "SOFTWARE\\Quillet\\Vantor\\Agent\\General");
    reg.SetDWORDValue("nWorkerThreads", 5);
    uint32_t value = 0;
    for (auto _ : state) {
        reg.ReadDWORDValue("nworkerthreads", value, 1);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_ReadDword);

void BM_WriteDword(benchmark::State& state) {
    BenchHive hive;
    CRegAccess reg;
    reg.CreateKey(vt::RegRoot::LocalMachine, "SOFTWARE\\Quillet\\Vantor\\AgentData\\Bench");
    uint32_t i = 0;
    for (auto _ : state) reg.SetDWORDValue("nLastRecord", ++i);
}
BENCHMARK(BM_WriteDword);

}  // namespace
