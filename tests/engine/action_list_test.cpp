#include "engine/action_list.h"

#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/timer_queue.h"
#include "service/action_type_table.h"

namespace {

using namespace vt;
using namespace vt::test;

class ActionEntryTest : public ::testing::Test {
  protected:
    CActionListEntry& probe(ProbeMode mode, const char16_t* name = u"probe action") {
        m_entries.push_back(std::make_unique<CActionListEntry>(
            CQuilletString(name), CQuilletString(m_registry.base() + u"\\A1"), kProbeActionType,
            ActionLoadContext{nullptr, vt::agentActionTypes()}));
        CActionListEntry& entry = *m_entries.back();
        probeConfig(entry).mode = static_cast<int>(mode);
        return entry;
    }

    ScopedRegistry m_registry;
    ProbeActionType m_probeType;
    FakeClock m_clock;
    ScopedEngineClock m_clockScope{m_clock};
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
    std::unique_ptr<CInfoUnit> m_unit = makeSyslogUnit(u"hello");
    std::vector<std::unique_ptr<CActionListEntry>> m_entries;
};

// With retry on, an action that always fails runs "nRetryCount" times in all, sleeping
// "nRetryPeriod" before each retry; both ways of failing count.
TEST_F(ActionEntryTest, AlwaysFailingActionRunsRetryCountTimes) {
    m_settings->enableRetry = 1;
    m_settings->retryCount = 3;
    m_settings->retryPeriod = 250;
    for (ProbeMode mode : {ProbeMode::SetFailedFlag, ProbeMode::ThrowReport}) {
        m_unit = makeSyslogUnit(u"hello");
        CActionListEntry& entry = probe(mode);
        const int sleepsBefore = m_clock.sleepCount();
        EXPECT_TRUE(entry.CallAction(*m_unit, *m_settings));  // no abort configured
        EXPECT_EQ(probeConfig(entry).calls.load(), 3);
        EXPECT_EQ(m_clock.sleepCount() - sleepsBefore, 2);
    }
    for (uint32_t d : m_clock.sleepDurations()) EXPECT_EQ(d, 250u);
}

TEST_F(ActionEntryTest, SuccessEndsTheRetries) {
    m_settings->enableRetry = 1;
    m_settings->retryCount = 5;
    CActionListEntry& entry = probe(ProbeMode::ThrowReport);
    int calls = 0;
    probeConfig(entry).hook = [&](CInfoUnit&) {
        if (++calls == 2) probeConfig(entry).mode = static_cast<int>(ProbeMode::Succeed);
    };
    EXPECT_TRUE(entry.CallAction(*m_unit, *m_settings));
    EXPECT_EQ(probeConfig(entry).calls.load(), 2);
}

// What the debug log says about failed tries. Only exactly 1 enables retries, but a thrown
// report is still logged as a numbered try while "nRetryCount" is above 1. The texts of the
// unknown-exception branch are swapped: the last try says "retrying", the others "continuing".
TEST_F(ActionEntryTest, FailedTriesAreLogged) {
    struct Case {
        uint32_t enableRetry, retryCount;
        ProbeMode mode;
        int calls;
        std::vector<std::pair<std::string, size_t>> counts;  // text, times in the log
    };
    const std::string numbered =
        "Error while applying an action 'probe action' - Try number '1'. Error is 'probe "
        "failure'.";
    const std::string skipped =
        "Error Event 114 logged with data 'Error while applying an action - skipping action "
        "'probe action'. Error is 'probe failure'.'";
    const std::string continuing = "Unknown error while applying the actions - continuing";
    const std::string retrying = "Unknown error while applying the actions - retrying";
    const Case cases[] = {
        {2, 3, ProbeMode::ThrowReport, 1, {{numbered, 1}, {"skipping action", 0}}},
        {0, 1, ProbeMode::ThrowReport, 1, {{skipped, 1}}},
        {1, 3, ProbeMode::ThrowUnknown, 3, {{continuing, 2}, {retrying, 1}}},
        {0, 1, ProbeMode::ThrowUnknown, 1, {{continuing, 0}, {retrying, 1}}},
    };
    for (const Case& c : cases) {
        m_settings->enableRetry = c.enableRetry;
        m_settings->retryCount = c.retryCount;
        DebugCapture capture;
        CActionListEntry& entry = probe(c.mode);
        const int sleeps = m_clock.sleepCount();
        entry.CallAction(*m_unit, *m_settings);
        EXPECT_EQ(probeConfig(entry).calls.load(), c.calls);
        EXPECT_EQ(m_clock.sleepCount() - sleeps, c.enableRetry == 1 ? c.calls - 1 : 0);
        const std::string log = capture.text();
        for (const auto& [text, times] : c.counts) EXPECT_EQ(countOf(log, text), times) << log;
        // The last try's "retrying" comes after every "continuing".
        if (countOf(log, continuing) > 0) {
            EXPECT_GT(log.find(retrying), log.rfind(continuing));
        }
        EXPECT_GT(log.find(retrying), log.rfind(continuing) + 1);
    }
}

TEST_F(ActionEntryTest, AbortOnFailureStopsOnlyWhenConfigured) {
    CActionListEntry& failing = probe(ProbeMode::ThrowReport);
    EXPECT_TRUE(failing.CallAction(*m_unit, *m_settings));
    m_settings->abortRuleOnFailure = 1;
    EXPECT_FALSE(failing.CallAction(*m_unit, *m_settings));
    // A disabled action is skipped whatever the abort setting says.
    probeConfig(failing).setEnabled(false);
    EXPECT_TRUE(failing.CallAction(*m_unit, *m_settings));
    EXPECT_EQ(probeConfig(failing).calls.load(), 2);
}

// The framework never clears the failed flag: a later successful action still reports it.
TEST_F(ActionEntryTest, FailedFlagOfEarlierActionIsSeenAgain) {
    m_settings->abortRuleOnFailure = 1;
    CActionListEntry& failing = probe(ProbeMode::SetFailedFlag);
    CActionListEntry& fine = probe(ProbeMode::Succeed);
    EXPECT_FALSE(failing.CallAction(*m_unit, *m_settings));
    EXPECT_FALSE(fine.CallAction(*m_unit, *m_settings));
    EXPECT_EQ(probeConfig(fine).calls.load(), 1);
}

TEST_F(ActionEntryTest, NopDiscardAndUnknownIds) {
    DebugCapture capture;
    CActionListEntry nop(CQuilletString("n"), CQuilletString("k"), 0,
                         ActionLoadContext{nullptr, vt::agentActionTypes()});
    CActionListEntry discard(CQuilletString("d"), CQuilletString("k"), 1,
                             ActionLoadContext{nullptr, vt::agentActionTypes()});
    CActionListEntry unassigned(CQuilletString("u"), CQuilletString("k"), 1005,
                                ActionLoadContext{nullptr, vt::agentActionTypes()});
    CActionListEntry notLanded(CQuilletString("w"), CQuilletString("k"), 1025,
                               ActionLoadContext{nullptr, vt::agentActionTypes()});
    const std::string log = capture.text();
    EXPECT_NE(log.find("Error Event 1025 logged with data 'We have a NOP action in our rule set - "
                       "is the config invalid?'"),
              std::string::npos);
    EXPECT_NE(log.find("Error Event 1004 logged with data 'Invalid Action Type'"),
              std::string::npos);
    m_settings->abortRuleOnFailure = 1;
    m_unit->setActionFailed(1);
    EXPECT_TRUE(nop.CallAction(*m_unit, *m_settings));
    EXPECT_FALSE(discard.CallAction(*m_unit, *m_settings));
    EXPECT_TRUE(unassigned.CallAction(*m_unit, *m_settings));
    EXPECT_TRUE(notLanded.CallAction(*m_unit, *m_settings));
    EXPECT_EQ(unassigned.getConfig(), nullptr);
}

// Two workers never run doAction of one action at the same time.
TEST_F(ActionEntryTest, ExecutionsOfOneActionAreSerialised) {
    CActionListEntry& entry = probe(ProbeMode::Succeed);
    std::atomic<int> inside{0};
    std::atomic<bool> overlap{false};
    probeConfig(entry).hook = [&](CInfoUnit&) {
        if (inside.fetch_add(1) != 0) overlap = true;
        std::this_thread::yield();
        inside.fetch_sub(1);
    };
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            auto unit = makeSyslogUnit(u"x");
            for (int i = 0; i < 500; ++i) entry.CallAction(*unit, *m_settings);
        });
    }
    for (auto& t : threads) t.join();
    EXPECT_FALSE(overlap.load());
    EXPECT_EQ(probeConfig(entry).calls.load(), 2000);
}

