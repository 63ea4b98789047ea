#pragma once
#include <cstdint>
#include <ctime>

namespace vt {
// Thread-safe conversions between seconds since 1970 (UTC) and the local calendar.
bool localCalendar(int64_t secondsSinceEpoch, std::tm& out) noexcept;
// Normalises out-of-range fields the way mktime does; -1 when the time cannot be represented.
int64_t fromLocalCalendar(std::tm calendar) noexcept;
}  // namespace vt
