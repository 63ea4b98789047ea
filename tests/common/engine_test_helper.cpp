#include "common/engine_test_helper.h"

#include <gtest/gtest.h>

#include "base/config_settings.h"
#include "base/error_report.h"
#include "model/info_unit_types.h"
#include "platform/registry.h"
#include "service/action_type_table.h"

namespace vt::test {

void FakeClock::sleepMs(uint32_t milliseconds) {
    std::function<void(uint32_t)> hook;
    {
        std::lock_guard lock(m_lock);
        m_durations.push_back(milliseconds);
        hook = m_hook;
    }
    ++m_sleeps;
    if (hook) hook(milliseconds);
}

std::vector<uint32_t> FakeClock::sleepDurations() const {
    std::lock_guard lock(m_lock);
    return m_durations;
}

void FakeClock::onSleep(std::function<void(uint32_t)> hook) {
    std::lock_guard lock(m_lock);
    m_hook = std::move(hook);
}

void CActionConfigProbe::LoadConfig() {
    if (!loadEnabled()) return;
    uint32_t value = 0;
    m_regAccess.ReadDWORDValue(u"nMode", value, 0);
    mode = static_cast<int>(value);
    CQuilletString text;
    m_regAccess.ReadStringValue(u"szTag", text, u"");
    tag = text.wide();
    m_regAccess.CloseKey();
}

void CActionProbe::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    ++m_config.calls;
    if (!m_config.tag.empty()) {
        const CQuilletString* trace = unit.getPropertyStringObject(u"trace");
        std::u16string text = trace ? trace->wide() : std::u16string();
        if (!text.empty()) text += u",";
        text += m_config.tag;
        unit.setPropertyString(u"trace", text);
    }
    if (m_config.hook) m_config.hook(unit);
    switch (static_cast<ProbeMode>(m_config.mode.load())) {
        case ProbeMode::Succeed:
            break;
        case ProbeMode::SetFailedFlag:
            unit.setActionFailed(1);
            break;
        case ProbeMode::ThrowReport:
            throw new CErrorReport(77, CQuilletString("probe failure"));
        case ProbeMode::ThrowUnknown:
            throw 42;
    }
}

ProbeActionType::ProbeActionType()
    : m_scope(ActionType{kProbeActionType, "Probe", &makeActionConfig<CActionConfigProbe>,
                         &makeAction<CActionConfigProbe, CActionProbe>}) {}

CActionConfigProbe& probeConfig(CActionListEntry& entry) {
    return static_cast<CActionConfigProbe&>(*entry.getConfig());
}

std::unique_ptr<CRuleListEntry> probeRule(const std::u16string& ruleKey,
                                          CActionConfigProbe*& probe) {
    regSetDword(ruleKey, u"nActionCount", 1);
    regSetDword(ruleKey, u"nActionType1", kProbeActionType);
    auto actions =
        std::make_unique<CActionList>(CQuilletString(std::u16string_view(ruleKey)),
                                      ActionLoadContext{nullptr, vt::agentActionTypes()});
    probe = &probeConfig(*static_cast<CActionListEntry*>(actions->next(nullptr)));
    return std::make_unique<CRuleListEntry>(RuleFiringSettings{}, nullptr, std::move(actions));
}

std::string traceOf(const CInfoUnit& unit) {
    const CQuilletString* trace = unit.getPropertyStringObject(u"trace");
    return trace ? std::string(trace->narrowView()) : std::string();
}

std::unique_ptr<CConfigSettings> makeSettings() {
    return std::make_unique<CConfigSettings>();
}

std::unique_ptr<CInfoUnit> makeSyslogUnit(std::u16string_view msg) {
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_SYSLOG);
    unit->setMsg(msg);
    return unit;
}

}  // namespace vt::test
