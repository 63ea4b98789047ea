#include "engine/timer_queue.h"

#include <algorithm>
#include <atomic>
#include <vector>

namespace vt {
namespace {
thread_local std::shared_ptr<TimerQueue> t_timerQueue;
// Ids are unique across queues, so an id kept from a queue that is gone matches nothing in a
// later one.
std::atomic<uint64_t> g_nextTimerId{1};
}  // namespace

uint64_t TimerQueue::add(Clock::time_point deadline, TimerRoutine routine, void* context) {
    const uint64_t id = g_nextTimerId.fetch_add(1, std::memory_order_relaxed);
    std::lock_guard lock(m_lock);
    m_entries.emplace(deadline, Entry{id, routine, context});
    return id;
}

TimerQueue::Entries::const_iterator TimerQueue::findLocked(uint64_t id) const {
    return std::find_if(m_entries.begin(), m_entries.end(),
                        [id](const auto& item) { return item.second.id == id; });
}

bool TimerQueue::reschedule(uint64_t id, Clock::time_point deadline) {
    std::lock_guard lock(m_lock);
    const auto it = findLocked(id);
    if (it == m_entries.end()) return false;
    auto node = m_entries.extract(it);
    node.key() = deadline;
    m_entries.insert(std::move(node));
    return true;
}

bool TimerQueue::cancel(uint64_t id) {
    std::lock_guard lock(m_lock);
    const auto it = findLocked(id);
    if (it == m_entries.end()) return false;
    m_entries.erase(it);
    return true;
}

std::optional<TimerQueue::Clock::time_point> TimerQueue::nextDeadline() const {
    std::lock_guard lock(m_lock);
    if (m_entries.empty()) return std::nullopt;
    return m_entries.begin()->first;
}

size_t TimerQueue::runDue(Clock::time_point now) {
    size_t ran = 0;
    for (;;) {
        Entry entry;
        {
            std::lock_guard lock(m_lock);
            if (m_entries.empty() || m_entries.begin()->first > now) break;
            entry = m_entries.begin()->second;
            m_entries.erase(m_entries.begin());
            m_runs.fetch_add(1, std::memory_order_acq_rel);
        }
        // Outside the lock: the routine may arm a timer again on this very queue.
        entry.routine(entry.context, 0, 0);
        ++ran;
    }
    return ran;
}

size_t TimerQueue::runAll() {
    return runDue(Clock::time_point::max());
}

bool TimerQueue::contains(uint64_t id) const {
    std::lock_guard lock(m_lock);
    return findLocked(id) != m_entries.end();
}

size_t TimerQueue::pending() const {
    std::lock_guard lock(m_lock);
    return m_entries.size();
}

std::shared_ptr<TimerQueue> currentTimerQueue() {
    return t_timerQueue;
}

TimerQueueScope::TimerQueueScope()
    : m_queue(std::make_shared<TimerQueue>()), m_previous(t_timerQueue) {
    t_timerQueue = m_queue;
}

TimerQueueScope::~TimerQueueScope() {
    m_queue->runAll();
    t_timerQueue = m_previous;
}

namespace {
TimerQueue::Clock::time_point roundedDeadline(uint32_t milliseconds) {
    using namespace std::chrono;
    const auto deadline = TimerQueue::Clock::now() + std::chrono::milliseconds(milliseconds);
    const nanoseconds grain =
        std::min<nanoseconds>(std::chrono::milliseconds(milliseconds) / 16, seconds(1));
    if (grain <= nanoseconds(0)) return deadline;
    const nanoseconds since = deadline.time_since_epoch();
    return TimerQueue::Clock::time_point((since + grain - nanoseconds(1)) / grain * grain);
}
}  // namespace

bool WaitableTimer::arm(TimerRoutine routine, void* context, uint32_t milliseconds) {
    const auto deadline = roundedDeadline(milliseconds);
    TimerQueue* current = t_timerQueue.get();
    std::lock_guard lock(m_lock);
    // The calling thread's own queue is alive while the thread runs, so it may be used
    // through the plain pointer. While that queue has run nothing, the expiry is pending.
    const bool sameExpiry = current && m_id != 0 && m_armedOn == current && !m_queue.expired() &&
                            m_routine == routine && m_context == context;
    if (sameExpiry && m_deadline == deadline && m_queueRuns == current->runCount()) return true;
    if (sameExpiry && current->reschedule(m_id, deadline)) {
        m_deadline = deadline;
        m_queueRuns = current->runCount();
        return true;
    }
    if (auto previous = m_queue.lock(); previous && m_id != 0) previous->cancel(m_id);
    m_id = 0;
    m_queue.reset();
    m_armedOn = nullptr;
    if (!current) return false;
    m_id = current->add(deadline, routine, context);
    m_deadline = deadline;
    m_queueRuns = current->runCount();
    m_queue = t_timerQueue;
    m_armedOn = current;
    m_routine = routine;
    m_context = context;
    return true;
}

void WaitableTimer::cancel() {
    std::lock_guard lock(m_lock);
    if (auto queue = m_queue.lock(); queue && m_id != 0) queue->cancel(m_id);
    m_id = 0;
    m_queue.reset();
    m_armedOn = nullptr;
}

bool WaitableTimer::isPending() const {
    std::lock_guard lock(m_lock);
    auto queue = m_queue.lock();
    return queue && m_id != 0 && queue->contains(m_id);
}

}  // namespace vt
