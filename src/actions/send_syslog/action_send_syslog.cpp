#include "actions/send_syslog/action_send_syslog.h"

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"

CQuilletString CActionSendSyslog::messageText(const CActionConfigSendSyslog& config,
                                              const CInfoUnit& unit) {
    if (config.m_bReportInXML) return unit.toXML();
    CQuilletString text(config.m_szMessageFormat.text());
    vt::replaceProperties(text, &unit);
    return text;
}

void CActionSendSyslog::doAction(CInfoUnit& unit, const CConfigSettings& /*settings*/,
                                 CActionListEntry& /*entry*/) {
    vt::debugWrite(vt::DBG_ULTRA, "in CActionSendSyslog::doAction()\r\n");
    m_config.cancelTimer();
    if (!m_config.isConnected()) m_config.openConnection();
    const auto armIdleTimer = [this] {
        m_config.armTimer(&CActionConfigSendSyslog::TimerAPCProc, &m_config,
                          static_cast<uint32_t>(m_config.m_nTimeoutValue));
    };
    try {
        const CQuilletString text = messageText(m_config, unit);
        m_config.client().send(unit, text.view());
    } catch (...) {
        // A connection that is still open must not stay open for ever after a failure.
        armIdleTimer();
        throw;
    }
    armIdleTimer();
    vt::debugWrite(vt::DBG_ULTRA, "out CActionSendSyslog::doAction()\r\n");
}
