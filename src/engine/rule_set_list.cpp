#include "engine/rule_set_list.h"

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/reg_access.h"
#include "engine/reg_names.h"
#include "model/info_unit.h"

namespace {

using namespace vt;

int32_t readInt(CRegAccess& reg, std::u16string_view name, int32_t defaultValue) {
    uint32_t value = static_cast<uint32_t>(defaultValue);
    reg.ReadDWORDValue(name, value, static_cast<uint32_t>(defaultValue));
    return static_cast<int32_t>(value);
}

// Reads an optional value of the older rule format; `present` tells whether it was there.
bool readPresent(CRegAccess& reg, std::u16string_view name, int32_t& value) {
    uint32_t raw = 0;
    if (!reg.ReadDWORDValue(name, raw)) return false;
    value = static_cast<int32_t>(raw);
    return true;
}

bool readPresent(CRegAccess& reg, std::u16string_view name, CQuilletString& value) {
    return reg.ReadStringValue(name, value);
}

// Claims the firing for this second. Two workers that both find the wait over must not both
// fire, so the time is swapped in, and only the worker whose swap lands fires. A negative wait
// is no wait at all: a worker whose clock reading is a second older than another's stored
// firing still fires. The value is left alone when it already holds this second (or a later
// one): every worker passes here for every unit, and a store per unit would move the cache
// line from core to core.
bool claimFiring(std::atomic<int64_t>& lastFiring, int64_t now, int64_t wait) {
    int64_t last = lastFiring.load(std::memory_order_relaxed);
    do {
        if (wait >= 0 && now <= last + wait) return false;
        if (last >= now) return true;
    } while (!lastFiring.compare_exchange_weak(last, now, std::memory_order_relaxed));
    return true;
}

}  // namespace

// --- CTimeoutList ---

int32_t CTimeoutList::recordAndCount(int64_t now) {
    std::lock_guard lock(m_lock);
    append(new CTimeoutListEntry(now));
    ++m_entries;
    trimLocked(now);
    return m_entries;
}

void CTimeoutList::trimLocked(int64_t now) {
    const int64_t cutOff = now - m_windowSeconds;
    debugPrintf(DBG_INFO, "CTimeoutList::TrimList, Enter: Entries: %d, toDelete: < %d\r\n",
                m_entries, static_cast<int>(cutOff));
    CLinkedListEntry* previous = nullptr;
    CLinkedListEntry* entry = next(nullptr);
    while (entry) {
        CLinkedListEntry* following = next(entry);
        if (static_cast<CTimeoutListEntry*>(entry)->getTime() < cutOff) {
            removeAfter(previous, entry);
            --m_entries;
        } else {
            previous = entry;
        }
        entry = following;
    }
    debugPrintf(DBG_INFO, "CTimeoutList::TrimList, Exit: Entries: %d\r\n", m_entries);
}

int32_t CTimeoutList::countInWindow(int64_t now) {
    std::lock_guard lock(m_lock);
    trimLocked(now);
    return m_entries;
}

// --- CRuleListEntry ---

