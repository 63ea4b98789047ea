#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "actions/actions_test_helper.h"
#include "actions/send_syslog/action_send_syslog.h"
#include "actions/send_syslog/syslog_message.h"
#include "base/error_report.h"
#include "engine/timer_queue.h"
#include "net/ip.h"

namespace {

using namespace vt;
using namespace vt::test;
using Dwords = std::vector<std::pair<std::u16string, uint32_t>>;

class SendSyslogTest : public ::testing::Test {
  protected:
    // Loads a forward action from its own key, with these values.
    CActionListEntry& load(const Dwords& dwords, const char* server = "127.0.0.1",
                           std::u16string_view format = u"%msg%") {
        const std::u16string key = m_registry.base() + u"\\A" + u16(std::to_string(m_n++));
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

// Catches lost load-time repairs: TCP types 3 and 4, port 0, a negative timeout, a level above
// 9, the port name (never used) and the old spelling of the event log type property.
TEST_F(SendSyslogTest, LoadRepairsSettings) {
    CActionConfigSendSyslog& c = config(load({{u"nType", 4},
                                              {u"bUseSyslogSendPortName", 1},
                                              {u"nTimeoutValue", 0xFFFFFFF6u},
                                              {u"nCompressionLevel", 12}},
                                             "h", u"%NTEventLogType%/%msg%/%NTEventLogType%"));
    EXPECT_EQ(c.client().transport(), SyslogTransport::Tcp);
    EXPECT_EQ(c.m_bUseSyslogSendPortName, 0u);
    EXPECT_EQ(c.m_nTimeoutValue, 0);
    EXPECT_EQ(c.m_nCompressionLevel, 9u);
    EXPECT_EQ(c.effectivePort(), CIP::servicePort("syslog", "udp", 514));
    EXPECT_EQ(c.m_szMessageFormat, u"%nteventlogtype%/%msg%/%nteventlogtype%");
    EXPECT_EQ(config(load({{u"nType", 3}})).client().transport(), SyslogTransport::Tcp);
}

// Catches a template or the XML form not being what follows the header.
TEST_F(SendSyslogTest, MessageTextFromTemplateOrXml) {
    auto unit = makeForwardUnit(u"hello world");
    EXPECT_EQ(
        CActionSendSyslog::messageText(config(load({}, "h", u"[%syslogtag%] %msg:1:5%")), *unit),
        u"[app] hello");
    EXPECT_EQ(CActionSendSyslog::messageText(config(load({{u"bReportInXML", 1}})), *unit),
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
    DatagramSink sink(GetParam());
    auto unit = makeForwardUnit(u"app[12]: hello \u00e4");
    run(load({{u"nSyslogSendPort", sink.port()}}, GetParam()), *unit);
    std::string datagram;
    ASSERT_TRUE(sink.receive(datagram));
    EXPECT_EQ(datagram, expectedText(*unit));

    auto big = makeForwardUnit(u"app: " + std::u16string(1000, u'x'));
    run(load({{u"nSyslogSendPort", sink.port()}, {u"nUseCompression", 1}}, GetParam()), *big);
    ASSERT_TRUE(sink.receive(datagram));
    ASSERT_EQ(datagram[0], 'z');
    EXPECT_EQ(inflateStream(std::string_view(datagram).substr(1)), expectedText(*big));
}

// Catches wrong TCP framing: a line feed after plain messages, in order on one connection;
// octet counting before a compressed one.
TEST_P(SendSyslogFamilyTest, TcpFramesArriveExactly) {
    TimerQueueScope worker;
    StreamSink sink(GetParam());
    CActionListEntry& plain = load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}}, GetParam());
    auto a = makeForwardUnit(u"app: first");
    auto b = makeForwardUnit(u"app: second");
    run(plain, *a);
    run(plain, *b);
    const std::string expected = expectedText(*a) + "\n" + expectedText(*b) + "\n";
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expected.size()), expected);
    EXPECT_FALSE(sink.pending());

    auto big = makeForwardUnit(u"app: " + std::u16string(2000, u'y'));
    run(load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}, {u"nUseCompression", 1}},
             GetParam()),
        *big);
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
    StreamSink sink;
    auto unit = makeForwardUnit(u"app: by name");
    run(load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}}, "localhost"), *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expectedText(*unit).size() + 1), expectedText(*unit) + "\n");
}

