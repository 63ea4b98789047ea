#include <ctime>

#include "platform/local_time.h"
#include "platform/process.h"

namespace vt {
namespace {
// The one way into the C library's local time rules. Both systems have a reentrant form under
// their own name; Windows's takes a 64-bit time so that 2038 is no limit there either.
bool localCalendar(int64_t seconds, std::tm& out) noexcept {
#ifdef _WIN32
    const __time64_t t = static_cast<__time64_t>(seconds);
    return _localtime64_s(&out, &t) == 0;
#else
    const time_t t = static_cast<time_t>(seconds);
    return localtime_r(&t, &out) != nullptr;
#endif
}
}  // namespace

bool localTimeOf(int64_t utcSeconds, CivilTime& out) noexcept {
    std::tm tm{};
    if (!localCalendar(utcSeconds, tm)) return false;
    out.year = tm.tm_year + 1900;
    out.month = tm.tm_mon + 1;
    out.day = tm.tm_mday;
    out.hour = tm.tm_hour;
    out.minute = tm.tm_min;
    out.second = tm.tm_sec;
    out.weekday = tm.tm_wday;
    return true;
}

int64_t secondsOfLocalTime(const CivilTime& local) noexcept {
    std::tm tm{};
    tm.tm_year = local.year - 1900;
    tm.tm_mon = local.month - 1;
    tm.tm_mday = local.day;
    tm.tm_hour = local.hour;
    tm.tm_min = local.minute;
    tm.tm_sec = local.second;
    tm.tm_isdst = -1;  // let the zone rules say whether daylight saving applies
#ifdef _WIN32
    return static_cast<int64_t>(_mktime64(&tm));
#else
    return static_cast<int64_t>(std::mktime(&tm));
#endif
}

#ifndef _WIN32
// Windows reads its zone's bias from the system (win32/local_time.cpp).
int64_t localTimeZoneBiasSeconds() noexcept {
    std::tm tm{};
    if (!localCalendar(static_cast<int64_t>(std::time(nullptr)), tm)) return 0;
    return -static_cast<int64_t>(tm.tm_gmtoff);
}
#endif

std::string localTimeText(int64_t seconds) {
    std::tm local{};
    if (!localCalendar(seconds, local)) return {};
    char buffer[64];
    if (std::strftime(buffer, sizeof buffer, "%a %b %d %H:%M:%S %Y", &local) == 0) return {};
    return buffer;
}
}  // namespace vt
