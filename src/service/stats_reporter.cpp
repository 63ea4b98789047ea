#include "service/stats_reporter.h"

#include <cstdio>

#include "base/debug_log.h"
#include "platform/process.h"

CStatsReporter::CStatsReporter(std::chrono::seconds interval, std::string countersPath,
                               std::function<std::string()> report)
    : m_interval(interval),
      m_countersPath(std::move(countersPath)),
      m_report(std::move(report)),
      m_thread([this] { loop(); }) {}

CStatsReporter::~CStatsReporter() {
    {
        std::lock_guard guard(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
    // No file: no running agent.
    std::remove(m_countersPath.c_str());
}

void CStatsReporter::loop() {
    auto nextLogLine = std::chrono::steady_clock::now() + m_interval;
    std::unique_lock lock(m_lock);
    do {
        lock.unlock();
        const std::string line = m_report();
        vt::writePrivateFile(m_countersPath, line + "\n");
        if (m_interval.count() > 0 && std::chrono::steady_clock::now() >= nextLogLine) {
            vt::debugWrite(vt::DBG_MINIMUM, line + "\r\n");
            nextLogLine += m_interval;
        }
        lock.lock();
    } while (!m_wake.wait_for(lock, std::chrono::seconds(1), [this] { return m_stop; }));
}