// Catches a connection kept after the unit when "nTimeoutValue" is 0.
TEST_F(SendSyslogTest, TimeoutZeroClosesAfterEachUnit) {
    TimerQueueScope worker;
    StreamSink sink;
    CActionListEntry& entry =
        load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}, {u"nTimeoutValue", 0}});
    auto unit = makeForwardUnit(u"app: unit");
    for (size_t i = 0; i < 2; ++i) {
        run(entry, *unit);
        EXPECT_FALSE(config(entry).isConnected());
        ASSERT_TRUE(sink.accept());
        EXPECT_EQ(sink.read(i, expectedText(*unit).size() + 1), expectedText(*unit) + "\n");
        EXPECT_TRUE(sink.closedByAgent(i));
    }
    EXPECT_EQ(worker.queue().pending(), 0u);
}

// Catches an idle connection not closed by the worker's timer queue once "nTimeoutValue" has
// passed without a unit, or closed early, or not opened again by the next unit.
TEST_F(SendSyslogTest, IdleTimerClosesThroughWorkerQueue) {
    TimerQueueScope worker;
    StreamSink sink;
    CActionListEntry& entry =
        load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}, {u"nTimeoutValue", 60000}});
    auto unit = makeForwardUnit(u"app: unit");
    const std::string line = expectedText(*unit) + "\n";
    run(entry, *unit);
    run(entry, *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, 2 * line.size()), line + line);
    EXPECT_EQ(worker.queue().pending(), 1u);
    const auto now = TimerQueue::Clock::now();
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(30)), 0u);
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(61)), 1u);
    EXPECT_FALSE(config(entry).isConnected());
    EXPECT_TRUE(sink.closedByAgent(0));
    run(entry, *unit);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(1, line.size()), line);
}

// Catches a unit lost to a server that went away between two units: the dead connection is
// noticed before sending, the debug log says so, the unit goes out on a new connection.
TEST_F(SendSyslogTest, ServerRestartBetweenUnitsLosesNothing) {
    TimerQueueScope worker;
    DebugCapture capture;
    StreamSink sink;
    CActionListEntry& entry = load({{u"nSyslogSendPort", sink.port()}, {u"nType", 1}});
    auto first = makeForwardUnit(u"app: before");
    auto second = makeForwardUnit(u"app: after");
    run(entry, *first);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expectedText(*first).size() + 1), expectedText(*first) + "\n");
    sink.dropConnections();
    run(entry, *second);
    ASSERT_TRUE(sink.accept());
    EXPECT_EQ(sink.read(0, expectedText(*second).size() + 1), expectedText(*second) + "\n");
    EXPECT_NE(capture.text().find("closed by the server"), std::string::npos) << capture.text();
}

// Catches a silent drop when nothing listens or for RFC 3195 (not built): report 119 must be
// thrown so that the retry and abort rules apply; with abort on, the rule stops.
TEST_F(SendSyslogTest, UnreachableServerAndRfc3195ThrowReport) {
    uint16_t freePort = StreamSink().port();
    auto unit = makeForwardUnit(u"app: lost?");
    for (uint32_t type : {1u, 2u}) {
        CActionListEntry& entry = load({{u"nSyslogSendPort", freePort}, {u"nType", type}});
        const auto report = thrownReport([&] { run(entry, *unit); });
        ASSERT_NE(report, nullptr) << type;
        EXPECT_EQ(report->getErrorCode(), 119u);
        if (type == 1)
            EXPECT_EQ(static_cast<CWinSockError*>(report.get())->getSystemError(),
                      uint32_t(net::SOCKERR_CONNREFUSED));
        else
            EXPECT_NE(std::string(report->getMessage().getStringA()).find("RFC3195"),
                      std::string::npos);
        m_settings.abortRuleOnFailure = 1;
        EXPECT_FALSE(entry.CallAction(*unit, m_settings));
        m_settings.abortRuleOnFailure = 0;
    }
}

// Catches an oversized datagram sent whole (and lost) instead of cut, without a debug line.
TEST_F(SendSyslogTest, OversizedUdpMessageIsCut) {
    DebugCapture capture;
    DatagramSink sink;
    auto unit = makeForwardUnit(std::u16string(70000, u'q'));
    run(load({{u"nSyslogSendPort", sink.port()}, {u"bProcessDuringRelay", 0}}), *unit);
    std::string datagram;
    ASSERT_TRUE(sink.receive(datagram));
    EXPECT_EQ(datagram, std::string(65507, 'q'));
    EXPECT_NE(capture.text().find("cut to 65507 bytes"), std::string::npos);
}

}  // namespace
