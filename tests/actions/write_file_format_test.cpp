#include "actions/write_file/write_file_format.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actions/actions_test_helper.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"

namespace {

using namespace vt;
using namespace vt::test;

constexpr int64_t kGenerated = 1237034096;                // 2009-03-14 12:34:56 UTC
constexpr int64_t kReported = kGenerated - 86400 - 3723;  // 2009-03-13 11:32:53 UTC

std::unique_ptr<CInfoUnitSyslog> makeUnit(std::u16string_view msg = u"hello, world") {
    auto unit = std::make_unique<CInfoUnitSyslog>();
    unit->setMsg(msg);
    unit->setPropertyString(u"source", u"host1");
    unit->setSyslogFacility(4);
    unit->setSyslogPriority(3);
    unit->setPropertyTime(u"timegenerated", kGenerated);
    unit->setPropertyTime(u"timereported", kReported);
    return unit;
}

std::string relaylogLine(const CInfoUnit& unit, const RelaylogLineFields& fields) {
    std::u16string out;
    formatRelaylogLine(unit, fields, out);
    return utf16ToUtf8(out);
}

struct FieldCase {
    const char* name;
    void (*change)(RelaylogLineFields&);
    const char* expected;
};

// Catches a field written when off or left out when on (a time or the facility only for 1, the
// others for any non-zero value), or a stray comma.
TEST(RelaylogLineTest, EachFieldOnAndOff) {
    const FieldCase cases[] = {
        {"defaults", [](RelaylogLineFields&) {},
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,3,hello, world\r\n"},
        {"no generated time", [](RelaylogLineFields& f) { f.dateTime = 0; },
         "2009-03-13,11:32:53,host1,4,3,hello, world\r\n"},
        {"generated time 2 is not 1", [](RelaylogLineFields& f) { f.dateTime = 2; },
         "2009-03-13,11:32:53,host1,4,3,hello, world\r\n"},
        {"no reported time", [](RelaylogLineFields& f) { f.dateTimeReported = 0; },
         "2009-03-14,12:34:56,host1,4,3,hello, world\r\n"},
        {"reported time 2 is non-zero", [](RelaylogLineFields& f) { f.dateTimeReported = 2; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,3,hello, world\r\n"},
        {"no source", [](RelaylogLineFields& f) { f.source = 0; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,4,3,hello, world\r\n"},
        {"source 7 is non-zero", [](RelaylogLineFields& f) { f.source = 7; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,3,hello, world\r\n"},
        {"no facility", [](RelaylogLineFields& f) { f.facility = 0; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,3,hello, world\r\n"},
        {"facility 2 is not 1", [](RelaylogLineFields& f) { f.facility = 2; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,3,hello, world\r\n"},
        {"no priority", [](RelaylogLineFields& f) { f.priority = 0; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,hello, world\r\n"},
        {"no message", [](RelaylogLineFields& f) { f.message = 0; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,3\r\n"},
        {"raw message added", [](RelaylogLineFields& f) { f.rawMessage = 1; },
         "2009-03-14,12:34:56,2009-03-13,11:32:53,host1,4,3,hello, world,<35>raw text\r\n"},
        {"every flag off",
         [](RelaylogLineFields& f) {
             f.dateTime = f.dateTimeReported = f.source = f.facility = f.priority = 0;
             f.message = 0;
         },
         "\r\n"},
        {"only the message: no leading comma",
         [](RelaylogLineFields& f) {
             f.dateTime = f.dateTimeReported = f.source = f.facility = f.priority = 0;
         },
         "hello, world\r\n"},
        {"only the raw message",
         [](RelaylogLineFields& f) {
             f.dateTime = f.dateTimeReported = f.source = f.facility = f.priority = 0;
             f.message = 0;
             f.rawMessage = 1;
         },
         "<35>raw text\r\n"},
    };
    auto unit = makeUnit();
    unit->setRawMsg(u"<35>raw text");
    for (const FieldCase& c : cases) {
        RelaylogLineFields fields;
        fields.utc = true;
        c.change(fields);
        EXPECT_EQ(relaylogLine(*unit, fields), c.expected) << c.name;
    }
}

// Catches local and UTC times swapped.
TEST(RelaylogLineTest, LocalTimeFollowsTheTimeZoneAndUtcDoesNot) {
    ScopedTimeZone tz("XYZ-3");  // three hours east of UTC, no daylight time
    auto unit = makeUnit();
    unit->setPropertyTime(u"timegenerated", kGenerated + 10 * 3600);  // 22:34:56 UTC
    RelaylogLineFields fields;
    fields.source = fields.facility = fields.priority = fields.message = 0;
    fields.utc = false;
    EXPECT_EQ(relaylogLine(*unit, fields), "2009-03-15,01:34:56,2009-03-13,14:32:53\r\n");
    fields.utc = true;
    EXPECT_EQ(relaylogLine(*unit, fields), "2009-03-14,22:34:56,2009-03-13,11:32:53\r\n");
}

// Catches a changed text-forms, syslog, template or XML line.
TEST(OtherLineFormatsTest, TextFormsSyslogTemplateAndXml) {
    auto unit = makeUnit();
    std::u16string wide;
    formatTextFormsLine(*unit, true, wide);
    EXPECT_EQ(utf16ToUtf8(wide),
              "2009-03-13 11:32:53 host1 received syslog message: hello, world\r\n");

    std::string narrow;
    formatSyslogLine(*unit, true, narrow);
    // <facility * 8 + severity>
    EXPECT_EQ(narrow, "VTsyslog[2009-03-13 11:32:53 ip=host1 pri=3] <35>hello, world\r\n");

    wide.clear();
    formatTemplateLine(*unit, u"%source%|%syslogfacility%|%msg%%$CRLF%", wide);
    EXPECT_EQ(utf16ToUtf8(wide), "host1|4|hello, world\r\n");
    wide.clear();
    formatTemplateLine(*unit, u"no line end", wide);
    EXPECT_EQ(utf16ToUtf8(wide), "no line end");

    RelaylogLineFields xml;
    xml.dateTime = xml.dateTimeReported = xml.source = xml.facility = xml.priority = 0;
    xml.useXml = 1;
    EXPECT_EQ(relaylogLine(*unit, xml), utf16ToUtf8(unit->toXML().view()) + "\r\n");
}

// Catches a message cut at a NUL or a broken surrogate that swallows what follows.
TEST(OtherLineFormatsTest, MessageWithNulAndLoneSurrogateKeepsItsLength) {
    std::u16string msg = u"a";
    msg.push_back(u'\0');
    msg += u"b";
    msg.push_back(static_cast<char16_t>(0xD800));  // lone high surrogate
    msg += u"c";
    auto unit = makeUnit(msg);
    RelaylogLineFields fields;
    fields.dateTime = fields.dateTimeReported = fields.source = fields.facility = 0;
    fields.priority = 0;
    const std::string line = relaylogLine(*unit, fields);
    EXPECT_EQ(line, std::string("a\0b\xEF\xBF\xBD"
                                "c\r\n",
                                9));
}

// Catches the separator or extension ignored (the action tests leave them at their defaults).
TEST(FileNameTest, SeparatorAndExtensionAreTheCallers) {
    CivilTime day;
    day.year = 2009;
    day.month = 3;
    day.day = 4;
    EXPECT_EQ(makeDailyName(u"C:\\temp", u"B", false, u"", day, u"txt", u'\\'),
              u"C:\\temp\\B-2009-03-04.txt");
    EXPECT_EQ(makeCircularName(u"C:\\t", u"V", 10, u"x", u'\\'), u"C:\\t\\V10.x");
    EXPECT_EQ(makeSegmentName(makeDailyStem(u"C:\\t", u"V", true, u"h", day, u'\\'), 12, u"x"),
              u"C:\\t\\V-h-2009-03-04_12.x");
}

// Catches text from the unit that leaves the directory or names a drive or stream.
TEST(FileNameTest, TextFromTheUnitCannotLeaveTheDirectory) {
    struct Case {
        std::u16string in, out;
    };
    const Case cases[] = {
        {u"../../etc", u"______etc"},
        {u"..\\..\\x", u"______x"},
        {u"a/b", u"a_b"},
        {u"C:evil", u"C_evil"},
        {u"fe80::1", u"fe80__1"},
        {u"...", u"__."},
        {u"host.example", u"host.example"},
        {u"", u""},
    };
    for (const Case& c : cases) {
        std::u16string text = c.in;
        sanitizeNamePart(text);
        EXPECT_EQ(text, c.out) << utf16ToUtf8(c.in);
    }

    auto unit = makeUnit();
    unit->setPropertyString(u"source", u"../../etc");
    // The template's own separators stay; the value's are replaced.
    EXPECT_EQ(expandNameTemplate(u"/logs/%source%/x", *unit), u"/logs/______etc/x");
    EXPECT_EQ(expandNameTemplate(u"/logs/../%syslogfacility%", *unit), u"/logs/../4");
}

}  // namespace
