#include "actions/send_syslog/syslog_client.h"

#include <cstdarg>
#include <cstdio>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"

using vt::SyslogTransport;

namespace {
constexpr uint32_t kSendErrorId = 119;

[[noreturn]] void throwReport(uint32_t error, const char* format, ...)
    __attribute__((format(printf, 2, 3)));

void throwReport(uint32_t error, const char* format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    vt::debugPrintf(vt::DBG_ERROR, "%s\r\n", text);
    throw new CWinSockError(kSendErrorId, CQuilletString(std::string_view(text)), error);
}
}  // namespace

void CSyslogClient::setServer(const CQuilletString& server, uint16_t port,
                              SyslogTransport transport) {
    m_server = server.getStringA();
    m_port = port;
    m_transport = transport;
    m_resolved = false;
}

void CSyslogClient::setCompression(bool on, int level, int32_t spoofIPAddress) noexcept {
    m_compress = on;
    m_compressionLevel = level;
    m_spoofIPAddress = spoofIPAddress;
}

void CSyslogClient::resolveTarget(int socketType, std::vector<CIPAddress>& targets) {
    if (m_server.empty())
        throwReport(vt::net::SOCKERR_ADDRNOTAVAIL,
                    "CSyslogClient::open No syslog server configured - message not sent.");
    int error = 0;
    if (!CIPClient::resolve(m_server, m_port, socketType, targets, error))
        throwReport(static_cast<uint32_t>(error),
                    "CSyslogClient::open Could not resolve syslog server '%s' (error %d) - "
                    "message not sent.",
                    m_server.c_str(), error);
}

void CSyslogClient::open() {
    switch (m_transport) {
        case SyslogTransport::Rfc3195:
            throwReport(0,
                        "CSyslogClient::openSession Error in tallyAPIInitLib. Can not initialize "
                        "RFC3195 session. (RFC 3195 transport is not available in this build.)");
        case SyslogTransport::Tcp:
            connectTcp();
            return;
        case SyslogTransport::Udp: {
            std::vector<CIPAddress> targets;
            resolveTarget(SOCK_DGRAM, targets);
            try {
                openDatagram(targets.front());
            } catch (CErrorReport* report) {
                const uint32_t error = static_cast<CWinSockError*>(report)->getSystemError();
                delete report;
                throwReport(error, "CSyslogClient::open Could not create a UDP socket (error %u).",
                            static_cast<unsigned>(error));
            }
            m_resolved = true;
            vt::debugPrintf(vt::DBG_INFO, "CSyslogClient::open UDP to %s port %u\r\n",
                            target().toText().c_str(), static_cast<unsigned>(m_port));
            return;
        }
    }
}

void CSyslogClient::close() noexcept {
    m_tls.reset();
    if (isOpen())
        vt::debugPrintf(vt::DBG_INFO, "CSyslogClient::close connection to '%s' port %u closed\r\n",
                        m_server.c_str(), static_cast<unsigned>(m_port));
    closeSocket();
    m_resolved = false;
}

void CSyslogClient::connectTcp() {
    std::vector<CIPAddress> targets;
    resolveTarget(SOCK_STREAM, targets);
    if (!connectStream(targets, kConnectTimeoutMs, kSendTimeoutMs))
        throwReport(lastError(),
                    "CSyslogClient::open Could not connect to syslog server '%s' port %u (error "
                    "%u) - message not sent.",
                    m_server.c_str(), static_cast<unsigned>(m_port),
                    static_cast<unsigned>(lastError()));
    if (m_tlsContext) startTls();
}

void CSyslogClient::startTls() {
    m_tls = std::make_unique<vt::net::CTlsStream>(*m_tlsContext);
    bool ok = m_tls->start();
    std::string ignored;
    char buffer[16384];
    while (ok) {
        const std::string out = m_tls->takeOutgoing();
        if (!out.empty() && !sendStream(out)) break;
        if (m_tls->handshakeDone()) return;
        if (vt::net::waitSocketReady(m_socket.handle(), false,
                                     static_cast<int>(kConnectTimeoutMs)) <= 0)
            break;
        const int n = m_socket.receive(buffer, sizeof buffer);
        if (n <= 0) break;
        ok = m_tls->receive(std::string_view(buffer, static_cast<size_t>(n)), ignored);
    }
    const std::string why = m_tls->errorText().empty() ? "no TLS handshake" : m_tls->errorText();
    dropConnection();
    throwReport(vt::net::SOCKERR_CONNABORTED,
                "CSyslogClient::open TLS with syslog server '%s' port %u failed: %s - message not "
                "sent.",
                m_server.c_str(), static_cast<unsigned>(m_port), why.c_str());
}