CRuleListEntry::CRuleListEntry(const CQuilletString& keyPath, const ActionLoadContext& context)
    : m_keyPath(keyPath), m_clock(context.clock) {
    CRegAccess reg;
    if (reg.OpenKey(RegRoot::LocalMachine, m_keyPath, kKeyRead)) {
        RuleFiringSettings& f = m_firing;
        f.filterVersion = readInt(reg, u"nFilterVersion", 1);
        f.threatNotFoundFilters =
            f.filterVersion != 1 ? readInt(reg, u"nThreatNotFoundFilters", 0) : 1;
        f.occurrencesCount = readInt(reg, u"nOccurrencesCount", -1);
        f.occurrencesTime = readInt(reg, u"nOccurrencesTime", -1);
        f.minimumWaitTime = readInt(reg, u"nMinimumWaitTime", -1);
        f.globalCondProperty = readInt(reg, u"nGlobalCondProperty", 0);
        CQuilletString text;
        reg.ReadStringValue(u"szGlobalCondProperty", text, u"");
        f.globalCondPropertyName = text.wide();

        LegacyRuleConditions& l = m_legacy;
        static constexpr std::u16string_view kDays[] = {u"bSunday",    u"bMonday",   u"bTuesday",
                                                        u"bWednesday", u"bThursday", u"bFriday",
                                                        u"bSaturday"};
        for (uint32_t day = 0; day < 7; ++day)
            if (readInt(reg, kDays[day], 0) != 0) l.weekdayMask |= 1u << day;
        l.timeBegin = readInt(reg, u"CRTimeBegin", 0);
        l.timeEnd = readInt(reg, u"CRTimeEnd", 86399);
        l.charStart = readInt(reg, u"CRCharStart", 0);
        l.charEnd = readInt(reg, u"CRCharEnd", -1);
        l.hasEventSource = readPresent(reg, u"CREventSource", l.eventSource);
        l.hasSourceSystem = readPresent(reg, u"CRSourceSystem", l.sourceSystem);
        l.hasMessageContent = readPresent(reg, u"CRMessageContent", l.messageContent);
        l.hasSyslogPriority = readPresent(reg, u"CRSyslogPriority", l.syslogPriority);
        if (l.hasSyslogPriority)
            l.hasSyslogPriorityCompare =
                readPresent(reg, u"CRSyslogPriorityCompare", l.syslogPriorityCompare);
        l.hasSyslogFacility = readPresent(reg, u"CRSyslogFacility", l.syslogFacility);
        l.hasEventId = readPresent(reg, u"CREventID", l.eventId);
        l.hasUnitType = readPresent(reg, u"CRInformationUnitType", l.unitType);
        l.hasEventLogSeverity = readPresent(reg, u"CREventLogSeverity", l.eventLogSeverity);
        l.hasDiskSpace = readPresent(reg, u"CRDiskSpace", l.diskSpace);
        l.diskSpaceType = readInt(reg, u"CRDiskSpaceType", -1);
        l.diskSpaceCompare = readInt(reg, u"CRDiskSpaceCompare", -1);
        reg.CloseKey();
    }
    m_filters = std::make_unique<CFilterList>(FOP_AND, m_firing.threatNotFoundFilters);
    m_filters->load(CQuilletString(subkeyPath(m_keyPath.view(), u"Filters")));
    m_actions = std::make_unique<CActionList>(m_keyPath, context);
    createFiringState();
}

CRuleListEntry::CRuleListEntry(const RuleFiringSettings& firing,
                               std::unique_ptr<CFilterList> filters,
                               std::unique_ptr<CActionList> actions, Clock& clock)
    : m_firing(firing),
      m_filters(std::move(filters)),
      m_actions(std::move(actions)),
      m_clock(&clock) {
    if (!m_filters)
        m_filters = std::make_unique<CFilterList>(FOP_AND, firing.threatNotFoundFilters);
    createFiringState();
}

CRuleListEntry::~CRuleListEntry() = default;

void CRuleListEntry::createFiringState() {
    if (m_firing.globalCondProperty != 1)
        m_occurrences = std::make_unique<CTimeoutList>(m_firing.occurrencesTime);
}

CFilterConditionHelperEntry& CRuleListEntry::groupEntry(CInfoUnit& unit) {
    const CQuilletString* value = unit.getPropertyStringObject(m_firing.globalCondPropertyName);
    const std::u16string_view key = value ? value->view() : std::u16string_view(u"default");
    // Entries are only ever added while the rule lives, so the pointer stays valid unlocked.
    std::lock_guard lock(m_perValue);
    auto* entry = static_cast<CFilterConditionHelperEntry*>(m_perValue.find(key));
    if (!entry) {
        entry = new CFilterConditionHelperEntry(key, m_firing.occurrencesTime);
        m_perValue.append(entry);
    }
    return *entry;
}

bool CRuleListEntry::IsMatchingEntry(CInfoUnit& unit, const CConfigSettings& settings) {
    debugWrite(DBG_RULEENG, "BEGIN Checking filter conditions...\r\n");
    const int32_t result = m_filters->evaluate(unit, &settings);
    debugPrintf(DBG_RULEENG,
                "CRuleListEntry|IsMatchingEntry: END filter condition check. Overall result: "
                "%d.\r\n",
                result);
    if (result == FILTER_FALSE) return false;

    CTimeoutList* occurrences = m_occurrences.get();
    std::atomic<int64_t>* lastFiring = &m_lastFiring;
    if (m_firing.globalCondProperty == 1) {
        CFilterConditionHelperEntry& group = groupEntry(unit);
        occurrences = &group.m_occurrences;
        lastFiring = &group.m_lastFiring;
    }

    Clock& clock = *m_clock;
    if (m_firing.occurrencesCount != -1 && m_firing.occurrencesTime != -1) {
        const int64_t now = clock.nowSeconds();
        const int32_t count = occurrences->recordAndCount(now);
        debugPrintf(DBG_INFO,
                    "CRuleListEntry|IsMatchingEntry: testing for occurrences, event occured %d "
                    "times, configured minimum %d.\r\n",
                    count, m_firing.occurrencesCount);
        if (count < m_firing.occurrencesCount) return false;
    } else {
        debugWrite(DBG_INFO, "Check Filter Condition: Occurrences not set\r\n");
    }

    const int64_t now = clock.nowSeconds();
    if (!claimFiring(*lastFiring, now, m_firing.minimumWaitTime)) {
        debugWrite(DBG_RULEENG,
                   "CRuleListEntry|IsMatchingEntry: Check Filter Condition: Not the right time to "
                   "fire again\r\n");
        return false;
    }
    if (lastFiring != &m_lastFiring && m_lastFiring.load(std::memory_order_relaxed) != now)
        m_lastFiring.store(now, std::memory_order_relaxed);
    return true;
}

