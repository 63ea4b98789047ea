#include "engine/timer_queue.h"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

namespace {

using namespace vt;
using std::chrono::milliseconds;

void countRun(void* context, uint32_t, uint32_t) {
    ++*static_cast<int*>(context);
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
    scope.queue().runDue(before + milliseconds(3199));
    EXPECT_EQ(runs, 0);
    scope.queue().runDue(after + milliseconds(3200 + 200));
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(timer.isPending());
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3200));
    EXPECT_TRUE(timer.isPending());
    scope.queue().runDue(TimerQueue::Clock::now() + milliseconds(4000));
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
