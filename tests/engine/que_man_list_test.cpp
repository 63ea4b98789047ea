#include "engine/que_man_list.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
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

struct ThresholdCase {
    int32_t length, limit;
    bool lowMemory;
    int32_t expected;
};

TEST(QueueThresholdTest, LimitAndLowMemoryThresholds) {
    const ThresholdCase cases[] = {
        {0, 0, false, 0},      {500, 0, false, 0}, {10, 10, false, 10}, {250, 10, true, 150},
        {40, 200000, true, 1}, {100, 10, true, 0}, {101, 10, true, 1},  {0, 0, true, 1},
    };
    for (const ThresholdCase& c : cases)
        EXPECT_EQ(CQueManList::addThreshold(c.length, c.limit, c.lowMemory), c.expected)
            << c.length << " " << c.limit << " " << c.lowMemory;
}

// A queue without workers; the producer's sleeps take one unit out, as a worker would.
class QueueLimitTest : public ::testing::Test {
  protected:
    void SetUp() override { setLowMemory(false); }
    void TearDown() override { setLowMemory(false); }

    std::unique_ptr<CQueManList> makeQueue(uint32_t limit) {
        m_settings->queueLimit = limit;
        auto queue =
            std::make_unique<CQueManList>(m_settings.get(), CQueManList::StartWorkers::Later);
        m_clock.onSleep([q = queue.get()](uint32_t) { delete q->Remove(); });
        return queue;
    }
    void fill(CQueManList& queue, int n) {
        for (int i = 0; i < n; ++i) queue.Enqueue(new CInfoUnit);
    }

    FakeClock m_clock;
    ScopedEngineClock m_scope{m_clock};
    std::unique_ptr<CConfigSettings> m_settings = makeSettings();
};

// Unlimited never waits; with limit 10 the eleventh gets in and the twelfth waits until a unit
// has gone.
TEST_F(QueueLimitTest, LimitTenLetsTheEleventhInAndHoldsTheTwelfth) {
    auto unlimited = makeQueue(0);
    fill(*unlimited, 300);
    EXPECT_EQ(unlimited->getLength(), 300);
    EXPECT_EQ(m_clock.sleepCount(), 0);
    auto queue = makeQueue(10);
    fill(*queue, 11);
    EXPECT_EQ(queue->getLength(), 11);
    EXPECT_EQ(m_clock.sleepCount(), 0);
    fill(*queue, 1);
    EXPECT_EQ(m_clock.sleepCount(), 1);
    EXPECT_EQ(m_clock.sleepDurations().front(), 1000u);
    EXPECT_EQ(queue->getLength(), 11);
}

// With the system clock a producer held at the limit goes on as soon as a worker takes a
// unit, not only after its one-second wait: otherwise a fast consumer idles behind a full queue.
TEST(QueueLimitWakeTest, RemoveEndsTheProducersWaitEarly) {
    setLowMemory(false);
    auto settings = makeSettings();
    settings->queueLimit = 10;
    CQueManList queue(settings.get(), CQueManList::StartWorkers::Later);
    for (int i = 0; i < 11; ++i) queue.Enqueue(new CInfoUnit);
    std::atomic<bool> added{false};
    std::thread producer([&] {
        queue.Enqueue(new CInfoUnit);
        added = true;
    });
    // Let the producer reach its wait (it cannot get past the limit before a Remove).
    while (queue.getLength() < 11) std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(added.load());
    const auto removed = std::chrono::steady_clock::now();
    delete queue.Remove();
    producer.join();
    const auto waited = std::chrono::steady_clock::now() - removed;
    EXPECT_TRUE(added.load());
    EXPECT_LT(waited, std::chrono::milliseconds(700));
    EXPECT_EQ(queue.getLength(), 11);
}

struct LowMemoryCase {
    int queued;
    int expectedSleeps;
};

