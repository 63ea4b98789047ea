#pragma once
#include <atomic>

#include "engine/action_config.h"
#include "engine/action_types.h"

class CRuleSetList;
class CRuleSetListEntry;

// Settings of the call-rule-set action: the name of the rule set to run ("szRuleSet").
class CActionConfigCallRuleSet : public CActionConfig {
  public:
    CActionConfigCallRuleSet(const CQuilletString& keyPath, const vt::ActionLoadContext& context);
    void LoadConfig() override;

    const CQuilletString& getRuleSetName() const noexcept { return m_szRuleSet; }
    CRuleSetList* getRuleSets() const noexcept { return m_ruleSets; }

  private:
    CQuilletString m_szRuleSet;
    CRuleSetList* m_ruleSets;  // the rule base this action belongs to; not owned
};

// Runs another rule set's rules on the same unit. The rule set is looked up by name on every
// execution until the look-up has once succeeded; the pointer is kept from then on. The called
// rules' result is ignored, so a discard there ends only that rule set's processing.
class CActionCallRuleSet : public CAction {
  public:
    explicit CActionCallRuleSet(CActionConfigCallRuleSet& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // Rule sets that call each other are cut off at this depth of nested calls on one thread.
    static constexpr int kMaxCallDepth = 16;

  private:
    CActionConfigCallRuleSet& m_config;
    std::atomic<CRuleSetListEntry*> m_ruleSet{nullptr};
};
