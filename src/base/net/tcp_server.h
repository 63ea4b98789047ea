#pragma once
#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/net/ip.h"
#include "base/net/tcp_framer.h"
#include "platform/socket_api.h"
#include "platform/tls_stream.h"

// When a silent connection is given up. Each "nTimeOutMsg" of silence counts as one receive
// time-out; the connection is dropped at the first time-out whose count times "nTimeOutMsg"
// exceeds "nTimeOutSession" (61 with 15000 and 900000). Data resets the count. A message
// time-out of 0 waits for ever, as a receive time-out of 0 does.
struct TcpSilenceRule {
    uint32_t msgTimeoutMs = 15000;
    uint32_t sessionTimeoutMs = 900000;

    uint32_t timeoutsAfter(uint64_t silentMs) const noexcept {
        return msgTimeoutMs ? static_cast<uint32_t>(silentMs / msgTimeoutMs) : 0;
    }
    bool givesUp(uint32_t timeouts) const noexcept {
        return msgTimeoutMs && uint64_t(timeouts) * msgTimeoutMs > sessionTimeoutMs;
    }
    // Silence after which the connection is dropped; 0 when never.
    uint64_t dropAfterMs() const noexcept {
        return msgTimeoutMs ? (uint64_t(sessionTimeoutMs) / msgTimeoutMs + 1) * msgTimeoutMs : 0;
    }
};

struct TcpServerSettings {
    TcpSilenceRule silence;
    vt::TcpFramingSettings framing;
    // Set: every connection is a TLS session of this context.
    std::shared_ptr<const vt::net::CTlsContext> tls;
    // A TLS handshake not done after this long is given up (a peer that connects and stalls).
    uint32_t tlsHandshakeTimeoutMs = 10000;
    int backlog = SOMAXCONN;
    // Above this many open connections new ones wait in the backlog.
    size_t maxConnections = 65536;
};

// One accepted connection. Lives on the server's loop thread only.
class CTcpConnection {
  public:
    const std::string& peerText() const noexcept { return m_peerText; }
    const CIPAddress& peer() const noexcept { return m_peer; }
    uint64_t id() const noexcept { return m_id; }

  private:
    friend class CTCPServer;
    CTcpConnection(CWinSock socket, const CIPAddress& peer, uint64_t id,
                   const vt::TcpFramingSettings& framing);

    CWinSock m_socket;
    CIPAddress m_peer;
    std::string m_peerText;
    uint64_t m_id;
    vt::CTcpFramer m_framer;
    std::unique_ptr<vt::net::CTlsStream> m_tls;
    std::chrono::steady_clock::time_point m_accepted;
    std::chrono::steady_clock::time_point m_lastData;
    uint32_t m_timeouts = 0;
    bool m_closing = false;
};

// TCP listener with one event loop (epoll on Linux, WSAPoll on Windows) that serves every
// connection of the listener on the thread that calls run(). An idle connection costs its
// socket and poll entry in the kernel and about 300 bytes here (this object; the framer holds
// no buffer while no message is pending), so thousands of quiet senders are cheap. Reads are
// large (256 KiB in separator mode; 32 KiB when each receive is one message, as that mode
// means) and messages that lie whole in one read reach OnReceive without a copy. OnReceive
// runs on the loop thread: while it blocks (a full queue) no connection is read, and TCP
// flow control holds the senders back, so nothing is lost.
//
// stop() may be called from any thread: it wakes the loop, which delivers every pending
// non-empty message, closes all connections and returns from run().
class CTCPServer : public CIP {
  public:
    static constexpr size_t kSeparatorReadSize = 262144;

    explicit CTCPServer(TcpServerSettings settings = {});
    ~CTCPServer() override;

    // Settings take effect for the next run().
    void setSettings(const TcpServerSettings& settings) { m_settings = settings; }
    const TcpServerSettings& settings() const noexcept { return m_settings; }

    // Binds and listens; throws CWinSockError* on failure.
    void listen(std::string_view address, uint16_t port);
    // Serves connections until stop(); returns false when the loop could not run.
    bool run();
    // A stop() that comes before run() (even before listen()) still ends it at once.
    void stop() noexcept;
    // Only for an owner that deliberately runs the loop again after a stop.
    void clearStop() noexcept { m_stop.store(false, std::memory_order_release); }
    bool stopRequested() const noexcept { return m_stop.load(std::memory_order_acquire); }
    size_t connectionCount() const noexcept { return m_connectionCount.load(); }

  protected:
    // One complete message of a connection; the bytes are valid only during the call. May
    // throw a CErrorReport*: it is logged and the connection goes on.
    virtual void OnReceive(const CTcpConnection& connection, std::string_view message) = 0;
    virtual void onConnectionClosed(const CTcpConnection&) {}

  private:
    class Sink;
    using Clock = std::chrono::steady_clock;

    void acceptConnections(Clock::time_point now);
    void readConnection(CTcpConnection& connection, Clock::time_point now);
    void sweepSilent(Clock::time_point now);
    void closeConnection(CTcpConnection& connection);
    void removeClosed();
    void setListening(bool on);
    // Listens again after a pause for lack of descriptors or a full connection table.
    void resumeListening(Clock::time_point now);
    void deliver(CTcpConnection& connection, std::string_view message);
    // Decrypts what a TLS connection read and answers the handshake; false when it must close.
    bool decrypt(CTcpConnection& connection, std::string_view cipher, std::string& plain);
    // One line per peer and minute, however often a misconfigured sender retries.
    void logTlsFailure(const CTcpConnection& connection, const std::string& why,
                       Clock::time_point now);

    TcpServerSettings m_settings;
    vt::net::CSocketPoller m_poller;
    std::vector<std::unique_ptr<CTcpConnection>> m_connections;
    std::vector<char> m_readBuffer;
    std::atomic<bool> m_stop{false};
    std::atomic<size_t> m_connectionCount{0};
    uint64_t m_nextId = 1;
    bool m_listening = false;
    bool m_anyClosed = false;
    Clock::time_point m_listenPausedUntil{};
    std::map<std::string, Clock::time_point> m_tlsFailureLogged;  // by peer address
};
