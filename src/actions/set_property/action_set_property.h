#pragma once
#include <cstdint>

#include "engine/action_config.h"

// Settings of the set-property action. "nPropertyType" picks what changes: -1 the custom
// property named by "szPropertyType", 0 "source", 1 the message, 2 the syslog priority and 3
// the syslog facility ("nPropertyValue").
class CActionConfigSetProperty : public CActionConfig {
  public:
    explicit CActionConfigSetProperty(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szPropertyValue;  // a template, rendered against the unit
    CQuilletString m_szPropertyType;   // the custom property's name (type -1)
    int32_t m_nPropertyValue = 0;
    int32_t m_nPropertyType = -1;
};

class CActionSetProperty : public CAction {
  public:
    explicit CActionSetProperty(CActionConfigSetProperty& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigSetProperty& m_config;
};
