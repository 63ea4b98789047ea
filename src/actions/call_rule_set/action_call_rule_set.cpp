#include "actions/call_rule_set/action_call_rule_set.h"

#include <cstdio>

#include "base/debug_log.h"
#include "base/error_reporter.h"
#include "engine/rule_set_list.h"

namespace {
thread_local int t_callDepth = 0;
}  // namespace

CActionConfigCallRuleSet::CActionConfigCallRuleSet(const CQuilletString& keyPath,
                                                   const vt::ActionLoadContext& context)
    : CActionConfig(keyPath), m_ruleSets(context.ruleSets) {}

void CActionConfigCallRuleSet::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szRuleSet", m_szRuleSet, u"");
    m_szRuleSet.getStringA();  // built now: workers read it concurrently in debug lines
    m_regAccess.CloseKey();
}

void CActionCallRuleSet::doAction(CInfoUnit& unit, const CConfigSettings& settings,
                                  CActionListEntry& /*entry*/) {
    CRuleSetListEntry* ruleSet = m_ruleSet.load(std::memory_order_acquire);
    if (!ruleSet && m_config.getRuleSets()) {
        ruleSet = m_config.getRuleSets()->findRuleSet(m_config.getRuleSetName().view());
        if (ruleSet) m_ruleSet.store(ruleSet, std::memory_order_release);
    }
    if (!ruleSet) {
        vt::debugWrite(vt::DBG_ERROR, "CActionCallRuleSet - RuleSet was NOT found.\r\n");
        char text[1024];
        std::snprintf(text, sizeof text, "No RuleSet was found in Call RuleSet Action. DEBUG: %s",
                      m_config.getKeyPath().getStringA());
        vt::reportError(114, "Action CallRuleSet - Configured RuleSet was not found", text);
        return;
    }
    // A rule set that calls itself, directly or through others, would recurse until the stack
    // runs out; the chain is cut with a debug line instead.
    if (t_callDepth >= kMaxCallDepth) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionCallRuleSet - calls nested deeper than %d, RuleSet '%s' not "
                        "called.\r\n",
                        kMaxCallDepth, m_config.getRuleSetName().getStringA());
        return;
    }
    ++t_callDepth;
    try {
        ruleSet->getRuleList().process(unit, settings);
    } catch (...) {
        --t_callDepth;
        throw;
    }
    --t_callDepth;
}
