#include "engine/timer_queue.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace vt;
using std::chrono::milliseconds;

void countRun(void* context, uint32_t, uint32_t) {
    ++*static_cast<int*>(context);
}

void rearmFromRoutine(void* context, uint32_t, uint32_t);

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

// Actions arm their idle timer after every unit; the expiry must neither come early nor be
// lost when re-arming leaves the queue alone.
TEST(WaitableTimerTest, ExpiryIsNeverEarlyAndAtMostASixteenthLate) {
    TimerQueueScope scope;
    WaitableTimer timer;
    int runs = 0;
    const auto before = TimerQueue::Clock::now();
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3200));
    const auto after = TimerQueue::Clock::now();
    scope.queue().runDue(before + milliseconds(3199));
    EXPECT_EQ(runs, 0);
    scope.queue().runDue(after + milliseconds(3200 + 200));
    EXPECT_EQ(runs, 1);
    EXPECT_FALSE(timer.isPending());
}

TEST(WaitableTimerTest, ArmingAgainKeepsOneExpiryThatRunsOnce) {
    TimerQueueScope scope;
    WaitableTimer timer;
    int runs = 0;
    for (int i = 0; i < 1000; ++i) ASSERT_TRUE(timer.arm(&countRun, &runs, 3000));
    EXPECT_EQ(scope.queue().pending(), 1u);
    EXPECT_TRUE(timer.isPending());
    scope.queue().runDue(TimerQueue::Clock::now() + milliseconds(4000));
    EXPECT_EQ(runs, 1);
    // Armed again after it ran, within the same grain: a new expiry, not a skipped one.
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3000));
    EXPECT_TRUE(timer.isPending());
    scope.queue().runDue(TimerQueue::Clock::now() + milliseconds(4000));
    EXPECT_EQ(runs, 2);
}

TEST(WaitableTimerTest, RoutineThatRearmsWhileTheQueueRunsAllIsRunAgain) {
    Rearming r;
    {
        TimerQueueScope scope;
        ASSERT_TRUE(r.timer.arm(&rearmFromRoutine, &r, 3000));
        // Leaving the scope runs what is pending at once, before its deadline; the routine
        // arms the same deadline again, which must register anew.
    }
    EXPECT_EQ(r.runs, 2);
}

TEST(WaitableTimerTest, CancelAndZeroPeriod) {
    TimerQueueScope scope;
    WaitableTimer timer;
    int runs = 0;
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3000));
    timer.cancel();
    EXPECT_EQ(scope.queue().pending(), 0u);
    // A zero period is due at once, every time it is armed.
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(timer.arm(&countRun, &runs, 0));
        scope.queue().runDue(TimerQueue::Clock::now());
    }
    EXPECT_EQ(runs, 3);
}

TEST(WaitableTimerTest, ThreadWithoutQueueRegistersNothing) {
    WaitableTimer timer;
    int runs = 0;
    EXPECT_FALSE(timer.arm(&countRun, &runs, 10));
    EXPECT_FALSE(timer.isPending());
}

}  // namespace
