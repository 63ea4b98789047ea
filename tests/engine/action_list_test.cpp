#include "engine/action_list.h"

#include <gtest/gtest.h>

#include <chrono>
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
    CActionListEntry& add(int32_t type, const char16_t* name = u"probe action") {
        m_entries.push_back(std::make_unique<CActionListEntry>(
            CQuilletString(name), CQuilletString(m_registry.base() + u"\\A1"), type,
            ActionLoadContext{nullptr, vt::agentActionTypes(), &m_clock}));
        return *m_entries.back();
    }
    CActionListEntry& probe(ProbeMode mode) {
        CActionListEntry& entry = add(kProbeActionType);
        probeConfig(entry).mode = static_cast<int>(mode);
        return entry;
    }

    ScopedRegistry m_registry;
    ProbeActionType m_probeType;
    FakeClock m_clock;
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
    std::unique_ptr<CInfoUnit> m_unit = makeSyslogUnit(u"hello");
    std::vector<std::unique_ptr<CActionListEntry>> m_entries;
};

// With retry on (exactly 1), a failing action runs "nRetryCount" times in all, sleeping
// "nRetryPeriod" before each retry; both ways of failing count, and a success ends the
// retries. A thrown report is still logged as a numbered try while "nRetryCount" is above 1.
// The texts of the unknown-exception branch are swapped: the last try says "retrying", the
// others "continuing".
TEST_F(ActionEntryTest, RetriesAndWhatTheLogSaysAboutThem) {
    const std::string numbered =
        "an action 'probe action' - Try number '1'. Error is 'probe failure'.";
    const std::string skipped =
        "Error Event 114 logged with data 'Error while applying an action - "
        "skipping action 'probe action'. Error is 'probe failure'.'";
    const std::string continuing = "Unknown error while applying the actions - continuing";
    const std::string retrying = "Unknown error while applying the actions - retrying";
    struct Case {
        uint32_t enableRetry, retryCount;
        ProbeMode mode;
        int succeedAt, calls;  // succeedAt: the call that succeeds (0: none)
        std::vector<std::pair<std::string, size_t>> counts;  // text, times in the log
    };
    // clang-format off
    const Case cases[] = {
        {1, 3, ProbeMode::SetFailedFlag, 0, 3, {}},
        {1, 3, ProbeMode::ThrowReport, 0, 3, {}},
        {1, 3, ProbeMode::ThrowReport, 2, 2, {}},
        {2, 3, ProbeMode::ThrowReport, 0, 1, {{numbered, 1}, {"skipping action", 0}}},
        {0, 1, ProbeMode::ThrowReport, 0, 1, {{skipped, 1}}},
        {1, 3, ProbeMode::ThrowUnknown, 0, 3, {{continuing, 2}, {retrying, 1}}},
        {0, 1, ProbeMode::ThrowUnknown, 0, 1, {{continuing, 0}, {retrying, 1}}},
    };
    // clang-format on
    m_settings->retryPeriod = 250;
    for (const Case& c : cases) {
        m_settings->enableRetry = c.enableRetry;
        m_settings->retryCount = c.retryCount;
        DebugCapture capture;
        CActionListEntry& entry = probe(c.mode);
        probeConfig(entry).hook = [&entry, n = c.succeedAt](CInfoUnit&) {
            if (probeConfig(entry).calls.load() == n)
                probeConfig(entry).mode = static_cast<int>(ProbeMode::Succeed);
        };
        const int sleepsBefore = m_clock.sleepCount();
        EXPECT_TRUE(entry.CallAction(*makeSyslogUnit(u"x"), *m_settings));  // no abort set
        EXPECT_EQ(probeConfig(entry).calls.load(), c.calls);
        EXPECT_EQ(m_clock.sleepCount() - sleepsBefore, c.enableRetry == 1 ? c.calls - 1 : 0);
        const std::string log = capture.text();
        for (const auto& [text, times] : c.counts) EXPECT_EQ(countOf(log, text), times) << log;
        EXPECT_TRUE(countOf(log, continuing) == 0 || log.find(retrying) > log.rfind(continuing));
    }
    for (uint32_t d : m_clock.sleepDurations()) EXPECT_EQ(d, 250u);
}

