#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "engine/rule_set_list.h"

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
        return std::make_unique<CRuleListEntry>(f, nullptr, nullptr, m_clock);
    }
    bool fires(CRuleListEntry& r, std::u16string_view host = {}) {
        auto unit = makeSyslogUnit(u"m");
        if (!host.empty()) unit->setPropertyString(u"host", host);
        return r.IsMatchingEntry(*unit, *m_settings);
    }

    FakeClock m_clock;
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
};

// Each step moves the clock by `advance` seconds, then offers a unit (with "host" when given).
struct Step {
    int64_t advance;
    bool fires;
    const char16_t* host = u"";
};
struct FiringCase {
    const char* name;
    int32_t count, window, wait;
    std::vector<Step> steps;
    const char16_t* groupBy = u"";
};

// A wrong count, window edge, wait edge or group key changes a step's outcome.
TEST_F(RuleFiringTest, OccurrencesWindowAndWait) {
    // clang-format off
    const FiringCase cases[] = {
        {"defaults fire every time", -1, -1, -1, {{0, true}, {0, true}}},
        // A worker's reading may be a second older than another's firing; no wait means none.
        {"no wait fires on an older reading", -1, -1, -1, {{1, true}, {-1, true}}},
        {"three in sixty seconds, the fourth as well", 3, 60, -1, {{0, false}, {20, false}, {20, true}, {1, true}}},
        // Within the wait, and exactly at last firing + wait, is too early; the occurrences
        // during the wait counted.
        {"minimum wait holds back the fourth", 3, 60, 30, {{0, false}, {0, false}, {0, true}, {5, false}, {25, false}, {1, true}}},
        {"occurrences older than the window drop out", 3, 60, -1, {{0, false}, {0, false}, {61, false}, {0, false}, {0, true}}},
        {"wait 0 fires at most once per second", -1, -1, 0, {{0, true}, {0, false}, {1, true}}},
        // Each value of the grouping property keeps its own count and wait; a unit without the
        // property is counted under "default", the same group as the value "default".
        {"grouping by property value", 2, 60, 100,
         {{0, false, u"a"}, {0, false, u"b"}, {0, true, u"a"}, {0, false, u"a"}, {0, true, u"b"},
          {0, false}, {0, false, u"c"}, {0, true}, {0, false, u"default"}},
         u"host"},
    };
    // clang-format on
    for (const FiringCase& c : cases) {
        auto r = rule(c.count, c.window, c.wait, c.groupBy);
        for (size_t i = 0; i < c.steps.size(); ++i) {
            m_clock.advance(c.steps[i].advance);
            EXPECT_EQ(fires(*r, c.steps[i].host), c.steps[i].fires) << c.name << ", step " << i;
        }
    }
}

// Two workers matching the same rule in the same second: a minimum wait lets exactly one of them
// fire, and "N occurrences" fires once, for the Nth unit, not for each worker that counts N. The
// workers spin rather than block between rounds, so both cores enter the check together.
TEST_F(RuleFiringTest, ConcurrentWorkersFireOncePerWait) {
    constexpr int kRounds = 20000;
    struct RaceCase {
        const char* name;
        int32_t count, window, wait;
    } const cases[] = {{"minimum wait", -1, -1, 1000000}, {"two occurrences", 2, 1000000, -1}};
    for (const RaceCase& c : cases) {
        std::vector<std::unique_ptr<CRuleListEntry>> rules;
        for (int i = 0; i < kRounds; ++i) rules.push_back(rule(c.count, c.window, c.wait));
        std::atomic<int> round{-1}, done{0}, fired{0};
        auto worker = [&] {
            auto unit = makeSyslogUnit(u"m");
            for (int i = 0; i < kRounds; ++i) {
                while (round.load() < i) std::this_thread::yield();
                if (rules[i]->IsMatchingEntry(*unit, *m_settings)) ++fired;
                ++done;
            }
        };
        std::thread first(worker), second(worker);
        for (int i = 0; i < kRounds; ++i) {
            round.store(i);
            while (done.load() < 2 * (i + 1)) std::this_thread::yield();
        }
        first.join();
        second.join();
        EXPECT_EQ(fired.load(), kRounds) << c.name << ": one firing per rule expected";
    }
}

// The window keeps an occurrence exactly at the cut-off and drops older ones.
TEST_F(RuleFiringTest, TimeoutListTrimsByCutOff) {
    CTimeoutList list(10);
    EXPECT_EQ(list.recordAndCount(100), 1);
    EXPECT_EQ(list.recordAndCount(105), 2);
    EXPECT_EQ(list.recordAndCount(111), 2);  // cut-off 101 drops 100
    EXPECT_EQ(list.countInWindow(115), 2);   // an entry exactly at the cut-off stays
    EXPECT_EQ(list.countInWindow(116), 1);
    EXPECT_EQ(list.getEntryCount(), 1);
}

}  // namespace
