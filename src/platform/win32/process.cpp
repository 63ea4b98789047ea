#include "platform/process.h"

#include <windows.h>

// These need the declarations of windows.h first.
#include <psapi.h>
#include <tlhelp32.h>

#include <ctime>
#include <vector>

namespace vt {

std::string executablePath() {
    std::vector<char> buffer(MAX_PATH);
    for (;;) {
        const DWORD n =
            GetModuleFileNameA(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
        if (n == 0) return {};
        if (n < buffer.size()) return std::string(buffer.data(), n);
        buffer.resize(buffer.size() * 2);
    }
}

std::string shortPathName(const std::string& path) {
    const DWORD needed = GetShortPathNameA(path.c_str(), nullptr, 0);
    if (needed == 0) return path;
    std::string shortPath(needed, '\0');
    const DWORD n = GetShortPathNameA(path.c_str(), shortPath.data(), needed);
    if (n == 0 || n >= needed) return path;
    shortPath.resize(n);
    return shortPath;
}

bool setProcessPriority(uint32_t code) {
    DWORD priorityClass = 0;
    switch (code) {
        case 1:
            priorityClass = IDLE_PRIORITY_CLASS;
            break;
        case 2:
            priorityClass = BELOW_NORMAL_PRIORITY_CLASS;
            break;
        case 4:
            priorityClass = ABOVE_NORMAL_PRIORITY_CLASS;
            break;
        default:
            return true;
    }
    return SetPriorityClass(GetCurrentProcess(), priorityClass) != FALSE;
}

bool environmentVariable(const char* name, std::string& value) {
    const DWORD needed = GetEnvironmentVariableA(name, nullptr, 0);
    if (needed == 0) return false;
    std::string buffer(needed, '\0');
    const DWORD n = GetEnvironmentVariableA(name, buffer.data(), needed);
    if (n >= needed) return false;
    buffer.resize(n);
    value = buffer;
    return true;
}

bool currentUserName(std::string& name) {
    char buffer[256];
    const DWORD n = GetEnvironmentVariableA("USERNAME", buffer, sizeof buffer);
    if (n == 0) return false;
    name.assign(buffer, n < sizeof buffer ? n : sizeof buffer - 1);
    return true;
}

void prepareProcessSignals() {}

}  // namespace vt

namespace vt {

std::string agentCountersPath() {
    std::string path = executablePath();
    const size_t slash = path.find_last_of("\\/");
    path.erase(slash == std::string::npos ? 0 : slash + 1);
    return path + "vtagent.counters";
}

bool writePrivateFile(const std::string& path, const std::string& text) noexcept {
    const std::string temporary = path + ".new";
    HANDLE file = CreateFileA(temporary.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    DWORD written = 0;
    const BOOL ok =
        WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
    CloseHandle(file);
    return ok && written == text.size() &&
           MoveFileExA(temporary.c_str(), path.c_str(), MOVEFILE_REPLACE_EXISTING);
}

bool queryProcessUsage(uint64_t& residentKb, uint32_t& threads) noexcept {
    PROCESS_MEMORY_COUNTERS counters{};
    if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters)) return false;
    residentKb = counters.WorkingSetSize / 1024;
    threads = 0;
    const DWORD self = GetCurrentProcessId();
    HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    if (snapshot == INVALID_HANDLE_VALUE) return true;
    THREADENTRY32 entry{};
    entry.dwSize = sizeof entry;
    for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
        if (entry.th32OwnerProcessID == self) ++threads;
    CloseHandle(snapshot);
    return true;
}

}  // namespace vt
