#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "actions/send_syslog/action_send_syslog.h"
#include "actions/send_syslog/syslog_message.h"
#include "actions/send_syslog_test_helper.h"
#include "base/config_settings.h"
#include "base/error_report.h"
#include "common/registry_fixture.h"
#include "engine/action_list.h"
#include "engine/timer_queue.h"
#include "net/ip.h"
#include "platform/utf_codec.h"
#include "service/action_type_table.h"

namespace {

using namespace vt;
using namespace vt::test;

class SendSyslogTest : public ::testing::Test {
  protected:
    std::u16string key(int n = 1) {
        return m_registry.base() + u"\\A" + utf8ToUtf16(std::to_string(n));
    }

    // Loads an action of type 1001 through the agent's own type table.
    CActionListEntry& load(const ActionValues& values, int n = 1) {
        writeActionKey(key(n), values);
        m_entries.push_back(std::make_unique<CActionListEntry>(
            CQuilletString(u"forward"), CQuilletString(key(n)), 1001,
            ActionLoadContext{nullptr, vt::agentActionTypes()}));
        return *m_entries.back();
    }
    static CActionConfigSendSyslog& config(CActionListEntry& entry) {
        return static_cast<CActionConfigSendSyslog&>(*entry.getConfig());
    }
    void run(CActionListEntry& entry, CInfoUnit& unit) {
        entry.getAction()->callAction(unit, m_settings, entry);
    }
    // What the action must put on the wire for `unit` with the default template.
    static std::string expectedText(const CInfoUnit& unit, bool header = true) {
        return encodeSyslogText(buildSyslogText(unit, unit.getMsgText(), header, false), 0);
    }
    static ActionValues target(const char* server, uint16_t port, uint32_t type,
                               std::vector<std::pair<std::u16string, uint32_t>> more = {}) {
        ActionValues v;
        v.strings = {{u"szSyslogSendServer", utf8ToUtf16(server)}};
        v.dwords = {{u"nSyslogSendPort", port}, {u"nType", type}};
        for (auto& d : more) v.dwords.push_back(d);
        return v;
    }

