#include "engine/que_man_list.h"

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <new>
#include <thread>

#include "base/config_settings.h"
#include "base/error_report.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/memory_reserve.h"
#include "engine/rule_set_list.h"
#include "model/info_unit_types.h"

namespace {

using namespace vt;
using namespace vt::test;

// A unit that tells when it is destroyed.
class TrackedUnit : public CInfoUnit {
  public:
    explicit TrackedUnit(std::atomic<int>& destroyed) : m_destroyed(destroyed) {}
    ~TrackedUnit() override { ++m_destroyed; }

  private:
    std::atomic<int>& m_destroyed;
};

// A queue without workers; the producer's sleeps take one unit out, as a worker would.
class QueueLimitTest : public ::testing::Test {
  protected:
    void SetUp() override { setLowMemory(false); }
    void TearDown() override { setLowMemory(false); }

    std::unique_ptr<CQueManList> makeQueue(uint32_t limit) {
        m_settings->queueLimit = limit;
        auto queue = std::make_unique<CQueManList>(m_settings.get(),
                                                   CQueManList::StartWorkers::Later, m_clock);
        m_clock.onSleep([q = queue.get()](uint32_t) { delete q->Remove(); });
        return queue;
    }
    void fill(CQueManList& queue, int n) {
        for (int i = 0; i < n; ++i) queue.Enqueue(new CInfoUnit);
    }

    FakeClock m_clock;
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
};

// Unlimited never waits; with limit 10 the eleventh gets in and the twelfth waits a second
// (here: one fake sleep) until a unit has gone. Units leave first in, first out.
TEST_F(QueueLimitTest, LimitTenLetsTheEleventhInAndHoldsTheTwelfth) {
    auto unlimited = makeQueue(0);
    fill(*unlimited, 300);
    EXPECT_EQ(unlimited->getLength(), 300);
    EXPECT_EQ(m_clock.sleepCount(), 0);
    auto queue = makeQueue(10);
    auto* second = new CInfoUnit;
    fill(*queue, 1);
    queue->Enqueue(second);
    fill(*queue, 9);
    EXPECT_EQ(m_clock.sleepCount(), 0);
    fill(*queue, 1);  // the sleep removes the first unit
    EXPECT_EQ(m_clock.sleepDurations(), std::vector<uint32_t>{1000u});
    EXPECT_EQ(queue->getLength(), 11);
    std::unique_ptr<CInfoUnit> next(queue->Remove());
    EXPECT_EQ(next.get(), second);
}

// In low memory a producer waits, whatever the limit, until 100 fewer are queued (250 -> 150,
// 40 -> 1, 100 -> no wait), and the next Add takes the reserve back, ending the low-memory state.
TEST_F(QueueLimitTest, LowMemoryThrottle) {
    for (auto [queued, expectedSleeps] : {std::pair{250, 100}, {40, 39}, {100, 0}}) {
        auto queue = makeQueue(queued + 10);
        fill(*queue, queued);
        const int before = m_clock.sleepCount();
        setLowMemory(true);
        fill(*queue, 1);
        EXPECT_EQ(m_clock.sleepCount() - before, expectedSleeps) << queued;
        EXPECT_EQ(queue->getLength(), queued - expectedSleeps + 1);
        EXPECT_FALSE(lowMemory());
        EXPECT_TRUE(holdsReserveMemory());
    }
}

// A clock whose waits end only on the queue's wake-up (or after a minute).
class WakeOnlyClock final : public Clock {
  public:
    int64_t nowSeconds() override { return 0; }
    void sleepMs(uint32_t) override {}
    void waitMs(uint32_t, std::condition_variable& condition, std::mutex& lock,
                const std::function<bool()>& done) override {
        std::unique_lock held(lock);
        waiting = true;
        condition.wait_for(held, std::chrono::minutes(1), done);
    }
    std::atomic<bool> waiting{false};
};

// A producer held at the limit goes on as soon as a unit is taken, not only after its
// one-second wait: otherwise a fast consumer idles behind a full queue.
TEST(QueueLimitWakeTest, RemoveWakesTheWaitingProducer) {
    setLowMemory(false);
    WakeOnlyClock clock;
    auto settings = makeSettings();
    settings->queueLimit = 10;
    CQueManList queue(settings.get(), CQueManList::StartWorkers::Later, clock);
    for (int i = 0; i < 11; ++i) queue.Enqueue(new CInfoUnit);
    std::atomic<bool> added{false};
    std::thread producer([&] {
        queue.Enqueue(new CInfoUnit);
        added = true;
    });
    EXPECT_TRUE(eventually([&] { return clock.waiting.load(); }));
    EXPECT_FALSE(added.load());
    delete queue.Remove();
    EXPECT_TRUE(eventually([&] { return added.load(); }));
    producer.join();
    EXPECT_EQ(queue.getLength(), 11);
}

// A queue whose rule processing the test scripts per unit.
class ScriptedQueue : public CQueManList {
  public:
    using CQueManList::CQueManList;
    ~ScriptedQueue() override { stopWorkerPool(); }
    std::function<void(CInfoUnit&)> onUnit;
    std::atomic<int> processed{0};

