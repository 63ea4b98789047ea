#include "platform/local_time.h"

#include <ctime>

namespace vt {
bool localTimeOf(int64_t utcSeconds, CivilTime& out) noexcept {
    const time_t t = static_cast<time_t>(utcSeconds);
    struct tm tm {};
    if (!localtime_r(&t, &tm)) return false;
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
    const time_t now = time(nullptr);
    struct tm tm {};
    if (!localtime_r(&now, &tm)) return 0;
    return -static_cast<int64_t>(tm.tm_gmtoff);
}
}  // namespace vt