// A failure stops the rule only with "nAbortRuleOnFailure"; a disabled action is skipped; the
// framework never clears the failed flag, so a later successful action still reports it.
TEST_F(ActionEntryTest, AbortOnFailureAndTheStickyFailedFlag) {
    CActionListEntry& failing = probe(ProbeMode::ThrowReport);
    EXPECT_TRUE(failing.CallAction(*m_unit, *m_settings));
    m_settings->abortRuleOnFailure = 1;
    EXPECT_FALSE(failing.CallAction(*m_unit, *m_settings));
    probeConfig(failing).setEnabled(false);
    EXPECT_TRUE(failing.CallAction(*m_unit, *m_settings));
    EXPECT_EQ(probeConfig(failing).calls.load(), 2);

    auto unit = makeSyslogUnit(u"x");
    EXPECT_FALSE(probe(ProbeMode::SetFailedFlag).CallAction(*unit, *m_settings));
    CActionListEntry& fine = probe(ProbeMode::Succeed);
    EXPECT_FALSE(fine.CallAction(*unit, *m_settings));
    EXPECT_EQ(probeConfig(fine).calls.load(), 1);
}

// NOP (0) and unknown ids (1005, and 1025 of an action type not built in) pass, and are
// reported when loaded; discard (1) stops the rule.
TEST_F(ActionEntryTest, NopDiscardAndUnknownIds) {
    DebugCapture capture;
    m_settings->abortRuleOnFailure = 1;
    m_unit->setActionFailed(1);
    for (auto [type, passes] : {std::pair{0, true}, {1, false}, {1005, true}, {1025, true}})
        EXPECT_EQ(add(type).CallAction(*m_unit, *m_settings), passes) << type;
    EXPECT_EQ(capture.count("Error Event 1025 logged with data 'We have a NOP action in our rule "
                            "set - is the config invalid?'"),
              1u);
    EXPECT_EQ(capture.count("Error Event 1004 logged with data 'Invalid Action Type'"), 2u);
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

// Loading: count, types, names, key paths; a missing type is a NOP; no actions is true.
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
    EXPECT_EQ(a1->getName().view(), u"first");
    EXPECT_EQ(a1->getKeyPath().view(), rule + u"\\A1");
    EXPECT_EQ(a2->getTypeId(), 0);
    EXPECT_EQ(a2->getName().view(), u"Unknown Action Name");
    // Probe, NOP, then discard: the list stops at the discard and says so.
    EXPECT_FALSE(list.execute(*m_unit, *m_settings));
    EXPECT_EQ(traceOf(*m_unit), "t1");
    CActionList empty(CQuilletString(m_registry.base() + u"\\NoSuchRule"),
                      ActionLoadContext{nullptr, vt::agentActionTypes()});
    EXPECT_EQ(empty.count(), 0u);
    EXPECT_TRUE(empty.execute(*m_unit, *m_settings));
}

void countRun(void* context, uint32_t, uint32_t) {
    ++*static_cast<int*>(context);
}

// The idle timer runs at once without a timer, with 0 ms or on a thread without a timer
// queue; otherwise it is one pending expiry on the arming thread's queue, replaced by
// re-arming and discarded by cancel and close.
TEST(ActionTimerTest, ArmCancelAndClose) {
    CActionConfig config(CQuilletString("k"));
    int runs = 0;
    config.armTimer(&countRun, &runs, 5000);  // no timer created
    config.createTimer();
    config.armTimer(&countRun, &runs, 0);
    config.armTimer(&countRun, &runs, 5000);  // no queue on this thread
    EXPECT_EQ(runs, 3);
    TimerQueueScope scope;
    config.armTimer(&countRun, &runs, 5000);
    config.armTimer(&countRun, &runs, 5000);
    EXPECT_EQ(scope.queue().pending(), 1u);
    EXPECT_EQ(scope.queue().runDue(TimerQueue::Clock::now()), 0u);
    EXPECT_EQ(scope.queue().runDue(TimerQueue::Clock::now() + std::chrono::seconds(6)), 1u);
    EXPECT_EQ(runs, 4);
    config.armTimer(&countRun, &runs, 5000);
    config.cancelTimer();
    EXPECT_EQ(scope.queue().pending(), 0u);
    config.armTimer(&countRun, &runs, 5000);
    config.closeTimer();
    EXPECT_EQ(scope.queue().pending(), 0u);
    EXPECT_EQ(runs, 4);
}

