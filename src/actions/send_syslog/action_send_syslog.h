#pragma once
#include "actions/send_syslog/action_config_send_syslog.h"
#include "engine/action_config.h"

// Forwards each unit as one syslog message: the expanded "szMessageFormat" (or the unit's XML
// form) goes to the settings' client, and the idle timer is armed again afterwards.
class CActionSendSyslog : public CAction {
  public:
    explicit CActionSendSyslog(CActionConfigSendSyslog& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // The text sent for `unit` before any header: the template expanded for the unit, or its
    // XML form.
    static CQuilletString messageText(const CActionConfigSendSyslog& config, const CInfoUnit& unit);

  private:
    CActionConfigSendSyslog& m_config;
};
