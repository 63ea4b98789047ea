#include "platform/local_clock.h"

#include <time.h>

namespace vt {
bool localCalendar(int64_t seconds, std::tm& out) noexcept {
    const time_t t = static_cast<time_t>(seconds);
    return ::localtime_r(&t, &out) != nullptr;
}

int64_t fromLocalCalendar(std::tm calendar) noexcept {
    calendar.tm_isdst = -1;
    return static_cast<int64_t>(::mktime(&calendar));
}
}  // namespace vt
