#include <gtest/gtest.h>
#include <zlib.h>

#include <random>
#include <string>

#include "actions/actions_test_helper.h"
#include "actions/send_syslog/action_send_syslog.h"
#include "actions/send_syslog/syslog_message.h"
#include "base/error_report.h"
#include "base/net/ip.h"
#include "engine/timer_queue.h"

namespace {

using namespace vt;
using namespace vt::test;
using Dwords = std::vector<std::pair<std::u16string, uint32_t>>;

class SendSyslogTest : public ::testing::Test {
  protected:
    // Loads a forward action from its own key, with these values.
    CActionListEntry& load(uint16_t port, uint32_t type, Dwords dwords = {},
                           const char* server = "127.0.0.1",
                           std::u16string_view format = u"%msg%") {
        const std::u16string key = m_registry.base() + u"\\A" + u16(std::to_string(m_n++));
        dwords.insert(dwords.end(), {{u"nSyslogSendPort", port}, {u"nType", type}});
        for (const auto& [name, value] : dwords) regSetDword(key, name, value);
        regSetString(key, u"szSyslogSendServer", u16(std::string(server)));
        regSetString(key, u"szMessageFormat", format);
        m_entries.push_back(loadAction(key, 1001));
        return *m_entries.back();
    }
    static CActionConfigSendSyslog& config(CActionListEntry& entry) {
        return static_cast<CActionConfigSendSyslog&>(*entry.getConfig());
    }
    void run(CActionListEntry& entry, CInfoUnit& unit) {
        entry.getAction()->callAction(unit, m_settings, entry);
    }
    // What the action must put on the wire for `unit` with the default template.
    static std::string expectedText(const CInfoUnit& unit) {
        return encodeSyslogText(buildSyslogText(unit, unit.getMsgText(), true, false), 0);
    }

    ScopedRegistry m_registry;
    CConfigSettings m_settings;
    std::vector<std::unique_ptr<CActionListEntry>> m_entries;
    int m_n = 1;
};

// Catches lost load-time repairs (TCP types 3 and 4, port 0, a negative timeout, a level above
// 9, the unused port name, the old property spelling) and a wrong default timeout or level.
TEST_F(SendSyslogTest, LoadRepairsSettings) {
    CActionConfigSendSyslog& c = config(load(0, 4,
                                             {{u"bUseSyslogSendPortName", 1},
                                              {u"nTimeoutValue", 0xFFFFFFF6u},
                                              {u"nCompressionLevel", 12}},
                                             "h", u"%NTEventLogType%/%msg%/%NTEventLogType%"));
    EXPECT_EQ(c.client().transport(), SyslogTransport::Tcp);
    EXPECT_EQ(c.m_bUseSyslogSendPortName, 0u);
    EXPECT_EQ(c.m_nTimeoutValue, 0);
    EXPECT_EQ(c.m_nCompressionLevel, 9u);
    EXPECT_EQ(c.effectivePort(), CIP::servicePort("syslog", "udp", 514));
    EXPECT_EQ(c.m_szMessageFormat, u"%nteventlogtype%/%msg%/%nteventlogtype%");
    EXPECT_EQ(config(load(0, 3)).client().transport(), SyslogTransport::Tcp);
    CActionConfigSendSyslog& defaults = config(load(0, 0));
    EXPECT_EQ(defaults.m_nTimeoutValue, 1800000);
    EXPECT_EQ(defaults.m_nCompressionLevel, 9u);
}

// Catches a template or the XML form not being what follows the header.
TEST_F(SendSyslogTest, MessageTextFromTemplateOrXml) {
    auto unit = makeForwardUnit(u"hello world");
    EXPECT_EQ(CActionSendSyslog::messageText(
                  config(load(0, 0, {}, "h", u"[%syslogtag%] %msg:1:5%")), *unit),
              u"[app] hello");
    EXPECT_EQ(CActionSendSyslog::messageText(config(load(0, 0, {{u"bReportInXML", 1}})), *unit),
              unit->toXML());
}

class SendSyslogFamilyTest : public SendSyslogTest,
                             public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Families, SendSyslogFamilyTest, ::testing::Values("127.0.0.1", "::1"),
                         [](const auto& info) {
                             return std::string(info.param[0] == ':' ? "IPv6" : "IPv4");
                         });

