#include "engine/que_man_list.h"

#include <cstdio>
#include <memory>

#include "base/config_settings.h"
#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "engine/memory_reserve.h"
#include "engine/rule_set_list.h"
#include "model/info_unit.h"
#include "platform/system_error.h"

namespace vt {
namespace {
std::atomic<bool> g_engineRunning{true};
}  // namespace

bool engineRunning() noexcept {
    return g_engineRunning.load(std::memory_order_relaxed);
}
void setEngineRunning(bool running) noexcept {
    g_engineRunning.store(running);
}
}  // namespace vt

namespace {

constexpr char kWorkingTag[] = "CQueManList::Working";

unsigned addressForLog(const void* p) {
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

// Ends a unit's life after processing: a waiting producer owns a waitable unit and is woken;
// any other unit is destroyed here.
void releaseUnit(CInfoUnit* unit) {
    // Asked of the unit rather than found by a cast: this runs for every unit.
    if (unit->awaitsProcessing())
        unit->signalProcessed();
    else
        delete unit;
}

}  // namespace

CQueManList::CQueManList(const CConfigSettings* settings, StartWorkers start, vt::Clock& clock)
    : m_settings(settings), m_clock(clock), m_limit(static_cast<int32_t>(settings->queueLimit)) {
    if (start == StartWorkers::Now) startWorkerPool();
}

CQueManList::~CQueManList() {
    stopWorkerPool();
    lock();
    for (auto* e = static_cast<CQueManEntry*>(getFirst()); e;
         e = static_cast<CQueManEntry*>(e->getNext())) {
        // A waiting producer must not take a unit that no worker processed as done.
        if (e->m_pUnit && e->m_pUnit->awaitsProcessing()) e->m_pUnit->setActionFailed(1);
        if (e->m_pUnit) releaseUnit(e->m_pUnit);
        e->m_pUnit = nullptr;
    }
    clear();
    unlock();
}

void CQueManList::stopWorkerPool() {
    signalShutdown();
    setStopProcessing(true);
    for (std::thread& worker : m_workers)
        if (worker.joinable()) worker.join();
}

void CQueManList::startWorkerPool() {
    const uint32_t wanted = m_settings->workerThreads;
    for (uint32_t i = 0; i < wanted; ++i) {
        try {
            // Counted before the thread runs, so that a fast-ending worker cannot make the
            // count negative.
            m_liveWorkers.fetch_add(1);
            m_workers.emplace_back(&CQueManList::WorkerThread, this);
        } catch (...) {
            m_liveWorkers.fetch_sub(1);  // a thread that fails to start is skipped
        }
    }
    if (m_liveWorkers.load() < 1) {
        throw new CWinSockError(
            1002, "CQueManList could not start any worker threads, the service is defunctional.",
            vt::lastSystemError());
    }
}

int32_t CQueManList::addThreshold(int32_t length, int32_t limit, bool lowMemory) noexcept {
    if (!lowMemory) return limit;
    const int32_t threshold = length - 100;
    // Exactly 100 queued gives 0, which means no waiting at all; kept as designed.
    return threshold < 0 ? 1 : threshold;
}

void CQueManList::Add(CQueManEntry* entry) {
    vt::debugPrintf(vt::DBG_ULTRA, "Add %x to queue, current length %d.\r\n",
                    addressForLog(entry->m_pUnit), m_length.load());
    const int32_t threshold = addThreshold(m_length.load(), m_limit, vt::lowMemory());
    if (threshold != 0) {
        while (m_length.load() > threshold) {
            vt::debugPrintf(vt::DBG_INFO,
                            "CQueManList|Add: Queue limit reached (max %d, curr %d) - waiting to "
                            "go below threshold.\r\n",
                            threshold, m_length.load());
            // Up to a second, as always, but a worker that takes a unit ends the wait, so a
            // fast consumer is not left idle while the producer sleeps.
            m_roomWaiters.fetch_add(1);
            m_producerWaits.fetch_add(1, std::memory_order_relaxed);
            m_clock.waitMs(1000, m_roomCondition, m_roomLock,
                           [&] { return m_length.load() <= threshold; });
            m_roomWaiters.fetch_sub(1);
        }
    }
    int32_t length;
    {
        // Counted under the list's lock, so that the length never runs ahead of the list: a
        // worker that sees a unit counted also finds it.
        std::lock_guard guard(*this);
        append(entry);
        length = m_length.fetch_add(1) + 1;
        if (length > m_highWater.load(std::memory_order_relaxed))
            m_highWater.store(length, std::memory_order_relaxed);  // under the lock: no race
    }
    if (vt::lowMemory() && vt::allocateReserveMemory()) vt::setLowMemory(false);
    // A worker that is draining takes this unit too, so another one is woken only when the
    // queue grows beyond what the busy ones keep up with. Waking a worker per unit would have
    // the workers take turns at the same action's lock instead of working.
    if (m_draining.load() > 0 && length <= kBehind) return;
    vt::debugWrite(vt::DBG_INFO, "Waking up worker thread.\r\n");
    setWorkEvent();
}

void CQueManList::setWorkEvent() {
    {
        std::lock_guard lock(m_eventLock);
        // Setting an event that is already set changes nothing: a worker is on its way and
        // drains everything queued, so no second worker needs waking.
        if (m_workSignalled) return;
        m_workSignalled = true;
    }
    m_eventCondition.notify_one();
}

bool CQueManList::refuse(const char* caller) const {
    if (!m_refusing.load(std::memory_order_acquire)) return false;
    vt::debugPrintf(vt::DBG_ERROR, "CQueManList|%s: the queue is shut down - unit refused\r\n",
                    caller);
    return true;
}

bool CQueManList::Enqueue(CInfoUnit* unit, CRuleList* rules) {
    if (refuse("Enqueue")) {
        releaseUnit(unit);
        return false;
    }
    Add(new CQueManEntry(unit, rules));
    return true;
}

bool CQueManList::EnqueueAndWait(CWaitableInfoUnit* unit, CRuleList* rules) {
    if (refuse("EnqueueAndWait")) return false;
    Add(new CQueManEntry(unit, rules));
    vt::debugWrite(vt::DBG_INFO, "CQueManList|EnqueueAndWait: going to sleep\r\n");
    unit->waitProcessed();
    vt::debugWrite(vt::DBG_INFO, "CQueManList|EnqueueAndWait: woke up\r\n");
    return true;
}

CInfoUnit* CQueManList::Remove(CRuleList** rules) {
    CInfoUnit* unit = nullptr;
    int32_t length;
    {
        std::lock_guard guard(*this);
        auto* first = static_cast<CQueManEntry*>(getFirst());
        if (!first) return nullptr;
        unit = first->m_pUnit;
        if (rules) *rules = first->m_pRules;
        first->m_pUnit = nullptr;
        removeFirst();
        length = m_length.fetch_sub(1) - 1;
    }
    if (m_roomWaiters.load() > 0) {
        std::lock_guard lock(m_roomLock);
        m_roomCondition.notify_all();
    }
    vt::debugPrintf(vt::DBG_ULTRA, "Removed %x from queue, current length %d.\r\n",
                    addressForLog(unit), length);
    return unit;
}

void CQueManList::signalShutdown() {
    {
        std::lock_guard lock(m_eventLock);
        m_shutdownSignalled = true;
        m_refusing.store(true, std::memory_order_release);
    }
    m_eventCondition.notify_all();
}

void CQueManList::WorkerThread(CQueManList* queue) {
    queue->workerLoop();
}

CQueManList::WaitResult CQueManList::waitForWork(vt::TimerQueue& timers) {
    std::unique_lock lock(m_eventLock);
    auto signalled = [this] { return m_workSignalled || m_shutdownSignalled; };
    if (auto deadline = timers.nextDeadline()) {
        if (!m_eventCondition.wait_until(lock, *deadline, signalled)) return WaitResult::Alert;
    } else {
        m_eventCondition.wait(lock, signalled);
    }
    // The work event comes first when both are set, as in a wait on the two in this order.
    if (m_workSignalled) {
        m_workSignalled = false;  // auto-reset: this wake-up consumes the signal
        return WaitResult::Work;
    }
    return WaitResult::Shutdown;
}

void CQueManList::workerLoop() {
    vt::debugWrite(vt::DBG_INFO, "This worker thread begins execution.\r\n");
    {
        // Idle timers armed by actions on this worker run here, between units.
        vt::TimerQueueScope timers;
        bool leave = false;
        do {
            const WaitResult result = waitForWork(timers.queue());
            vt::debugWrite(vt::DBG_INFO, "CQueManList::WorkerThread() woke up.\r\n");
            switch (result) {
                case WaitResult::Alert:
                    timers.queue().runDue(vt::TimerQueue::Clock::now());
                    break;
                case WaitResult::Work:
                    drain();
                    break;
                case WaitResult::Shutdown:
                    vt::debugWrite(vt::DBG_MINIMUM,
                                   "Worker has been awoken by shutdown request.\r\n");
                    // The shutdown event stays set: waiting again would return at once, so the
                    // worker leaves even if the running flag has not been cleared.
                    leave = true;
                    break;
            }
        } while (!leave && vt::engineRunning() && !isStopProcessing());
    }
    vt::debugWrite(vt::DBG_MINIMUM, "This worker thread finished.\r\n");
    m_liveWorkers.fetch_sub(1);
}

void CQueManList::drain() {
    m_draining.fetch_add(1);
    for (;;) {
        while (!isStopProcessing()) {
            CRuleList* rules = nullptr;
            CInfoUnit* unit = Remove(&rules);
            if (!unit) break;
            processUnit(unit, rules);
        }
        // A producer that saw this worker draining did not wake anyone: before leaving, give
        // the next unit a moment to arrive (under load it does, and a sleep and a wake-up per
        // unit are saved), then look once more after no longer counting as draining.
        if (!isStopProcessing() && awaitNextUnit()) continue;
        m_draining.fetch_sub(1);
        if (isStopProcessing() || m_length.load() == 0) return;
        m_draining.fetch_add(1);
    }
}

bool CQueManList::awaitNextUnit() const {
    for (int i = 0; i < kPollsBeforeSleep; ++i) {
        if (m_length.load(std::memory_order_relaxed) > 0) return true;
        std::this_thread::yield();
    }
    return false;
}

void CQueManList::runRules(CInfoUnit& unit, CRuleList* rules) {
    if (rules)
        rules->process(unit, *m_settings);
    else
        vt::debugWrite(vt::DBG_INFO,
                       "CQueManList::Working: unit is bound to no rule set - not processed.\r\n");
}

void CQueManList::processUnit(CInfoUnit* unit, CRuleList* rules) {
    try {
        // A unit without a type is refused; the by-name read logs and throws for it.
        if (!unit->findProperty(vt::StdProperty::Iut)) unit->getPropertyInt(u"iut", true);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::reportError(150, kWorkingTag, report->getMessage().narrowView());
        releaseUnit(unit);
        return;
    } catch (...) {
        releaseUnit(unit);
        return;
    }
    try {
        runRules(*unit, rules);
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::reportError(114, kWorkingTag, report->getMessage().narrowView());
        vt::debugWrite(vt::DBG_INFO, report->getMessage().narrowView());
        // Abandoned on purpose: neither signalled nor destroyed, so a producer waiting on it
        // stays blocked and its read position is not advanced past the unit.
        return;
    } catch (...) {
        vt::reportError(114, kWorkingTag, "Unknown error while processing an info unit.");
    }
    releaseUnit(unit);
}
