#include "base/net/stream_client.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "base/net/win_sock.h"
#include "base/net/socket_test_helper.h"

namespace {

// A server that accepts one connection, sends its script in the given pieces (so lines arrive
// split across receives) and then closes, or keeps the connection open without a word.
class ScriptedServer {
  public:
    ScriptedServer(std::vector<std::string> pieces, bool closeAfter) {
        m_listener = CWinSock::create(AF_INET, SOCK_STREAM);
        m_listener.bind(vt::test::loopback("127.0.0.1", 0));
        m_listener.listen(1);
        m_thread = std::thread([this, pieces = std::move(pieces), closeAfter] {
            CWinSock peer = m_listener.accept(nullptr);
            for (const std::string& piece : pieces) {
                peer.sendAll(piece);
                std::this_thread::yield();
            }
            char sink[64];
            if (!closeAfter) peer.receive(sink, sizeof sink);  // until the client closes
        });
    }
    ~ScriptedServer() { m_thread.join(); }
    uint16_t port() const { return m_listener.localAddress().port(); }

  private:
    CWinSock m_listener;
    std::thread m_thread;
};

// Lines split across receives, both line ends, an over-long line cut with its rest skipped,
// and a server that closes in the middle of a line: each a fault a dialogue parser would
// otherwise inherit.
TEST(StreamClient, ReadsLinesAcrossReceives) {
    ScriptedServer server({"220 mail.exa", "mple ESMTP\r\n250-one\n250 ", "two\r\n",
                           std::string(100, 'x') + "\r\nnext\r\npartial"},
                          true);
    CStreamClient client;
    ASSERT_TRUE(client.open("127.0.0.1", server.port(), 5000));
    std::string line;
    const std::vector<std::string> expected = {"220 mail.example ESMTP", "250-one", "250 two",
                                               std::string(10, 'x'), "next"};
    for (const std::string& want : expected) {
        ASSERT_TRUE(client.readLine(line, want == expected[3] ? 10 : 8192));
        EXPECT_EQ(line, want);
    }
    EXPECT_FALSE(client.readLine(line));
    EXPECT_EQ(client.lastError(), vt::net::SOCKERR_CONNRESET);
}

// A server that accepts and never answers must not hold the caller beyond the time-out.
TEST(StreamClient, SilentServerTimesOut) {
    ScriptedServer server({}, false);
    CStreamClient client;
    ASSERT_TRUE(client.open("127.0.0.1", server.port(), 200));
    std::string line;
    EXPECT_FALSE(client.readLine(line));
    EXPECT_EQ(client.lastError(), vt::net::SOCKERR_TIMEDOUT);
    client.close();
}

TEST(StreamClient, ConnectFailuresCarrySocketErrors) {
    CStreamClient client;
    EXPECT_FALSE(client.open("name.that.does.not.resolve.invalid", 25, 2000));
    EXPECT_EQ(client.lastError(), vt::net::SOCKERR_HOST_NOT_FOUND);
    uint16_t freePort;
    {
        CWinSock probe = CWinSock::create(AF_INET, SOCK_STREAM);
        probe.bind(vt::test::loopback("127.0.0.1", 0));
        freePort = probe.localAddress().port();
    }
    EXPECT_FALSE(client.open("127.0.0.1", freePort, 2000));
    EXPECT_EQ(client.lastError(), vt::net::SOCKERR_CONNREFUSED);
}

// A plain server answering a TLS client: the handshake fails with a reason instead of hanging
// or crashing (and the Windows build says it has no TLS).
TEST(StreamClient, TlsAgainstPlainServerFails) {
    ScriptedServer server({"220 plain text, no TLS here\r\n"}, true);
    CStreamClient client;
    ASSERT_TRUE(client.open("127.0.0.1", server.port(), 2000));
    EXPECT_FALSE(client.startTls({"localhost", true, ""}));
    EXPECT_FALSE(client.lastErrorText().empty());
    EXPECT_FALSE(client.isTls());
}

#ifndef _WIN32
// A real TLS server (the openssl tool) with a certificate for "localhost" made by the test:
// trusted through the CA file it succeeds and data flows; a different name or no trust fails
// with the verification result in the text.
TEST(StreamClient, TlsVerifiesCertificateAndName) {
    const auto dir = std::filesystem::temp_directory_path() / "vt_stream_tls";
    std::filesystem::create_directories(dir);
    const std::string d = dir.string();
    ASSERT_EQ(std::system(("openssl req -x509 -newkey rsa:2048 -nodes -days 1 -subj /CN=localhost "
                           "-addext subjectAltName=DNS:localhost -keyout " +
                           d + "/key.pem -out " + d + "/cert.pem >/dev/null 2>&1")
                              .c_str()),
              0);
    uint16_t port;
    {
        CWinSock probe = CWinSock::create(AF_INET, SOCK_STREAM);
        probe.bind(vt::test::loopback("127.0.0.1", 0));
        port = probe.localAddress().port();
    }
    const std::string serve =
        "timeout 30 openssl s_server -quiet -www -naccept 3 -accept 127.0.0.1:" +
        std::to_string(port) + " -cert " + d + "/cert.pem -key " + d +
        "/key.pem </dev/null >/dev/null 2>&1 &";
    ASSERT_EQ(std::system(serve.c_str()), 0);
    CStreamClient client;
    for (int i = 0; i < 100 && !client.open("127.0.0.1", port, 2000); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));  // until it listens
    ASSERT_TRUE(client.isOpen());
    ASSERT_TRUE(client.startTls({"localhost", true, d + "/cert.pem"})) << client.lastErrorText();
    ASSERT_TRUE(client.send("GET / HTTP/1.0\r\n\r\n"));
    std::string line;
    ASSERT_TRUE(client.readLine(line));
    EXPECT_EQ(line.substr(0, 12), "HTTP/1.0 200");
    client.close();

    ASSERT_TRUE(client.open("127.0.0.1", port, 2000));
    EXPECT_FALSE(client.startTls({"wrong.example", true, d + "/cert.pem"}));
    EXPECT_NE(client.lastErrorText().find("hostname mismatch"), std::string::npos)
        << client.lastErrorText();
    ASSERT_TRUE(client.open("127.0.0.1", port, 2000));
    EXPECT_FALSE(client.startTls({"localhost", true, ""}));
    EXPECT_NE(client.lastErrorText().find("certificate verification failed"), std::string::npos);
    std::filesystem::remove_all(dir);
}
#endif

}  // namespace