// Catches a changed byte on UDP: one datagram per unit, a compressible one as "z" and a zlib
// stream of the plain text.
TEST_P(SendSyslogFamilyTest, UdpDatagramsArriveExactly) {
    SyslogPeer sink(SOCK_DGRAM, GetParam());
    auto unit = makeForwardUnit(u"app[12]: hello \u00e4");
    run(load(sink.port(), 0, {}, GetParam()), *unit);
    EXPECT_EQ(sink.datagram(), expectedText(*unit));

    auto big = makeForwardUnit(u"app: " + std::u16string(1000, u'x'));
    run(load(sink.port(), 0, {{u"nUseCompression", 1}}, GetParam()), *big);
    const std::string datagram = sink.datagram();
    ASSERT_EQ(datagram[0], 'z');
    EXPECT_EQ(inflateStream(std::string_view(datagram).substr(1)), expectedText(*big));
}

// Catches wrong TCP framing: a line feed after plain messages, in order on one connection;
// octet counting before a compressed one.
TEST_P(SendSyslogFamilyTest, TcpFramesArriveExactly) {
    TimerQueueScope worker;
    SyslogPeer sink(SOCK_STREAM, GetParam());
    CActionListEntry& plain = load(sink.port(), 1, {}, GetParam());
    auto a = makeForwardUnit(u"app: first");
    auto b = makeForwardUnit(u"app: second");
    run(plain, *a);
    run(plain, *b);
    const std::string expected = expectedText(*a) + "\n" + expectedText(*b) + "\n";
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expected.size()), expected);
    EXPECT_FALSE(sink.pending());

    auto big = makeForwardUnit(u"app: " + std::u16string(2000, u'y'));
    run(load(sink.port(), 1, {{u"nUseCompression", 1}}, GetParam()), *big);
    ASSERT_TRUE(sink.accept());
    std::string count;
    for (std::string c; (c = sink.read(1, 1)) != " " && !c.empty();) count += c;
    const std::string frame = sink.read(1, std::stoul(count));
    ASSERT_EQ(frame.size(), std::stoul(count));
    EXPECT_EQ(frame[0], 'z');
    EXPECT_EQ(inflateStream(std::string_view(frame).substr(1)), expectedText(*big));
}

// Catches a name not resolved through the system resolver.
TEST_F(SendSyslogTest, ServerByName) {
    SyslogPeer sink;
    auto unit = makeForwardUnit(u"app: by name");
    run(load(sink.port(), 1, {}, "localhost"), *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expectedText(*unit).size() + 1), expectedText(*unit) + "\n");
}

// Catches a connection kept after the unit when "nTimeoutValue" is 0, and an idle one not
// closed by the worker's timer queue once the timeout has passed, closed early, or not opened
// again by the next unit.
TEST_F(SendSyslogTest, ConnectionClosesAfterTheTimeout) {
    TimerQueueScope worker;
    SyslogPeer sink;
    auto unit = makeForwardUnit(u"app: unit");
    const std::string line = expectedText(*unit) + "\n";
    CActionListEntry& once = load(sink.port(), 1, {{u"nTimeoutValue", 0}});
    run(once, *unit);
    EXPECT_FALSE(config(once).isConnected());
    EXPECT_EQ(worker.queue().pending(), 0u);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, line.size()), line);
    EXPECT_TRUE(sink.closedByAgent(0));

    CActionListEntry& idle = load(sink.port(), 1, {{u"nTimeoutValue", 60000}});
    run(idle, *unit);
    run(idle, *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(1, 2 * line.size()), line + line);
    EXPECT_EQ(worker.queue().pending(), 1u);
    const auto now = TimerQueue::Clock::now();
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(30)), 0u);
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(61)), 1u);
    EXPECT_TRUE(sink.closedByAgent(1));
    run(idle, *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(2, line.size()), line);
}

