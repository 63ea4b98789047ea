#include "platform/local_time.h"

#include <windows.h>

#include <ctime>

namespace vt {
int64_t localTimeZoneBiasSeconds() noexcept {
    TIME_ZONE_INFORMATION tzi{};
    const DWORD r = GetTimeZoneInformation(&tzi);
    if (r == TIME_ZONE_ID_INVALID) return 0;
    LONG bias = tzi.Bias;
    if (r == TIME_ZONE_ID_DAYLIGHT) bias += tzi.DaylightBias;
    return static_cast<int64_t>(bias) * 60;
}
}  // namespace vt
