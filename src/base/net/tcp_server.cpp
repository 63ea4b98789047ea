#include "base/net/tcp_server.h"

#include <algorithm>
#include <exception>

#include "base/debug_log.h"
#include "base/error_report.h"

using namespace std::chrono;

namespace {
// How often silent connections are looked at: often enough that a drop is late by at most a
// quarter of the message time-out (and never by more than a second), rarely enough that
// thousands of connections cost nothing.
milliseconds sweepInterval(const TcpSilenceRule& rule) {
    if (rule.msgTimeoutMs == 0) return milliseconds(1000);
    return std::clamp(milliseconds(rule.msgTimeoutMs / 4), milliseconds(5), milliseconds(1000));
}
constexpr milliseconds kAcceptPause{100};
constexpr int kMaxAcceptsPerWake = 256;
}  // namespace

class CTCPServer::Sink : public vt::ITcpMessageSink {
  public:
    Sink(CTCPServer& server, CTcpConnection& connection)
        : m_server(server), m_connection(connection) {}
    void onMessage(std::string_view message) override { m_server.deliver(m_connection, message); }

  private:
    CTCPServer& m_server;
    CTcpConnection& m_connection;
};

CTcpConnection::CTcpConnection(CWinSock socket, const CIPAddress& peer, uint64_t id,
                               const vt::TcpFramingSettings& framing)
    : m_socket(std::move(socket)),
      m_peer(peer),
      m_peerText(peer.toText()),
      m_id(id),
      m_framer(framing),
      m_lastData(std::chrono::steady_clock::now()) {}

CTCPServer::CTCPServer(TcpServerSettings settings) : m_settings(std::move(settings)) {}

CTCPServer::~CTCPServer() = default;

void CTCPServer::listen(std::string_view address, uint16_t port) {
    bindSocket(address, port, SOCK_STREAM);
    m_socket.listen(m_settings.backlog);
    m_socket.setNonBlocking(true);
}

void CTCPServer::stop() noexcept {
    m_stop.store(true, std::memory_order_release);
    m_poller.wake();
}

void CTCPServer::setListening(bool on) {
    if (on == m_listening || !m_socket.valid()) return;
    if (on)
        m_listening = m_poller.add(m_socket.handle(), this);
    else {
        m_poller.remove(m_socket.handle());
        m_listening = false;
    }
}

bool CTCPServer::run() {
    if (!m_poller.valid() || !m_socket.valid()) {
        vt::debugPrintf(vt::DBG_ERROR, "CTCPServer|run: no listener or no poller (error %u)\r\n",
                        static_cast<unsigned>(vt::net::socketLastError()));
        return false;
    }
    const size_t readSize = m_settings.framing.separatorMode() ? kSeparatorReadSize
                                                               : vt::CTcpFramer::kReceiveBufferSize;
    m_readBuffer.resize(readSize);
    setListening(true);
    const milliseconds interval = sweepInterval(m_settings.silence);
    Clock::time_point nextSweep = Clock::now() + interval;
    vt::net::CSocketPoller::Event events[128];
    bool ok = true;
    while (!stopRequested()) {
        Clock::time_point deadline = nextSweep;
        // Paused after an accept failure: resume on time. (A full table resumes on a close.)
        if (!m_listening && m_listenPausedUntil > Clock::now() && m_listenPausedUntil < deadline)
            deadline = m_listenPausedUntil;
        const auto wait = duration_cast<milliseconds>(deadline - Clock::now()).count();
        const int n = m_poller.wait(events, static_cast<int>(std::max<int64_t>(wait, 0)));
        if (n < 0) {
            vt::debugPrintf(vt::DBG_ERROR, "CTCPServer|run: wait failed, error %u\r\n",
                            static_cast<unsigned>(vt::net::socketLastError()));
            ok = false;
            break;
        }
        const Clock::time_point now = Clock::now();
        for (int i = 0; i < n && !stopRequested(); ++i) {
            void* context = events[i].context;
            if (context == nullptr) continue;  // woken
            if (context == this) {
                acceptConnections(now);
                continue;
            }
            auto* connection = static_cast<CTcpConnection*>(context);
            if (!connection->m_closing) readConnection(*connection, now);
        }
        if (now >= nextSweep) {
            sweepSilent(now);
            nextSweep = now + interval;
        }
        removeClosed();
        resumeListening(now);
    }
    for (auto& connection : m_connections)
        if (!connection->m_closing) closeConnection(*connection);
    removeClosed();
    setListening(false);
    return ok;
}

