#include "sources/probes/network_probe.h"

#include <chrono>
#include <cstdio>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit.h"

bool CInfoSourceNetworkProbe::LoadConfig() {
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    // One text for the whole family.
    vt::debugWrite(vt::DBG_INFO, "CInfoSourcePortProbe: Loading config!\r\n");
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"nTimeOutLimit", m_nTimeOutLimit, 1000);
    reg.ReadDWORDValue(u"nGenerateOnSuccess", m_nGenerateOnSuccess, 0);
    if (m_nTimeOutLimit == 0) m_nTimeOutLimit = 1000;
    loadOwn(reg);
    reg.CloseKey();
    return isEnabled();
}

void CInfoSourceNetworkProbe::Run() {
    while (keepRunning()) {
        checkOnce();
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

std::string CInfoSourceNetworkProbe::messageText(const ProbeResult& r) const {
    char text[66000];
    if (r.status == 0)
        std::snprintf(text, sizeof text,
                      "%sProbe status=\"success\" target=\"%s\" port=\"%d\" netstate=\"%d\" "
                      "message=\"%s\"",
                      name(), m_szServer.getStringA(), int(m_nPort), 0, r.response.c_str());
    else
        std::snprintf(text, sizeof text,
                      "%sProbe status=\"fail\" target=\"%s\" port=\"%d\" netstate=\"%d\" "
                      "message=\"%s\"",
                      name(), m_szServer.getStringA(), int(m_nPort), int(r.status),
                      r.failText.c_str());
    return text;
}

ProbeResult CInfoSourceNetworkProbe::checkOnce() {
    auto unit = newUnit();
    unit->setPropertyString(u"source", m_szServer);
    ProbeResult result = check();
    unit->setPropertyInt(statusProperty(), static_cast<int32_t>(result.status));
    unit->setPropertyStringA(responseProperty(), result.response);
    fill(*unit, result);
    unit->setMsgA(messageText(result));
    setCommonInfoUnitSettings(*unit);
    if (result.status != 0) {
        Enqueue(std::move(unit));
        vt::debugPrintf(vt::DBG_INFO, "CInfoSource%sProbe| Process Enqued (failed)\r\n", name());
    } else if (m_nGenerateOnSuccess == 1) {
        Enqueue(std::move(unit));
        vt::debugPrintf(vt::DBG_INFO, "CInfoSource%sProbe| Process Enqued (Success) \r\n", name());
    }
    return result;
}
