#include "sources/syslog/syslog_splitter.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "platform/local_time.h"
#include "platform/utf_codec.h"

namespace {

using vt::SyslogClock;
using vt::SyslogParts;

constexpr int64_t kNow = 1700000000;  // 2023-11-14 22:13:20 UTC
const SyslogClock kClock{kNow, 2023};

std::string u8(const CQuilletString& s) {
    return vt::utf16ToUtf8(s.view());
}

struct SplitCase {
    const char* name;
    const char* input;  // UTF-8
    bool parsing;
    uint32_t facility;
    uint32_t severity;
    const char* host;
    const char* tag;
    const char* msg;
    bool timestampParsed;
};

// Every rule of the splitter against one expected outcome. Facility and severity 1 and 5 with
// the whole text as message mean the PRI was not accepted.
const SplitCase kCases[] = {
    {"full header", "<13>Jan  5 10:20:30 host1 app[12]: hello", true, 1, 5, "host1", "app",
     "app[12]: hello", true},
    {"pri zero", "<0>x", true, 0, 0, "", "", "x", false},
    {"leading zero refused", "<01>x", true, 1, 5, "", "", "<01>x", false},
    {"empty pri", "<>x", true, 0, 0, "", "", "x", false},
    {"large pri", "<1234>x", true, 26, 2, "", "", "x", false},
    // 12345678901234567890 wraps to 3944680146 in 32 bits.
    {"twenty digit pri", "<12345678901234567890>x", true, 90, 2, "", "", "x", false},
    {"pri without close", "<13", true, 1, 5, "", "", "<13", false},
    {"pri zero at end", "<0", true, 1, 5, "", "", "<0", false},
    {"pri with letter", "<1a>x", true, 1, 5, "", "", "<1a>x", false},
    {"no pri", "Jan  5 10:20:30 host1 app: x", true, 1, 5, "", "", "Jan  5 10:20:30 host1 app: x",
     false},
    {"empty text", "", true, 1, 5, "", "", "", false},
    {"lower-case month", "<13>jan  5 10:20:30 host1 app: hello", true, 1, 5, "", "",
     "jan  5 10:20:30 host1 app: hello", false},
    {"two-digit day", "<13>Dec 24 23:59:59 h t", true, 1, 5, "h", "t", "t", true},
    // 16 characters of timestamp need a 17th behind them.
    {"timestamp only", "<13>Jan  5 10:20:30 ", true, 1, 5, "", "", "Jan  5 10:20:30 ", false},
    {"timestamp plus one", "<13>Jan  5 10:20:30 h", true, 1, 5, "", "", "h", true},
    {"truncated timestamp", "<13>Jan  5 10:20:3", true, 1, 5, "", "", "Jan  5 10:20:3", false},
    {"missing colon", "<13>Jan  5 10-20:30 host1 app: x", true, 1, 5, "", "",
     "Jan  5 10-20:30 host1 app: x", false},
    {"letter in seconds", "<13>Jan  5 10:20:3x host1 app: x", true, 1, 5, "", "",
     "Jan  5 10:20:3x host1 app: x", false},
    {"no space after time", "<13>Jan  5 10:20:30Xhost1 app: x", true, 1, 5, "", "",
     "Jan  5 10:20:30Xhost1 app: x", false},
    {"parsing off", "<13>Jan  5 10:20:30 host1 app[12]: hello", false, 1, 5, "", "",
     "Jan  5 10:20:30 host1 app[12]: hello", false},
    {"host up to end", "<13>Jan  5 10:20:30 host1", true, 1, 5, "", "", "host1", true},
    {"host with byte above 126", "<13>Jan  5 10:20:30 h\xC3\xA9st app: x", true, 1, 5, "", "",
     "h\xC3\xA9st app: x", true},
    {"host with DEL", "<13>Jan  5 10:20:30 h\x7Fst app: x", true, 1, 5, "", "", "h\x7Fst app: x",
     true},
    {"host with tab", "<13>Jan  5 10:20:30 h\tst app: x", true, 1, 5, "", "", "h\tst app: x", true},
    {"empty host field", "<13>Jan  5 10:20:30  app: x", true, 1, 5, "", "app", "app: x", true},
    {"tag 31", "<13>Jan  5 10:20:30 h abcdefghijklmnopqrstuvwxyz01234: x", true, 1, 5, "h",
     "abcdefghijklmnopqrstuvwxyz01234", "abcdefghijklmnopqrstuvwxyz01234: x", true},
    {"tag 32 cut to 31", "<13>Jan  5 10:20:30 h abcdefghijklmnopqrstuvwxyz012345: x", true, 1, 5,
     "h", "abcdefghijklmnopqrstuvwxyz01234", "abcdefghijklmnopqrstuvwxyz012345: x", true},
    {"tag stops at dash", "<13>Jan  5 10:20:30 h my-app: x", true, 1, 5, "h", "my", "my-app: x",
     true},
    {"percent fallback", "<14>%LINK-3-UPDOWN: Interface down", true, 1, 6, "", "LINK-3-UPDOWN",
     "%LINK-3-UPDOWN: Interface down", false},
    {"percent fallback without pri", "%SYS-5-CONFIG_I: Configured", true, 1, 5, "",
     "SYS-5-CONFIG_I", "%SYS-5-CONFIG_I: Configured", false},
    {"percent fallback 40", "<14>%ABCDEFGHIJKLMNOPQRSTUVWXYZ-0123456789-ab: x", true, 1, 6, "",
     "ABCDEFGHIJKLMNOPQRSTUVWXYZ-0123456789-ab", "%ABCDEFGHIJKLMNOPQRSTUVWXYZ-0123456789-ab: x",
     false},
    {"percent fallback 41", "<14>%ABCDEFGHIJKLMNOPQRSTUVWXYZ-0123456789-abc: x", true, 1, 6, "", "",
     "%ABCDEFGHIJKLMNOPQRSTUVWXYZ-0123456789-abc: x", false},
    {"percent adjacent colon", "<14>%: x", true, 1, 6, "", "", "%: x", false},
    {"percent without colon", "<14>%LINK down", true, 1, 6, "", "", "%LINK down", false},
    {"percent found in raw text before the tag position", "<13>Jan  5 10:20:30 h -%X: y", true, 1,
     5, "h", "X", "-%X: y", true},
    {"leading tag wins over percent", "<13>Jan  5 10:20:30 h app %X: y", true, 1, 5, "h", "app",
     "app %X: y", true},
    {"percent fallback when parsing off", "<14>Jan  5 10:20:30 h %T: y", false, 1, 6, "", "T",
     "Jan  5 10:20:30 h %T: y", false},
};

// Each row is one rule: PRI forms, the header's time and host checks, tag cuts and the "%" form.
TEST(SyslogSplitter, Table) {
    for (const SplitCase& c : kCases) {
        SCOPED_TRACE(c.name);
        const SyslogParts p = vt::splitSyslogMsg(vt::utf8ToUtf16(c.input), c.parsing, kClock);
        EXPECT_EQ(p.facility, c.facility);
        EXPECT_EQ(p.severity, c.severity);
        EXPECT_EQ(u8(p.host), c.host);
        EXPECT_EQ(u8(p.tag), c.tag);
        EXPECT_EQ(u8(p.msg), c.msg);
        EXPECT_EQ(u8(p.raw), c.input);
        EXPECT_EQ(p.timestampParsed, c.timestampParsed);
        EXPECT_EQ(p.rfc3164Parsing, c.parsing);
        if (!c.timestampParsed) {
            EXPECT_EQ(p.timestamp, kNow);
        }
    }
}

// The parsed time is local time in the current year: reading it back in local time gives
// the fields of the text; out-of-range fields are normalised, not refused.
TEST(SyslogSplitter, TimestampIsLocalTimeOfCurrentYear) {
    struct {
        const char16_t* text;
        int month, day, hour, minute, second;
    } cases[] = {
        {u"<13>Jan  5 10:20:30 host1 x", 1, 5, 10, 20, 30},
        {u"<13>Jan  5 10:59:59 host1 x", 1, 5, 10, 59, 59},  // same hour as the one before
        {u"<13>Jan  5 11:00:00 host1 x", 1, 5, 11, 0, 0},
        {u"<13>Dec 31 23:59:58 host1 x", 12, 31, 23, 59, 58},
        {u"<13>Feb 30 25:61:99 h x", 3, 3, 2, 2, 39},  // runs into March
    };
    for (const auto& c : cases) {
        const SyslogParts p = vt::splitSyslogMsg(c.text, true, kClock);
        ASSERT_TRUE(p.timestampParsed);
        vt::CivilTime t;
        ASSERT_TRUE(vt::localTimeOf(p.timestamp, t));
        EXPECT_EQ(std::vector<int>({t.year, t.month, t.day, t.hour, t.minute, t.second}),
                  std::vector<int>({2023, c.month, c.day, c.hour, c.minute, c.second}));
    }
}

// Wide characters beyond Latin-1 pass through untouched and never count as digits.
TEST(SyslogSplitter, NonAsciiTextIsKept) {
    const std::u16string text = u"<13>Jan  5 10:20:30 h \u65E5\u672C: \u00E9t\u00E9";
    const SyslogParts p = vt::splitSyslogMsg(text, true, kClock);
    EXPECT_EQ(p.tag.view(), u"");
    EXPECT_EQ(p.msg.view(), u"\u65E5\u672C: \u00E9t\u00E9");
    const SyslogParts q = vt::splitSyslogMsg(u"<1\u0661>x", true, kClock);  // Arabic-Indic one
    EXPECT_FALSE(q.priParsed);
}

}  // namespace