void CTCPServer::acceptConnections(Clock::time_point now) {
    for (int i = 0; i < kMaxAcceptsPerWake; ++i) {
        if (m_connections.size() >= m_settings.maxConnections) {
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "CTCPServer|accept: %lu connections open, new ones wait\r\n",
                            static_cast<unsigned long>(m_connections.size()));
            setListening(false);
            return;
        }
        CIPAddress peer;
        CWinSock socket = m_socket.accept(&peer);
        if (!socket.valid()) {
            const uint32_t error = m_socket.lastError();
            if (vt::net::isWouldBlock(error) || error == vt::net::SOCKERR_CONNABORTED ||
                error == vt::net::SOCKERR_CONNRESET)
                return;
            // Out of descriptors or buffers: stop listening for a moment instead of spinning
            // on a listener that stays readable.
            vt::debugPrintf(vt::DBG_ERROR, "CTCPServer|accept: failed with error %u\r\n",
                            static_cast<unsigned>(error));
            setListening(false);
            m_listenPausedUntil = now + kAcceptPause;
            return;
        }
        socket.setNonBlocking(true);
        auto connection = std::unique_ptr<CTcpConnection>(
            new CTcpConnection(std::move(socket), peer, m_nextId++, m_settings.framing));
        connection->m_lastData = now;
        connection->m_accepted = now;
        if (m_settings.tls)
            connection->m_tls = std::make_unique<vt::net::CTlsStream>(*m_settings.tls);
        if (!m_poller.add(connection->m_socket.handle(), connection.get())) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CTCPServer|accept: can't watch connection, error %u\r\n",
                            static_cast<unsigned>(vt::net::socketLastError()));
            continue;
        }
        vt::debugWrite(vt::DBG_ULTRA, "ENTER CTCPServerHelper::ReceiveLoop\r\n");
        m_connections.push_back(std::move(connection));
        m_connectionCount = m_connections.size();
    }
}

void CTCPServer::deliver(CTcpConnection& connection, std::string_view message) {
    try {
        OnReceive(connection, message);
    } catch (CErrorReport* report) {
        std::unique_ptr<CErrorReport> owned(report);
        vt::debugPrintf(vt::DBG_ERROR, "CTCPServer|OnReceive: error %u '%s'\r\n",
                        static_cast<unsigned>(owned->getErrorCode()),
                        owned->getMessage().getStringA());
    } catch (const std::exception& e) {
        vt::debugPrintf(vt::DBG_ERROR, "CTCPServer|OnReceive: exception '%s'\r\n", e.what());
    }
}

void CTCPServer::readConnection(CTcpConnection& connection, Clock::time_point now) {
    const int n =
        connection.m_socket.receive(m_readBuffer.data(), static_cast<int>(m_readBuffer.size()));
    if (n > 0) {
        connection.m_lastData = now;
        connection.m_timeouts = 0;
        Sink sink(*this, connection);
        const std::string_view bytes(m_readBuffer.data(), static_cast<size_t>(n));
        if (!connection.m_tls) {
            connection.m_framer.feed(bytes, sink);
            return;
        }
        std::string plain;
        const bool open = decrypt(connection, bytes, plain);
        if (!plain.empty()) connection.m_framer.feed(plain, sink);
        if (!open) {
            if (!connection.m_tls->closed())
                logTlsFailure(connection, connection.m_tls->errorText(), now);
            closeConnection(connection);
        }
        return;
    }
    if (n < 0) {
        const uint32_t error = connection.m_socket.lastError();
        if (vt::net::isWouldBlock(error)) return;
        vt::debugPrintf(vt::DBG_INFO, "CInfoSourceSyslog| ReceiveChar: SOCKET ERROR %d!\r\n",
                        static_cast<int>(error));
    }
    closeConnection(connection);
}

