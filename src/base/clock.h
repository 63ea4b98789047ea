#pragma once
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

namespace vt {

// Time as the agent sees it: the wall clock in seconds for occurrence windows, minimum waits,
// restart windows, file names and the event throttle; steady time for cache ages; and the pauses
// of retries, throttles and the shutdown. One interface, handed
// to whatever measures or waits, so that tests move time instead of sleeping.
class Clock {
  public:
    virtual ~Clock() = default;
    // Seconds since 1970-01-01 00:00:00 UTC.
    virtual int64_t nowSeconds() = 0;
    // Monotonic time, for ages and deadlines that a change of the wall clock must not move.
    virtual std::chrono::steady_clock::time_point steadyNow() {
        return std::chrono::steady_clock::now();
    }
    virtual void sleepMs(uint32_t milliseconds) = 0;
    // Sleeps up to `milliseconds` on `condition` (taking `lock` for the wait) and returns as
    // soon as `done` holds. A clock that cannot wait on the condition (a test's fake) sleeps
    // without taking the lock.
    virtual void waitMs(uint32_t milliseconds, std::condition_variable& condition, std::mutex& lock,
                        const std::function<bool()>& done) {
        (void)condition;
        (void)lock;
        (void)done;
        sleepMs(milliseconds);
    }
};

// The real clock; what every part uses unless it is handed another.
Clock& systemClock() noexcept;

}  // namespace vt
