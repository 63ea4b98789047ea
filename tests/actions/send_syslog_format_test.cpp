#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>

#include "actions/actions_test_helper.h"
#include "actions/send_syslog/syslog_message.h"
#include "base/error_report.h"
#include "common/registry_fixture.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

using namespace vt;
using vt::test::inflateStream;
using vt::test::makeForwardUnit;

CivilTime civil(int month, int day, int hour, int minute, int second) {
    CivilTime t;
    t.year = 2009;
    t.month = month;
    t.day = day;
    t.hour = hour;
    t.minute = minute;
    t.second = second;
    return t;
}

// Catches a wrong header: PRI, month, a day below 10 after two spaces, host, tag with its
// colon, and the real source after it.
TEST(SyslogHeader, Layout) {
    struct Case {
        int32_t facility, severity;
        CivilTime time;
        const char16_t* host;
        const char16_t* tag;
        bool realSource;
        const char16_t* expected;
    };
    const Case cases[] = {
        {4, 2, civil(3, 5, 9, 4, 7), u"host1", u"app", false, u"<34>Mar  5 09:04:07 host1 app: "},
        {1, 5, civil(12, 10, 23, 59, 59), u"h", u"t", false, u"<13>Dec 10 23:59:59 h t: "},
        {0, 0, civil(1, 31, 0, 0, 0), u"h", u"", false, u"<0>Jan 31 00:00:00 h "},
        {23, 7, civil(7, 9, 1, 2, 3), u"h", u"tag", true,
         u"<191>Jul  9 01:02:03 h tag: RealSource:\"h\" "},
        // The base unit's facility 128 is no facility: PRI keeps only its low byte.
        {128, 5, civil(2, 1, 0, 0, 0), u"h", u"", false, u"<5>Feb  1 00:00:00 h "},
    };
    for (const Case& c : cases) {
        SyslogHeaderFields f;
        f.facility = c.facility;
        f.severity = c.severity;
        f.time = c.time;
        f.host = c.host;
        f.tag = c.tag;
        f.insertRealSource = c.realSource;
        f.realSource = c.host;
        EXPECT_EQ(utf16ToUtf8(formatSyslogHeader(f)), utf16ToUtf8(c.expected));
    }
}

// Catches a doubled tag: one that already starts the message is not written again.
TEST(SyslogHeader, TagChoice) {
    EXPECT_EQ(syslogTagFor(u"app", u"app[12]: hello"), u"");
    EXPECT_EQ(syslogTagFor(u"app", u"app: hello"), u"");
    EXPECT_EQ(syslogTagFor(u"Vantor", u"disk full"), u"Vantor");
    EXPECT_EQ(syslogTagFor(u"", u"disk full"), u"");
    EXPECT_EQ(syslogTagFor(u"app", u"ap"), u"app");
}

class SyslogTextTest : public ::testing::Test {
  protected:
    // Header time from the unit, rendered in local time: the test puts the unit's time at a
    // local instant it knows.
    int64_t localInstant(int year, int month, int day, int hour, int minute, int second) {
        const CivilTime wanted{year, month, day, hour, minute, second, 0};
        int64_t seconds = calendarToSeconds(wanted);
        for (int i = 0; i < 3; ++i) {
            CivilTime local;
            localTimeOf(seconds, local);
            seconds -= calendarToSeconds(local) - calendarToSeconds(wanted);
        }
        return seconds;
    }
};

// Catches a forwarded message that differs from what its sender sent: the tag in the text is
// not doubled, the sender's time is in "timereported".
TEST_F(SyslogTextTest, ReceivedMessageIsReproduced) {
    auto unit = makeForwardUnit(u"app[12]: hello", 4, 2);
    unit->setPropertyTime(u"timereported", localInstant(2009, 3, 5, 9, 4, 7));
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, unit->getMsgText(), true, false)),
              "<34>Mar  5 09:04:07 host1 app[12]: hello");
}

// Catches the wrong time for other units (theirs is "timegenerated"), a missing real source,
// and a header added without relay processing.
TEST_F(SyslogTextTest, OtherUnitsRealSourceAndNoRelayProcessing) {
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_NTEVENTREPORT);
    unit->setSyslogFacility(16);
    unit->setSyslogPriority(3);
    unit->setPropertyString(u"source", u"srv7");
    unit->setPropertyString(u"syslogtag", u"EvntSLog");
    unit->setPropertyTime(u"timegenerated", localInstant(2010, 11, 21, 13, 5, 0));
    unit->setPropertyTime(u"timereported", localInstant(2011, 1, 1, 0, 0, 0));
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk full", true, false)),
              "<131>Nov 21 13:05:00 srv7 EvntSLog: disk full");
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk full", true, true)),
              "<131>Nov 21 13:05:00 srv7 EvntSLog: RealSource:\"srv7\" disk full");
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk full", false, true)), "disk full");
}

