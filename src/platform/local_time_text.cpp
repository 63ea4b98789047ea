#include <ctime>

#include "platform/local_clock.h"
#include "platform/process.h"

namespace vt {
std::string localTimeText(int64_t seconds) {
    std::tm local{};
    if (!localCalendar(seconds, local)) return {};
    char buffer[64];
    if (std::strftime(buffer, sizeof buffer, "%a %b %d %H:%M:%S %Y", &local) == 0) return {};
    return buffer;
}
}  // namespace vt
