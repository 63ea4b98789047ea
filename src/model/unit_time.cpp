#include "model/unit_time.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace vt {
namespace {

constexpr int kDaysBeforeMonth[12] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

std::atomic<Clock*> g_unitClock{nullptr};

bool digitsAt(std::u16string_view t, size_t pos, size_t count, int& value) noexcept {
    int v = 0;
    for (size_t i = pos; i < pos + count; ++i) {
        const char16_t c = t[i];
        if (c < u'0' || c > u'9') return false;
        v = v * 10 + (c - u'0');
    }
    value = v;
    return true;
}

// Days since 1970-01-01 to a proleptic Gregorian date.
void civilFromDays(int64_t z, int& y, int& m, int& d) noexcept {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int>(yoe + era * 400 + (m <= 2 ? 1 : 0));
}

}  // namespace

int64_t calendarToSeconds(const CivilTime& t, bool addLocalBias) noexcept {
    const int64_t yearIndex = static_cast<int64_t>(t.year) - 1970;
    const int month = t.month >= 1 && t.month <= 12 ? t.month : 1;
    int64_t days = yearIndex * 365 + kDaysBeforeMonth[month - 1] + t.day - 1;
    // One leap day for each year index k in 1..limit with (k + 2) divisible by 4, i.e.
    // k = 2, 6, 10, ...: counted in closed form.
    const int64_t limit = month <= 2 ? yearIndex - 1 : yearIndex;
    if (limit >= 2) days += (limit - 2) / 4 + 1;
    int64_t seconds = days * 86400 + static_cast<int64_t>(t.hour) * 3600 + t.minute * 60 + t.second;
    if (addLocalBias) seconds += localTimeZoneBiasSeconds();
    return seconds;
}

void utcBreakdown(int64_t seconds, CivilTime& out) noexcept {
    int64_t days = seconds / 86400;
    int64_t rest = seconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    civilFromDays(days, out.year, out.month, out.day);
    out.hour = static_cast<int>(rest / 3600);
    out.minute = static_cast<int>(rest / 60 % 60);
    out.second = static_cast<int>(rest % 60);
    const int64_t wd = (days + 4) % 7;  // 1970-01-01 was a Thursday
    out.weekday = static_cast<int>(wd < 0 ? wd + 7 : wd);
}

bool parseTimeFields(std::u16string_view t, CivilTime& out) noexcept {
    if (t.size() != 19) return false;
    if (t[4] != u'-' || t[7] != u'-' || t[10] != u' ' || t[13] != u':' || t[16] != u':')
        return false;
    CivilTime r;
    if (!digitsAt(t, 0, 4, r.year) || !digitsAt(t, 5, 2, r.month) || !digitsAt(t, 8, 2, r.day) ||
        !digitsAt(t, 11, 2, r.hour) || !digitsAt(t, 14, 2, r.minute) ||
        !digitsAt(t, 17, 2, r.second))
        return false;
    if (r.year < 1970 || r.month < 1 || r.month > 12 || r.day < 1 || r.day > 31 || r.hour > 23 ||
        r.minute > 59 || r.second >= 60)
        return false;
    out = r;
    return true;
}

bool parseTimeText(std::u16string_view text, int64_t& seconds) noexcept {
    CivilTime t;
    if (!parseTimeFields(text, t)) return false;
    seconds = calendarToSeconds(t);
    return true;
}

void appendTimeText(int64_t seconds, std::u16string& out) {
    CivilTime t;
    utcBreakdown(seconds, t);
    if (t.year >= 0 && t.year <= 9999) {
        // The common case without printf: "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d".
        char16_t text[19] = {u'0', u'0', u'0', u'0', u'-', u'0', u'0', u'-', u'0', u'0',
                             u' ', u'0', u'0', u':', u'0', u'0', u':', u'0', u'0'};
        auto put = [&text](size_t at, int value, int width) {
            for (int i = width - 1; i >= 0; --i) {
                text[at + static_cast<size_t>(i)] = static_cast<char16_t>(u'0' + value % 10);
                value /= 10;
            }
        };
        put(0, t.year, 4);
        put(5, t.month, 2);
        put(8, t.day, 2);
        put(11, t.hour, 2);
        put(14, t.minute, 2);
        put(17, t.second, 2);
        out.append(text, 19);
        return;
    }
    char buffer[64];
    const int n = std::snprintf(buffer, sizeof buffer, "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d",
                                t.year, t.month, t.day, t.hour, t.minute, t.second);
    for (int i = 0; i < n && i < static_cast<int>(sizeof buffer); ++i)
        out.push_back(static_cast<char16_t>(buffer[i]));
}

std::u16string formatTimeText(int64_t seconds) {
    std::u16string s;
    appendTimeText(seconds, s);
    return s;
}

int weekdayOf(int year, int month, int day) noexcept {
    double y = year;
    double m = month + 1;
    if (month <= 2) {
        y = year - 1;
        m = month + 13;
    }
    // The double arithmetic and the truncations are the agent's own; keep them as they are.
    const int64_t n =
        static_cast<int64_t>(y * 365.25) - static_cast<int64_t>(m * -30.6) + day - 621049;
    const int64_t w = n % 7;
    return static_cast<int>(w < 0 ? w + 7 : w);
}

int64_t currentTime() noexcept {
    // Whole seconds are all a unit keeps; the system clock reads them with time(), without
    // the fine clock's cost, and this runs for every unit.
    Clock* clock = g_unitClock.load(std::memory_order_relaxed);
    return (clock ? *clock : systemClock()).nowSeconds();
}

void setUnitClock(Clock* clock) noexcept {
    g_unitClock.store(clock, std::memory_order_relaxed);
}

}  // namespace vt