// Catches a header made up for a unit without a facility: report 1100 is thrown.
TEST_F(SyslogTextTest, MissingFacilityThrows) {
    auto unit = CInfoUnit::createInfoUnitFromXML(u"<event><iut>1</iut><msg>x</msg></event>");
    ASSERT_TRUE(unit);
    const auto report = test::thrownReport([&] { buildSyslogText(*unit, u"x", true, false); });
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->getErrorCode(), 1100u);
}

// Catches lost text: 0 is the agent's narrow form, a code page converts, an unusable id falls
// back to the narrow form.
TEST(SyslogEncoding, CodePagesAndFallback) {
    EXPECT_EQ(encodeSyslogText(u"abc", 0), "abc");
    EXPECT_EQ(encodeSyslogText(u"\u00e4\u00df", 65001), "\xc3\xa4\xc3\x9f");
    EXPECT_EQ(encodeSyslogText(u"\u00e4\u00df", 1252), "\xe4\xdf");
    EXPECT_EQ(encodeSyslogText(u"abc", 999999), encodeSyslogText(u"abc", 0));
}

std::string compressible(size_t length) {
    std::string s;
    while (s.size() < length) s += "<13>Mar  5 09:04:07 host1 app: the same words again and again ";
    s.resize(length);
    return s;
}

std::string incompressible(size_t length) {
    std::mt19937 random(7);
    std::string s(length, '\0');
    for (char& c : s) c = static_cast<char>(random());
    return s;
}

// Catches a broken size rule (60 bytes never packed), marker or stream, and random bytes or
// RFC 3195 packed.
TEST(SyslogCompression, SizeRuleAndMarker) {
    std::string out;
    int zlibError = 0;
    const std::string sixty(60, 'a');
    EXPECT_EQ(compressSyslogMessage(sixty, 9, SyslogTransport::Udp, out, zlibError),
              CompressResult::Plain);
    EXPECT_EQ(compressSyslogMessage(std::string(61, 'a'), 9, SyslogTransport::Udp, out, zlibError),
              CompressResult::Compressed);

    const std::string message = compressible(1000);
    for (SyslogTransport t : {SyslogTransport::Udp, SyslogTransport::Tcp}) {
        ASSERT_EQ(compressSyslogMessage(message, 9, t, out, zlibError), CompressResult::Compressed);
        ASSERT_EQ(out[0], 'z');
        EXPECT_LT(out.size(), message.size());
        EXPECT_EQ(inflateStream(std::string_view(out).substr(1)), message);
    }
    EXPECT_EQ(compressSyslogMessage(incompressible(1000), 9, SyslogTransport::Udp, out, zlibError),
              CompressResult::Plain);
    EXPECT_EQ(compressSyslogMessage(message, 9, SyslogTransport::Rfc3195, out, zlibError),
              CompressResult::Plain);
}

// Catches one overhead for all transports: a gain of 2 to 5 bytes is worth it on UDP only.
TEST(SyslogCompression, TransportOverhead) {
    // Find a message whose stream is a few bytes shorter than itself.
    std::string out;
    int zlibError = 0;
    bool found = false;
    for (size_t run = 0; run < 300 && !found; ++run) {
        std::string m = incompressible(100) + std::string(run, 'x');
        uLongf packed = compressBound(uLong(m.size()));
        std::string buffer(packed, '\0');
        compress2(reinterpret_cast<Bytef*>(buffer.data()), &packed,
                  reinterpret_cast<const Bytef*>(m.data()), uLong(m.size()), 9);
        const size_t gain = m.size() - std::min<size_t>(packed, m.size());
        if (gain < 2 || gain > 5) continue;
        found = true;
        EXPECT_EQ(compressSyslogMessage(m, 9, SyslogTransport::Udp, out, zlibError),
                  CompressResult::Compressed);
        EXPECT_EQ(compressSyslogMessage(m, 9, SyslogTransport::Tcp, out, zlibError),
                  CompressResult::Plain);
    }
    EXPECT_TRUE(found);
}

// Catches a swallowed zlib error (an invalid level): it is returned for the caller to report.
TEST(SyslogCompression, ZlibErrorIsReturned) {
    std::string out;
    int zlibError = 0;
    EXPECT_EQ(compressSyslogMessage(compressible(500), 42, SyslogTransport::Udp, out, zlibError),
              CompressResult::Failed);
    EXPECT_NE(zlibError, 0);
}

}  // namespace
