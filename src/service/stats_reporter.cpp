#include "service/stats_reporter.h"

#include "base/debug_log.h"

CStatsReporter::CStatsReporter(std::chrono::seconds interval, std::function<std::string()> report)
    : m_interval(interval), m_report(std::move(report)), m_thread([this] { loop(); }) {}

CStatsReporter::~CStatsReporter() {
    {
        std::lock_guard guard(m_lock);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void CStatsReporter::loop() {
    std::unique_lock lock(m_lock);
    while (!m_wake.wait_for(lock, m_interval, [this] { return m_stop; })) {
        lock.unlock();
        vt::debugWrite(vt::DBG_MINIMUM, m_report() + "\r\n");
        lock.lock();
    }
}
