#include "actions/play_sound/action_play_sound.h"

#include "base/debug_log.h"
#include "platform/sound.h"

void CActionConfigPlaySound::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szFileName", m_szFileName, u"");
    m_regAccess.ReadDWORDValue(u"nCount", m_nCount, 1);
    m_regAccess.ReadDWORDValue(u"nDelay", m_nDelay, 2000);
    m_regAccess.CloseKey();
}

CActionPlaySound::CActionPlaySound(CActionConfigPlaySound& config)
    : m_play(vt::playSoundFile), m_config(config) {}

void CActionPlaySound::doAction(CInfoUnit&, const CConfigSettings&, CActionListEntry&) {
    const std::string file = m_config.m_szFileName.getStringA();
    for (uint32_t i = 0; i < m_config.m_nCount; ++i) {
        if (i > 0) m_config.m_clock->sleepMs(m_config.m_nDelay);
        std::string error;
        if (!m_play(file, error)) {
            vt::debugPrintf(vt::DBG_ERROR, "CActionPlaySound| '%s' not played: %s\r\n",
                            file.c_str(), error.c_str());
            return;
        }
    }
}
