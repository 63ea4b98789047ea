#pragma once
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

// Time as the rule engine sees it: the seconds clock used for occurrence windows and minimum
// waits, and the sleeps of the retry loop and the queue's producer throttle. Tests install a
// fake so that timing logic runs without real sleeps.
namespace vt {

class EngineClock {
  public:
    virtual ~EngineClock() = default;
    // Seconds since 1970-01-01 00:00:00 UTC.
    virtual int64_t nowSeconds() = 0;
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

EngineClock& engineClock() noexcept;

// Installs `clock` (not owned; it must outlive its use) or, with nullptr, the system clock again.
void setEngineClock(EngineClock* clock) noexcept;

}  // namespace vt
