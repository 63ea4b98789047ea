#include "platform/system_stats.h"

#include <windows.h>

#include "platform/utf_codec.h"

namespace vt {

bool queryDiskSpace(const std::string& path, DiskSpace& out, uint32_t& error) noexcept {
    ULARGE_INTEGER available{}, total{};
    const std::u16string wide = utf8ToUtf16(path);
    if (!GetDiskFreeSpaceExW(reinterpret_cast<LPCWSTR>(wide.c_str()), &available, &total,
                             nullptr)) {
        error = GetLastError();
        return false;
    }
    out.totalBytes = total.QuadPart;
    out.availableBytes = available.QuadPart;
    return true;
}

const char* defaultDiskPath() noexcept {
    return "C:\\";
}

bool queryCpuTimes(std::vector<CpuTimes>& out) {
    FILETIME idle{}, kernel{}, user{};
    if (!GetSystemTimes(&idle, &kernel, &user)) return false;
    auto ticks = [](const FILETIME& t) {
        return (static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime;
    };
    // Kernel time includes the idle time.
    const uint64_t total = ticks(kernel) + ticks(user);
    out.assign(1, CpuTimes{total - ticks(idle), total});
    return true;
}

}  // namespace vt
