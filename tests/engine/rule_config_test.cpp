#include <gtest/gtest.h>

#include <tuple>
#include <utility>
#include <variant>
#include <vector>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/rule_set_list.h"
#include "model/info_unit_types.h"
#include "service/action_type_table.h"

namespace {

using namespace vt;
using namespace vt::test;

// Three rule sets. "Main": R1 logs "alert" messages, calls "Alerts" and logs again; R2 logs
// "drop" messages and discards them before a third action; R3 has no filters and logs
// everything that gets that far. "Alerts": R1 logs and discards units of priority below 4;
// R2 logs the rest. "Loop" calls "Later", which is not there, and then itself. Action type
// 9001 is the test's probe, which appends its "szTag".
struct Value {
    const char16_t* name;
    std::variant<uint32_t, const char16_t*> value;
};
// clang-format off
const std::pair<const char16_t*, std::vector<Value>> kConfig[] = {
    {u"", {{u"nRuleSetsVersion", 7u}, {u"nRuleSetCount", 3u}, {u"szRSName1", u"Main"},
           {u"szRSName2", u"Alerts"}, {u"szRSName3", u"Loop"}}},
    {u"\\RS1", {{u"nRuleSetNumber", 1u}, {u"nRuleCount", 3u}, {u"nRuleVersion", 1u}}},
    {u"\\RS1\\R1", {{u"nActionCount", 3u}, {u"nActionType1", 9001u},
                     {u"szActionName1", u"log main-r1"}, {u"nActionType2", 1014u},
                     {u"szActionName2", u"call Alerts"}, {u"nActionType3", 9001u},
                     {u"szActionName3", u"log main-r1-after"}}},
    {u"\\RS1\\R1\\A1", {{u"szTag", u"main-r1"}}},
    {u"\\RS1\\R1\\A2", {{u"szRuleSet", u"Alerts"}}},
    {u"\\RS1\\R1\\A3", {{u"szTag", u"main-r1-after"}}},
    {u"\\RS1\\R1\\Filters", {{u"nFilterCount", 1u}}},
    {u"\\RS1\\R1\\Filters\\F1", {{u"nOperationType", 4u}, {u"PropertyType", 1u},
                                    {u"PropertyName", u"msg"}, {u"PropertyValue", u"alert"},
                                    {u"CompareOperation", 0u}}},
    {u"\\RS1\\R2", {{u"nActionCount", 3u}, {u"nActionType1", 9001u}, {u"nActionType2", 1u},
                     {u"nActionType3", 9001u}}},
    {u"\\RS1\\R2\\A1", {{u"szTag", u"main-r2"}}},
    {u"\\RS1\\R2\\A3", {{u"szTag", u"never"}}},
    {u"\\RS1\\R2\\Filters", {{u"nFilterCount", 1u}}},
    {u"\\RS1\\R2\\Filters\\F1", {{u"nOperationType", 4u}, {u"PropertyType", 1u},
                                    {u"PropertyName", u"msg"}, {u"PropertyValue", u"drop"}}},
    {u"\\RS1\\R3", {{u"nActionCount", 1u}, {u"nActionType1", 9001u}}},
    {u"\\RS1\\R3\\A1", {{u"szTag", u"main-r3"}}},
    {u"\\RS2", {{u"nRuleSetNumber", 2u}, {u"nRuleCount", 2u}}},
    {u"\\RS2\\R1", {{u"nActionCount", 2u}, {u"nActionType1", 9001u}, {u"nActionType2", 1u}}},
    {u"\\RS2\\R1\\A1", {{u"szTag", u"alerts-r1"}}},
    {u"\\RS2\\R1\\Filters", {{u"nFilterCount", 1u}}},
    {u"\\RS2\\R1\\Filters\\F1", {{u"nOperationType", 4u}, {u"PropertyType", 0u},
                                    {u"PropertyName", u"SyslogPriority"},
                                    {u"PropertyValue", u"4"}, {u"CompareOperation", 3u}}},
    {u"\\RS2\\R2", {{u"nActionCount", 1u}, {u"nActionType1", 9001u}}},
    {u"\\RS2\\R2\\A1", {{u"szTag", u"alerts-r2"}}},
    {u"\\RS3", {{u"nRuleCount", 1u}}},
    {u"\\RS3\\R1", {{u"nActionCount", 2u}, {u"nActionType1", 1014u}, {u"nActionType2", 1014u}}},
    {u"\\RS3\\R1\\A1", {{u"szRuleSet", u"Later"}}},
    {u"\\RS3\\R1\\A2", {{u"szRuleSet", u"Loop"}}},
};
// clang-format on

class RuleConfigTest : public ::testing::Test {
  protected:
    void SetUp() override {
        m_registry.alsoRemove(kRuleSetsKeyPath);
        for (const auto& [key, values] : kConfig)
            for (const Value& v : values) {
                const std::u16string path = kRuleSetsKeyPath + std::u16string(key);
                if (auto* dword = std::get_if<uint32_t>(&v.value))
                    regSetDword(path, v.name, *dword);
                else
                    regSetString(path, v.name, std::get<const char16_t*>(v.value));
            }
        ASSERT_EQ(loadAgentRuleSets(m_ruleSets), 3u);
        m_main = m_ruleSets.findRuleSet(u"Main");
        ASSERT_NE(m_main, nullptr);
    }

