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
// (within the same grain) it is a new expiry, not a skipped one.
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

// Cancel discards the expiry; a zero period is due at once, every time; a thread without a
// queue registers nothing.
TEST(WaitableTimerTest, CancelZeroPeriodAndNoQueue) {
    WaitableTimer timer;
    int runs = 0;
    EXPECT_FALSE(timer.arm(&countRun, &runs, 10));
    EXPECT_FALSE(timer.isPending());
    TimerQueueScope scope;
    ASSERT_TRUE(timer.arm(&countRun, &runs, 3000));
    timer.cancel();
    EXPECT_EQ(scope.queue().pending(), 0u);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(timer.arm(&countRun, &runs, 0));
        scope.queue().runDue(TimerQueue::Clock::now());
    }
    EXPECT_EQ(runs, 3);
}

// Due routines run in deadline order; leaving the scope runs the rest.
TEST(TimerQueueTest, DueRoutinesRunInDeadlineOrderAndLeavingRunsTheRest) {
    std::vector<int> order;
    struct Ctx {
        std::vector<int>* order;
        int id;
    } a{&order, 1}, b{&order, 2}, c{&order, 3};
    auto record = [](void* ctx, uint32_t, uint32_t) {
        static_cast<Ctx*>(ctx)->order->push_back(static_cast<Ctx*>(ctx)->id);
    };
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
