#include "engine/action_config.h"

#include "base/debug_log.h"
#include "engine/action_list.h"

CActionConfig::CActionConfig(const CQuilletString& keyPath) : m_keyPath(keyPath) {
    m_keyPath.getStringA();  // built now: worker threads read it concurrently later
}

CActionConfig::~CActionConfig() {
    closeTimer();
}

bool CActionConfig::loadEnabled() {
    if (!m_regAccess.OpenKey(vt::RegRoot::LocalMachine, m_keyPath, vt::kKeyRead)) return false;
    uint32_t enabled = 1;
    m_regAccess.ReadDWORDValue(u"bActionEnabled", enabled, 1);
    m_bActionEnabled = static_cast<int32_t>(enabled);
    return true;
}

void CActionConfig::createTimer() {
    closeTimer();
    m_timer = std::make_unique<vt::WaitableTimer>();
}

void CActionConfig::cancelTimer() {
    if (m_timer) m_timer->cancel();
}

void CActionConfig::armTimer(vt::TimerRoutine routine, void* context, uint32_t milliseconds) {
    if (m_timer && milliseconds != 0 && m_timer->arm(routine, context, milliseconds)) return;
    routine(context, 0, 0);
}

void CActionConfig::closeTimer() {
    m_timer.reset();
}

void CAction::callAction(CInfoUnit& unit, const CConfigSettings& settings,
                         CActionListEntry& entry) {
    CActionConfig* config = entry.getConfig();
    vt::debugWrite(vt::DBG_ULTRA, "CAction::callAction() | Wait on critSect\r\n");
    config->enterLock();
    vt::debugWrite(vt::DBG_ULTRA, "CAction::callAction() | in critSect\r\n");
    try {
        doAction(unit, settings, entry);
    } catch (...) {
        vt::debugWrite(vt::DBG_ULTRA,
                       "CAction::callAction() | leaving critSect - exception caught and "
                       "re-thrown\r\n");
        config->leaveLock();
        throw;
    }
    vt::debugWrite(vt::DBG_ULTRA, "CAction::callAction() | leaving critSect\r\n");
    config->leaveLock();
}
