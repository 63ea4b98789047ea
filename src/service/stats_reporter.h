#pragma once
#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

// Keeps the agent's counters where "vtagent -s" reads them (a file, rewritten every second and
// removed at the end) and writes them to the debug log every `interval` (0: never), on a thread
// of its own. The report text comes from the caller, so the reporter knows nothing of the
// engine.
class CStatsReporter {
  public:
    CStatsReporter(std::chrono::seconds interval, std::string countersPath,
                   std::function<std::string()> report);
    ~CStatsReporter();
    CStatsReporter(const CStatsReporter&) = delete;
    CStatsReporter& operator=(const CStatsReporter&) = delete;

  private:
    void loop();

    std::chrono::seconds m_interval;
    std::string m_countersPath;
    std::function<std::string()> m_report;
    std::mutex m_lock;
    std::condition_variable m_wake;
    bool m_stop = false;  // guarded by m_lock
    std::thread m_thread;
};
