#pragma once
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "base/net/tcp_server.h"
#include "base/net/win_sock.h"

namespace vt::test {

// A TCP server that records every message with its peer, and runs its loop on a thread of
// its own for the life of the object.
class RecordingTcpServer : public CTCPServer {
  public:
    struct Received {
        std::string peer;
        uint64_t connection;
        std::string message;
        size_t closedBefore;  // connections closed when the message arrived
    };

    explicit RecordingTcpServer(TcpServerSettings settings = {})
        : CTCPServer(std::move(settings)) {}
    ~RecordingTcpServer() override { stopAndJoin(); }

    void start(const char* address) {
        listen(address, 0);
        m_thread = std::thread([this] { m_runResult = run(); });
    }
    void stopAndJoin() {
        stop();
        if (m_thread.joinable()) m_thread.join();
    }
    bool runResult() const { return m_runResult; }

    // Waits until `predicate(received, closedCount)` holds or the time is up.
    template <class Predicate>
    bool waitUntil(Predicate predicate,
                   std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, limit, [&] { return predicate(m_received, m_closed); });
    }
    bool waitForMessages(size_t count) {
        return waitUntil([&](const auto& r, size_t) { return r.size() >= count; });
    }
    std::vector<Received> received() {
        std::lock_guard lock(m_lock);
        return m_received;
    }

  protected:
    void OnReceive(const CTcpConnection& connection, std::string_view message) override {
        std::lock_guard lock(m_lock);
        m_received.push_back(
            {connection.peerText(), connection.id(), std::string(message), m_closed});
        m_changed.notify_all();
    }
    void onConnectionClosed(const CTcpConnection&) override {
        std::lock_guard lock(m_lock);
        ++m_closed;
        m_changed.notify_all();
    }

  private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<Received> m_received;
    size_t m_closed = 0;
    std::thread m_thread;
    bool m_runResult = false;
};

inline CIPAddress loopback(const char* address, uint16_t port) {
    CIPAddress a;
    CIPAddress::fromText(address, port, a);
    return a;
}

inline CWinSock connectTo(const char* address, uint16_t port) {
    const CIPAddress target = loopback(address, port);
    CWinSock s = CWinSock::create(target.family(), SOCK_STREAM);
    if (!s.connect(target)) s.close();
    return s;
}

}  // namespace vt::test