    ScopedRegistry m_registry;
    CConfigSettings m_settings;
    std::vector<std::unique_ptr<CActionListEntry>> m_entries;
};

// Defaults, and the adjustments made after loading.
TEST_F(SendSyslogTest, LoadAdjustsSettings) {
    CActionConfigSendSyslog& defaults = config(load({}, 1));
    EXPECT_EQ(defaults.m_szMessageFormat, u"%msg%");
    EXPECT_EQ(defaults.m_nTimeoutValue, 1800000);
    EXPECT_EQ(defaults.m_bProcessDuringRelay, 1u);
    EXPECT_EQ(defaults.m_nCompressionLevel, 9u);
    EXPECT_EQ(defaults.effectivePort(), CIP::servicePort("syslog", "udp", 514));

    ActionValues v;
    v.dwords = {{u"nType", 4},
                {u"bUseSyslogSendPortName", 1},
                {u"nTimeoutValue", 0xFFFFFFF6u},
                {u"nCompressionLevel", 12},
                {u"nSyslogSendPort", 10514}};
    v.strings = {{u"szMessageFormat", u"%NTEventLogType%/%msg%/%NTEventLogType%"}};
    CActionConfigSendSyslog& c = config(load(v, 2));
    EXPECT_EQ(c.m_nType, 1u);
    EXPECT_EQ(c.m_bUseSyslogSendPortName, 0u);
    EXPECT_EQ(c.m_nTimeoutValue, 0);
    EXPECT_EQ(c.m_nCompressionLevel, 9u);
    EXPECT_EQ(c.effectivePort(), 10514);
    EXPECT_EQ(c.m_szMessageFormat, u"%nteventlogtype%/%msg%/%nteventlogtype%");
    EXPECT_EQ(c.client().transport(), SyslogTransport::Tcp);

    EXPECT_EQ(config(load(target("h", 1, 3), 3)).client().transport(), SyslogTransport::Tcp);
}

// The template, or the XML form, is what follows the header.
TEST_F(SendSyslogTest, MessageTextFromTemplateOrXml) {
    ActionValues v;
    v.strings = {{u"szMessageFormat", u"[%syslogtag%] %msg:1:5%"}};
    CActionConfigSendSyslog& c = config(load(v, 1));
    auto unit = makeForwardUnit(u"hello world");
    EXPECT_EQ(CActionSendSyslog::messageText(c, *unit), u"[app] hello");
    CActionConfigSendSyslog& xml = config(load({{{u"bReportInXML", 1}}, {}}, 2));
    EXPECT_EQ(CActionSendSyslog::messageText(xml, *unit), unit->toXML());
}

class SendSyslogFamilyTest : public SendSyslogTest,
                             public ::testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(Families, SendSyslogFamilyTest, ::testing::Values("127.0.0.1", "::1"),
                         [](const auto& info) {
                             return std::string(info.param[0] == ':' ? "IPv6" : "IPv4");
                         });

// UDP: one datagram per unit, byte for byte; a compressible one as "z" and its stream.
TEST_P(SendSyslogFamilyTest, UdpDatagramsArriveExactly) {
    DatagramSink sink(GetParam());
    CActionListEntry& plain = load(target(GetParam(), sink.port(), 0), 1);
    CActionListEntry& packed =
        load(target(GetParam(), sink.port(), 0, {{u"nUseCompression", 1}}), 2);
    auto unit = makeForwardUnit(u"app[12]: hello \u00e4");
    run(plain, *unit);
    std::string datagram;
    ASSERT_TRUE(sink.receive(datagram));
    EXPECT_EQ(datagram, expectedText(*unit));

    auto big = makeForwardUnit(u"app: " + std::u16string(1000, u'x'));
    run(packed, *big);
    ASSERT_TRUE(sink.receive(datagram));
    ASSERT_EQ(datagram[0], 'z');
    EXPECT_EQ(inflateStream(std::string_view(datagram).substr(1)), expectedText(*big));
}

// TCP: line-feed framing for plain messages, octet counting for compressed ones, in order on
// one connection.
TEST_P(SendSyslogFamilyTest, TcpFramesArriveExactly) {
    TimerQueueScope worker;
    StreamSink sink(GetParam());
    CActionListEntry& plain = load(target(GetParam(), sink.port(), 1), 1);
    auto a = makeForwardUnit(u"app: first");
    auto b = makeForwardUnit(u"app: second");
    run(plain, *a);
    run(plain, *b);
    const std::string expected = expectedText(*a) + "\n" + expectedText(*b) + "\n";
    ASSERT_TRUE(sink.waitForBytes(expected.size()));
    ASSERT_EQ(sink.streams().size(), 1u);
    EXPECT_EQ(sink.streams()[0], expected);

    StreamSink packedSink(GetParam());
    CActionListEntry& packed =
        load(target(GetParam(), packedSink.port(), 1, {{u"nUseCompression", 1}}), 2);
    auto big = makeForwardUnit(u"app: " + std::u16string(2000, u'y'));
    run(packed, *big);
    ASSERT_TRUE(packedSink.waitForBytes(10));
    std::string stream = packedSink.allBytes();
    const size_t space = stream.find(' ');
    ASSERT_NE(space, std::string::npos);
    const size_t count = std::stoul(stream.substr(0, space));
    ASSERT_TRUE(packedSink.waitForBytes(space + 1 + count));
    stream = packedSink.allBytes();
    EXPECT_EQ(stream.size(), space + 1 + count);
    EXPECT_EQ(stream[space + 1], 'z');
    EXPECT_EQ(inflateStream(std::string_view(stream).substr(space + 2)), expectedText(*big));
}

// Names go through the system resolver; TCP tries every address the name has.
TEST_F(SendSyslogTest, ServerByName) {
    StreamSink sink("127.0.0.1");
    CActionListEntry& entry = load(target("localhost", sink.port(), 1), 1);
    auto unit = makeForwardUnit(u"app: by name");
    run(entry, *unit);
    EXPECT_TRUE(sink.waitForBytes(expectedText(*unit).size() + 1));
}

// "nTimeoutValue" 0 closes the connection after every unit.
TEST_F(SendSyslogTest, TimeoutZeroClosesAfterEachUnit) {
    TimerQueueScope worker;
    StreamSink sink;
    CActionListEntry& entry = load(target("127.0.0.1", sink.port(), 1, {{u"nTimeoutValue", 0}}));
    for (int i = 0; i < 3; ++i) {
        auto unit = makeForwardUnit(u"app: unit");
        run(entry, *unit);
        EXPECT_FALSE(config(entry).isConnected());
    }
    ASSERT_TRUE(sink.waitForClosed(3));
    EXPECT_EQ(sink.streams().size(), 3u);
    EXPECT_EQ(worker.queue().pending(), 0u);
}

// The connection stays open between units and is closed by the worker's timer queue once
// "nTimeoutValue" has passed without a unit; the next unit connects again.
TEST_F(SendSyslogTest, IdleTimerClosesThroughWorkerQueue) {
    TimerQueueScope worker;
    StreamSink sink;
    CActionListEntry& entry =
        load(target("127.0.0.1", sink.port(), 1, {{u"nTimeoutValue", 60000}}));
    auto unit = makeForwardUnit(u"app: unit");
    run(entry, *unit);
    run(entry, *unit);
    EXPECT_TRUE(config(entry).isConnected());
    EXPECT_EQ(worker.queue().pending(), 1u);
    const auto now = TimerQueue::Clock::now();
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(30)), 0u);
    EXPECT_EQ(worker.queue().runDue(now + std::chrono::seconds(61)), 1u);
    EXPECT_FALSE(config(entry).isConnected());
    ASSERT_TRUE(sink.waitForClosed(1));
    run(entry, *unit);
    ASSERT_TRUE(sink.waitForBytes(3 * (expectedText(*unit).size() + 1)));
    EXPECT_EQ(sink.streams().size(), 2u);
}

