#pragma once
#include "engine/action_config.h"

// Settings of the set-status action: the status variable ("szPropertyName") and its new value
// ("szPropertyValue"), both templates rendered against the unit.
class CActionConfigSetStatus : public CActionConfig {
  public:
    explicit CActionConfigSetStatus(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szPropertyName;
    CQuilletString m_szPropertyValue;
};

// Stores the value in the process-wide status table, where status filters read it.
class CActionSetStatus : public CAction {
  public:
    explicit CActionSetStatus(CActionConfigSetStatus& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigSetStatus& m_config;
};