  protected:
    void runRules(CInfoUnit& unit, CRuleList*) override {
        if (onUnit) onUnit(unit);
        ++processed;
    }
};

class QueueWorkerTest : public ::testing::Test {
  protected:
    std::unique_ptr<ScriptedQueue> makeQueue(uint32_t workers,
                                             std::function<void(CInfoUnit&)> onUnit = {}) {
        m_settings->workerThreads = workers;
        auto queue =
            std::make_unique<ScriptedQueue>(m_settings.get(), CQueManList::StartWorkers::Later);
        queue->onUnit = std::move(onUnit);
        queue->startWorkerPool();
        return queue;
    }
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
};

// A report from rule processing abandons the unit (event 114): its producer is never woken. A
// unit without a type is refused (event 150) and released without processing.
TEST_F(QueueWorkerTest, FailedAndUntypedUnits) {
    DebugCapture capture;
    std::atomic<int> destroyed{0};
    auto queue = makeQueue(1, [](CInfoUnit& unit) {
        if (unit.getPropertyStringObject(u"fail"))
            throw new CErrorReport(5, CQuilletString("rules failed"));
    });
    auto failing = std::make_unique<CInfoUnitFileMonitor>();
    failing->setPropertyString(u"fail", u"1");
    queue->Enqueue(failing.get());
    auto* untyped = new TrackedUnit(destroyed);
    untyped->getProperties().removeFirst();  // "iut" is the first property
    queue->Enqueue(untyped);
    auto waitable = std::make_unique<CInfoUnitFileMonitor>();
    waitable->getProperties().removeFirst();
    // One worker, first in first out: once the last unit is released, the others are done.
    EXPECT_TRUE(queue->EnqueueAndWait(waitable.get()));
    EXPECT_FALSE(failing->waitProcessed(std::chrono::milliseconds(0)));
    EXPECT_EQ(destroyed.load(), 1);
    EXPECT_EQ(queue->processed.load(), 0);
    EXPECT_EQ(capture.count("Error Event 114 logged with data 'rules failed'"), 1u);
    EXPECT_EQ(capture.count("Error Event 150 logged"), 2u);
}

// Shutdown while one worker is busy, two are idle and units wait: with stop processing set
// every worker leaves, the busy one after its unit, and the waiting units go with the queue.
TEST_F(QueueWorkerTest, ShutdownWithUnitsStillQueued) {
    std::promise<void> entered, release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<int> destroyed{0};
    auto queue = makeQueue(3, [&](CInfoUnit&) {
        entered.set_value();
        released.wait();
    });
    queue->Enqueue(new TrackedUnit(destroyed));
    entered.get_future().wait();
    queue->setStopProcessing(true);
    for (int i = 0; i < 3; ++i) queue->Enqueue(new TrackedUnit(destroyed));
    queue->signalShutdown();
    release.set_value();
    EXPECT_TRUE(eventually([&] { return queue->liveWorkers() == 0; }));
    EXPECT_EQ(queue->processed.load(), 1);
    EXPECT_EQ(queue->getLength(), 3);
    EXPECT_EQ(destroyed.load(), 1);
    queue.reset();
    EXPECT_EQ(destroyed.load(), 4);
}

// One rule whose one action is the counting probe.
struct ProbeRules {
    ProbeRules() { rules.add(probeRule(registry.base() + u"\\R1", probe)); }
    ScopedRegistry registry;
    ProbeActionType type;
    CActionConfigProbe* probe = nullptr;
    CRuleList rules;
};

// Four producers, five workers, the limit met: every unit is processed once and destroyed
// after. Run under ThreadSanitizer in the sanitizer build.
TEST(QueueConcurrencyTest, FourProducersFiveWorkers) {
    ProbeRules probe;
    auto settings = makeSettings();
    settings->workerThreads = 5;
    settings->queueLimit = 64;
    FakeClock clock;  // producers poll the limit without real one-second sleeps
    std::atomic<int> destroyed{0};
    CQueManList queue(settings.get(), CQueManList::StartWorkers::Now, clock);
    constexpr int kPerProducer = 2000;
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&] {
            for (int i = 0; i < kPerProducer; ++i) {
                auto* unit = new TrackedUnit(destroyed);
                queue.Enqueue(unit, &probe.rules);
            }
        });
    }
    for (auto& t : producers) t.join();
    EXPECT_TRUE(eventually([&] { return destroyed.load() == 4 * kPerProducer; }));
    EXPECT_EQ(probe.probe->calls.load(), 4 * kPerProducer);
}