// Actions arm their idle timer after every unit: the expiry is never early, at most a
// sixteenth late, and re-arming keeps one expiry that runs once; armed again after it ran
// (within the same grain, or with period 0) it is a new expiry, not a skipped one.
TEST(WaitableTimerTest, OneExpiryNeverEarlyAndRunOnce) {
    TimerQueueScope scope;
    WaitableTimer timer;
    int runs = 0;
    const auto before = TimerQueue::Clock::now();
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(timer.arm(&countRun, &runs, 3200));
    const auto after = TimerQueue::Clock::now();
    EXPECT_EQ(scope.queue().pending(), 1u);
    scope.queue().runDue(before + std::chrono::milliseconds(3199));
    EXPECT_EQ(runs, 0);
    scope.queue().runDue(after + std::chrono::milliseconds(3200 + 200));
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(timer.isPending());
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3200));
    EXPECT_TRUE(timer.isPending());
    scope.queue().runDue(TimerQueue::Clock::now() + std::chrono::milliseconds(4000));
    EXPECT_EQ(runs, 2);
    // A zero period is due at once, every time it is armed.
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(timer.arm(&countRun, &runs, 0));
        scope.queue().runDue(TimerQueue::Clock::now());
    }
    EXPECT_EQ(runs, 5);
}

struct Rearming {
    WaitableTimer timer;
    int runs = 0;
    bool rearm = true;
};

void rearmFromRoutine(void* context, uint32_t, uint32_t) {
    auto* r = static_cast<Rearming*>(context);
    ++r->runs;
    if (r->rearm) {
        r->rearm = false;
        r->timer.arm(&rearmFromRoutine, r, 3000);
    }
}

// Leaving the scope runs what is pending at once; a routine that arms the same deadline again
// from there must register anew.
TEST(WaitableTimerTest, RoutineThatRearmsWhileTheQueueRunsAllIsRunAgain) {
    Rearming r;
    {
        TimerQueueScope scope;
        ASSERT_TRUE(r.timer.arm(&rearmFromRoutine, &r, 3000));
    }
    EXPECT_EQ(r.runs, 2);
}

std::vector<int> g_order;
void record(void* id, uint32_t, uint32_t) {
    g_order.push_back(*static_cast<int*>(id));
}

// Due routines run in deadline order; leaving the scope runs the rest.
TEST(TimerQueueTest, DueRoutinesRunInDeadlineOrderAndLeavingRunsTheRest) {
    int ids[] = {1, 2, 3};
    const auto t0 = TimerQueue::Clock::now();
    {
        TimerQueueScope scope;
        ASSERT_EQ(currentTimerQueue().get(), &scope.queue());
        scope.queue().add(t0 + std::chrono::seconds(2), record, &ids[1]);
        scope.queue().add(t0 + std::chrono::seconds(1), record, &ids[0]);
        scope.queue().add(t0 + std::chrono::hours(1), record, &ids[2]);
        EXPECT_EQ(scope.queue().nextDeadline(), t0 + std::chrono::seconds(1));
        EXPECT_EQ(scope.queue().runDue(t0 + std::chrono::seconds(3)), 2u);
        EXPECT_EQ(g_order, (std::vector<int>{1, 2}));
    }
    EXPECT_EQ(g_order, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(currentTimerQueue(), nullptr);
}

}  // namespace
