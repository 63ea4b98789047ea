#include "sources/syslog/info_source_syslog.h"

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "base/config_settings.h"
#include "base/net/win_sock.h"
#include "base/reg_access.h"
#include "common/registry_fixture.h"
#include "engine/que_man_list.h"
#include "model/info_unit_types.h"
#include "platform/socket_api.h"
#include "platform/utf_codec.h"
#include "service/info_source_types.h"
#include "sources/syslog/syslog_splitter.h"

namespace {

using namespace vt;
using namespace vt::test;

struct SyslogSourceRig {
    ScopedRegistry registry;
    std::u16string services = registry.base() + u"\\Services";
    CConfigSettings settings;
    std::unique_ptr<CQueManList> queue;

    SyslogSourceRig() {
        settings.queueLimit = 0;
        queue = std::make_unique<CQueManList>(&settings, CQueManList::StartWorkers::Later);
    }
    std::u16string key() const { return services + u"\\IS1"; }
    void setDword(std::u16string_view name, uint32_t value) { regSetDword(key(), name, value); }
    void setString(std::u16string_view name, std::u16string_view value) {
        regSetString(key(), name, value);
    }
    std::unique_ptr<CInfoSourceSyslog> make() {
        InfoSourceContext context;
        context.serviceName = CQuilletString(u"syslog");
        context.serviceId = 1;
        context.queue = queue.get();
        context.servicesKeyPath = CQuilletString(std::u16string_view(services));
        context.settings = &settings;
        auto source = std::make_unique<CInfoSourceSyslog>(context);
        source->setServiceNumber(1);
        return source;
    }
    // Waits (bounded) for the next unit the running source hands over.
    std::unique_ptr<CInfoUnit> waitForUnit() {
        std::unique_ptr<CInfoUnit> unit;
        eventually([&] { return (unit.reset(queue->Remove()), unit != nullptr); });
        return unit;
    }
};

std::string prop(const CInfoUnit& unit, std::u16string_view name) {
    return utf16ToUtf8(unit.getPropertyString(name));
}

// The settings are read again only when the version changes; an invalid port keeps the last one.
TEST(InfoSourceSyslogTest, LoadConfigReadsOnVersionChangeAndKeepsAnInvalidPort) {
    SyslogSourceRig rig;
    rig.setDword(u"nConfigVersion", 1);
    rig.setDword(u"nListenPort", 0);
    rig.setDword(u"nProtocolType", 1);
    auto source = rig.make();
    ASSERT_TRUE(source->LoadConfig());
    EXPECT_EQ(source->getListenPort(), 514);  // the services database's syslog port
    EXPECT_EQ(source->getProtocolType(), 1u);

    rig.setDword(u"nListenPort", 70000);
    rig.setDword(u"nProtocolType", 0);
    ASSERT_TRUE(source->LoadConfig());  // same version: nothing is read again
    EXPECT_EQ(source->getProtocolType(), 1u);

    rig.setDword(u"nConfigVersion", 2);
    rig.setDword(u"bServiceEnabled", 0);
    EXPECT_FALSE(source->LoadConfig());
    EXPECT_EQ(source->getListenPort(), 514);  // 70000 is ignored, the previous port kept
    EXPECT_EQ(source->getProtocolType(), 0u);
}

// How the settings shape the unit of one message.
TEST(InfoSourceSyslogTest, UnitPropertiesFollowTheSettings) {
    struct Case {
        const char* name;
        uint32_t takeSource, parseDate, rfc3164;
        const char* message;
        const char *source, *msg, *tag;
        int facility, severity;
        int timeIsParsed;  // 1 parsed time, 0 not the parsed time, -1 not checked
    };
    const Case cases[] = {
        {"peer address", 0, 0, 1, "<13>Jan  5 10:20:30 host1 app[12]: hello", "10.1.2.3",
         "app[12]: hello", "app", 1, 5, 0},
        {"host from message", 1, 1, 1, "<13>Jan  5 10:20:30 host1 app[12]: hello", "host1",
         "app[12]: hello", "app", 1, 5, 1},
        {"no host parsed keeps the peer", 1, 0, 1, "<14>%LINK-3-UPDOWN: Interface down", "10.1.2.3",
         "%LINK-3-UPDOWN: Interface down", "LINK-3-UPDOWN", 1, 6, -1},
        {"parsing off takes only the PRI", 1, 0, 0, "<34>Jan  5 10:20:30 host1 x", "10.1.2.3",
         "Jan  5 10:20:30 host1 x", "", 4, 2, 0},
        {"no PRI", 0, 0, 1, "plain text", "10.1.2.3", "plain text", "", 1, 5, -1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        SyslogSourceRig rig;
        rig.setDword(u"nConfigVersion", 1);
        rig.setDword(u"nTakeSourceSysFromSyslogMsg", c.takeSource);
        rig.setDword(u"nParseSyslogDate", c.parseDate);
        rig.setDword(u"nRFC3164Parsing", c.rfc3164);
        rig.setString(u"szResource", u"res");
        auto source = rig.make();
        source->LoadConfig();
        auto unit = source->buildUnit(c.message, "10.1.2.3");
        EXPECT_EQ(prop(*unit, u"source"), c.source);
        EXPECT_EQ(utf16ToUtf8(unit->getMsgText()), c.msg);
        EXPECT_EQ(prop(*unit, u"syslogtag"), c.tag);
        EXPECT_EQ(utf16ToUtf8(unit->getRawMsgText()), c.message);
        EXPECT_EQ(unit->getSyslogFacility(), c.facility);
        EXPECT_EQ(unit->getSyslogPriority(), c.severity);
        EXPECT_EQ(prop(*unit, u"resource"), "res");
        if (c.timeIsParsed >= 0) {
            const int64_t parsed =
                splitSyslogMsg(utf8ToUtf16(c.message + std::string()), true).timestamp;
            EXPECT_EQ(unit->getPropertyTime(u"timereported") == parsed, c.timeIsParsed == 1);
        }
    }
}

// Each invalid UTF-8 byte of a message becomes one replacement character.
TEST(InfoSourceSyslogTest, InvalidUtf8BecomesReplacementCharacters) {
    SyslogSourceRig rig;
    auto source = rig.make();
    source->LoadConfig();
    auto unit = source->buildUnit("<13>a\xff\xc3(b", "p");
    EXPECT_EQ(utf16ToUtf8(unit->getMsgText()), "a\xef\xbf\xbd\xef\xbf\xbd(b");
}

class RunningSource {
  public:
    explicit RunningSource(CInfoSourceSyslog& source) : m_source(source) {
        m_thread = std::thread([this] {
            m_source.OnBeforeRun();
            m_source.Run();
        });
    }
    ~RunningSource() { stop(); }
    uint16_t waitForPort() {
        eventually([this] { return m_source.boundPort() != 0; });
        return m_source.boundPort();
    }
    void stop() {
        if (!m_thread.joinable()) return;
        m_source.setRun(false);
        m_source.wake();
        m_thread.join();
    }

  private:
    CInfoSourceSyslog& m_source;
    std::thread m_thread;
};

CIPAddress loopback(uint16_t port) {
    CIPAddress address;
    EXPECT_TRUE(CIPAddress::fromText("127.0.0.1", port, address));
    return address;
}

// Over UDP and TCP a message becomes a unit (NUL and, with escaping on, control characters
// escaped, the separator too), and the shutdown ends the blocked receive or loop.
TEST(InfoSourceSyslogTest, MessagesBecomeUnitsAndShutdownEndsTheReceive) {
    for (const uint32_t protocol : {0u, 1u}) {
        SCOPED_TRACE(protocol);
        SyslogSourceRig rig;
        uint16_t port = 0;
        {
            CWinSock probe = CWinSock::create(AF_INET, protocol ? SOCK_STREAM : SOCK_DGRAM);
            probe.bind(loopback(0));
            port = probe.localAddress().port();
        }
        rig.setDword(u"nConfigVersion", 1);
        rig.setDword(u"nProtocolType", protocol);
        rig.setDword(u"nListenPort", port);
        rig.setString(u"szMyIPAddress", u"127.0.0.1");
        rig.setDword(u"nEscapeControlCharacters", 1);
        rig.setDword(u"nEnableTCPMsgSep", 1);
        rig.setString(u"szTCPMsgSep", u"\\n");
        auto source = rig.make();
        ASSERT_TRUE(source->LoadConfig());
        RunningSource running(*source);
        ASSERT_EQ(running.waitForPort(), port);
        CWinSock sender = CWinSock::create(AF_INET, protocol ? SOCK_STREAM : SOCK_DGRAM);
        const std::string message("<13>a\0b\tc\n", 10);
        if (protocol)
            ASSERT_TRUE(sender.connect(loopback(port)) && sender.sendAll(message));
        else
            ASSERT_GT(sender.sendTo(message.data(), int(message.size()), loopback(port)), 0);
        auto unit = rig.waitForUnit();
        ASSERT_NE(unit, nullptr);
        EXPECT_EQ(utf16ToUtf8(unit->getMsgText()), "a<000>b<009>c<010>");
        EXPECT_EQ(prop(*unit, u"source"), "127.0.0.1");
        running.stop();  // returns only when Run has ended
    }
}

// A port already taken, and RFC 3195 (not built): reported, and Run returns at once.
TEST(InfoSourceSyslogTest, SourcesThatCannotListenReportAndReturn) {
    CWinSock holder = CWinSock::create(AF_INET, SOCK_DGRAM);
    holder.bind(loopback(0));
    for (uint32_t protocol : {0u, 3u}) {
        SyslogSourceRig rig;
        rig.setDword(u"nConfigVersion", 1);
        rig.setDword(u"nProtocolType", protocol);
        rig.setDword(u"nListenPort", holder.localAddress().port());
        rig.setString(u"szMyIPAddress", u"127.0.0.1");
        auto source = rig.make();
        ASSERT_TRUE(source->LoadConfig());
        DebugCapture capture;
        source->Run();
        EXPECT_EQ(source->boundPort(), 0);
        EXPECT_NE(capture.text().find(protocol == 0 ? "Can't bind to socket"
                                                    : "can't initialize RFC3195 lib."),
                  std::string::npos)
            << protocol;
    }
}

}  // namespace
