#include "actions/set_status/action_set_status.h"

#include "base/debug_log.h"
#include "engine/status_table.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

void CActionConfigSetStatus::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szPropertyName", m_szPropertyName, u"");
    m_regAccess.ReadStringValue(u"szPropertyValue", m_szPropertyValue, u"");
    m_regAccess.CloseKey();
}

void CActionSetStatus::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    vt::debugWrite(vt::DBG_INFO, "in CActionSetStatus::doAction()\r\n");
    const std::u16string name = vt::replaceProperties(m_config.m_szPropertyName.view(), &unit);
    const std::u16string value = vt::replaceProperties(m_config.m_szPropertyValue.view(), &unit);
    vt::debugPrintf(vt::DBG_INFO, "CActionSetStatus|doAction: Var: '%s', Value: '%s'\r\n",
                    vt::utf16ToUtf8(name).c_str(), vt::utf16ToUtf8(value).c_str());
    vt::statusTable().setValue(name, value);
    vt::debugWrite(vt::DBG_INFO, "out CActionSetStatus::doAction()\r\n");
}
