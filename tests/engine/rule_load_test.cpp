#include <gtest/gtest.h>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/rule_set_list.h"
#include "service/action_type_table.h"

namespace {

using namespace vt;
using namespace vt::test;

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