    ScopedRegistry m_registry;
    ProbeActionType m_probeType;
    CRuleSetList m_ruleSets{vt::agentActionTypes()};
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
    CRuleSetListEntry* m_main = nullptr;
};

// A discard ends its rule and every later rule, but in a called rule set only that rule set.
// Rule set names compare as stored; "nRuleVersion" defaults to -1.
TEST_F(RuleConfigTest, RoutesUnitsThroughRulesAndCalledRuleSet) {
    EXPECT_EQ(m_ruleSets.getLoadedVersion(), 7);
    EXPECT_EQ(m_ruleSets.findRuleSet(u"main"), nullptr);
    EXPECT_EQ(m_ruleSets.findRuleSet(u"Alerts")->getRuleSetNumber(), 2);
    EXPECT_EQ(m_ruleSets.findRuleSet(u"Alerts")->getRuleVersion(), -1);
    const std::tuple<const char16_t*, int, const char*> routes[] = {
        {u"alert one", 5, "main-r1,alerts-r2,main-r1-after,main-r3"},
        {u"alert two", 2, "main-r1,alerts-r1,main-r1-after,main-r3"},
        {u"please drop", 5, "main-r2"},
        {u"alert and drop", 5, "main-r1,alerts-r2,main-r1-after,main-r2"},
        {u"other", 5, "main-r3"},
    };
    for (auto [msg, priority, trace] : routes) {
        auto unit = makeSyslogUnit(msg);
        unit->setSyslogPriority(priority);
        m_main->getRuleList().process(*unit, *m_settings);
        EXPECT_EQ(traceOf(*unit), trace);
    }
}

// A call to a rule set that is not loaded is reported on each call until it is there; a rule
// set that calls itself ends after a bounded depth instead of exhausting the stack.
TEST_F(RuleConfigTest, CallsToMissingAndSelf) {
    CRuleSetListEntry* loop = m_ruleSets.findRuleSet(u"Loop");
    ASSERT_NE(loop, nullptr);
    for (bool loaded : {false, true}) {
        if (loaded) m_ruleSets.add(std::make_unique<CRuleSetListEntry>(CQuilletString("Later")));
        DebugCapture capture;
        auto unit = makeSyslogUnit(u"m");
        EXPECT_TRUE(loop->getRuleList().process(*unit, *m_settings));
        EXPECT_EQ(capture.count("CActionCallRuleSet - RuleSet was NOT found.") > 0, !loaded);
        EXPECT_EQ(capture.count("Error Event 114 logged with data 'No RuleSet was found in Call "
                                "RuleSet Action. DEBUG: ") > 0,
                  !loaded);
        EXPECT_GT(capture.count("calls nested deeper than"), 0u);
    }
}

// The values of a rule key, the filter-version rule for unknown properties, and the older
// format's values that are only kept.
TEST(RuleLoadTest, ReadsFiringSettingsAndKeepsOlderValues) {
    ScopedRegistry registry;
    const std::u16string v1 = registry.base() + u"\\R1";
    regSetDword(v1, u"nThreatNotFoundFilters", 0);  // ignored with filter version 1
    regSetDword(v1, u"nOccurrencesCount", 3);
    regSetDword(v1, u"nOccurrencesTime", 60);
    regSetDword(v1, u"bMonday", 1);
    regSetDword(v1, u"bSaturday", 1);
    regSetString(v1, u"CRMessageContent", u"disk");
    regSetDword(v1, u"CRSyslogPriority", 3);
    regSetDword(v1, u"CRSyslogPriorityCompare", 1);
    const std::u16string v2 = registry.base() + u"\\R2";
    regSetDword(v2, u"nFilterVersion", 2);
    regSetDword(v2, u"nGlobalCondProperty", 1);
    regSetString(v2, u"szGlobalCondProperty", u"host");

    CRuleListEntry first(CQuilletString(std::u16string_view(v1)),
                         ActionLoadContext{nullptr, vt::agentActionTypes()});
    EXPECT_EQ(first.getFiring().threatNotFoundFilters, 1);
    EXPECT_EQ(first.getFilters().getIgnoreUnknown(), 1);
    EXPECT_EQ(first.getFiring().occurrencesCount, 3);
    EXPECT_EQ(first.getFiring().occurrencesTime, 60);
    EXPECT_EQ(first.getFiring().minimumWaitTime, -1);
    EXPECT_EQ(first.getLegacy().weekdayMask, 2u | 64u);
    EXPECT_TRUE(first.getLegacy().hasMessageContent);
    EXPECT_EQ(first.getLegacy().messageContent.view(), u"disk");
    EXPECT_TRUE(first.getLegacy().hasSyslogPriorityCompare);
    EXPECT_FALSE(first.getLegacy().hasEventSource);
    EXPECT_EQ(first.getLegacy().timeEnd, 86399);
    EXPECT_EQ(first.getLegacy().charEnd, -1);

    CRuleListEntry second(CQuilletString(std::u16string_view(v2)),
                          ActionLoadContext{nullptr, vt::agentActionTypes()});
    EXPECT_EQ(second.getFiring().threatNotFoundFilters, 0);  // read, default 0
    EXPECT_EQ(second.getFiring().globalCondProperty, 1);
    EXPECT_EQ(second.getFiring().globalCondPropertyName, u"host");
}

// A missing RuleSets key loads an empty rule base. A changed version reloads everything; an
// unchanged one keeps the objects.
TEST(RuleLoadTest, ReloadOnlyOnVersionChange) {
    ScopedRegistry registry;
    const std::u16string sets = registry.base() + u"\\RuleSets";
    CRuleSetList list;
    EXPECT_TRUE(list.load(CQuilletString(std::u16string_view(sets))));
    EXPECT_EQ(list.count(), 0u);
    EXPECT_TRUE(list.isLoaded());
    regSetDword(sets, u"nRuleSetsVersion", 1);
    regSetDword(sets, u"nRuleSetCount", 1);
    ASSERT_TRUE(list.load(CQuilletString(std::u16string_view(sets))));
    CRuleSetListEntry* unnamed = list.findRuleSet(u"Unknown RuleSet Name");
    ASSERT_NE(unnamed, nullptr);
    EXPECT_FALSE(list.load(CQuilletString(std::u16string_view(sets))));
    regSetDword(sets, u"nRuleSetsVersion", 2);
    regSetString(sets, u"szRSName1", u"Renamed");
    EXPECT_TRUE(list.load(CQuilletString(std::u16string_view(sets))));
    EXPECT_EQ(list.count(), 1u);
    EXPECT_NE(list.findRuleSet(u"Renamed"), nullptr);
    EXPECT_EQ(list.getLoadedVersion(), 2);
}

}  // namespace
