#pragma once
#include <cstdint>
#include <string_view>

#include "base/quillet_string.h"

namespace vt {

// One received syslog message taken apart. Facility and severity are those of the PRI, or 1
// and 5 when there was none. The text fields are copies, so the value outlives the receive
// buffer and can fill an info unit later.
struct SyslogParts {
    CQuilletString raw;  // the whole message as received (after decompression and escaping)
    CQuilletString msg;  // what is left after PRI, timestamp and host name
    CQuilletString host;
    CQuilletString tag;
    uint32_t facility = 1;
    uint32_t severity = 5;
    int64_t timestamp = 0;  // seconds since 1970 UTC: the parsed time, else the reception time
    bool rfc3164Parsing = true;
    bool priParsed = false;
    bool timestampParsed = false;
    bool hostParsed = false;  // a host name field was found (it may be empty)
};

// The same parts as views into the text that was split: what a receiver uses to fill a unit
// without copying each part twice. Valid as long as that text is.
struct SyslogFields {
    std::u16string_view msg;
    std::u16string_view host;
    std::u16string_view tag;
    uint32_t facility = 1;
    uint32_t severity = 5;
    int64_t timestamp = 0;
    bool priParsed = false;
    bool timestampParsed = false;
    bool hostParsed = false;
};

// Facts the splitter takes from the clock, passed in so that a test can fix them.
struct SyslogClock {
    int64_t receptionTime = 0;  // now, seconds since 1970 UTC
    int localYear = 1970;       // the year of `receptionTime` in local time
    // Looks the local year up once per second and thread, not once per message.
    static SyslogClock now();
};

// Takes PRI, timestamp ("Mmm dd hh:mm:ss "), host name and tag off a message. With
// rfc3164Parsing false only the PRI is taken off. Never fails: an unparsable message comes
// back whole, with facility 1 and severity 5.
SyslogFields splitSyslogFields(std::u16string_view text, bool rfc3164Parsing,
                               const SyslogClock& clock);
SyslogParts splitSyslogMsg(std::u16string_view text, bool rfc3164Parsing, const SyslogClock& clock);
inline SyslogParts splitSyslogMsg(std::u16string_view text, bool rfc3164Parsing) {
    return splitSyslogMsg(text, rfc3164Parsing, SyslogClock::now());
}

}  // namespace vt
