#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>

#include "base/quillet_string.h"
#include "base/setting_text.h"
#include "engine/action_list.h"
#include "engine/action_types.h"
#include "engine/filter_list.h"
#include "model/linked_list.h"

class CInfoUnit;
class CConfigSettings;

class CTimeoutListEntry : public CLinkedListEntry {
  public:
    explicit CTimeoutListEntry(int64_t time) : m_time(time) {}
    int64_t getTime() const noexcept { return m_time; }

  private:
    int64_t m_time;
};

// The times of recent occurrences of one rule (or of one grouping value of a rule), for the
// "so many times within so many seconds" test. Two workers may record into the same list at
// once, so changes are serialised by a small lock of its own; it is taken only by rules that
// count occurrences.
class CTimeoutList : public CLinkedList {
  public:
    explicit CTimeoutList(int32_t windowSeconds) : m_windowSeconds(windowSeconds) {}

    // Records one occurrence and returns how many lie inside the window, under one lock: two
    // workers that record apart and count apart would both see the Nth occurrence.
    int32_t recordAndCount(int64_t now);
    // Trims, then returns the number of occurrences inside the window.
    int32_t countInWindow(int64_t now);

    int32_t getEntryCount() const noexcept { return m_entries; }
    int32_t getWindow() const noexcept { return m_windowSeconds; }

  private:
    void trimLocked(int64_t now);

    std::mutex m_lock;
    int32_t m_entries = 0;  // guarded by m_lock
    int32_t m_windowSeconds;
};

// Firing state kept per value of the grouping property.
class CFilterConditionHelperEntry : public CThreadSafeSearchableLinkedListEntry {
  public:
    CFilterConditionHelperEntry(std::u16string_view value, int32_t windowSeconds)
        : CThreadSafeSearchableLinkedListEntry(value), m_occurrences(windowSeconds) {}

    std::atomic<int64_t> m_lastFiring{0};
    CTimeoutList m_occurrences;
};

// Values of the older rule format: read and kept with the rule; matching uses the filter tree.
struct LegacyRuleConditions {
    uint32_t weekdayMask = 0;  // Sunday 1 ... Saturday 64
    int32_t timeBegin = 0;     // "CRTimeBegin"
    int32_t timeEnd = 86399;   // "CRTimeEnd"
    int32_t charStart = 0;     // "CRCharStart"
    int32_t charEnd = -1;      // "CRCharEnd"
    bool hasEventSource = false, hasSourceSystem = false, hasMessageContent = false;
    CQuilletString eventSource, sourceSystem, messageContent;
    bool hasSyslogPriority = false, hasSyslogPriorityCompare = false, hasSyslogFacility = false;
    bool hasEventId = false, hasUnitType = false, hasEventLogSeverity = false, hasDiskSpace = false;
    int32_t syslogPriority = 0, syslogPriorityCompare = 0, syslogFacility = 0, eventId = 0,
            unitType = 0, eventLogSeverity = 0, diskSpace = 0;
    int32_t diskSpaceType = -1, diskSpaceCompare = -1;
};

// Settings of one rule that decide when a matching unit fires it.
struct RuleFiringSettings {
    int32_t filterVersion = 1;              // "nFilterVersion"
    int32_t threatNotFoundFilters = 1;      // "nThreatNotFoundFilters" (1 for filter version 1)
    int32_t occurrencesCount = -1;          // "nOccurrencesCount"
    int32_t occurrencesTime = -1;           // "nOccurrencesTime"
    int32_t minimumWaitTime = -1;           // "nMinimumWaitTime"
    int32_t globalCondProperty = 0;         // "nGlobalCondProperty"
    std::u16string globalCondPropertyName;  // "szGlobalCondProperty"
};

// One rule: a filter tree, the actions, and the firing controls (occurrences in a window,
// minimum wait, optionally kept per value of one property).
class CRuleListEntry : public CLinkedListEntry {
  public:
    // Loads the rule from its key (filters from "<key>\Filters", actions from the key itself).
    CRuleListEntry(const CQuilletString& keyPath, const vt::ActionLoadContext& context);
    // A rule built in code (tests, tools): the lists are handed over.
    CRuleListEntry(const RuleFiringSettings& firing, std::unique_ptr<CFilterList> filters,
                   std::unique_ptr<CActionList> actions, vt::Clock& clock = vt::systemClock());
    ~CRuleListEntry() override;

