#include "base/clock.h"

#include <chrono>
#include <ctime>
#include <thread>

namespace vt {
namespace {

class SystemClock final : public Clock {
  public:
    int64_t nowSeconds() override { return static_cast<int64_t>(std::time(nullptr)); }
    void sleepMs(uint32_t milliseconds) override {
        std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    }
    void waitMs(uint32_t milliseconds, std::condition_variable& condition, std::mutex& lock,
                const std::function<bool()>& done) override {
        std::unique_lock held(lock);
        condition.wait_for(held, std::chrono::milliseconds(milliseconds), done);
    }
};

}  // namespace

Clock& systemClock() noexcept {
    static SystemClock clock;
    return clock;
}

}  // namespace vt
