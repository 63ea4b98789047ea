#include "actions/set_property/action_set_property.h"

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

void CActionConfigSetProperty::LoadConfig() {
    if (!loadEnabled()) return;
    // DWORD values that the configuration may set to -1.
    auto readSigned = [this](const char16_t* name, int32_t fallback) {
        uint32_t value = 0;
        m_regAccess.ReadDWORDValue(name, value, static_cast<uint32_t>(fallback));
        return static_cast<int32_t>(value);
    };
    m_regAccess.ReadStringValue(u"szPropertyValue", m_szPropertyValue, u"");
    m_regAccess.ReadStringValue(u"szPropertyType", m_szPropertyType, u"");
    m_nPropertyValue = readSigned(u"nPropertyValue", 0);
    m_nPropertyType = readSigned(u"nPropertyType", -1);
    m_regAccess.CloseKey();
}

void CActionSetProperty::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    vt::debugWrite(vt::DBG_INFO, "in CActionSetProperty::doAction()\r\n");
    const int32_t number = m_config.m_nPropertyValue;
    switch (m_config.m_nPropertyType) {
        case -1: {
            std::u16string value = vt::replaceProperties(m_config.m_szPropertyValue.view(), &unit);
            vt::debugPrintf(vt::DBG_INFO, "CActionSetProperty|doAction: Var: '%s', Value: '%s'\r\n",
                            m_config.m_szPropertyType.getStringA(), vt::utf16ToUtf8(value).c_str());
            unit.setPropertyString(m_config.m_szPropertyType.view(), std::u16string_view(value));
            break;
        }
        case 0: {
            const std::u16string value =
                vt::replaceProperties(m_config.m_szPropertyValue.view(), &unit);
            unit.setPropertyString(u"source", std::u16string_view(value));
        } break;
        case 1:
            unit.setMsg(vt::replaceProperties(m_config.m_szPropertyValue.view(), &unit));
            break;
        case 2:
            if (number >= 0 && number <= 7)
                unit.setSyslogPriority(number);
            else
                vt::debugWrite(vt::DBG_INFO, "Useless Syslog Priority configured!\r\n");
            break;
        case 3:
            if (number >= 0 && number <= 23)
                unit.setSyslogFacility(number);
            else
                vt::debugWrite(vt::DBG_INFO, "Useless Syslog Facility configured!\r\n");
            break;
        default:
            vt::debugWrite(vt::DBG_INFO, "Unknown property to change!\r\n");
    }
    vt::debugWrite(vt::DBG_INFO, "out CActionSetProperty::doAction()\r\n");
}
