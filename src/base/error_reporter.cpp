#include "base/error_reporter.h"

#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string>

#include "base/debug_log.h"
#include "base/version.h"
#include "platform/local_time.h"
#include "platform/process.h"
#include "platform/system_error.h"

namespace vt {
namespace {

constexpr uint32_t kEventBurstSilenced = 151;
constexpr const char* kBurstSilencedText =
    "Numerous runtime events were encountered .\r\nThis is usually caused by configuration or "
    "network problems.\r\nFrom now, there will no more events logged for this hour.";

std::atomic<int64_t> g_eventlogWarnings{-1};
EventThrottle g_throttle;
std::atomic<Clock*> g_clock{nullptr};

ClockMinute currentMinute() {
    Clock* clock = g_clock.load(std::memory_order_acquire);
    CivilTime local;
    localTimeOf((clock ? *clock : systemClock()).nowSeconds(), local);
    return {local.hour, local.minute};
}

bool hasText(std::string_view text) noexcept {
    return text.data() != nullptr;
}

void wrapperLine(uint32_t level, const char* format, uint32_t eventId, std::string_view text) {
    if (!debugOn(level)) return;
    debugPrintf(level, format, static_cast<int>(eventId), std::string(text).c_str());
}

std::string stripLineEnd(std::string line) {
    while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
    return line;
}

}  // namespace

void EventThrottle::startBurst(int minute) noexcept {
    m_burstMinute.store(minute, std::memory_order_relaxed);
    m_burstCount.store(1, std::memory_order_relaxed);
}

bool EventThrottle::admit(const ClockMinute& now) noexcept {
    if (!m_enabled.load(std::memory_order_relaxed)) {
        if (now.hour == m_disabledHour.load(std::memory_order_relaxed)) return false;
        m_enabled.store(true, std::memory_order_relaxed);
        startBurst(now.minute);
        return true;
    }
    const int burstMinute = m_burstMinute.load(std::memory_order_relaxed);
    if (burstMinute < 0)
        startBurst(now.minute);
    else if (burstMinute == now.minute || burstMinute == now.minute + 1)
        m_burstCount.fetch_add(1, std::memory_order_relaxed);
    else
        startBurst(now.minute);
    return true;
}

bool EventThrottle::closeBurstIfFull(const ClockMinute& now) noexcept {
    if (m_burstCount.load(std::memory_order_relaxed) < kBurstLimit) return false;
    m_enabled.store(false, std::memory_order_relaxed);
    m_disabledHour.store(now.hour, std::memory_order_relaxed);
    return true;
}

void EventThrottle::reset() noexcept {
    m_enabled.store(true, std::memory_order_relaxed);
    m_burstMinute.store(-1, std::memory_order_relaxed);
    m_burstCount.store(0, std::memory_order_relaxed);
    m_disabledHour.store(-1, std::memory_order_relaxed);
}

void setErrorReporterClock(Clock* clock) noexcept {
    g_clock.store(clock, std::memory_order_release);
}

void resetErrorReporterThrottle() {
    g_throttle.reset();
}

void setEventlogWarningsSetting(int64_t value) {
    g_eventlogWarnings.store(value);
}

void reportEvent(EventType type, const char* sourceName, uint32_t eventId, std::string_view text,
                 std::string_view secondText, bool hasSecond) {
    const ClockMinute now = currentMinute();
    if (!g_throttle.admit(now)) {
        debugWrite(DBG_ULTRA,
                   "A Event was not logged, internal EventLogging is disabled for one hour\r\n");
        return;
    }
    EventSource source(sourceName);
    if (!source.isOpen()) {
        debugWrite(DBG_INFO, "hEvtLog is NULL\r\n");
    } else if (!source.report(type, eventId, text, secondText, hasSecond)) {
        debugPrintf(DBG_INFO,
                    "Error %d writing to the Event Log - we can't report any other way now!\r\n",
                    static_cast<int>(lastSystemError()));
    }
    if (g_throttle.closeBurstIfFull(now) && source.isOpen())
        source.report(EventType::error, kEventBurstSilenced, kBurstSilencedText, {}, false);
}

void reportError(uint32_t eventId, std::string_view, std::string_view text,
                 std::string_view secondText) {
    wrapperLine(DBG_ERROR, "Error Event %d logged with data '%s'.", eventId, text);
    reportEvent(EventType::error, kServiceName, eventId, text, secondText, hasText(secondText));
}

void reportWarning(uint32_t eventId, std::string_view, std::string_view text,
                   std::string_view secondText) {
    wrapperLine(DBG_ERROR, "Warning Event %d logged with data '%s'.", eventId, text);
    const int64_t setting = g_eventlogWarnings.load();
    if (setting >= 0 && setting != 1) return;
    reportEvent(EventType::warning, kServiceName, eventId, text, secondText, hasText(secondText));
}

void reportInformation(uint32_t eventId, std::string_view, std::string_view text,
                       std::string_view secondText) {
    wrapperLine(DBG_ULTRA, "Information Event %d logged with data '%s'.\r\n", eventId, text);
    reportEvent(EventType::information, kServiceName, eventId, text, secondText,
                hasText(secondText));
}

int reportSystemException(uint32_t code, const char* className, const char* methodName,
                          int32_t eventId, const SystemExceptionDetails& details) {
    char location[256];
    std::snprintf(location, sizeof location, "%s::%s", className, methodName);
    char caught[512];
    std::snprintf(caught, sizeof caught, "%s| %s: System Exception caught, Code '0x%x'\r\n",
                  className, methodName, code);
    char address[512];
    std::snprintf(address, sizeof address,
                  "%s| %s: System Exception Details - ExceptionAddress='0x%" PRIxPTR "'\r\n",
                  className, methodName, details.address);
    char parameters[512] = "";
    const bool withParameters = code == kExceptionAccessViolation && details.hasAccessDetails;
    if (withParameters)
        std::snprintf(parameters, sizeof parameters,
                      "%s| %s: System Exception Details - Parameter1='0x%" PRIxPTR
                      "', Parameter2='0x%" PRIxPTR "'\r\n",
                      className, methodName, details.accessKind, details.accessAddress);
    debugWrite(DBG_ERROR, caught);
    debugWrite(DBG_ERROR, address);
    if (withParameters) debugWrite(DBG_ERROR, parameters);

    if (eventId != kNoEvent) {
        char text[2048];
        std::snprintf(text, sizeof text, "\nException: %s \nDetails: %s \nParams: %s",
                      stripLineEnd(caught).c_str(), stripLineEnd(address).c_str(),
                      stripLineEnd(parameters).c_str());
        reportError(static_cast<uint32_t>(eventId), location, text);
    }
    return kExceptionExecuteHandler;
}

}  // namespace vt
