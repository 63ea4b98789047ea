#include "platform/local_time.h"

#include <windows.h>

#include <ctime>

namespace vt {
bool localTimeOf(int64_t utcSeconds, CivilTime& out) noexcept {
    const __time64_t t = static_cast<__time64_t>(utcSeconds);
    struct tm tm {};
    if (_localtime64_s(&tm, &t) != 0) return false;
    out.year = tm.tm_year + 1900;
    out.month = tm.tm_mon + 1;
    out.day = tm.tm_mday;
    out.hour = tm.tm_hour;
    out.minute = tm.tm_min;
    out.second = tm.tm_sec;
    out.weekday = tm.tm_wday;
    return true;
}

int64_t localTimeZoneBiasSeconds() noexcept {
    TIME_ZONE_INFORMATION tzi{};
    const DWORD r = GetTimeZoneInformation(&tzi);
    if (r == TIME_ZONE_ID_INVALID) return 0;
    LONG bias = tzi.Bias;
    if (r == TIME_ZONE_ID_DAYLIGHT) bias += tzi.DaylightBias;
    return static_cast<int64_t>(bias) * 60;
}
}  // namespace vt
