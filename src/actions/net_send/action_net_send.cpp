#include "actions/net_send/action_net_send.h"

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/terminal_message.h"
#include "platform/utf_codec.h"

void CActionConfigNetSend::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szTarget", m_szTarget, u"");
    m_regAccess.ReadStringValue(u"szMessage", m_szMessage, u"%msg%");
    m_regAccess.CloseKey();
}

void CActionNetSend::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    const std::string text =
        vt::utf16ToUtf8(vt::replaceProperties(m_config.m_szMessage.view(), &unit));
    uint32_t error = 0;
    if (!vt::sendTerminalMessage(m_config.m_szTarget.getStringA(), text, error))
        vt::debugPrintf(vt::DBG_ERROR, "Unexpected Error %d when doing NET SEND.\r\n",
                        static_cast<int>(error));
}