// Loading: count, types, names, key paths; a missing type is a NOP.
TEST_F(ActionEntryTest, ListLoadsEntriesInOrder) {
    const std::u16string rule = m_registry.base() + u"\\R1";
    regSetDword(rule, u"nActionCount", 3);
    regSetDword(rule, u"nActionType1", kProbeActionType);
    regSetString(rule, u"szActionName1", u"first");
    regSetDword(rule, u"nActionType3", 1);
    regSetString(rule + u"\\A1", u"szTag", u"t1");
    CActionList list(CQuilletString(std::u16string_view(rule)),
                     ActionLoadContext{nullptr, vt::agentActionTypes()});
    ASSERT_EQ(list.count(), 3u);
    auto* a1 = static_cast<CActionListEntry*>(list.next(nullptr));
    auto* a2 = static_cast<CActionListEntry*>(list.next(a1));
    auto* a3 = static_cast<CActionListEntry*>(list.next(a2));
    EXPECT_EQ(a1->getTypeId(), kProbeActionType);
    EXPECT_EQ(a1->getName().view(), u"first");
    EXPECT_EQ(a1->getKeyPath().view(), rule + u"\\A1");
    EXPECT_EQ(probeConfig(*a1).tag, u"t1");
    EXPECT_EQ(a2->getTypeId(), 0);
    EXPECT_EQ(a2->getName().view(), u"Unknown Action Name");
    EXPECT_EQ(a3->getTypeId(), 1);
    // Probe, NOP, then discard: the list stops at the discard and says so.
    EXPECT_FALSE(list.execute(*m_unit, *m_settings));
    EXPECT_EQ(traceOf(*m_unit), "t1");
}