// Catches a unit lost to a server that went away between two units: the dead connection is
// noticed before sending, the debug log says so, the unit goes out on a new connection.
TEST_F(SendSyslogTest, ServerRestartBetweenUnitsLosesNothing) {
    TimerQueueScope worker;
    DebugCapture capture;
    SyslogPeer sink;
    CActionListEntry& entry = load(sink.port(), 1);
    for (const char16_t* msg : {u"app: before", u"app: after"}) {
        auto unit = makeForwardUnit(msg);
        run(entry, *unit);
        const std::string line = expectedText(*unit) + "\n";
        ASSERT_TRUE(sink.accept());
        EXPECT_EQ(sink.read(0, line.size()), line);
        sink.dropConnections();
    }
    EXPECT_NE(capture.text().find("closed by the server"), std::string::npos) << capture.text();
}

// Catches a silent drop when nothing listens or for RFC 3195 (not built): report 119 must be
// thrown so that the retry and abort rules apply; with abort on, the rule stops.
TEST_F(SendSyslogTest, UnreachableServerAndRfc3195ThrowReport) {
    uint16_t freePort = SyslogPeer().port();
    auto unit = makeForwardUnit(u"app: lost?");
    for (uint32_t type : {1u, 2u}) {
        CActionListEntry& entry = load(freePort, type);
        const auto report = thrownReport([&] { run(entry, *unit); });
        ASSERT_NE(report, nullptr) << type;
        EXPECT_EQ(report->getErrorCode(), 119u);
        EXPECT_EQ(static_cast<CWinSockError*>(report.get())->getSystemError(),
                  type == 1 ? uint32_t(net::SOCKERR_CONNREFUSED) : 0u);
        m_settings.abortRuleOnFailure = 1;
        EXPECT_FALSE(entry.CallAction(*unit, m_settings));
        m_settings.abortRuleOnFailure = 0;
    }
}

// Catches an oversized datagram sent whole (and lost) instead of cut, without a debug line.
TEST_F(SendSyslogTest, OversizedUdpMessageIsCut) {
    DebugCapture capture;
    SyslogPeer sink(SOCK_DGRAM);
    auto unit = makeForwardUnit(std::u16string(70000, u'q'));
    run(load(sink.port(), 0, {{u"bProcessDuringRelay", 0}}), *unit);
    EXPECT_EQ(sink.datagram(), std::string(65507, 'q'));
    EXPECT_NE(capture.text().find("cut to 65507 bytes"), std::string::npos);
}