bool CTCPServer::decrypt(CTcpConnection& connection, std::string_view cipher, std::string& plain) {
    const bool open = connection.m_tls->receive(cipher, plain);
    // The handshake answers and alerts are a few kilobytes: they fit the socket's buffer.
    const std::string answer = connection.m_tls->takeOutgoing();
    if (!answer.empty() && !connection.m_socket.sendAll(answer)) return false;
    return open;
}

void CTCPServer::logTlsFailure(const CTcpConnection& connection, const std::string& why,
                               Clock::time_point now) {
    if (m_tlsFailureLogged.size() > 10000) m_tlsFailureLogged.clear();
    auto [it, fresh] = m_tlsFailureLogged.try_emplace(connection.m_peerText, now);
    if (!fresh && now - it->second < minutes(1)) return;
    it->second = now;
    vt::debugPrintf(vt::DBG_MINIMUM,
                    "CTCPServer|TLS: connection from %s refused: %s (further failures of this "
                    "peer are not logged for a minute)\r\n",
                    connection.m_peerText.c_str(), why.c_str());
}

void CTCPServer::sweepSilent(Clock::time_point now) {
    const TcpSilenceRule& rule = m_settings.silence;
    for (auto& owned : m_connections) {
        CTcpConnection& connection = *owned;
        if (connection.m_closing) continue;
        if (connection.m_tls && !connection.m_tls->handshakeDone() &&
            now - connection.m_accepted > milliseconds(m_settings.tlsHandshakeTimeoutMs)) {
            logTlsFailure(connection, "no TLS handshake within the time-out", now);
            closeConnection(connection);
            continue;
        }
        const auto silent = duration_cast<milliseconds>(now - connection.m_lastData).count();
        const uint32_t timeouts =
            rule.timeoutsAfter(static_cast<uint64_t>(std::max<int64_t>(silent, 0)));
        while (connection.m_timeouts < timeouts) {
            ++connection.m_timeouts;
            if (rule.givesUp(connection.m_timeouts)) break;
            vt::debugPrintf(vt::DBG_ULTRA,
                            "CInfoSourceSyslog| ReceiveChar: Receive Timeout (error %d), keep "
                            "trying!\r\n",
                            static_cast<int>(vt::net::SOCKERR_TIMEDOUT));
        }
        if (rule.givesUp(connection.m_timeouts)) {
            vt::debugPrintf(vt::DBG_INFO,
                            "CTCPServer|ReceiveLoop: connection from %s silent for %u time-outs, "
                            "closed\r\n",
                            connection.m_peerText.c_str(),
                            static_cast<unsigned>(connection.m_timeouts));
            closeConnection(connection);
        }
    }
}

void CTCPServer::resumeListening(Clock::time_point now) {
    if (!m_listening && !stopRequested() && now >= m_listenPausedUntil &&
        m_connections.size() < m_settings.maxConnections)
        setListening(true);
}

void CTCPServer::closeConnection(CTcpConnection& connection) {
    if (connection.m_closing) return;
    connection.m_closing = true;
    Sink sink(*this, connection);
    connection.m_framer.finish(sink);
    m_poller.remove(connection.m_socket.handle());
    connection.m_socket.close();
    onConnectionClosed(connection);
    vt::debugWrite(vt::DBG_ULTRA, "EXIT CTCPServerHelper::ReceiveLoop\r\n");
    m_anyClosed = true;
}

void CTCPServer::removeClosed() {
    if (!m_anyClosed) return;
    m_anyClosed = false;
    for (size_t i = 0; i < m_connections.size();) {
        if (!m_connections[i]->m_closing) {
            ++i;
            continue;
        }
        if (i + 1 != m_connections.size()) std::swap(m_connections[i], m_connections.back());
        m_connections.pop_back();
    }
    m_connectionCount = m_connections.size();
}