TEST_F(ActionEntryTest, EmptyListIsTrue) {
    CActionList list(CQuilletString(m_registry.base() + u"\\NoSuchRule"),
                     ActionLoadContext{nullptr, vt::agentActionTypes()});
    EXPECT_EQ(list.count(), 0u);
    EXPECT_TRUE(list.execute(*m_unit, *m_settings));
}

// --- idle timer ---

void countRun(void* context, uint32_t, uint32_t) {
    ++*static_cast<int*>(context);
}

TEST(ActionTimerTest, ArmRunsAtOnceWithoutTimerOrWithZeroMs) {
    CActionConfig config(CQuilletString("k"));
    int runs = 0;
    config.armTimer(&countRun, &runs, 5000);  // no timer created
    EXPECT_EQ(runs, 1);
    config.createTimer();
    config.armTimer(&countRun, &runs, 0);
    EXPECT_EQ(runs, 2);
    // A thread without a timer queue cannot hold a pending expiry either.
    config.armTimer(&countRun, &runs, 5000);
    EXPECT_EQ(runs, 3);
}

TEST(ActionTimerTest, ArmedRoutineRunsOnTheArmingThreadsQueue) {
    TimerQueueScope scope;
    CActionConfig config(CQuilletString("k"));
    config.createTimer();
    int runs = 0;
    config.armTimer(&countRun, &runs, 5000);
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(scope.queue().pending(), 1u);
    // Re-arming replaces the pending expiry; cancelling discards it.
    config.armTimer(&countRun, &runs, 5000);
    EXPECT_EQ(scope.queue().pending(), 1u);
    EXPECT_EQ(scope.queue().runDue(TimerQueue::Clock::now()), 0u);
    EXPECT_EQ(scope.queue().runDue(TimerQueue::Clock::now() + std::chrono::seconds(6)), 1u);
    EXPECT_EQ(runs, 1);
    config.armTimer(&countRun, &runs, 5000);
    config.cancelTimer();
    EXPECT_EQ(scope.queue().pending(), 0u);
    // Closing the timer (destroying the settings) leaves nothing behind in the queue.
    config.armTimer(&countRun, &runs, 5000);
    config.closeTimer();
    EXPECT_EQ(scope.queue().pending(), 0u);
    EXPECT_EQ(runs, 1);
}

TEST(TimerQueueTest, DueRoutinesRunInDeadlineOrderAndLeavingRunsTheRest) {
    std::vector<int> order;
    struct Ctx {
        std::vector<int>* order;
        int id;
    };
    auto record = [](void* c, uint32_t, uint32_t) {
        auto* ctx = static_cast<Ctx*>(c);
        ctx->order->push_back(ctx->id);
    };
    Ctx a{&order, 1}, b{&order, 2}, c{&order, 3};
    const auto t0 = TimerQueue::Clock::now();
    {
        TimerQueueScope scope;
        ASSERT_EQ(currentTimerQueue().get(), &scope.queue());
        scope.queue().add(t0 + std::chrono::seconds(2), record, &b);
        scope.queue().add(t0 + std::chrono::seconds(1), record, &a);
        scope.queue().add(t0 + std::chrono::hours(1), record, &c);
        EXPECT_EQ(scope.queue().nextDeadline(), t0 + std::chrono::seconds(1));
        EXPECT_EQ(scope.queue().runDue(t0 + std::chrono::seconds(3)), 2u);
        EXPECT_EQ(order, (std::vector<int>{1, 2}));
    }
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(currentTimerQueue(), nullptr);
}

}  // namespace
