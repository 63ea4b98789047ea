#include "model/property_replacer.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "base/quillet_string.h"
#include "model/concat.h"
#include "model/info_unit.h"
#include "platform/utf_codec.h"

namespace {

std::u16string u(std::string_view utf8) {
    return vt::utf8ToUtf16(utf8);
}

struct Case {
    const char* templ;
    const char16_t* msg;  // null: no "msg" property
    const char* expected;
};

class ReplacerCases : public ::testing::TestWithParam<Case> {};

// Each row: template, message, expected output; all other properties are a fresh unit's.
TEST_P(ReplacerCases, ExpandsAgainstMessage) {
    const Case& c = GetParam();
    CInfoUnit unit;
    if (c.msg) unit.setMsg(c.msg);
    EXPECT_EQ(n(vt::replaceProperties(u(c.templ), &unit)), c.expected) << "template " << c.templ;
}

const Case kCases[] = {
    // outer loop and plain look-ups
    {"%msg%", u"", ""},
    {"100%%", u"x", "100%"},
    {"a%msg%b", u"-", "a-b"},
    {"%nosuch%", u"x", ""},
    {"%MSG%", u"x", ""},
    {"%syslogtag%/%iut%", nullptr, "Vantor/0"},
    // positions
    {"%msg:1:3%", u"abcdef", "abc"},
    {"%msg:3:1%", u"abcdef", "abc"},
    {"%msg:4%", u"abcdef", "def"},
    {"%msg::3%", u"abcdef", "abc"},
    {"%msg:0:2%", u"abcdef", "ab"},
    {"%msg:2:0%", u"abcdef", "bcdef"},
    {"%msg:19:12%", u"abcdef", "f"},
    {"%msg:5:+%", u"abcdef", "e"},
    {"%msg:5:-%", u"abcdef", "e"},
    {"%msg:5:+2%", u"abcdef", "%ERROR: invalid escape sequence, on or before '2%'%"},
    {"%msg:1x%", u"abcdef", "%ERROR: invalid escape sequence, on or before 'x%'%"},
    // search terms
    {"%msg:/b/:/e/%", u"abcdef", "bcd"},
    {"%msg:/b/:/e/$%", u"abcdef", "bcde"},
    {"%msg:/b/$%", u"abcdef", "cdef"},
    {"%msg:/b/x$y%", u"abcdef", "cdef"},
    {"%msg:/cd/$:/f/%", u"abcdef", "e"},
    {"%msg:/xyz/%", u"abxy", "xy"},
    {"%msg:/b?d/%", u"abcbxd", "bxd"},
    {"%msg:/\\?/%", u"ab?c", "?c"},
    {"%msg:/\\//%", u"a/b", "/b"},
    {"%msg:/q/%", u"abc", "abc"},
    {"%msg:1:/q/%", u"abc", "abc"},
    // the to-term is searched from the from-position itself: a match there means "to the end"
    {"%msg:/a/:/a/%", u"abca", "abca"},
    {"%msg:/b/:/b/$%", u"abcb", "b"},
    // options
    {"%msg:1:5:foo%", u"abcdef", "%ERROR: Invalid Property Replacer Option, on or before 'foo%'%"},
    {"%msg:::uppercase,bad,worse%", u"ab",
     "%ERROR: Invalid Property Replacer Option, on or before 'bad,worse%'%"},
    {"%msg:::LOWERCASE%", u"AbC\u00C4", "abc\u00E4"},
    {"%msg:::UpperCase%", u"ab\u00E4\u00FF", "AB\u00C4\u0178"},
    {"%msg:::escapecc%", u"a\rb\x7f", "a##13##b##127##"},
    {"%msg:::spacecc%", u"a\r\nb", "a  b"},
    {"%msg:::spacecc,escapecc%", u"a\rb", "a b"},
    {"%msg:::escapecc,spacecc%", u"a\rb", "a b"},
    {"%msg:::compressspace%", u"a   b  c ", "a b c "},
    {"%msg:::compsp,spacecc%", u"a \t\r b", "a b"},
    {"%msg:::convgermuml%", u"\u00C4\u00D6\u00DC\u00E4\u00F6\u00FC\u00DF!", "AeOeUeaeoeuess!"},
    {"%msg:::uppercase,convgermuml%", u"\u00e4", "Ae"},
    {"%msg:::%", u"abc", "abc"},
    {"%msg:2:3:uppercase%", u"abcdef", "BC"},
    // special names
    {"%$CRLF%", nullptr, "\r\n"},
    {"%$CR%%$LF%", nullptr, "\r\n"},
    {"%$TAB%%$HT%", nullptr, "\t\t"},
    {"%$crlf%", nullptr, ""},
    {"%$other%", nullptr, ""},
    {"%$x41%", nullptr, "A"},
    {"%$x6a%%$x6f%%$x4F%", nullptr, "joO"},
    {"%$x00%", nullptr, "?"},
    {"%$x41zz%", nullptr, "A"},
    {"%$x%", nullptr, "%ERROR: invalid hex1 sequence!%"},
    {"%$xZ1%", nullptr, "%ERROR: invalid hex2 sequence!%"},
    {"%$x4%", nullptr, "%ERROR: invalid hex2 sequence!%"},
    {"%$x4Z%", nullptr, "%ERROR: invalid hex3 sequence!%"},
    {"%$X41%", nullptr, ""},
    {"%$x41:1:1:uppercase%", nullptr, "A"},
    // errors and cut-off templates
    {"%msg:x%", u"abc",
     "%ERROR: %ERROR: Neither Search-Term nor Numerical Value in FromPos%, on or before 'x%'%"},
    {"%msg:%", u"abc",
     "%ERROR: %ERROR: Neither Search-Term nor Numerical Value in FromPos%, on or before '%'%"},
    {"%msg:1:x%tail", u"abc",
     "%ERROR: Neither Search-Term nor Numerical Value in ToPos, on or before 'x%tail'%tail"},
    {"%msg:1:x:bogus%", u"abc",
     "%ERROR: Neither Search-Term nor Numerical Value in ToPos, on or before 'x:bogus%'%"},
    {"%msg:::lowercase:%X", u"abc", "%ERROR: invalid escape sequence, on or before ':%X'%X"},
    {"abc%", u"x", "abc%ERROR: invalid escape sequence.%"},
    {"%$x", nullptr, "%ERROR: invalid escape sequence.%"},
    {"%msg", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:", u"abc", "%ERROR: %ERROR: Neither Search-Term nor Numerical Value in FromPos%.%"},
    {"%msg:1", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:1:2", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:1:2:upper", u"abc", "%ERROR: Invalid Property Replacer Option, on or before 'upper'%"},
    {"%msg:/b", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:/b%after", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:/b\\", u"abc", "%ERROR: invalid escape sequence.%"},
    {"%msg:+%", u"abc",
     "%ERROR: %ERROR: Neither Search-Term nor Numerical Value in FromPos%, on or before '+%'%"},
    {"x%msg:5:+:%y%msg%", u"abcdef", "xeyabcdef"},
    {"x%msg:5:+::%y%msg%", u"abcdef",
     "x%ERROR: invalid escape sequence, on or before ':%y%msg%'%yabcdef"},
    // time options: uxTimeStamp wins over the local forms; no time text is left alone; the
    // weekday formula has no century rule (2100-03-01 was a Monday)
    {"%msg:::uxTimeStamp%", u"2024-01-01 13:05:09", "Mon Jan 01 13:05:09 2024"},
    {"%msg:::uxtimestamp%", u"2026-11-22 00:00:00", "Sun Nov 22 00:00:00 2026"},
    {"%msg:::uxTimeStamp%", u"2100-03-01 00:00:00", "Tue Mar 01 00:00:00 2100"},
    {"%msg:::uxLocalTimeStamp,uxTimeStamp,localtime%", u"2024-01-01 13:05:09",
     "Mon Jan 01 13:05:09 2024"},
    {"%msg:4::uxTimeStamp%", u"at 2024-01-01 13:05:09 UTC", "Mon Jan 01 13:05:09 2024"},
    {"%msg:::uxTimeStamp%", u"2024-13-01 13:05:09", "2024-13-01 13:05:09"},
    {"%msg:::localtime%", u"yesterday", "yesterday"},
    {"%msg:::uxLocalTimeStamp%", u"1969-12-31 23:59:59", "1969-12-31 23:59:59"},
};

INSTANTIATE_TEST_SUITE_P(Table, ReplacerCases, ::testing::ValuesIn(kCases));

// The local forms and $NOW depend on the zone: only their shape is fixed.
TEST(ReplacerTime, LocalFormsAndNowHaveTheirShape) {
    CInfoUnit unit;
    unit.setMsg(u"2024-06-15 12:00:00");
    const std::regex localTime(R"(2024-06-1[456] \d\d:\d\d:00)");
    EXPECT_TRUE(std::regex_match(n(vt::replaceProperties(u"%msg:::localtime%", &unit)), localTime));
    const std::regex uxLocal(R"((Fri|Sat|Sun) Jun 1[456] \d\d:\d\d:00 2024)");
    EXPECT_TRUE(
        std::regex_match(n(vt::replaceProperties(u"%msg:::uxLocalTimeStamp%", &unit)), uxLocal));
    const std::regex now(R"(\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d)");
    // Without a unit, properties yield nothing while the "$" names still work.
    EXPECT_TRUE(std::regex_match(n(vt::replaceProperties(u"%$NOW%", nullptr)), now));
    EXPECT_EQ(n(vt::replaceProperties(u"[%msg%|%$x41%]", nullptr)), "[|A]");
}

// Property names are cut at 2047, search terms at 511 characters, error texts at 512.
TEST(ReplacerLimits, NamesTermsAndErrorsAreCut) {
    CInfoUnit unit;
    unit.setPropertyString(std::u16string(2047, u'n'), u"found");
    EXPECT_EQ(n(vt::replaceProperties(ucat(u"%", std::u16string(10000, u'n'), u"%!"), &unit)),
              "found!");
    EXPECT_EQ(n(vt::replaceProperties(ucat(u"%", std::u16string(2046, u'n'), u"%"), &unit)), "");
    unit.setMsg(ucat(u"x", std::u16string(511, u'a'), u"b"));
    EXPECT_EQ(n(vt::replaceProperties(ucat(u"%msg:/", std::u16string(600, u'a'), u"/$%"), &unit)),
              "b");
    const std::u16string out =
        vt::replaceProperties(ucat(u"%msg:1:5:bogus", std::u16string(2000, u'z'), u"%"), &unit);
    EXPECT_EQ(out.size(), 512u);
    EXPECT_EQ(n(out.substr(0, 42)), "%ERROR: Invalid Property Replacer Option, ");
}

// Catches surrogate pairs split by case mapping or search, or positions counted in characters.
TEST(ReplacerSurrogates, PairsSurviveAndPositionsCountCodeUnits) {
    CInfoUnit unit;
    const std::u16string msg = u"a\U0001F600b\U00010437";
    unit.setMsg(msg);
    EXPECT_EQ(vt::replaceProperties(u"%msg:2:3%", &unit), u"\U0001F600");
    EXPECT_EQ(vt::replaceProperties(u"%msg:::uppercase%", &unit), u"A\U0001F600B\U00010437");
    EXPECT_EQ(vt::replaceProperties(u"%msg:/\U00010437/%", &unit), u"\U00010437");
    // Cutting through a pair keeps the half.
    EXPECT_EQ(vt::replaceProperties(u"%msg:1:2%", &unit), std::u16string_view(u"a\xD83D", 2));
}

// The string form replaces in place (dropping its narrow cache); the buffer form appends.
TEST(ReplacerOutput, InPlaceAndAppending) {
    CInfoUnit unit;
    unit.setMsg(u"hello");
    CQuilletString s(u"<%msg:1:4%>");
    EXPECT_STREQ(s.getStringA(), "<%msg:1:4%>");
    vt::replaceProperties(s, &unit);
    EXPECT_STREQ(s.getStringA(), "<hell>");
    std::u16string out = u"keep:";
    vt::replaceProperties(u"%msg:1:1%", &unit, out);
    vt::replaceProperties(u"+%msg:1:1%", &unit, out);
    EXPECT_EQ(out, u"keep:h+h");
}

}  // namespace