    bool IsMatchingEntry(CInfoUnit& unit, const CConfigSettings& settings);
    // Runs the rule's actions; false ends the unit's processing in this rule set.
    bool runActions(CInfoUnit& unit, const CConfigSettings& settings);

    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }
    const RuleFiringSettings& getFiring() const noexcept { return m_firing; }
    const LegacyRuleConditions& getLegacy() const noexcept { return m_legacy; }
    const CFilterList& getFilters() const noexcept { return *m_filters; }
    const CActionList* getActions() const noexcept { return m_actions.get(); }
    int64_t getLastFiring() const noexcept { return m_lastFiring.load(); }

  private:
    void createFiringState();
    CFilterConditionHelperEntry& groupEntry(CInfoUnit& unit);

    CSettingText m_keyPath;
    RuleFiringSettings m_firing;
    LegacyRuleConditions m_legacy;
    std::unique_ptr<CFilterList> m_filters;
    std::unique_ptr<CActionList> m_actions;
    vt::Clock* m_clock;                           // for the windows and the minimum wait
    std::unique_ptr<CTimeoutList> m_occurrences;  // when not grouping by value
    std::atomic<int64_t> m_lastFiring{0};
    CThreadSafeSearchableLinkedList m_perValue;  // of CFilterConditionHelperEntry
};

// The rules of one rule set, R1 ... Rn.
class CRuleList : public CLinkedList {
  public:
    CRuleList() = default;

    // Loads rules R1 ... R`count` below `ruleSetKeyPath` unless `version` is the one loaded.
    void load(const CQuilletString& ruleSetKeyPath, int32_t count, int32_t version,
              const vt::ActionLoadContext& context);
    void add(std::unique_ptr<CRuleListEntry> rule);

    // Runs the unit through the rules in order; returns the last continue flag.
    bool process(CInfoUnit& unit, const CConfigSettings& settings);

    bool isLoaded() const noexcept { return m_loaded; }
    int32_t getLoadedVersion() const noexcept { return m_loadedVersion; }
    int32_t getRuleSetNumber() const noexcept { return m_ruleSetNumber; }
    int32_t getRuleCount() const noexcept { return m_ruleCount; }

  private:
    bool m_loaded = false;
    int32_t m_loadedVersion = -1;
    int32_t m_ruleSetNumber = 0;
    int32_t m_ruleCount = 0;
};

// A named rule set.
class CRuleSetListEntry : public CSearchableLinkedListEntry {
  public:
    CRuleSetListEntry(const CQuilletString& name, const CQuilletString& keyPath,
                      const vt::ActionLoadContext& context);
    // An empty rule set built in code.
    explicit CRuleSetListEntry(const CQuilletString& name);

    CRuleList& getRuleList() noexcept { return m_rules; }
    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }
    int32_t getRuleSetNumber() const noexcept { return m_nRuleSetNumber; }
    int32_t getRuleCount() const noexcept { return m_nRuleCount; }
    int32_t getRuleVersion() const noexcept { return m_nRuleVersion; }

  private:
    CSettingText m_keyPath;
    int32_t m_nRuleSetNumber = 1;
    int32_t m_nRuleCount = 0;
    int32_t m_nRuleVersion = -1;
    CRuleList m_rules;
};

// All rule sets, found by name. Built before the inputs start and read-only while units are
// processed; a reload (a changed "nRuleSetsVersion") must not run while workers process units.
class CRuleSetList : public CSearchableLinkedList {
  public:
    // `types` are the action types the loaded rules may use; the table must outlive the list.
    explicit CRuleSetList(std::span<const vt::ActionType> types = {}) : m_types(types) {}

    // Loads the rule sets below `ruleSetsKeyPath`; does nothing when "nRuleSetsVersion" is the
    // version already loaded. Returns whether a (re)load took place.
    bool load(const CQuilletString& ruleSetsKeyPath);
    void add(std::unique_ptr<CRuleSetListEntry> ruleSet);
    // Destroys every rule set and forgets the loaded version, so that the next load reads all.
    void unload();

    // Names compare exactly, as stored.
    CRuleSetListEntry* findRuleSet(std::u16string_view name) const noexcept {
        return static_cast<CRuleSetListEntry*>(find(name));
    }

    bool isLoaded() const noexcept { return m_loaded; }
    int32_t getLoadedVersion() const noexcept { return m_loadedVersion; }
    const CQuilletString& getKeyPath() const noexcept { return m_keyPath; }

  private:
    std::span<const vt::ActionType> m_types;
    bool m_loaded = false;
    int32_t m_loadedVersion = -1;
    CSettingText m_keyPath;
};

namespace vt {

inline constexpr char16_t kRuleSetsKeyPath[] = u"SOFTWARE\\Quillet\\Vantor\\Agent\\RuleSets";

// Loads all rule sets of the agent's configuration into `list` (the start-up step before the
// inputs start). Returns the number of rule sets loaded.
size_t loadAgentRuleSets(CRuleSetList& list);

}  // namespace vt
