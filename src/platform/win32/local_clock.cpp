#include "platform/local_clock.h"

#include <time.h>

namespace vt {
bool localCalendar(int64_t seconds, std::tm& out) noexcept {
    const __time64_t t = static_cast<__time64_t>(seconds);
    return _localtime64_s(&out, &t) == 0;
}

int64_t fromLocalCalendar(std::tm calendar) noexcept {
    calendar.tm_isdst = -1;
    return static_cast<int64_t>(_mktime64(&calendar));
}
}  // namespace vt
