#include "platform/event_log.h"

#include <windows.h>

#include <string>

namespace vt {

EventSource::EventSource(const char* sourceName) : m_name(sourceName) {
    HANDLE h = RegisterEventSourceA(nullptr, sourceName);
    if (h) m_handle = reinterpret_cast<intptr_t>(h);
}

EventSource::~EventSource() {
    if (isOpen()) DeregisterEventSource(reinterpret_cast<HANDLE>(m_handle));
}

bool EventSource::report(EventType type, uint32_t eventId, std::string_view text,
                         std::string_view secondText, bool hasSecond) {
    if (!isOpen()) return false;
    const std::string first(text);
    const std::string second(secondText);
    LPCSTR strings[2] = {first.c_str(), second.c_str()};
    return ReportEventA(reinterpret_cast<HANDLE>(m_handle), static_cast<WORD>(type), 0,
                        static_cast<DWORD>(eventId), nullptr, hasSecond ? 2 : 1, 0, strings,
                        nullptr) != FALSE;
}

}  // namespace vt
