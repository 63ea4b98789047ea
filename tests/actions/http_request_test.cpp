#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "actions/actions_test_helper.h"

namespace vt::test {
namespace {

// One request to a server on loopback that answers `reply` and keeps what it was sent.
class OneShotHttpServer {
  public:
    explicit OneShotHttpServer(std::string reply) {
        m_listener = CWinSock::create(AF_INET, SOCK_STREAM);
        CIPAddress any;
        CIPAddress::fromText("127.0.0.1", 0, any);
        m_listener.bind(any);
        m_listener.listen(1);
        m_thread = std::thread([this, reply] {
            CWinSock peer = m_listener.accept(nullptr);
            char buffer[4096];
            while (m_request.find("\r\n\r\n") == std::string::npos) {
                const int n = peer.receive(buffer, sizeof buffer);
                if (n <= 0) break;
                m_request.append(buffer, static_cast<size_t>(n));
            }
            peer.sendAll(reply);
        });
    }
    ~OneShotHttpServer() { join(); }
    void join() {
        if (m_thread.joinable()) m_thread.join();
    }
    uint16_t port() const { return m_listener.localAddress().port(); }
    const std::string& request() { return join(), m_request; }

  private:
    CWinSock m_listener;
    std::thread m_thread;
    std::string m_request;
};

class HttpRequestTest : public testing::Test {
  protected:
    ScopedRegistry registry;
    std::u16string key = registry.base() + u"\\A1";
    CConfigSettings settings;

    uint8_t send(uint16_t port, std::u16string_view msg) {
        regSetString(key, u"szHost", u"127.0.0.1");
        regSetDword(key, u"nPort", port);
        regSetString(key, u"szUrl", u"/alert?host=%source%&text=%msg%");
        regSetString(key, u"szUserAgent", u"agent %msg%");
        auto entry = loadAction(key, 1024);
        auto unit = makeForwardUnit(msg);
        entry->CallAction(*unit, settings);
        return unit->getActionFailed();
    }
};

// Message text cannot leave the configured path or add a header: it is percent-encoded in the
// URL and loses its line ends in a header. Any status is done, even 404.
TEST_F(HttpRequestTest, UnitTextStaysInsideTheConfiguredRequest) {
    OneShotHttpServer server("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(send(server.port(), u"../../etc/passwd?a=1&b\r\nX-Evil: 1 \u00e9"), 0);
    EXPECT_EQ(server.request(),
              "GET /alert?host=host1&text=..%2F..%2Fetc%2Fpasswd%3Fa%3D1%26b%0D%0AX-Evil%3A%201%20"
              "%C3%A9 HTTP/1.1\r\nHost: 127.0.0.1:" +
                  std::to_string(server.port()) +
                  "\r\nUser-Agent: agent ../../etc/passwd?a=1&b  X-Evil: 1 \xc3\xa9\r\n"
                  "Connection: close\r\n\r\n");
}

// No server, or one that answers no HTTP, fails the action so the retry rules apply.
TEST_F(HttpRequestTest, NoStatusFailsTheAction) {
    OneShotHttpServer garbage("SSH-2.0-not-a-web-server\r\n");
    EXPECT_EQ(send(garbage.port(), u"x"), 1);
    uint16_t closed;
    {
        CWinSock unused = CWinSock::create(AF_INET, SOCK_STREAM);
        CIPAddress any;
        CIPAddress::fromText("127.0.0.1", 0, any);
        unused.bind(any);
        closed = unused.localAddress().port();
    }
    EXPECT_EQ(send(closed, u"x"), 1);
}

}  // namespace
}  // namespace vt::test