// An action's idle timer fires on the worker that armed it, while that worker waits for work.
std::atomic<std::thread::id> g_timerThread;
std::atomic<bool> g_timerFired{false};
void onIdle(void*, uint32_t, uint32_t) {
    g_timerThread = std::this_thread::get_id();
    g_timerFired = true;
}

TEST(QueueTimerTest, IdleTimerRunsOnTheArmingWorker) {
    ProbeRules probe;
    probe.probe->createTimer();
    std::atomic<std::thread::id> actionThread;
    probe.probe->hook = [&](CInfoUnit&) {
        actionThread = std::this_thread::get_id();
        probe.probe->armTimer(&onIdle, nullptr, 20);
    };
    auto settings = makeSettings();
    settings->workerThreads = 1;
    CQueManList queue(settings.get());
    auto* unit = new CInfoUnit;
    queue.Enqueue(unit, &probe.rules);
    EXPECT_TRUE(eventually([] { return g_timerFired.load(); }));
    EXPECT_EQ(g_timerThread.load(), actionThread.load());
}

// The handler frees the reserve once and lets the allocation retry; with no reserve left it
// lets the allocation fail. Either way the queue is told that memory is low.
TEST(MemoryReserveTest, HandlerSpendsTheReserveOnceThenFails) {
    vt::test::DebugCapture capture;
    setLowMemory(false);
    ASSERT_TRUE(allocateReserveMemory());
    EXPECT_NO_THROW(outOfMemoryHandler());
    EXPECT_TRUE(lowMemory());
    EXPECT_FALSE(holdsReserveMemory());
    EXPECT_THROW(outOfMemoryHandler(), std::bad_alloc);
    for (const char* text : {"Warning Event 1045 logged", "Error Event 1043 logged",
                             "Out Of Memory Condition could temporarily be resolved.",
                             "Out Of Memory Condition could not be resolved, failing..."})
        EXPECT_EQ(capture.count(text), 1u) << text;
    EXPECT_TRUE(allocateReserveMemory());
    setLowMemory(false);
}

}  // namespace