bool CRuleListEntry::runActions(CInfoUnit& unit, const CConfigSettings& settings) {
    return m_actions ? m_actions->execute(unit, settings) : true;
}

// --- CRuleList ---

void CRuleList::load(const CQuilletString& ruleSetKeyPath, int32_t count, int32_t version,
                     const ActionLoadContext& context) {
    if (m_loaded && version == m_loadedVersion) return;
    clear();
    m_ruleCount = 0;
    for (int32_t m = 1; m <= count; ++m) {
        add(std::make_unique<CRuleListEntry>(
            CQuilletString(numberedSubkey(ruleSetKeyPath.view(), u"R", static_cast<uint32_t>(m))),
            context));
    }
    m_loaded = true;
    m_loadedVersion = version;
}

void CRuleList::add(std::unique_ptr<CRuleListEntry> rule) {
    append(rule.release());
    ++m_ruleCount;
}

bool CRuleList::process(CInfoUnit& unit, const CConfigSettings& settings) {
    bool proceed = true;
    for (CLinkedListEntry* e = next(nullptr); e && proceed; e = next(e)) {
        auto* rule = static_cast<CRuleListEntry*>(e);
        if (rule->IsMatchingEntry(unit, settings)) proceed = rule->runActions(unit, settings);
    }
    return proceed;
}

// --- CRuleSetListEntry ---

CRuleSetListEntry::CRuleSetListEntry(const CQuilletString& name, const CQuilletString& keyPath,
                                     const ActionLoadContext& context)
    : CSearchableLinkedListEntry(name.view()), m_keyPath(keyPath) {
    CRegAccess reg;
    if (reg.OpenKey(RegRoot::LocalMachine, m_keyPath, kKeyRead)) {
        m_nRuleSetNumber = readInt(reg, u"nRuleSetNumber", 1);
        m_nRuleCount = readInt(reg, u"nRuleCount", 0);
        m_nRuleVersion = readInt(reg, u"nRuleVersion", -1);
        reg.CloseKey();
    }
    m_rules.load(m_keyPath, m_nRuleCount, m_nRuleVersion, context);
}

CRuleSetListEntry::CRuleSetListEntry(const CQuilletString& name)
    : CSearchableLinkedListEntry(name.view()) {}

// --- CRuleSetList ---

bool CRuleSetList::load(const CQuilletString& ruleSetsKeyPath) {
    CRegAccess reg;
    reg.OpenKey(RegRoot::LocalMachine, ruleSetsKeyPath, kKeyRead);
    const int32_t version = readInt(reg, u"nRuleSetsVersion", -1);
    if (m_loaded && version == m_loadedVersion) return false;
    if (m_loaded) clear();
    m_keyPath = ruleSetsKeyPath;
    const int32_t count = readInt(reg, u"nRuleSetCount", 0);
    const ActionLoadContext context{this, m_types};
    for (int32_t n = 1; n <= count; ++n) {
        CQuilletString name;
        reg.ReadStringValue(numberedName(u"szRSName", static_cast<uint32_t>(n)), name,
                            u"Unknown RuleSet Name");
        CQuilletString keyPath(
            numberedSubkey(ruleSetsKeyPath.view(), u"RS", static_cast<uint32_t>(n)));
        append(new CRuleSetListEntry(name, keyPath, context));
    }
    reg.CloseKey();
    m_loaded = true;
    m_loadedVersion = version;
    return true;
}

void CRuleSetList::add(std::unique_ptr<CRuleSetListEntry> ruleSet) {
    append(ruleSet.release());
}

void CRuleSetList::unload() {
    clear();
    m_loaded = false;
    m_loadedVersion = -1;
}

namespace vt {

size_t loadAgentRuleSets(CRuleSetList& list) {
    list.load(CQuilletString(std::u16string_view(kRuleSetsKeyPath)));
    return list.count();
}

}  // namespace vt
