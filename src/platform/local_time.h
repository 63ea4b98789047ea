#pragma once
#include <cstdint>

namespace vt {
// A broken-down calendar time. month 1-12, day 1-31; weekday 0 = Sunday when filled by the
// system.
struct CivilTime {
    int year = 1970;
    int month = 1;
    int day = 1;
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 4;
};

// The local time of a UTC instant (seconds since 1970), through the C library's time zone
// rules; thread-safe. False when the instant cannot be represented.
bool localTimeOf(int64_t utcSeconds, CivilTime& out) noexcept;

// The UTC instant of a local time, the inverse of localTimeOf. Out-of-range fields are
// normalised as mktime does (day 32 is the first of the next month); the weekday is ignored.
// -1 when the time cannot be represented.
int64_t secondsOfLocalTime(const CivilTime& local) noexcept;

// The current offset of UTC from local time in seconds (UTC = local + bias), daylight saving
// included: the Windows "Bias" plus, in daylight time, "DaylightBias", times 60.
int64_t localTimeZoneBiasSeconds() noexcept;
}  // namespace vt
