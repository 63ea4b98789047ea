#include "sources/cpu_monitor/cpu_monitor.h"

#include <cstdio>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"

void CCpuLoadWindow::add(Clock::time_point when, const std::vector<vt::CpuTimes>& times) {
    // A change in the number of processors (hot plug) starts the window anew.
    if (!m_samples.empty() && m_samples.back().times.size() != times.size()) m_samples.clear();
    m_samples.push_back({when, times});
    // Keep the newest sample that is at least a window old: it is where the average starts.
    while (m_samples.size() > 2 && when - m_samples[1].when >= m_window) m_samples.pop_front();
}

std::vector<uint32_t> CCpuLoadWindow::averages() const {
    std::vector<uint32_t> out;
    if (m_samples.size() < 2) return out;
    const Sample& first = m_samples.front();
    const Sample& last = m_samples.back();
    if (last.when - first.when < m_window) return out;
    for (size_t i = 0; i < last.times.size(); ++i) {
        const uint64_t busy = last.times[i].busy - first.times[i].busy;
        const uint64_t total = last.times[i].total - first.times[i].total;
        out.push_back(total ? static_cast<uint32_t>(busy * 100 / total) : 0);
    }
    return out;
}

CInfoSourceCPUMonitor::CInfoSourceCPUMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}
CInfoSourceCPUMonitor::~CInfoSourceCPUMonitor() = default;

bool CInfoSourceCPUMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceCPUMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 5000);
    reg.ReadDWORDValue(u"nAverageSeconds", m_nAverageSeconds, 300);
    reg.ReadDWORDValue(u"nThreshold", m_nThreshold, 95);
    reg.ReadDWORDValue(u"nPerCore", m_nPerCore, 0);
    reg.ReadDWORDValue(u"nRepeatInterval", m_nRepeatInterval, 3600);
    reg.ReadDWORDValue(u"nReportRecovery", m_nReportRecovery, 1);
    reg.CloseKey();
    if (m_nSleepTime < 100) m_nSleepTime = 100;  // counters move in 10 ms ticks
    m_window = std::make_unique<CCpuLoadWindow>(std::chrono::seconds(m_nAverageSeconds));
    m_watches.clear();
    return isEnabled();
}

void CInfoSourceCPUMonitor::Run() {
    while (keepRunning()) {
        check(getClock().steadyNow());
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

int CInfoSourceCPUMonitor::check(std::chrono::steady_clock::time_point now) {
    std::vector<vt::CpuTimes> times;
    if (!m_reader(times)) {
        if (!m_failureLogged)
            vt::debugWrite(vt::DBG_ERROR,
                           "CInfoSourceCPUMonitor|check: cannot read the processor counters\r\n");
        m_failureLogged = true;
        return 0;
    }
    m_failureLogged = false;
    if (!m_window)
        m_window = std::make_unique<CCpuLoadWindow>(std::chrono::seconds(m_nAverageSeconds));
    m_window->add(now, times);
    const std::vector<uint32_t> averages = m_window->averages();
    // Entry 0 is all processors together; per processor watches the others (or the total
    // where the system gives nothing else).
    const size_t first = m_nPerCore == 1 && averages.size() > 1 ? 1 : 0;
    const size_t end = first == 0 ? std::min<size_t>(averages.size(), 1) : averages.size();
    if (m_watches.size() != averages.size())
        m_watches.assign(averages.size(),
                         CThresholdWatch(m_nRepeatInterval, m_nReportRecovery == 1));
    int produced = 0;
    for (size_t i = first; i < end; ++i) {
        const auto event = m_watches[i].observe(averages[i] > m_nThreshold, now);
        if (auto unit = makeUnit(i, averages[i], event)) {
            Enqueue(std::move(unit));
            ++produced;
        }
    }
    return produced;
}

std::unique_ptr<CInfoUnit> CInfoSourceCPUMonitor::makeUnit(size_t index, uint32_t percent,
                                                           CThresholdWatch::Event event) const {
    if (event == CThresholdWatch::Event::None) return nullptr;
    auto unit = std::make_unique<CInfoUnitCPUMonitor>();
    setCommonInfoUnitSettings(*unit);
    const std::string name = index == 0 ? "total" : "cpu" + std::to_string(index - 1);
    unit->setPropertyInt(u"cpuusage", static_cast<int32_t>(percent));
    unit->setPropertyStringA(u"cpuname", name);
    char text[256];
    std::snprintf(text, sizeof text, "CPU usage %s on %s: %u%% over the last %u s, threshold %u%%",
                  event == CThresholdWatch::Event::Recovered ? "back to normal" : "high",
                  name.c_str(), percent, m_nAverageSeconds, m_nThreshold);
    unit->setMsgA(text);
    return unit;
}
