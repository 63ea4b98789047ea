#pragma once
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/system_stats.h"
#include "sources/info_source.h"
#include "sources/threshold_watch.h"

class CInfoUnit;

// The busy share of the processors averaged over a sliding window, over the processors
// together or each one alone. A short burst does not alert; a load that stays above the
// threshold for the whole window does.
class CCpuLoadWindow {
  public:
    using Clock = std::chrono::steady_clock;

    explicit CCpuLoadWindow(std::chrono::seconds window) : m_window(window) {}

    // Adds a reading of the counters.
    void add(Clock::time_point when, const std::vector<vt::CpuTimes>& times);
    // The busy percent of each entry over the window; empty until a full window is covered.
    std::vector<uint32_t> averages() const;

  private:
    struct Sample {
        Clock::time_point when;
        std::vector<vt::CpuTimes> times;
    };
    std::chrono::seconds m_window;
    std::deque<Sample> m_samples;
};

class CInfoSourceCPUMonitor : public CInfoSource {
  public:
    using Reader = std::function<bool(std::vector<vt::CpuTimes>&)>;

    explicit CInfoSourceCPUMonitor(const vt::InfoSourceContext& context);
    ~CInfoSourceCPUMonitor() override;

    bool LoadConfig() override;
    void Run() override;
    // One reading at `now`; the units it produces go to the queue. Returns how many.
    int check(std::chrono::steady_clock::time_point now);

    uint32_t m_nSleepTime = 5000;         // "nSleepTime": milliseconds between readings
    uint32_t m_nAverageSeconds = 300;     // "nAverageSeconds": the window
    uint32_t m_nThreshold = 95;           // "nThreshold": percent busy
    uint32_t m_nPerCore = 0;              // "nPerCore": 1 watches every processor alone
    uint32_t m_nRepeatInterval = 3600;    // "nRepeatInterval", seconds; 0 alerts once
    uint32_t m_nReportRecovery = 1;       // "nReportRecovery"
    Reader m_reader = vt::queryCpuTimes;  // tests put in their own counters

  private:
    std::unique_ptr<CInfoUnit> makeUnit(size_t index, uint32_t percent,
                                        CThresholdWatch::Event event) const;

    std::unique_ptr<CCpuLoadWindow> m_window;
    std::vector<CThresholdWatch> m_watches;  // one per watched entry
    bool m_failureLogged = false;
};
