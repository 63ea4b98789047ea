#pragma once
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

// The agent's own events. Windows: the Application event log through an event source that is
// registered for one report and deregistered again. Linux: one RFC 3164 datagram per event to
// the local syslog socket ($VTAGENT_EVENTLOG_SOCKET, default /dev/log), facility daemon, tag
// "QuilletVantoreAgent", text "[<id>] <text>" and " | <second text>" when there is one.
namespace vt {

enum class EventType : uint16_t {
    error = 1,        // EVENTLOG_ERROR_TYPE, syslog severity 3
    warning = 2,      // EVENTLOG_WARNING_TYPE, syslog severity 4
    information = 4,  // EVENTLOG_INFORMATION_TYPE, syslog severity 6
};

// An event source held for the reports of one event. Not copyable; closes on destruction.
class EventSource {
  public:
    explicit EventSource(const char* sourceName);
    ~EventSource();
    EventSource(const EventSource&) = delete;
    EventSource& operator=(const EventSource&) = delete;

    // False when the source could not be registered (Linux: the socket cannot be reached).
    bool isOpen() const noexcept { return m_handle != invalidHandle; }
    // Reports one event with one insertion string, or two when `hasSecond` is set. False on
    // failure; the system error is then in lastSystemError().
    bool report(EventType type, uint32_t eventId, std::string_view text,
                std::string_view secondText, bool hasSecond);

  private:
    static constexpr intptr_t invalidHandle = -1;
    intptr_t m_handle = invalidHandle;
    const char* m_name;
};

// The datagram of one event for the local syslog socket, "<PRI>Mmm dd hh:mm:ss TAG[pid]: MSG"
// with facility daemon. No host name: the local socket's reader adds it. Pure formatting,
// exposed for tests.
std::string syslogEventDatagram(const char* tag, EventType type, uint32_t eventId,
                                std::string_view text, std::string_view secondText, bool hasSecond,
                                const std::tm& localTime, uint32_t processId);

// Windows: the text of message `eventId` in the message table of the module at `modulePath`,
// with %1, %2, ... replaced by `strings` and the final line end removed. False when the module
// or the message does not exist. Linux has no message tables: always false.
bool eventMessageText(const std::string& modulePath, uint32_t eventId,
                      const std::vector<std::string>& strings, std::string& text);

}  // namespace vt
