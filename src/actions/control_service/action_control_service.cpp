#include "actions/control_service/action_control_service.h"

#include "base/debug_log.h"

namespace {

const char* pendingText(vt::ServiceState state) {
    switch (state) {
        case vt::ServiceState::Starting:
            return "start";
        case vt::ServiceState::Stopping:
            return "stop";
        case vt::ServiceState::Pausing:
            return "pause";
        default:
            return "continue";
    }
}

const char* controlName(vt::ServiceControl control) {
    switch (control) {
        case vt::ServiceControl::Stop:
            return "SERVICE_CONTROL_STOP";
        case vt::ServiceControl::Pause:
            return "SERVICE_CONTROL_PAUSE";
        default:
            return "SERVICE_CONTROL_CONTINUE";
    }
}

}  // namespace

void CActionConfigControlNTService::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szServiceName", m_szServiceName, u"");
    m_regAccess.ReadDWORDValue(u"nAction", m_nAction, 1);
    m_regAccess.ReadDWORDValue(u"nTimeOutLimit", m_nTimeOutLimit, 60000);
    m_regAccess.CloseKey();
}

void CActionControlNTService::doAction(CInfoUnit&, const CConfigSettings&, CActionListEntry&) {
    const uint32_t action = m_config.m_nAction;
    // Codes other than these (3 among them) ask for nothing.
    if (action != 1 && action != 2 && action != 4 && action != 5) return;
    const std::string name = m_config.m_szServiceName.getStringA();
    if (request(name, static_cast<vt::ServiceControl>(action))) waitWhilePending(name);
}

bool CActionControlNTService::request(const std::string& name, vt::ServiceControl control) {
    vt::ServiceControlResult result;
    if (m_control(name, control, result)) return true;
    using Step = vt::ServiceControlResult::Step;
    const int error = static_cast<int>(result.error);
    if (result.failed == Step::Manager)
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionControlNTService| Error, could not Open the ServiceControlManager "
                        "Handle, error '%d'\r\n",
                        error);
    else if (result.failed == Step::Service)
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionControlNTService| Error, could not Open the Service ('%s')  "
                        "Handle, error '%d'\r\n",
                        name.c_str(), error);
    else if (control == vt::ServiceControl::Start)
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionControlNTService| Error, could not Start the Service '%d'\r\n",
                        error);
    else
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionControlNTService| Error, ControlService (%s) for the Service %s "
                        "failed, error '%d'\r\n",
                        controlName(control), name.c_str(), error);
    if (!result.text.empty())
        vt::debugPrintf(vt::DBG_ERROR, "CActionControlNTService| %s\r\n", result.text.c_str());
    return false;
}

void CActionControlNTService::waitWhilePending(const std::string& name) {
    uint32_t waited = 0;
    for (;;) {
        vt::ServiceState state = vt::ServiceState::Stopped;
        std::string error;
        if (!m_query(name, state, error)) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionControlNTService| Service %s is pending, could not get status "
                            "using QueryServiceStatus\r\n",
                            name.c_str());
            return;
        }
        if (!vt::isPending(state)) return;
        if (waited >= m_config.m_nTimeOutLimit) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionControlNTService| Error, could not perform action '%d' on the "
                            "Service '%s' in a Time of '%d'!\r\n",
                            static_cast<int>(m_config.m_nAction), name.c_str(),
                            static_cast<int>(m_config.m_nTimeOutLimit));
            return;
        }
        vt::debugPrintf(vt::DBG_INFO, "CActionControlNTService| Service %s is %s pending.\r\n",
                        name.c_str(), pendingText(state));
        m_config.m_clock->sleepMs(1000);
        waited += 1000;
    }
}
