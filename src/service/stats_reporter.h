#pragma once
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// Writes the agent's counters to the debug log every interval on a thread of its own, until
// stopped. The report text comes from the caller, so the reporter knows nothing of the engine.
class CStatsReporter {
  public:
    CStatsReporter(std::chrono::seconds interval, std::function<std::string()> report);
    ~CStatsReporter();
    CStatsReporter(const CStatsReporter&) = delete;
    CStatsReporter& operator=(const CStatsReporter&) = delete;

  private:
    void loop();

    std::chrono::seconds m_interval;
    std::function<std::string()> m_report;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;  // guarded by m_lock
    std::thread m_thread;
};