TEST_F(QueueLimitTest, LowMemoryThrottle) {
    // 250 queued: wait until 150 remain; 40: until 1 remains; exactly 100: no wait.
    for (LowMemoryCase c : {LowMemoryCase{250, 100}, {40, 39}, {100, 0}}) {
        auto queue = makeQueue(0);
        fill(*queue, c.queued);
        const int before = m_clock.sleepCount();
        setLowMemory(true);
        fill(*queue, 1);
        EXPECT_EQ(m_clock.sleepCount() - before, c.expectedSleeps) << c.queued;
        EXPECT_EQ(queue->getLength(), c.queued - c.expectedSleeps + 1);
        // The reserve could be allocated again, which ends the low-memory state.
        EXPECT_FALSE(lowMemory());
        EXPECT_TRUE(holdsReserveMemory());
    }
}

TEST_F(QueueLimitTest, RemoveIsFirstInFirstOut) {
    auto queue = makeQueue(0);
    std::unique_ptr<CInfoUnit> a(new CInfoUnit), b(new CInfoUnit);
    queue->Enqueue(a.get());
    queue->Enqueue(b.get());
    EXPECT_EQ(queue->Remove(), a.get());
    EXPECT_EQ(queue->Remove(), b.get());
    EXPECT_EQ(queue->Remove(), nullptr);
    EXPECT_EQ(queue->getLength(), 0);
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

// A report from rule processing abandons the unit: its producer is never woken.
TEST_F(QueueWorkerTest, WaitableUnitIsNotReleasedAfterErrorReport) {
    DebugCapture capture;
    auto queue = makeQueue(1, [](CInfoUnit& unit) {
        if (unit.getPropertyStringObject(u"fail"))
            throw new CErrorReport(5, CQuilletString("rules failed"));
    });
    auto failing = std::make_unique<CInfoUnitFileMonitor>();
    failing->setPropertyString(u"fail", u"1");
    auto next = std::make_unique<CInfoUnitFileMonitor>();
    queue->Enqueue(failing.get());
    // One worker, first in first out: once the second unit is released, the first is done.
    EXPECT_TRUE(queue->EnqueueAndWait(next.get()));
    EXPECT_FALSE(failing->waitProcessed(std::chrono::milliseconds(0)));
    EXPECT_NE(capture.text().find("Error Event 114 logged with data 'rules failed'"),
              std::string::npos);
}

TEST_F(QueueWorkerTest, UnitWithoutTypeIsReportedAndReleased) {
    DebugCapture capture;
    std::atomic<int> destroyed{0};
    auto queue = makeQueue(1);
    auto* plain = new TrackedUnit(destroyed);
    plain->getProperties().removeFirst();  // "iut" is the first property
    queue->Enqueue(plain);
    auto waitable = std::make_unique<CInfoUnitFileMonitor>();
    waitable->getProperties().removeFirst();
    EXPECT_TRUE(queue->EnqueueAndWait(waitable.get()));
    EXPECT_EQ(destroyed.load(), 1);
    EXPECT_EQ(queue->processed.load(), 0);
    EXPECT_NE(capture.text().find("Error Event 150 logged"), std::string::npos);
}

TEST_F(QueueWorkerTest, OrdinaryUnitsAreDestroyedAfterProcessing) {
    std::atomic<int> destroyed{0};
    auto queue = makeQueue(3);
    for (int i = 0; i < 50; ++i) queue->Enqueue(new TrackedUnit(destroyed));
    EXPECT_TRUE(eventually([&] { return destroyed.load() == 50; }));
    EXPECT_EQ(queue->processed.load(), 50);
}

TEST_F(QueueWorkerTest, IdleWorkersLeaveOnShutdown) {
    auto queue = makeQueue(3);
    EXPECT_EQ(queue->liveWorkers(), 3);
    queue->signalShutdown();
    EXPECT_TRUE(eventually([&] { return queue->liveWorkers() == 0; }));
}

// Shutdown while a worker is busy and units wait: with stop processing set the worker leaves
// after its current unit, and the waiting units are not processed (they go with the queue).
TEST_F(QueueWorkerTest, ShutdownWithUnitsStillQueued) {
    std::mutex lock;
    std::condition_variable cv;
    bool entered = false, release = false;
    std::atomic<int> destroyed{0};
    auto queue = makeQueue(1, [&](CInfoUnit&) {
        std::unique_lock l(lock);
        entered = true;
        cv.notify_all();
        cv.wait(l, [&] { return release; });
    });
    queue->Enqueue(new TrackedUnit(destroyed));
    {
        std::unique_lock l(lock);
        cv.wait(l, [&] { return entered; });
    }
    for (int i = 0; i < 3; ++i) queue->Enqueue(new TrackedUnit(destroyed));
    queue->setStopProcessing(true);
    queue->signalShutdown();
    {
        std::lock_guard l(lock);
        release = true;
    }
    cv.notify_all();
    EXPECT_TRUE(eventually([&] { return queue->liveWorkers() == 0; }));
    EXPECT_EQ(queue->processed.load(), 1);
    EXPECT_EQ(queue->getLength(), 3);
    EXPECT_EQ(destroyed.load(), 1);
    queue.reset();
    EXPECT_EQ(destroyed.load(), 4);
}

// Four producers, five workers, one rule list with a counting action: every unit is processed
// once. Run under ThreadSanitizer in the sanitizer build.
TEST(QueueConcurrencyTest, FourProducersFiveWorkers) {
    ScopedRegistry registry;
    ProbeActionType probeType;
    CActionConfigProbe* probe = nullptr;
    CRuleList rules;
    rules.add(probeRule(registry.base() + u"\\R1", probe));
    auto& counter = *probe;

    auto settings = makeSettings();
    settings->workerThreads = 5;
    settings->queueLimit = 64;  // producers also meet the limit
    FakeClock clock;            // and poll it without real one-second sleeps
    ScopedEngineClock clockScope(clock);
    CQueManList queue(settings.get());
    constexpr int kPerProducer = 2000;
    std::vector<std::thread> producers;
    for (int p = 0; p < 4; ++p) {
        producers.emplace_back([&] {
            for (int i = 0; i < kPerProducer; ++i) {
                auto* unit = new CInfoUnit;
                queue.Enqueue(unit, &rules);
            }
        });
    }
    for (auto& t : producers) t.join();
    EXPECT_TRUE(eventually([&] { return counter.calls.load() == 4 * kPerProducer; }))
        << counter.calls.load();
    EXPECT_TRUE(eventually([&] { return queue.getLength() == 0; }));
}

// An action's idle timer fires on the worker that armed it, while that worker waits for work.
std::atomic<std::thread::id> g_timerThread;
std::atomic<bool> g_timerFired{false};
void onIdle(void*, uint32_t, uint32_t) {
    g_timerThread = std::this_thread::get_id();
    g_timerFired = true;
}

TEST(QueueTimerTest, IdleTimerRunsOnTheArmingWorker) {
    ScopedRegistry registry;
    ProbeActionType probeType;
    CActionConfigProbe* probe = nullptr;
    CRuleList rules;
    rules.add(probeRule(registry.base() + u"\\R1", probe));
    auto& config = *probe;
    config.createTimer();
    std::atomic<std::thread::id> actionThread;
    config.hook = [&](CInfoUnit&) {
        actionThread = std::this_thread::get_id();
        config.cancelTimer();
        config.armTimer(&onIdle, nullptr, 20);
    };
    auto settings = makeSettings();
    settings->workerThreads = 1;
    CQueManList queue(settings.get());
    auto* unit = new CInfoUnit;
    queue.Enqueue(unit, &rules);
    EXPECT_TRUE(eventually([] { return g_timerFired.load(); }));
    EXPECT_EQ(g_timerThread.load(), actionThread.load());
}

}  // namespace
