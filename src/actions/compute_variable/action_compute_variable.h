#pragma once
#include <cstdint>

#include "engine/action_config.h"

// Settings of the compute-variable action: the status variable ("szStatusVar", a template),
// the operation ("nCalcType": 1 add, 2 subtract) and the amount ("nChangeVal").
class CActionConfigComputeVar : public CActionConfig {
  public:
    explicit CActionConfigComputeVar(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szStatusVar;
    int32_t m_nCalcType = 1;
    int32_t m_nChangeVal = 1;
};

// Counts in a status variable. The read, the change and the store happen under the status
// table's lock, so units on several workers never lose an update. A variable that does not
// exist yet starts at 0; a count never goes below 0.
class CActionComputeVar : public CAction {
  public:
    explicit CActionComputeVar(CActionConfigComputeVar& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigComputeVar& m_config;
};
