#include "sources/heartbeat/heartbeat.h"

#include <chrono>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"

CInfoSourceHeartbeat::CInfoSourceHeartbeat(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}

bool CInfoSourceHeartbeat::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceHeartbeat|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadStringValue(u"szHeartbeatMessage", m_szMessage, CQuilletString(u"Heartbeat"));
    if (m_nSleepTime < 1000) {
        // A beat every few milliseconds would only flood the rules.
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CInfoSourceHeartbeat|LoadConfig: nSleepTime %u below 1000 - using 1000\r\n",
            m_nSleepTime);
        m_nSleepTime = 1000;
    }
    reg.CloseKey();
    return isEnabled();
}

void CInfoSourceHeartbeat::Run() {
    while (keepRunning()) {
        beat();
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

bool CInfoSourceHeartbeat::beat() {
    auto unit = std::make_unique<CInfoUnitHeartbeat>();
    setCommonInfoUnitSettings(*unit);
    unit->setMsgString(m_szMessage);
    vt::debugWrite(vt::DBG_ULTRA, "CInfoSourceHeartbeat|beat: Heartbeat enqueued\r\n");
    return Enqueue(std::move(unit));
}
