#pragma once
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "model/info_unit.h"
#include "net/win_sock.h"

namespace vt::test {

// A unit as a syslog source would make it.
std::unique_ptr<CInfoUnit> makeForwardUnit(std::u16string_view msg, int32_t facility = 1,
                                           int32_t severity = 5,
                                           std::u16string_view source = u"host1",
                                           std::u16string_view tag = u"app");

// Values of one action key, written for a test.
struct ActionValues {
    std::vector<std::pair<std::u16string, uint32_t>> dwords;
    std::vector<std::pair<std::u16string, std::u16string>> strings;
};
void writeActionKey(const std::u16string& key, const ActionValues& values);

// A TCP peer on loopback that keeps, per accepted connection, every byte it received. Runs on
// threads of its own; dropConnections() closes what is open, as a restarting server would.
class StreamSink {
  public:
    explicit StreamSink(const char* address = "127.0.0.1");
    ~StreamSink();
    StreamSink(const StreamSink&) = delete;
    StreamSink& operator=(const StreamSink&) = delete;

    uint16_t port() const { return m_port; }
    // The bytes of every connection so far, in the order they were accepted.
    std::vector<std::string> streams();
    std::string allBytes();
    size_t closedByPeer();
    void dropConnections();
    // Waits until `predicate()` holds (checked on every change) or 20 s have passed.
    template <class Predicate>
    bool waitUntil(Predicate predicate,
                   std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        std::unique_lock lock(m_lock);
        return m_changed.wait_for(lock, limit, [&] { return predicate(); });
    }
    bool waitForBytes(size_t total);
    bool waitForClosed(size_t count);

  private:
    struct Connection {
        CWinSock socket;
        std::string bytes;
        bool closedByPeer = false;
        bool dropped = false;
        std::thread reader;
    };
    void acceptLoop();
    void readLoop(Connection* connection);
    size_t totalLocked() const;

    CWinSock m_listener;
    uint16_t m_port = 0;
    std::atomic<bool> m_stop{false};
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<std::unique_ptr<Connection>> m_connections;  // guarded by m_lock
    std::thread m_acceptor;
};

// A UDP peer on loopback with a buffer large enough for the largest datagram.
class DatagramSink {
  public:
    explicit DatagramSink(const char* address = "127.0.0.1");
    uint16_t port() const { return m_port; }
    // The next datagram, or false after timeoutMs without one.
    bool receive(std::string& datagram, int timeoutMs = 5000);

  private:
    CWinSock m_socket;
    uint16_t m_port = 0;
};

// zlib inflation of a "z" payload (without the marker); empty on failure.
std::string inflateStream(std::string_view stream);

}  // namespace vt::test
