#pragma once
#include <cstdint>

#include "actions/post_process/parse_template.h"
#include "engine/action_config.h"

// Settings of the post-process action: "nTemplateCount" templates in "szTemplate1" ...,
// compiled at load.
class CActionConfigPostProcess : public CActionConfig {
  public:
    explicit CActionConfigPostProcess(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CCustomParseList m_templates;
};

// Parses the unit's message with the first template that fits it whole and stores the pieces
// as properties; a message no template fits is left as it is and goes on through the rules.
class CActionPostProcess : public CAction {
  public:
    explicit CActionPostProcess(CActionConfigPostProcess& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigPostProcess& m_config;
};
