#include "sources/syslog/syslog_splitter.h"

#include <ctime>

#include "base/debug_log.h"
#include "platform/local_time.h"
#include "platform/utf_codec.h"

namespace vt {
namespace {

constexpr size_t kTimestampLength = 16;  // "Mmm dd hh:mm:ss "
constexpr size_t kMinimumAfterPri = 17;  // the timestamp and at least one character more
constexpr size_t kMaxTagLength = 31;
constexpr size_t kMaxFallbackTagLength = 40;

bool isDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}
bool isAlnum(char16_t c) {
    return isDigit(c) || (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z');
}

// "<" digits ">"; a leading zero must be the only digit. The value is accumulated without a
// limit on the number of digits and wraps like the 32-bit integer it always was.
bool parsePri(std::u16string_view s, size_t& cursor, uint32_t& value) {
    if (s.empty() || s[0] != u'<') return false;
    size_t i = 1;
    value = 0;
    if (i < s.size() && s[i] == u'0') {
        if (i + 1 < s.size() && s[i + 1] == u'>') {
            cursor = i + 2;
            return true;
        }
        return false;
    }
    while (i < s.size() && isDigit(s[i])) {
        value = value * 10u + static_cast<uint32_t>(s[i] - u'0');
        ++i;
    }
    if (i >= s.size() || s[i] != u'>') return false;
    cursor = i + 1;
    return true;
}

int monthIndex(std::u16string_view m) {
    static constexpr std::u16string_view kMonths[12] = {u"Jan", u"Feb", u"Mar", u"Apr",
                                                        u"May", u"Jun", u"Jul", u"Aug",
                                                        u"Sep", u"Oct", u"Nov", u"Dec"};
    for (int i = 0; i < 12; ++i)
        if (m == kMonths[i]) return i;
    return -1;
}

// mktime re-reads the time zone on every call, which would cost more than all the rest of
// the splitting; messages come in order, so the start of the last hour is remembered per
// thread and minutes and seconds are added to it. Zones change their offset on whole hours.
int64_t localHourStart(int year, int month, int day, int hour) {
    struct Entry {
        int year = -1, month = 0, day = 0, hour = 0;
        int64_t start = -1;
    };
    thread_local Entry last;
    if (last.year != year || last.month != month || last.day != day || last.hour != hour) {
        const CivilTime local{.year = year, .month = month + 1, .day = day, .hour = hour};
        last = Entry{year, month, day, hour, secondsOfLocalTime(local)};
    }
    return last.start;
}

int twoDigits(std::u16string_view s, size_t at) {
    return (s[at] - u'0') * 10 + (s[at + 1] - u'0');
}

// "Mmm dd hh:mm:ss " at the start of s (s holds at least 17 characters). The year is not in
// the text, so it is the current local year; the value is built as local time.
bool parseTimestamp(std::u16string_view s, int localYear, int64_t& out) {
    if (s[3] != u' ' || s[6] != u' ' || s[15] != u' ' || s[9] != u':' || s[12] != u':')
        return false;
    for (size_t at : {5, 7, 8, 10, 11, 13, 14})
        if (!isDigit(s[at])) return false;
    if (!isDigit(s[4]) && s[4] != u' ') return false;
    const int month = monthIndex(s.substr(0, 3));
    if (month < 0) return false;
    const int day = (s[4] == u' ' ? 0 : (s[4] - u'0') * 10) + (s[5] - u'0');
    const int64_t hourStart = localHourStart(localYear, month, day, twoDigits(s, 7));
    if (hourStart == -1) return false;
    out = hourStart + twoDigits(s, 10) * 60 + twoDigits(s, 13);
    return true;
}

// Host name: printable ASCII without spaces, ended by a space. True when such a field exists.
bool takeHost(std::u16string_view s, size_t& cursor, std::u16string_view& host) {
    for (size_t i = cursor; i < s.size(); ++i) {
        const char16_t c = s[i];
        if (c == u' ') {
            host = s.substr(cursor, i - cursor);
            cursor = i + 1;
            return true;
        }
        if (c < 33 || c > 126) return false;
    }
    return false;
}

std::u16string_view leadingTag(std::u16string_view s, size_t cursor) {
    size_t end = cursor;
    while (end < s.size() && end - cursor < kMaxTagLength && isAlnum(s[end])) ++end;
    return s.substr(cursor, end - cursor);
}

// Tags like "%LINK-3-UPDOWN:" of network devices that send no timestamp.
std::u16string_view percentTag(std::u16string_view raw) {
    const size_t percent = raw.find(u'%');
    if (percent == std::u16string_view::npos) return {};
    const size_t colon = raw.find(u':', percent + 1);
    if (colon == std::u16string_view::npos) return {};
    const size_t length = colon - percent - 1;
    if (length > kMaxFallbackTagLength) return {};
    return raw.substr(percent + 1, length);
}

}  // namespace

SyslogClock SyslogClock::now() {
    thread_local SyslogClock last{-1, 1970};
    const auto seconds = static_cast<int64_t>(std::time(nullptr));
    if (seconds != last.receptionTime) {
        CivilTime local;
        last.localYear = localTimeOf(seconds, local) ? local.year : 1970;
        last.receptionTime = seconds;
    }
    return last;
}

SyslogFields splitSyslogFields(std::u16string_view text, bool rfc3164Parsing,
                               const SyslogClock& clock) {
    if (debugOn(DBG_ULTRA))
        debugPrintf(DBG_ULTRA, "CSyslogServer|splitSyslogMsg: Received InBuf '%s'\r\n",
                    utf16ToUtf8(text).c_str());
    SyslogFields parts;
    // Every message carries a time; without a parsable one it is the time it arrived.
    parts.timestamp = clock.receptionTime;

    size_t cursor = 0;
    uint32_t pri = 0;
    parts.priParsed = parsePri(text, cursor, pri);
    if (parts.priParsed) {
        parts.facility = (pri >> 3) & 127;
        parts.severity = pri & 7;
    } else {
        cursor = 0;
    }

    if (parts.priParsed && rfc3164Parsing && text.size() - cursor >= kMinimumAfterPri &&
        parseTimestamp(text.substr(cursor), clock.localYear, parts.timestamp)) {
        parts.timestampParsed = true;
        cursor += kTimestampLength;
        if (takeHost(text, cursor, parts.host)) {
            parts.hostParsed = true;
            // The tag stays part of the message text: the cursor does not move past it.
            parts.tag = leadingTag(text, cursor);
        }
    }
    parts.msg = text.substr(cursor);
    if (parts.tag.empty()) parts.tag = percentTag(text);
    return parts;
}

SyslogParts splitSyslogMsg(std::u16string_view text, bool rfc3164Parsing,
                           const SyslogClock& clock) {
    const SyslogFields fields = splitSyslogFields(text, rfc3164Parsing, clock);
    SyslogParts parts;
    parts.raw = CQuilletString(text);
    parts.msg = CQuilletString(fields.msg);
    parts.host = CQuilletString(fields.host);
    parts.tag = CQuilletString(fields.tag);
    parts.facility = fields.facility;
    parts.severity = fields.severity;
    parts.timestamp = fields.timestamp;
    parts.rfc3164Parsing = rfc3164Parsing;
    parts.priParsed = fields.priParsed;
    parts.timestampParsed = fields.timestampParsed;
    parts.hostParsed = fields.hostParsed;
    return parts;
}

}  // namespace vt
