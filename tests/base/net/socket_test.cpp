#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/net/socket_test_helper.h"
#include "base/net/udp_server.h"
#include "common/registry_fixture.h"
#include "sources/syslog/syslog_server.h"

namespace {

using vt::test::connectTo;
using vt::test::loopback;
using vt::test::RecordingTcpServer;
using vt::test::thrownReport;

class LoopbackTest : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(Families, LoopbackTest, testing::Values("127.0.0.1", "::1"),
                         [](const auto& info) {
                             return std::string(info.param[0] == ':' ? "IPv6" : "IPv4");
                         });

vt::TcpFramingSettings lineFraming() {
    return vt::TcpFramingSettings::fromConfig(true, u"\\n", false);
}

CWinSock udpClient(const char* address) {
    return CWinSock::create(loopback(address, 0).family(), SOCK_DGRAM);
}

// Catches a wrong sender, unescaped NUL, a broken "z" datagram that stops reception, or a long
// datagram not cut (inflating the good ones is checked with a real sender end to end).
TEST_P(LoopbackTest, UdpServerReceivesDatagrams) {
    CSyslogServer server;
    server.open(GetParam(), 0);
    ASSERT_NE(server.localPort(), 0);
    const CIPAddress target = loopback(GetParam(), server.localPort());
    CWinSock client = udpClient(GetParam());

    const std::string plain = "<13>Jan  5 10:20:30 host1 app: hello";
    ASSERT_EQ(client.sendTo(plain.data(), int(plain.size()), target), int(plain.size()));
    std::string message;
    CIPAddress sender;
    ASSERT_EQ(server.receiveMessage(message, sender, 5000), CUDPServer::Result::Message);
    EXPECT_EQ(message, plain);
    EXPECT_EQ(sender.toText(), GetParam());
    EXPECT_EQ(sender.port(), client.localAddress().port());

    const std::string withNul("a\0b", 3);
    client.sendTo(withNul.data(), 3, target);
    ASSERT_EQ(server.receiveMessage(message, sender, 5000), CUDPServer::Result::Message);
    EXPECT_EQ(message, "a<000>b");

    client.sendTo("zgarbage", 8, target);
    EXPECT_EQ(server.receiveMessage(message, sender, 5000), CUDPServer::Result::Dropped);

    // A datagram longer than the buffer arrives cut to 32,767 bytes, on both systems.
    const std::string big(40000, 'x');
    ASSERT_EQ(client.sendTo(big.data(), int(big.size()), target), int(big.size()));
    ASSERT_EQ(server.receiveMessage(message, sender, 5000), CUDPServer::Result::Message);
    EXPECT_EQ(message.size(), CUDPServer::kBufferSize - 1);
}

// A stop that comes before the loop starts is not forgotten: the source thread may be told to
// stop while it is still setting up.
TEST(TcpServer, StopBeforeListenEndsRunAtOnce) {
    RecordingTcpServer server;
    server.stop();
    server.listen("127.0.0.1", 0);
    EXPECT_TRUE(server.run());
    server.clearStop();
    std::thread loop([&] { server.run(); });
    CWinSock client = connectTo("127.0.0.1", server.localPort());
    ASSERT_TRUE(client.sendAll("again"));
    EXPECT_TRUE(server.waitForMessages(1));
    server.stop();
    loop.join();
}

// A port beyond 65535 falls back to the given one; 0 asks the services database.
TEST(SyslogListenPort, SettingLookupAndFallback) {
    EXPECT_EQ(CIP::servicePort("no-such-service-vt", "udp", 4711), 4711);
    EXPECT_EQ(vt::syslogListenPort(10514, 600), 10514);
    EXPECT_EQ(vt::syslogListenPort(65535, 600), 65535);
    EXPECT_EQ(vt::syslogListenPort(65536, 600), 600);
    EXPECT_EQ(vt::syslogListenPort(0, 600), CIP::servicePort("syslog", "udp", 514));
}

// A receive without a server stops at once; a wait times out; a closed server stops; a stop
// before the open is kept; stop() from another thread ends a wait without a time limit,
// whether it comes before or during the wait.
TEST(UdpServer, WaitTimesOutAndStopsAreKept) {
    CUDPServer server;
    std::string message;
    CIPAddress sender;
    EXPECT_EQ(server.receiveMessage(message, sender, -1), CUDPServer::Result::Stopped);
    server.open("127.0.0.1", 0);
    EXPECT_EQ(server.receiveMessage(message, sender, 20), CUDPServer::Result::TimedOut);
    server.close();
    EXPECT_EQ(server.receiveMessage(message, sender, -1), CUDPServer::Result::Stopped);
    CUDPServer early;
    early.stop();
    early.open("127.0.0.1", 0);
    EXPECT_EQ(early.receiveMessage(message, sender, -1), CUDPServer::Result::Stopped);
    CUDPServer blocked;
    blocked.open("127.0.0.1", 0);
    std::thread stopper([&] { blocked.stop(); });
    EXPECT_EQ(blocked.receiveMessage(message, sender, -1), CUDPServer::Result::Stopped);
    stopper.join();
}

// Catches pieces of two connections mixed up, a wrong peer, or a lost unfinished message.
TEST_P(LoopbackTest, TcpServerFramesAndAttributesMessages) {
    TcpServerSettings settings;
    settings.framing = lineFraming();
    RecordingTcpServer server(settings);
    server.start(GetParam());
    CWinSock a = connectTo(GetParam(), server.localPort());
    CWinSock b = connectTo(GetParam(), server.localPort());
    ASSERT_TRUE(a.valid() && b.valid());
    ASSERT_TRUE(a.sendAll("one\ntw"));
    ASSERT_TRUE(b.sendAll("other\n"));
    ASSERT_TRUE(server.waitForMessages(2));
    ASSERT_TRUE(a.sendAll("o\nthree"));
    a.close();  // the unfinished "three" is delivered when the connection ends
    ASSERT_TRUE(server.waitForMessages(4));
    std::vector<std::string> fromA;
    for (const auto& r : server.received()) {
        EXPECT_EQ(r.peer, GetParam());
        if (r.message != "other\n") fromA.push_back(r.message);
    }
    EXPECT_EQ(fromA, (std::vector<std::string>{"one\n", "two\n", "three"}));
    EXPECT_TRUE(server.waitUntil([](const auto&, size_t closed) { return closed == 1; }));
}

// Catches a swallowed bind or address error: a bound port cannot be bound again (the error
// carries the Winsock number and the event log text); after a bad address run() returns.
TEST(TcpServer, BindFailuresAreReported) {
    RecordingTcpServer first;
    first.listen("127.0.0.1", 0);
    RecordingTcpServer second;
    const auto report = thrownReport([&] { second.listen("127.0.0.1", first.localPort()); });
    auto* socketError = dynamic_cast<CWinSockError*>(report.get());
    ASSERT_NE(socketError, nullptr);
    EXPECT_EQ(socketError->getSystemError(), vt::net::SOCKERR_ADDRINUSE);
    EXPECT_EQ(std::string(report->getMessage().getStringA()),
              "Can't bind to socket - please make sure no other service is listening on the "
              "same port/protocol.");
    RecordingTcpServer bad;
    EXPECT_NE(thrownReport([&] { bad.listen("not an address!", 0); }), nullptr);
    EXPECT_FALSE(bad.run());
}

// One loop thread serves a thousand open connections at once.
TEST(TcpServer, ThousandConcurrentConnections) {
    constexpr size_t kConnections = 1000;
    ASSERT_GE(vt::net::raiseOpenSocketLimit(2 * kConnections + 64), 2 * kConnections + 64);
    TcpServerSettings settings;
    settings.framing = lineFraming();
    RecordingTcpServer server(settings);
    server.start("127.0.0.1");
    std::vector<CWinSock> clients;
    clients.reserve(kConnections);
    for (size_t i = 0; i < kConnections; ++i) {
        clients.push_back(connectTo("127.0.0.1", server.localPort()));
        ASSERT_TRUE(clients.back().valid()) << "connection " << i;
    }
    for (size_t i = 0; i < kConnections; ++i)
        ASSERT_TRUE(clients[i].sendAll("message " + std::to_string(i) + "\n"));
    ASSERT_TRUE(server.waitForMessages(kConnections));
    EXPECT_EQ(server.connectionCount(), kConnections);
    std::set<std::string> distinct;
    for (const auto& r : server.received()) distinct.insert(r.message);
    EXPECT_EQ(distinct.size(), kConnections);
    clients.clear();
    EXPECT_TRUE(
        server.waitUntil([&](const auto&, size_t closed) { return closed == kConnections; }));
}

// With the connection table full, a new sender waits in the backlog and is served as soon as
// another connection closes.
TEST(TcpServer, FullTableMakesNewConnectionsWait) {
    TcpServerSettings settings;
    settings.maxConnections = 2;
    settings.framing = lineFraming();
    RecordingTcpServer server(settings);
    server.start("127.0.0.1");
    CWinSock first = connectTo("127.0.0.1", server.localPort());
    CWinSock second = connectTo("127.0.0.1", server.localPort());
    ASSERT_TRUE(first.sendAll("1\n") && second.sendAll("2\n"));
    ASSERT_TRUE(server.waitForMessages(2));
    CWinSock third = connectTo("127.0.0.1", server.localPort());  // completes in the backlog
    ASSERT_TRUE(third.valid() && third.sendAll("3\n"));
    // The loop has polled since the third connection was pending once this message is in.
    ASSERT_TRUE(second.sendAll("2b\n"));
    ASSERT_TRUE(server.waitForMessages(3));
    EXPECT_EQ(server.connectionCount(), 2u);
    first.close();
    ASSERT_TRUE(server.waitForMessages(4));
    const auto received = server.received();
    EXPECT_EQ(received[3].message, "3\n");
    EXPECT_EQ(received[3].closedBefore, 1u);
}

// A sender that stays silent is dropped at the first time-out whose total exceeds the session
// time-out, and what it had sent without separator is delivered first. Each time-out before the
// last is logged as one that is retried.
TEST(TcpServer, SilentConnectionIsDropped) {
    vt::test::DebugCapture log(vt::DBG_INFO | vt::DBG_ULTRA);
    TcpServerSettings settings;
    settings.silence = TcpSilenceRule{40, 100};  // dropped at the third time-out, after 120 ms
    settings.framing = lineFraming();
    RecordingTcpServer server(settings);
    server.start("127.0.0.1");
    CWinSock client = connectTo("127.0.0.1", server.localPort());
    ASSERT_TRUE(client.valid());
    ASSERT_TRUE(client.setSocketTimeOut(10000));
    ASSERT_TRUE(client.sendAll("unfinished"));
    char byte;
    EXPECT_EQ(client.receive(&byte, 1), 0) << "error " << client.lastError();
    ASSERT_TRUE(server.waitForMessages(1));
    EXPECT_EQ(server.received()[0].message, "unfinished");
    server.stopAndJoin();
    const std::string text = log.text();
    EXPECT_EQ(vt::test::countOf(text,
                                "CInfoSourceSyslog| ReceiveChar: Receive Timeout (error "
                                "10060), keep trying!\r\n"),
              2u)
        << text;
    EXPECT_NE(text.find("silent for 3 time-outs, closed"), std::string::npos) << text;
    // Without a message time-out silence is never counted.
    EXPECT_EQ((TcpSilenceRule{0, 1000}.timeoutsAfter(1u << 30)), 0u);
    EXPECT_FALSE((TcpSilenceRule{0, 1000}.givesUp(1000)));
}

// stop() ends run() while connections are open and hands on their unfinished messages.
TEST(TcpServer, StopDeliversPendingAndReturns) {
    TcpServerSettings settings;
    settings.framing = lineFraming();
    RecordingTcpServer server(settings);
    server.start("127.0.0.1");
    CWinSock client = connectTo("127.0.0.1", server.localPort());
    // One small send on loopback arrives in one piece, so once "complete" is seen the
    // server holds "partial" too.
    ASSERT_TRUE(client.sendAll("complete\npartial"));
    ASSERT_TRUE(server.waitForMessages(1));
    server.stopAndJoin();
    EXPECT_TRUE(server.runResult());
    const auto received = server.received();
    ASSERT_EQ(received.size(), 2u);
    EXPECT_EQ(received[0].message, "complete\n");
    EXPECT_EQ(received[1].message, "partial");
    EXPECT_EQ(server.connectionCount(), 0u);
}

// The error numbers of failed calls are Winsock's on both systems.
TEST(WinSock, ErrorNumbers) {
    CWinSock blocking = CWinSock::create(AF_INET, SOCK_DGRAM);
    blocking.bind(loopback("127.0.0.1", 0));
    ASSERT_TRUE(blocking.setSocketTimeOut(50));
    char buffer[16];
    EXPECT_LT(blocking.receive(buffer, sizeof buffer), 0);
    EXPECT_EQ(blocking.lastError(), vt::net::SOCKERR_TIMEDOUT);

    // A port that was just free: nobody listens there.
    uint16_t freePort;
    {
        CWinSock probe = CWinSock::create(AF_INET, SOCK_STREAM);
        probe.bind(loopback("127.0.0.1", 0));
        freePort = probe.localAddress().port();
    }
    CWinSock client = CWinSock::create(AF_INET, SOCK_STREAM);
    EXPECT_FALSE(client.connect(loopback("127.0.0.1", freePort)));
    EXPECT_EQ(client.lastError(), vt::net::SOCKERR_CONNREFUSED);
}

// interrupt() from another thread ends a receive, whether it is already blocked or not.
TEST(WinSock, InterruptEndsBlockedReceive) {
    RecordingTcpServer server;
    server.start("127.0.0.1");
    CWinSock client = connectTo("127.0.0.1", server.localPort());
    std::atomic<int> result{1};
    std::thread reader([&] {
        char byte;
        result = client.receive(&byte, 1);
    });
    client.interrupt();
    reader.join();
    EXPECT_LE(result.load(), 0);
}

// Address texts of both families, bracketed and mapped forms, and their shown text.
TEST(CIPAddressText, Forms) {
    struct {
        const char* text;
        const char* shown;
        int family;
    } cases[] = {
        {"0.0.0.0", "0.0.0.0", AF_INET},
        {"", "0.0.0.0", AF_INET},
        {"::", "::", AF_INET6},
        {"[::1]", "::1", AF_INET6},
        {"::ffff:10.1.2.3", "10.1.2.3", AF_INET6},
        {"192.168.0.1", "192.168.0.1", AF_INET},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        CIPAddress a;
        ASSERT_TRUE(CIPAddress::fromText(c.text, 514, a));
        EXPECT_EQ(a.toText(), c.shown);
        EXPECT_EQ(a.family(), c.family);
        EXPECT_EQ(a.port(), 514);
    }
    CIPAddress a;
    EXPECT_FALSE(CIPAddress::fromText("999.1.1.1.1", 1, a));
}

// Binding "::" takes IPv4 senders as well; they show as dotted IPv4 text.
TEST(TcpServer, DualStackListenerShowsIPv4Peers) {
    RecordingTcpServer server;
    server.start("::");
    CWinSock client = connectTo("127.0.0.1", server.localPort());
    ASSERT_TRUE(client.valid());
    ASSERT_TRUE(client.sendAll("x"));
    ASSERT_TRUE(server.waitForMessages(1));
    EXPECT_EQ(server.received()[0].peer, "127.0.0.1");
}

}  // namespace