// A server that went away between two units costs no unit: the dead connection is noticed
// before sending, the debug log says so, and the unit goes out on a new connection.
TEST_F(SendSyslogTest, ServerRestartBetweenUnitsLosesNothing) {
    TimerQueueScope worker;
    DebugCapture capture;
    StreamSink sink;
    CActionListEntry& entry = load(target("127.0.0.1", sink.port(), 1));
    auto first = makeForwardUnit(u"app: before");
    auto second = makeForwardUnit(u"app: after");
    run(entry, *first);
    ASSERT_TRUE(sink.waitForBytes(expectedText(*first).size() + 1));
    sink.dropConnections();
    run(entry, *second);
    ASSERT_TRUE(sink.waitForBytes(expectedText(*first).size() + expectedText(*second).size() + 2));
    const auto streams = sink.streams();
    ASSERT_EQ(streams.size(), 2u);
    EXPECT_EQ(streams[1], expectedText(*second) + "\n");
    EXPECT_NE(capture.text().find("closed by the server"), std::string::npos) << capture.text();
}

// Nothing listening, or RFC 3195 (not built): report 119 is thrown, never a silent drop, so
// the retry and abort rules apply; with abort on, the rule stops.
TEST_F(SendSyslogTest, UnreachableServerAndRfc3195ThrowReport) {
    uint16_t freePort = 0;
    {
        StreamSink probe;
        freePort = probe.port();
    }
    auto unit = makeForwardUnit(u"app: lost?");
    for (uint32_t type : {1u, 2u}) {
        CActionListEntry& entry = load(target("127.0.0.1", freePort, type), int(type));
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

// A message longer than the largest datagram is cut to fit and a debug line says so.
TEST_F(SendSyslogTest, OversizedUdpMessageIsCut) {
    DebugCapture capture;
    DatagramSink sink;
    CActionListEntry& entry =
        load(target("127.0.0.1", sink.port(), 0, {{u"bProcessDuringRelay", 0}}));
    auto unit = makeForwardUnit(std::u16string(70000, u'q'));
    run(entry, *unit);
    std::string datagram;
    ASSERT_TRUE(sink.receive(datagram));
    EXPECT_EQ(datagram, std::string(65507, 'q'));
    EXPECT_NE(capture.text().find("cut to 65507 bytes"), std::string::npos);
}

}  // namespace
