#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "platform/local_time.h"

// Times of info units: 64-bit seconds since 1970-01-01 00:00:00 UTC, written as
// "YYYY-MM-DD hh:mm:ss" in UTC.
namespace vt {

// The agent's own calendar routine: text fields to seconds. Every fourth year from 1972 on is a
// leap year, with no century exception, and that stays so: stored and forwarded times depend
// on it. `addLocalBias` adds the local time zone bias (local fields to UTC).
int64_t calendarToSeconds(const CivilTime& t, bool addLocalBias = false) noexcept;

// Seconds to UTC fields by the proleptic Gregorian calendar (weekday filled in).
void utcBreakdown(int64_t seconds, CivilTime& out) noexcept;

// Exactly 19 characters "YYYY-MM-DD hh:mm:ss", year >= 1970, month 1-12, day 1-31, hour <= 23,
// minute <= 59, second < 60. No debug line: callers decide what a failure means.
bool parseTimeFields(std::u16string_view text, CivilTime& out) noexcept;
bool parseTimeText(std::u16string_view text, int64_t& seconds) noexcept;

// "%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d" of the UTC breakdown, appended to `out`.
void appendTimeText(int64_t seconds, std::u16string& out);
std::u16string formatTimeText(int64_t seconds);

// The weekday (0 = Sunday) by the agent's own formula, used for the "uxTimeStamp" forms.
int weekdayOf(int year, int month, int day) noexcept;

// The current time in seconds, as new units are stamped with it: the clock set here (not owned;
// null, the default: the system clock). Tests set theirs.
int64_t currentTime() noexcept;
void setUnitClock(Clock* clock) noexcept;

}  // namespace vt