bool CSyslogClient::tlsSessionEnded() {
    std::string ignored;
    char buffer[16384];
    while (vt::net::waitSocketReady(m_socket.handle(), false, 0) > 0) {
        const int n = m_socket.receive(buffer, sizeof buffer);
        if (n <= 0 || !m_tls->receive(std::string_view(buffer, static_cast<size_t>(n)), ignored))
            return true;
    }
    return false;
}

bool CSyslogClient::sendFrame(std::string_view frame) {
    if (!m_tls) return sendStream(frame);
    return m_tls->send(frame) && sendStream(m_tls->takeOutgoing());
}

void CSyslogClient::send(const CInfoUnit& unit, std::u16string_view text) {
    const std::u16string whole =
        m_rfc5424 ? vt::buildRfc5424Text(unit, text, m_processDuringRelay)
                  : vt::buildSyslogText(unit, text, m_processDuringRelay, m_insertRealSource);
    sendBytes(vt::encodeSyslogText(whole, m_encoding));
}

void CSyslogClient::sendBytes(std::string_view bytes) {
    if (m_transport == SyslogTransport::Rfc3195) open();  // throws: not available
    if (m_transport == SyslogTransport::Udp && (!isOpen() || !m_resolved)) open();

    std::string_view plain = bytes;
    if (m_transport == SyslogTransport::Udp) {
        const size_t limit = maxDatagramPayload(target().family());
        if (plain.size() > limit) {
            vt::debugPrintf(vt::DBG_MINIMUM,
                            "CSyslogClient::send: message of %u bytes cut to %u bytes, the "
                            "largest UDP datagram.\r\n",
                            static_cast<unsigned>(plain.size()), static_cast<unsigned>(limit));
            plain = plain.substr(0, limit);
        }
    }

    bool compressed = false;
    if (m_compress) {
        int zlibError = 0;
        switch (vt::compressSyslogMessage(plain, m_compressionLevel, m_transport, m_scratch,
                                          zlibError)) {
            case vt::CompressResult::Compressed:
                compressed = true;
                break;
            case vt::CompressResult::Failed: {
                char text[160];
                std::snprintf(text, sizeof text,
                              "zlib error %d while compressing a message - it is sent "
                              "uncompressed.",
                              zlibError);
                vt::reportError(1049, "CSyslogClient::Send::UDP", text);
                break;
            }
            case vt::CompressResult::Plain:
                break;
        }
    }
    const std::string_view payload = compressed ? std::string_view(m_scratch) : plain;

    if (m_transport == SyslogTransport::Udp) {
        sendUdp(payload);
    } else {
        sendTcp(vt::frameSyslogTcp(payload, compressed, m_octetCounting));
    }
}

void CSyslogClient::sendUdp(std::string_view payload) {
    if (sendDatagram(payload)) return;
    const uint32_t error = lastError();
    close();
    throwReport(error,
                "CSyslogClient::send Error sending to syslog server '%s' port %u (error %u) - "
                "message not sent.",
                m_server.c_str(), static_cast<unsigned>(m_port), static_cast<unsigned>(error));
}

void CSyslogClient::sendTcp(std::string_view frame) {
    if (!isOpen()) {
        connectTcp();
    } else if (m_tls ? tlsSessionEnded() : streamIsDead()) {
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CSyslogClient::send: connection to '%s' port %u was closed by the "
                        "server (error %u) - reconnecting.\r\n",
                        m_server.c_str(), static_cast<unsigned>(m_port),
                        static_cast<unsigned>(lastError()));
        dropConnection();
        connectTcp();
    }
    if (sendFrame(frame)) return;
    vt::debugPrintf(vt::DBG_MINIMUM,
                    "CSyslogClient::send: send to '%s' port %u failed (error %u) - reconnecting "
                    "and sending again.\r\n",
                    m_server.c_str(), static_cast<unsigned>(m_port),
                    static_cast<unsigned>(lastError()));
    dropConnection();
    connectTcp();
    if (sendFrame(frame)) return;
    throwSendError(lastError());
}

void CSyslogClient::dropConnection() noexcept {
    m_tls.reset();
    closeSocket();
}

void CSyslogClient::throwSendError(uint32_t error) {
    dropConnection();
    throwReport(error,
                "CSyslogClient::send Error sending to syslog server '%s' port %u (error %u) - "
                "message not sent.",
                m_server.c_str(), static_cast<unsigned>(m_port), static_cast<unsigned>(error));
}
