#include "actions/write_event_log/action_write_event_log.h"

#include <string>

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/event_log.h"
#include "platform/utf_codec.h"

void CActionConfigWriteNTEventReport::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadDWORDValue(u"bReplaceEventLogSource", m_bReplaceEventLogSource, 0);
    m_regAccess.ReadDWORDValue(u"nEventType", m_nEventType, 0);
    m_regAccess.ReadDWORDValue(u"nEventID", m_nEventID, 113);
    m_regAccess.ReadStringValue(u"szMessageContent", m_szMessageContent, u"%msg%");
    m_regAccess.ReadStringValue(u"szCustomSource", m_szCustomSource, u"");
    m_regAccess.CloseKey();
}

void CActionWriteNTEventReport::doAction(CInfoUnit& unit, const CConfigSettings&,
                                         CActionListEntry&) {
    const std::string source =
        m_config.m_bReplaceEventLogSource == 1 && m_config.m_szCustomSource.getLength() > 0
            ? std::string(m_config.m_szCustomSource.getStringA())
            : std::string("QuilletVantoreAgent");
    const vt::EventType type = m_config.m_nEventType == 1   ? vt::EventType::error
                               : m_config.m_nEventType == 2 ? vt::EventType::warning
                                                            : vt::EventType::information;
    const std::string text =
        vt::utf16ToUtf8(vt::replaceProperties(m_config.m_szMessageContent.view(), &unit));
    vt::EventSource events(source.c_str());
    if (!events.isOpen() || !events.report(type, m_config.m_nEventID, text, "", false)) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionWriteNTEventReport| event %u under '%s' could not be reported\r\n",
                        m_config.m_nEventID, source.c_str());
        unit.setActionFailed(1);
    }
}
