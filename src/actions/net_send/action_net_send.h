#pragma once
#include "engine/action_config.h"

// Settings of the net-send action: whom to tell ("szTarget", as configured) and what
// ("szMessage", a template).
class CActionConfigNetSend : public CActionConfig {
  public:
    explicit CActionConfigNetSend(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szTarget;
    CQuilletString m_szMessage;
};

// Pops the rendered message up on the target's screen (Windows) or terminals (Linux).
class CActionNetSend : public CAction {
  public:
    explicit CActionNetSend(CActionConfigNetSend& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigNetSend& m_config;
};
