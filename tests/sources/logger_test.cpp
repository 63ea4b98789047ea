// A real sender: util-linux logger over UDP and TCP. Linux only.
#ifndef _WIN32
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "platform/utf_codec.h"
#include "sources/socket_test_helper.h"
#include "sources/syslog/syslog_server.h"

namespace {

bool haveLogger() {
    return std::system("logger --version >/dev/null 2>&1") == 0;
}

int runLogger(const std::string& transport, uint16_t port, const std::string& text) {
    const std::string command = "logger --rfc3164 -n 127.0.0.1 -P " + std::to_string(port) + " " +
                                transport + " -p local3.warning -t vttest '" + text + "'";
    return std::system(command.c_str());
}

TEST(Logger, UdpDatagramIsSplit) {
    if (!haveLogger()) GTEST_SKIP() << "logger is not installed";
    CSyslogServer server;
    server.open("127.0.0.1", 0);
    ASSERT_EQ(runLogger("-d", server.localPort(), "hello over udp"), 0);
    std::string message;
    CIPAddress sender;
    ASSERT_EQ(server.receiveMessage(message, sender, 10000), CUDPServer::Result::Message);
    const vt::SyslogParts& p = server.splitSyslogMsg(vt::utf8ToUtf16(message));
    EXPECT_EQ(p.facility, 19u);  // local3
    EXPECT_EQ(p.severity, 4u);   // warning
    EXPECT_TRUE(p.timestampParsed);
    EXPECT_FALSE(p.host.empty());
    EXPECT_EQ(p.tag.view(), u"vttest");
    EXPECT_EQ(p.msg.view(), u"vttest: hello over udp");
}

TEST(Logger, TcpStreamIsFramedByLineFeed) {
    if (!haveLogger()) GTEST_SKIP() << "logger is not installed";
    TcpServerSettings settings;
    settings.framing = vt::TcpFramingSettings::fromConfig(true, u"\\n", false);
    vt::test::RecordingTcpServer server(settings);
    server.start("127.0.0.1");
    ASSERT_EQ(runLogger("-T", server.localPort(), "first over tcp"), 0);
    ASSERT_EQ(runLogger("-T", server.localPort(), "second over tcp"), 0);
    ASSERT_TRUE(server.waitForMessages(2));
    const auto received = server.received();
    for (size_t i = 0; i < 2; ++i) {
        CSyslogServer splitter;
        const vt::SyslogParts& p = splitter.splitSyslogMsg(vt::utf8ToUtf16(received[i].message));
        EXPECT_EQ(p.facility, 19u);
        EXPECT_EQ(p.tag.view(), u"vttest");
        EXPECT_EQ(p.msg.view(),
                  i == 0 ? u"vttest: first over tcp\n" : u"vttest: second over tcp\n");
    }
}

}  // namespace
#endif
