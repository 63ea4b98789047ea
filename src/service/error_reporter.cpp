#include "service/error_reporter.h"

#include <string>

#include "service/debug_log.h"

// Minimal reporter: writes the wrapper's debug line only. The event log channel and the burst
// throttle come with the service runtime.
namespace vt {
namespace {
void debugLine(uint32_t level, const char* format, uint32_t eventId, std::string_view text) {
    if (!debugOn(level)) return;
    debugPrintf(level, format, eventId, std::string(text).c_str());
}
}  // namespace

void reportError(uint32_t eventId, std::string_view, std::string_view text, std::string_view) {
    debugLine(DBG_ERROR, "Error Event %u logged with data '%s'.", eventId, text);
}

void reportWarning(uint32_t eventId, std::string_view, std::string_view text, std::string_view) {
    debugLine(DBG_ERROR, "Warning Event %u logged with data '%s'.", eventId, text);
}

void reportInformation(uint32_t eventId, std::string_view, std::string_view text,
                       std::string_view) {
    debugLine(DBG_ULTRA, "Information Event %u logged with data '%s'.\r\n", eventId, text);
}
}  // namespace vt
