#pragma once
#include <atomic>
#include <cstdint>
#include <functional>
#include <string_view>

#include "base/clock.h"
#include "platform/event_log.h"

// The agent's own events: the Application event log on Windows, the local syslog socket on
// Linux. The caller tag is for the reader of the call site only; it is not written anywhere.
// A second text is present when `secondText.data()` is not null, so an explicitly passed empty
// text still becomes a second (empty) insertion string.
namespace vt {

void reportError(uint32_t eventId, std::string_view callerTag, std::string_view text,
                 std::string_view secondText = {});
void reportWarning(uint32_t eventId, std::string_view callerTag, std::string_view text,
                   std::string_view secondText = {});
void reportInformation(uint32_t eventId, std::string_view callerTag, std::string_view text,
                       std::string_view secondText = {});

// Warnings reach the event log only while no settings exist (value < 0, the start) or while
// "nEnableEventlogWarnings" is 1. The settings loader calls this with the value it read.
void setEventlogWarningsSetting(int64_t value);

// Local wall-clock hour and minute, the only time the burst throttle looks at.
struct ClockMinute {
    int hour = 0;
    int minute = 0;
};

// The burst throttle: after 100 events counted in one burst the reporter reports event 151 and
// stays silent until the clock shows another hour. Bursts are keyed by the minute they started
// in; an event counts towards the burst when that minute equals the current minute or the
// current minute plus one (the second comparison is kept as the system has always had it).
// The state is a handful of relaxed atomics without a lock: concurrent reports may miscount a
// burst by a few events, which is accepted.
class EventThrottle {
  public:
    static constexpr int kBurstLimit = 100;
    // Steps taken before an event is reported; false: reporting is off for this hour, drop it.
    bool admit(const ClockMinute& now) noexcept;
    // After the report: true once the burst is full; reporting is then off until the hour
    // changes.
    bool closeBurstIfFull(const ClockMinute& now) noexcept;
    void reset() noexcept;
    bool enabled() const noexcept { return m_enabled.load(std::memory_order_relaxed); }

  private:
    void startBurst(int minute) noexcept;
    std::atomic<bool> m_enabled{true};
    std::atomic<int> m_burstMinute{-1};
    std::atomic<int> m_burstCount{0};
    std::atomic<int> m_disabledHour{-1};
};

// One event through the throttle to the event source `sourceName` (usually the service name).
void reportEvent(EventType type, const char* sourceName, uint32_t eventId, std::string_view text,
                 std::string_view secondText, bool hasSecond);

// The clock whose local hour and minute the throttle reads (not owned; null: the system
// clock). Tests hand in theirs and start from a fresh throttle.
void setErrorReporterClock(Clock* clock) noexcept;
void resetErrorReporterThrottle();

// What the exception filter knows about a system exception. `hasAccessDetails` is set for an
// access violation: the access kind (0 read, 1 write, 8 execute) and the address touched.
struct SystemExceptionDetails {
    uintptr_t address = 0;
    bool hasAccessDetails = false;
    uintptr_t accessKind = 0;
    uintptr_t accessAddress = 0;
};
constexpr uint32_t kExceptionAccessViolation = 0xC0000005;
// A C++ exception (or a signal turned into one) that escaped a work routine, reported with the
// code the Windows runtime gives C++ exceptions.
constexpr uint32_t kExceptionCppException = 0xE06D7363;
constexpr int kExceptionExecuteHandler = 1;
constexpr int32_t kNoEvent = -1;

// Writes the exception to the debug log and, unless `eventId` is kNoEvent, reports it as an
// error event. Returns kExceptionExecuteHandler so that an exception filter runs its handler.
int reportSystemException(uint32_t code, const char* className, const char* methodName,
                          int32_t eventId, const SystemExceptionDetails& details);

}  // namespace vt
