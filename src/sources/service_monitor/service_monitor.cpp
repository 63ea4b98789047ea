#include "sources/service_monitor/service_monitor.h"

#include <algorithm>
#include <chrono>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"
#include "sources/setting_list.h"

CInfoSourceNTServiceMonitor::CInfoSourceNTServiceMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}
CInfoSourceNTServiceMonitor::~CInfoSourceNTServiceMonitor() = default;

bool CInfoSourceNTServiceMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceNTServiceMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadStringValue(u"szServiceNames", m_szServiceNames, CQuilletString());
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"nRestartService", m_nRestartService, 0);
    reg.ReadDWORDValue(u"nRepeatInterval", m_nRepeatInterval, 3600);
    reg.ReadDWORDValue(u"nReportRecovery", m_nReportRecovery, 1);
    reg.CloseKey();
    m_watched.clear();
    for (const std::string& name :
         vt::splitSettingList(vt::utf16ToUtf8(m_szServiceNames.getString())))
        m_watched.push_back({name, CThresholdWatch(m_nRepeatInterval, m_nReportRecovery == 1)});
    if (m_watched.empty())
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceNTServiceMonitor|LoadConfig: no services in szServiceNames\r\n");
    return isEnabled();
}

void CInfoSourceNTServiceMonitor::Run() {
    while (keepRunning()) {
        check();
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

int CInfoSourceNTServiceMonitor::check() {
    int produced = 0;
    for (Watched& w : m_watched) {
        vt::ServiceState state = vt::ServiceState::Stopped;
        std::string error;
        if (!m_query(w.name, state, error)) {
            // The service manager itself is out of reach: say so once, not once per service
            // and poll, and raise no alert about services nobody could look at.
            if (!m_failureLogged)
                vt::debugPrintf(vt::DBG_ERROR,
                                "CInfoSourceNTServiceMonitor|check: cannot ask for '%s': %s\r\n",
                                w.name.c_str(), error.c_str());
            m_failureLogged = true;
            return produced;
        }
        m_failureLogged = false;
        const bool down = state != vt::ServiceState::Running;
        const auto event = w.watch.observe(down, getClock().steadyNow());
        const bool alert = event == CThresholdWatch::Event::Crossed ||
                           event == CThresholdWatch::Event::StillBeyond;
        const std::string restarted =
            alert && m_nRestartService == 1 && state == vt::ServiceState::Stopped ? restart(w.name)
                                                                                  : "";
        if (auto unit = makeUnit(w, state, event, restarted)) {
            Enqueue(std::move(unit));
            ++produced;
        }
    }
    return produced;
}

std::string CInfoSourceNTServiceMonitor::restart(const std::string& name) {
    std::string error;
    if (m_start(name, error)) return " - start requested";
    vt::debugPrintf(vt::DBG_ERROR, "CInfoSourceNTServiceMonitor| starting '%s' failed: %s\r\n",
                    name.c_str(), error.c_str());
    return " - start failed: " + error;
}

std::unique_ptr<CInfoUnit> CInfoSourceNTServiceMonitor::makeUnit(const Watched& w,
                                                                 vt::ServiceState state,
                                                                 CThresholdWatch::Event event,
                                                                 const std::string& restart) const {
    if (event == CThresholdWatch::Event::None) return nullptr;
    auto unit = std::make_unique<CInfoUnitNTServiceMonitor>();
    setCommonInfoUnitSettings(*unit);
    unit->setPropertyStringA(u"sourceproc", w.name);
    unit->setPropertyStringA(u"servicestate", vt::serviceStateText(state));
    const std::string text = event == CThresholdWatch::Event::Recovered
                                 ? "Service '" + w.name + "' is running again"
                                 : "Service '" + w.name + "' is not running (" +
                                       vt::serviceStateText(state) + ")" + restart;
    unit->setMsgA(text);
    return unit;
}
