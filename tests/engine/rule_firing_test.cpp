#include <gtest/gtest.h>

#include "engine/rule_set_list.h"
#include "engine_test_helper.h"
#include "service/config_settings.h"

namespace {

using namespace vt;
using namespace vt::test;

// Rules without filters match every unit, so these tests see the firing controls alone.
class RuleFiringTest : public ::testing::Test {
  protected:
    std::unique_ptr<CRuleListEntry> rule(int32_t count, int32_t window, int32_t wait,
                                         std::u16string groupBy = {}) {
        RuleFiringSettings f;
        f.occurrencesCount = count;
        f.occurrencesTime = window;
        f.minimumWaitTime = wait;
        if (!groupBy.empty()) {
            f.globalCondProperty = 1;
            f.globalCondPropertyName = std::move(groupBy);
        }
        return std::make_unique<CRuleListEntry>(f, nullptr, nullptr);
    }
    bool fires(CRuleListEntry& r, std::u16string_view host = {}) {
        auto unit = makeSyslogUnit(u"m");
        if (!host.empty()) unit->setPropertyString(u"host", host);
        return r.IsMatchingEntry(*unit, *m_settings);
    }

    FakeClock m_clock;
    ScopedEngineClock m_scope{m_clock};
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
};

TEST_F(RuleFiringTest, DefaultsFireEveryTime) {
    auto r = rule(-1, -1, -1);
    EXPECT_TRUE(fires(*r));
    EXPECT_TRUE(fires(*r));
}

// Three in sixty seconds: the first two do not fire, the third does, the fourth as well.
TEST_F(RuleFiringTest, ThreeOccurrencesInSixtySeconds) {
    auto r = rule(3, 60, -1);
    EXPECT_FALSE(fires(*r));
    m_clock.advance(20);
    EXPECT_FALSE(fires(*r));
    m_clock.advance(20);
    EXPECT_TRUE(fires(*r));
    m_clock.advance(1);
    EXPECT_TRUE(fires(*r));
}

TEST_F(RuleFiringTest, MinimumWaitHoldsBackTheFourth) {
    auto r = rule(3, 60, 30);
    EXPECT_FALSE(fires(*r));
    EXPECT_FALSE(fires(*r));
    EXPECT_TRUE(fires(*r));
    m_clock.advance(5);
    EXPECT_FALSE(fires(*r));  // within the wait
    m_clock.advance(25);
    EXPECT_FALSE(fires(*r));  // exactly last firing + wait is still too early
    m_clock.advance(1);
    EXPECT_TRUE(fires(*r));  // the occurrences during the wait counted
}

TEST_F(RuleFiringTest, OccurrencesOlderThanTheWindowDropOut) {
    auto r = rule(3, 60, -1);
    EXPECT_FALSE(fires(*r));
    EXPECT_FALSE(fires(*r));
    m_clock.advance(61);
    EXPECT_FALSE(fires(*r));  // the first two are out of the window
    EXPECT_FALSE(fires(*r));
    EXPECT_TRUE(fires(*r));
}

TEST_F(RuleFiringTest, WaitZeroFiresAtMostOncePerSecond) {
    auto r = rule(-1, -1, 0);
    EXPECT_TRUE(fires(*r));
    EXPECT_FALSE(fires(*r));
    m_clock.advance(1);
    EXPECT_TRUE(fires(*r));
}

// Each value of the grouping property keeps its own count and wait; a unit without the
// property is counted under "default".
TEST_F(RuleFiringTest, GroupingByPropertyValue) {
    auto r = rule(2, 60, 100, u"host");
    EXPECT_FALSE(fires(*r, u"a"));
    EXPECT_FALSE(fires(*r, u"b"));
    EXPECT_TRUE(fires(*r, u"a"));
    EXPECT_FALSE(fires(*r, u"a"));  // a waits now
    EXPECT_TRUE(fires(*r, u"b"));   // b does not
    EXPECT_FALSE(fires(*r));        // "default", first
    EXPECT_FALSE(fires(*r, u"c"));
    EXPECT_TRUE(fires(*r));  // "default", second
    auto named = makeSyslogUnit(u"m");
    named->setPropertyString(u"host", u"default");
    EXPECT_FALSE(r->IsMatchingEntry(*named, *m_settings));  // the same group, now waiting
}

TEST_F(RuleFiringTest, TimeoutListTrimsByCutOff) {
    CTimeoutList list(10);
    list.recordOccurrence(100);
    list.recordOccurrence(105);
    list.recordOccurrence(111);
    EXPECT_EQ(list.countInWindow(111), 2);  // cut-off 101 drops 100
    EXPECT_EQ(list.countInWindow(115), 2);  // an entry exactly at the cut-off stays
    EXPECT_EQ(list.countInWindow(116), 1);
    EXPECT_EQ(list.getEntryCount(), 1);
}

}  // namespace
