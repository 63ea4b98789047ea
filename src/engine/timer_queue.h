#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

// One-shot timers whose routines run on the thread that armed them. Each queue worker owns a
// TimerQueue; its wait for work ends at the queue's next deadline and runs the due routines
// there, so an action's idle routine (closing a file or a connection) runs on the same worker
// that used the resource, between units.
namespace vt {

// Same shape as a waitable timer's completion routine: (context, low, high time words).
using TimerRoutine = void (*)(void* context, uint32_t timeLow, uint32_t timeHigh);

class TimerQueue {
  public:
    using Clock = std::chrono::steady_clock;

    TimerQueue() = default;
    TimerQueue(const TimerQueue&) = delete;
    TimerQueue& operator=(const TimerQueue&) = delete;

    // Registers a routine; returns its id (never 0).
    uint64_t add(Clock::time_point deadline, TimerRoutine routine, void* context);
    // Removes a pending routine; false when it has run already or was never there.
    bool cancel(uint64_t id);
    // Moves a pending routine to a new deadline; false when it is no longer pending.
    bool reschedule(uint64_t id, Clock::time_point deadline);
    std::optional<Clock::time_point> nextDeadline() const;
    // Runs, on the calling thread and outside the lock, every routine due at `now`, earliest
    // first. Returns how many ran.
    size_t runDue(Clock::time_point now);
    // Runs every pending routine at once (the owning worker is leaving).
    size_t runAll();
    size_t pending() const;
    bool contains(uint64_t id) const;
    // How many routines this queue has run: a timer armed since the last change of this count
    // is still pending.
    uint64_t runCount() const noexcept { return m_runs.load(std::memory_order_acquire); }

  private:
    struct Entry {
        uint64_t id;
        TimerRoutine routine;
        void* context;
    };
    using Entries = std::multimap<Clock::time_point, Entry>;
    // The entry with `id`, or end(); the caller holds m_lock.
    Entries::const_iterator findLocked(uint64_t id) const;

    mutable std::mutex m_lock;
    Entries m_entries;  // guarded by m_lock
    std::atomic<uint64_t> m_runs{0};
};

// The timer queue of the calling thread, or null on threads that own none.
std::shared_ptr<TimerQueue> currentTimerQueue();

// Gives the calling thread a timer queue for the scope's lifetime; on leaving, the routines
// still pending run at once so that no resource stays open.
class TimerQueueScope {
  public:
    TimerQueueScope();
    ~TimerQueueScope();
    TimerQueueScope(const TimerQueueScope&) = delete;
    TimerQueueScope& operator=(const TimerQueueScope&) = delete;
    TimerQueue& queue() noexcept { return *m_queue; }

  private:
    std::shared_ptr<TimerQueue> m_queue;
    std::shared_ptr<TimerQueue> m_previous;
};

// An action's idle timer: at most one pending expiry, registered with the timer queue of the
// thread that armed it. Safe to arm and cancel from any thread.
class WaitableTimer {
  public:
    WaitableTimer() = default;
    ~WaitableTimer() { cancel(); }
    WaitableTimer(const WaitableTimer&) = delete;
    WaitableTimer& operator=(const WaitableTimer&) = delete;

    // Cancels any pending expiry, then registers `routine` to run after `milliseconds` on the
    // calling thread's timer queue. False when the thread has no timer queue; nothing is
    // registered then. The expiry may come up to a sixteenth of the period (at most a second)
    // late, never early: actions arm after every unit, and arming again within that grain
    // leaves the queue alone.
    bool arm(TimerRoutine routine, void* context, uint32_t milliseconds);
    // Discards a pending expiry, if any.
    void cancel();
    bool isPending() const;

  private:
    mutable std::mutex m_lock;
    std::weak_ptr<TimerQueue> m_queue;  // guarded by m_lock
    uint64_t m_id = 0;                  // guarded by m_lock
    // What the pending expiry was armed with (guarded by m_lock), so that arming again on the
    // same thread moves it instead of replacing it: actions arm after every unit.
    const TimerQueue* m_armedOn = nullptr;
    TimerRoutine m_routine = nullptr;
    void* m_context = nullptr;
    std::chrono::steady_clock::time_point m_deadline{};
    uint64_t m_queueRuns = 0;  // the queue's run count when the deadline was set
};

}  // namespace vt
