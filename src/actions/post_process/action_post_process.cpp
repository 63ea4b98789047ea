#include "actions/post_process/action_post_process.h"

#include <string>

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "platform/utf_codec.h"

void CActionConfigPostProcess::LoadConfig() {
    if (!loadEnabled()) return;
    uint32_t count = 0;
    m_regAccess.ReadDWORDValue(u"nTemplateCount", count, 0);
    for (uint32_t i = 1; i <= count && i <= 1000; ++i) {
        CQuilletString templ;
        const std::string name = "szTemplate" + std::to_string(i);
        m_regAccess.ReadStringValue(CQuilletString(std::string_view(name)), templ, u"");
        std::string error;
        if (!m_templates.add(templ.getStringA(), error))
            vt::debugPrintf(vt::DBG_ERROR, "CActionPostProcess|LoadConfig: %s ignored - %s\r\n",
                            name.c_str(), error.c_str());
    }
    m_regAccess.CloseKey();
}

void CActionPostProcess::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    CCustomParseList::Properties found;
    if (!m_config.m_templates.parse(unit.getMsgA(), found)) return;
    for (const auto& [name, value] : found) unit.setPropertyStringA(vt::utf8ToUtf16(name), value);
}
