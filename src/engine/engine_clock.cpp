#include "engine/engine_clock.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace vt {
namespace {

class SystemClock final : public EngineClock {
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

SystemClock g_systemClock;
std::atomic<EngineClock*> g_clock{&g_systemClock};

}  // namespace

EngineClock& engineClock() noexcept {
    return *g_clock.load(std::memory_order_acquire);
}

void setEngineClock(EngineClock* clock) noexcept {
    g_clock.store(clock ? clock : &g_systemClock, std::memory_order_release);
}

}  // namespace vt
