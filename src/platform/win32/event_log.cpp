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

bool eventMessageText(const std::string& modulePath, uint32_t eventId,
                      const std::vector<std::string>& strings, std::string& text) {
    HMODULE module = LoadLibraryExA(modulePath.c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE);
    if (!module) return false;
    std::vector<DWORD_PTR> arguments;
    for (const std::string& s : strings)
        arguments.push_back(reinterpret_cast<DWORD_PTR>(s.c_str()));
    char* buffer = nullptr;
    const DWORD n = FormatMessageA(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ALLOCATE_BUFFER |
                                       FORMAT_MESSAGE_ARGUMENT_ARRAY,
                                   module, eventId, 0, reinterpret_cast<LPSTR>(&buffer), 0,
                                   reinterpret_cast<va_list*>(arguments.data()));
    const DWORD error = GetLastError();
    FreeLibrary(module);
    if (n == 0 || !buffer) {
        SetLastError(error);
        return false;
    }
    text.assign(buffer, n);
    LocalFree(buffer);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return true;
}

}  // namespace vt
