#pragma once
#include <chrono>
#include <cstdint>

// Turns periodic readings into alerts on crossing, so that a disk that stays full or a CPU that
// stays busy does not raise one alert per poll: one when a reading goes beyond the threshold,
// again every repeat interval while it stays there (0: never again), and, when asked, one when
// it comes back.
class CThresholdWatch {
  public:
    enum class Event { None, Crossed, StillBeyond, Recovered };

    CThresholdWatch(uint32_t repeatSeconds, bool reportRecovery)
        : m_repeat(std::chrono::seconds(repeatSeconds)), m_reportRecovery(reportRecovery) {}

    Event observe(bool beyond, std::chrono::steady_clock::time_point now);

  private:
    std::chrono::steady_clock::duration m_repeat;
    bool m_reportRecovery;
    bool m_beyond = false;
    std::chrono::steady_clock::time_point m_lastAlert{};
};