// Catches a wrong header: PRI, month, a day below 10 after two spaces, host, tag with its
// colon, and the real source after it.
TEST(SyslogHeader, Layout) {
    struct Case {
        int32_t facility, severity, month, day;
        const char16_t* tag;
        bool realSource;
        const char16_t* expected;
    };
    const Case cases[] = {
        {4, 2, 3, 5, u"app", false, u"<34>Mar  5 01:02:03 h app: "},
        {1, 5, 12, 10, u"t", false, u"<13>Dec 10 01:02:03 h t: "},
        {0, 0, 1, 31, u"", false, u"<0>Jan 31 01:02:03 h "},
        {23, 7, 7, 9, u"tag", true, u"<191>Jul  9 01:02:03 h tag: RealSource:\"h\" "},
        // The base unit's facility 128 is no facility: PRI keeps only its low byte.
        {128, 5, 2, 1, u"", false, u"<5>Feb  1 01:02:03 h "},
    };
    for (const Case& c : cases) {
        SyslogHeaderFields f;
        f.facility = c.facility;
        f.severity = c.severity;
        f.time = CivilTime{2009, c.month, c.day, 1, 2, 3, 0};
        f.host = f.realSource = u"h";
        f.tag = c.tag;
        f.insertRealSource = c.realSource;
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

// The instant at which the local time of "XYZ-3" (three hours east of UTC) is `t`.
int64_t eastern(const CivilTime& t) {
    return calendarToSeconds(t) - 3 * 3600;
}

// Catches a forwarded message that differs from what its sender sent (the tag in the text
// doubled, the time not "timereported"), the wrong time for other units (theirs is
// "timegenerated"), a missing real source, and a header added without relay processing.
TEST(SyslogText, ReceivedAndOtherUnits) {
    ScopedEnv tz("TZ", "XYZ-3");
    auto received = makeForwardUnit(u"app[12]: hello", 4, 2);
    received->setPropertyTime(u"timereported", eastern({2009, 3, 5, 9, 4, 7, 0}));
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*received, received->getMsgText(), true, false)),
              "<34>Mar  5 09:04:07 host1 app[12]: hello");
    auto unit = CInfoUnit::createInfoUnitOfType(IUT_NTEVENTREPORT);
    unit->setSyslogFacility(16);
    unit->setSyslogPriority(3);
    unit->setPropertyString(u"source", u"srv7");
    unit->setPropertyString(u"syslogtag", u"EvntSLog");
    unit->setPropertyTime(u"timegenerated", eastern({2010, 11, 21, 13, 5, 0, 0}));
    unit->setPropertyTime(u"timereported", eastern({2011, 1, 1, 0, 0, 0, 0}));
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk", true, false)),
              "<131>Nov 21 13:05:00 srv7 EvntSLog: disk");
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk", true, true)),
              "<131>Nov 21 13:05:00 srv7 EvntSLog: RealSource:\"srv7\" disk");
    EXPECT_EQ(utf16ToUtf8(buildSyslogText(*unit, u"disk", false, true)), "disk");
}

// Catches a header made up for a unit without a facility: report 1100 is thrown.
TEST(SyslogText, MissingFacilityThrows) {
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

std::string incompressible(size_t length) {
    std::mt19937 random(7);
    std::string s(length, '\0');
    for (char& c : s) c = static_cast<char>(random());
    return s;
}

// Catches a broken size rule (60 bytes are never packed), random bytes or RFC 3195 packed, and
// a swallowed zlib error (an invalid level), which is returned for the caller to report.
TEST(SyslogCompression, SizeRuleAndResult) {
    struct Case {
        std::string message;
        int level;
        SyslogTransport transport;
        CompressResult result;
    };
    const Case cases[] = {
        {std::string(60, 'a'), 9, SyslogTransport::Udp, CompressResult::Plain},
        {std::string(61, 'a'), 9, SyslogTransport::Udp, CompressResult::Compressed},
        {incompressible(1000), 9, SyslogTransport::Udp, CompressResult::Plain},
        {std::string(1000, 'a'), 9, SyslogTransport::Rfc3195, CompressResult::Plain},
        {std::string(500, 'a'), 42, SyslogTransport::Udp, CompressResult::Failed},
    };
    for (const Case& c : cases) {
        std::string out;
        int zlibError = 0;
        EXPECT_EQ(compressSyslogMessage(c.message, c.level, c.transport, out, zlibError), c.result);
        EXPECT_EQ(zlibError != 0, c.result == CompressResult::Failed);
    }
}

// Catches one overhead for all transports: a gain of 2 to 5 bytes is worth it on UDP only.
TEST(SyslogCompression, TransportOverhead) {
    std::string out;
    int zlibError = 0;
    bool udpOnly = false;
    for (size_t run = 0; run < 300 && !udpOnly; ++run) {
        const std::string m = incompressible(100) + std::string(run, 'x');
        udpOnly = compressSyslogMessage(m, 9, SyslogTransport::Udp, out, zlibError) ==
                      CompressResult::Compressed &&
                  compressSyslogMessage(m, 9, SyslogTransport::Tcp, out, zlibError) ==
                      CompressResult::Plain;
    }
    EXPECT_TRUE(udpOnly);
}

}  // namespace
