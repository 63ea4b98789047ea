#pragma once
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "base/clock.h"
#include "engine/timer_queue.h"
#include "model/linked_list.h"

class CInfoUnit;
class CWaitableInfoUnit;
class CConfigSettings;
class CRuleList;

// One queued unit. The queue owns the entry; the unit belongs to the queue while it is queued
// and to the worker that removes it.
class CQueManEntry : public CLinkedListEntry {
  public:
    CQueManEntry(CInfoUnit* unit, CRuleList* rules) noexcept : m_pUnit(unit), m_pRules(rules) {}
    CInfoUnit* m_pUnit;
    CRuleList* m_pRules;  // what the unit is run through; null: it is only released
};

// The process-wide event queue and its pool of worker threads. Producers (the inputs) add units
// and return at once, or wait for their unit with EnqueueAndWait; each worker wakes on the work
// event, drains the whole queue, and runs every unit through the rule list it is bound to.
//
// Locks: the list's own lock guards the entries; the length is an atomic counter read without
// a lock for the limit test, so the limit is approximate under concurrent producers. The two
// events (work: auto-reset, shutdown: manual-reset) share one mutex and condition variable.
class CQueManList : public CThreadSafeLinkedList {
  public:
    enum class StartWorkers { Now, Later };

    // Takes the limit from "nQueueLimit" and starts "nWorkerThreads" workers (unless Later).
    // Throws CWinSockError* 1002 when no worker could be started. `settings` is not owned.
    explicit CQueManList(const CConfigSettings* settings, StartWorkers start = StartWorkers::Now,
                         vt::Clock& clock = vt::systemClock());
    // Signals shutdown, stops processing, joins the workers; units still queued are destroyed
    // (waitable ones are signalled so that their producers go on).
    ~CQueManList() override;

    void startWorkerPool();
    // Signals shutdown, sets stop processing and joins the workers (idempotent). A subclass
    // that overrides runRules calls it from its own destructor.
    void stopWorkerPool();

    // Appends an entry, first holding the producer while the queue is at its limit.
    void Add(CQueManEntry* entry);
    // Takes ownership of `unit` and queues it. After the shutdown signal no worker would take
    // it: it is refused (and freed), and false returned.
    bool Enqueue(CInfoUnit* unit, CRuleList* rules = nullptr);
    // Queues `unit` and waits until its processing has ended; the caller still owns it then.
    // False when refused after the shutdown signal.
    bool EnqueueAndWait(CWaitableInfoUnit* unit, CRuleList* rules = nullptr);
    // The first unit (the caller owns it), or null when the queue is empty.
    CInfoUnit* Remove(CRuleList** rules = nullptr);

    void signalShutdown();
    void setStopProcessing(bool stop) noexcept { m_stopProcessing.store(stop); }
    bool isStopProcessing() const noexcept { return m_stopProcessing.load(); }

    int32_t getLength() const noexcept { return m_length.load(); }
    int32_t getLimit() const noexcept { return m_limit; }
    // The longest the queue has been, and how often a producer waited at the limit.
    int32_t getHighWater() const noexcept { return m_highWater.load(std::memory_order_relaxed); }
    uint64_t getProducerWaits() const noexcept {
        return m_producerWaits.load(std::memory_order_relaxed);
    }
    int32_t liveWorkers() const noexcept { return m_liveWorkers.load(); }

    // The length above which a producer waits: the limit, or with low memory the length on
    // entry minus 100 (at least 1). 0 means no waiting.
    static int32_t addThreshold(int32_t length, int32_t limit, bool lowMemory) noexcept;

    // Runs one removed unit through its rule list and releases it: what a worker does per unit.
    void processUnit(CInfoUnit* unit, CRuleList* rules);

  protected:
    // Runs the unit through the rule list its producer queued it with.
    virtual void runRules(CInfoUnit& unit, CRuleList* rules);

  private:
    enum class WaitResult { Work, Shutdown, Alert };

    static void WorkerThread(CQueManList* queue);
    void workerLoop();
    WaitResult waitForWork(vt::TimerQueue& timers);
    void drain();
    bool awaitNextUnit() const;
    void setWorkEvent();
    // True (and logged) when the shutdown was signalled and `caller` must refuse its unit.
    bool refuse(const char* caller) const;

    // Queue length from which a producer wakes a further worker although one is draining.
    static constexpr int32_t kBehind = 64;
    // How often a worker whose queue ran empty looks again (yielding in between) before it
    // waits for the work event.
    static constexpr int kPollsBeforeSleep = 64;

    const CConfigSettings* m_settings;
    vt::Clock& m_clock;
    int32_t m_limit;
    std::atomic<int32_t> m_length{0};
    std::atomic<int32_t> m_highWater{0};
    std::atomic<uint64_t> m_producerWaits{0};
    std::atomic<bool> m_stopProcessing{false};
    std::atomic<int32_t> m_liveWorkers{0};
    std::atomic<int32_t> m_draining{0};  // workers inside the drain loop

    std::mutex m_eventLock;
    std::condition_variable m_eventCondition;
    bool m_workSignalled = false;         // guarded by m_eventLock
    bool m_shutdownSignalled = false;     // guarded by m_eventLock
    std::atomic<bool> m_refusing{false};  // set with m_shutdownSignalled, read without the lock
    // A producer held at the limit waits here; Remove wakes it when the queue got shorter.
    std::mutex m_roomLock;
    std::condition_variable m_roomCondition;
    std::atomic<int32_t> m_roomWaiters{0};

    std::vector<std::thread> m_workers;  // touched only by the constructing/destroying thread
};

namespace vt {
// Set while the engine runs; the service manager clears it at shutdown.
bool engineRunning() noexcept;
void setEngineRunning(bool running) noexcept;
}  // namespace vt
