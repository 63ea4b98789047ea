#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "model/info_unit.h"
#include "platform/system_stats.h"
#include "sources/cpu_monitor/cpu_monitor.h"
#include "sources/disk_space/disk_space_monitor.h"
#include "sources/threshold_watch.h"

namespace {

using Event = CThresholdWatch::Event;
using std::chrono::seconds;
const auto T0 = std::chrono::steady_clock::time_point{} + std::chrono::hours(1);

// Catches an alert per poll instead of per crossing, a repeat that ignores its interval or
// fires with interval 0, and a recovery reported when it was not asked for or never low.
TEST(ThresholdWatch, AlertsOnCrossingRepeatAndRecovery) {
    struct Row {
        uint32_t repeat;
        bool recovery;
        std::vector<std::pair<bool, int>> readings;  // beyond, seconds after T0
        std::vector<Event> expected;
    } rows[] = {
        {0,
         true,
         {{false, 0}, {true, 1}, {true, 2}, {true, 5000}, {false, 5001}, {false, 5002}},
         {Event::None, Event::Crossed, Event::None, Event::None, Event::Recovered, Event::None}},
        {60,
         false,
         {{true, 0}, {true, 59}, {true, 60}, {true, 100}, {true, 121}, {false, 122}},
         {Event::Crossed, Event::None, Event::StillBeyond, Event::None, Event::StillBeyond,
          Event::None}},
        {60,
         true,
         {{true, 0}, {false, 10}, {true, 20}},
         {Event::Crossed, Event::Recovered, Event::Crossed}},
    };
    for (const Row& row : rows) {
        CThresholdWatch watch(row.repeat, row.recovery);
        for (size_t i = 0; i < row.readings.size(); ++i)
            EXPECT_EQ(watch.observe(row.readings[i].first, T0 + seconds(row.readings[i].second)),
                      row.expected[i])
                << "repeat " << row.repeat << " reading " << i;
    }
}

// Idle and I/O wait are idle, the total line comes first, lines of other counters and a
// processor line before the total are ignored; a text without a total is refused.
TEST(ProcStat, ParsesTotalAndProcessors) {
    std::vector<vt::CpuTimes> times;
    ASSERT_TRUE(
        vt::parseProcStat("cpu  100 5 50 800 40 3 2 0 7 0\n"
                          "cpu0 60 0 30 400 10 0 0 0 0 0\n"
                          "cpu1 40 5 20 400 30 3 2 0 0 0\n"
                          "intr 12345 1 2\nctxt 999\n",
                          times));
    ASSERT_EQ(times.size(), 3u);
    EXPECT_EQ(times[0].total, 1000u);  // guest (7) is already in user and not added again
    EXPECT_EQ(times[0].busy, 160u);
    EXPECT_EQ(times[1].busy, 90u);
    EXPECT_EQ(times[2].total, 500u);
    EXPECT_FALSE(vt::parseProcStat("cpu0 1 2 3 4\nintr 1\n", times));
    EXPECT_FALSE(vt::parseProcStat(std::string("\0\xff garbage", 10), times));
}

// The average covers the whole window and only once it is covered: a short burst is diluted,
// a steady load shows at its level, per processor as well.
TEST(CpuLoadWindow, AveragesOverTheWindow) {
    CCpuLoadWindow window(seconds(60));
    auto reading = [](uint64_t busy0, uint64_t busy1, uint64_t total) {
        return std::vector<vt::CpuTimes>{
            {busy0 + busy1, 2 * total}, {busy0, total}, {busy1, total}};
    };
    window.add(T0, reading(0, 0, 0));
    window.add(T0 + seconds(30), reading(3000, 0, 3000));  // cpu0 flat out for 30 s
    EXPECT_TRUE(window.averages().empty());
    window.add(T0 + seconds(60), reading(3000, 3000, 6000));  // then cpu1
    EXPECT_EQ(window.averages(), (std::vector<uint32_t>{50, 50, 50}));
    window.add(T0 + seconds(90), reading(3000, 6000, 9000));  // the window moved past cpu0's burst
    EXPECT_EQ(window.averages(), (std::vector<uint32_t>{50, 0, 100}));
}

class DiskSpaceMonitorTest : public testing::Test {
  protected:
    vt::InfoSourceContext context;
    CInfoSourceDiskSpaceMonitor monitor{context};
};

// Catches the two threshold modes mixed up, rounding that alerts at the threshold itself, and
// units whose properties do not let a disk space filter compute the free space.
TEST_F(DiskSpaceMonitorTest, ThresholdModesAndUnitProperties) {
    constexpr uint64_t MB = 1024 * 1024;
    struct Row {
        uint32_t mode, threshold;
        uint64_t totalMB, freeMB;
        bool low;
    } rows[] = {{0, 500, 10000, 499, true},
                {0, 500, 10000, 500, false},
                {1, 10, 10000, 999, true},
                {1, 10, 10000, 1000, false},
                {1, 10, 0, 0, false}};
    for (const Row& r : rows) {
        monitor.m_nThresholdMode = r.mode;
        monitor.m_nThreshold = r.threshold;
        EXPECT_EQ(monitor.isLow({r.totalMB * MB, r.freeMB * MB}), r.low)
            << r.mode << " " << r.threshold << " " << r.freeMB;
    }
    monitor.m_nThresholdMode = 1;
    monitor.m_nThreshold = 10;
    EXPECT_EQ(monitor.makeUnit("/var", {10000 * MB, 999 * MB}, Event::None), nullptr);
    auto unit = monitor.makeUnit("/var", {10000 * MB, 999 * MB + 5}, Event::Crossed);
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(unit->getPropertyInt(u"maxavailable") - unit->getPropertyInt(u"currusage"), 999);
    EXPECT_STREQ(unit->getMsgA(),
                 "Disk space low on '/var': 999 MB free of 10000 MB (9%), threshold 10%");
    unit = monitor.makeUnit("/var", {10000 * MB, 5000 * MB}, Event::Recovered);
    EXPECT_STREQ(unit->getMsgA(),
                 "Disk space recovered on '/var': 5000 MB free of 10000 MB (50%), threshold 10%");
}

}  // namespace

namespace {

// Per processor, only the busy processor alerts; over the total (50 %) nothing does; and a
// reading that fails is no alert.
TEST(CpuMonitor, WatchesTotalOrEachProcessor) {
    for (uint32_t perCore : {0u, 1u}) {
        vt::InfoSourceContext context;
        CInfoSourceCPUMonitor monitor(context);
        monitor.m_nPerCore = perCore;
        monitor.m_nThreshold = 60;
        monitor.m_nAverageSeconds = 10;
        uint64_t tick = 0;
        monitor.m_reader = [&](std::vector<vt::CpuTimes>& out) {
            tick += 1000;  // cpu0 idle, cpu1 flat out
            out = {{tick, 2 * tick}, {0, tick}, {tick, tick}};
            return true;
        };
        EXPECT_EQ(monitor.check(T0), 0);
        EXPECT_EQ(monitor.check(T0 + seconds(10)), perCore == 1 ? 1 : 0) << perCore;
        monitor.m_reader = [](std::vector<vt::CpuTimes>&) { return false; };
        EXPECT_EQ(monitor.check(T0 + seconds(20)), 0);
    }
}

}  // namespace
