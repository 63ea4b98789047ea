#pragma once
#include <cstdint>
#include <memory>

#include "base/quillet_string.h"
#include "base/setting_text.h"
#include "engine/action_config.h"
#include "engine/action_types.h"
#include "model/linked_list.h"

class CInfoUnit;
class CConfigSettings;

// One action of a rule: its type id, name and key, and (for implemented types) its settings
// and behaviour objects. Built when the rule is loaded; read-only afterwards.
namespace vt {
struct ActionCounters;
}

class CActionListEntry : public CLinkedListEntry {
  public:
    CActionListEntry(const CQuilletString& name, const CQuilletString& keyPath, int32_t typeId,
                     const vt::ActionLoadContext& context);
    ~CActionListEntry() override;

    // Runs the action for `unit` with the retry and abort rules. True: go on with the next
    // action; false: stop this unit's processing in this rule set.
    bool CallAction(CInfoUnit& unit, const CConfigSettings& settings);

    int32_t getTypeId() const noexcept { return m_typeId; }
    const CQuilletString& getName() const noexcept { return m_name; }
    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }
    CActionConfig* getConfig() const noexcept { return m_config.get(); }
    CAction* getAction() const noexcept { return m_action.get(); }

  private:
    bool runWithRetries(CInfoUnit& unit, const CConfigSettings& settings);

    int32_t m_typeId;
    vt::Clock* m_clock;
    CSettingText m_keyPath;
    CSettingText m_name;
    // The behaviour is declared last so that it is destroyed before the settings it uses.
    std::unique_ptr<CActionConfig> m_config;
    std::unique_ptr<CAction> m_action;
    std::shared_ptr<vt::ActionCounters> m_counters;  // null for NOP, discard and unknown ids
};

// The actions of one rule, in the order A1 ... An of the rule's key.
class CActionList : public CLinkedList {
  public:
    CActionList(const CQuilletString& ruleKeyPath, const vt::ActionLoadContext& context);

    // Runs the entries in order and stops at the first that returns false. Returns the result
    // of the last entry that ran, true for an empty list.
    bool execute(CInfoUnit& unit, const CConfigSettings& settings);

    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }

  private:
    CRegAccess m_regAccess;
    CSettingText m_keyPath;
};
