#pragma once
#include <cstdint>
#include <string_view>

// The agent's own events: the Application event log on Windows, the local syslog socket on
// Linux. The caller tag is for the reader of the call site only; it is not written anywhere.
namespace vt {

void reportError(uint32_t eventId, std::string_view callerTag, std::string_view text,
                 std::string_view secondText = {});
void reportWarning(uint32_t eventId, std::string_view callerTag, std::string_view text,
                   std::string_view secondText = {});
void reportInformation(uint32_t eventId, std::string_view callerTag, std::string_view text,
                       std::string_view secondText = {});

}  // namespace vt
