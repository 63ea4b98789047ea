// Running a unit through a rule set must not allocate per rule. The test binary counts the
// allocations of the calling thread while a flag is set; sanitizer builds bring their own
// allocator, so the check runs only in the plain builds.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/rule_set_list.h"
#include "service/action_type_table.h"

#if defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define VT_SANITIZED_BUILD 1
#endif
#endif
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define VT_SANITIZED_BUILD 1
#endif

#ifndef VT_SANITIZED_BUILD
namespace {
thread_local bool t_counting = false;
thread_local int t_allocations = 0;
}  // namespace

void* operator new(std::size_t size) {
    if (t_counting) ++t_allocations;
    for (;;) {
        if (void* p = std::malloc(size ? size : 1)) return p;
        std::new_handler handler = std::get_new_handler();
        if (!handler) throw std::bad_alloc();
        handler();
    }
}
void operator delete(void* p) noexcept {
    std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
    std::free(p);
}
#endif

namespace {

using namespace vt;
using namespace vt::test;

TEST(RuleAllocationTest, ProcessingAUnitDoesNotAllocate) {
#ifdef VT_SANITIZED_BUILD
    GTEST_SKIP() << "allocation counting needs the plain allocator";
#else
    ScopedRegistry registry;
    ProbeActionType probeType;
    const std::u16string set = registry.base() + u"\\RS1";
    regSetDword(set, u"nRuleCount", 10);
    for (int r = 1; r <= 10; ++r) {
        const std::u16string rule =
            set + u"\\R" + std::u16string(r == 10 ? u"10" : std::u16string(1, char16_t(u'0' + r)));
        regSetDword(rule, u"nActionCount", 1);
        regSetDword(rule, u"nActionType1", kProbeActionType);
        if (r == 10) continue;
        const std::u16string f1 = rule + u"\\Filters\\F1";
        regSetDword(rule + u"\\Filters", u"nFilterCount", 1);
        regSetDword(f1, u"nOperationType", 4);
        regSetDword(f1, u"PropertyType", r % 2 ? 1 : 0);
        regSetString(f1, u"PropertyName", r % 2 ? u"msg" : u"syslogfacility");
        regSetString(f1, u"PropertyValue", r % 2 ? u"not in the message" : u"99");
    }
    CRuleSetListEntry ruleSet(CQuilletString("set"), CQuilletString(std::u16string_view(set)),
                              ActionLoadContext{nullptr, vt::agentActionTypes()});
    ASSERT_EQ(ruleSet.getRuleList().getRuleCount(), 10);
    auto settings = makeSettings();
    auto unit = makeSyslogUnit(u"an ordinary message");
    ruleSet.getRuleList().process(*unit, *settings);  // warm-up: caches of the unit's values

    t_allocations = 0;
    t_counting = true;
    for (int i = 0; i < 100; ++i) ruleSet.getRuleList().process(*unit, *settings);
    t_counting = false;
    EXPECT_EQ(t_allocations, 0);
    auto* last = static_cast<CRuleListEntry*>(ruleSet.getRuleList().getLast());
    EXPECT_EQ(
        probeConfig(*static_cast<CActionListEntry*>(last->getActions()->getFirst())).calls.load(),
        101);
#endif
}

}  // namespace
