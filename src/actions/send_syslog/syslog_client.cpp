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
    } else if (streamIsDead()) {
        vt::debugPrintf(vt::DBG_MINIMUM,
                        "CSyslogClient::send: connection to '%s' port %u was closed by the "
                        "server (error %u) - reconnecting.\r\n",
                        m_server.c_str(), static_cast<unsigned>(m_port),
                        static_cast<unsigned>(lastError()));
        closeSocket();
        connectTcp();
    }
    if (sendStream(frame)) return;
    vt::debugPrintf(vt::DBG_MINIMUM,
                    "CSyslogClient::send: send to '%s' port %u failed (error %u) - reconnecting "
                    "and sending again.\r\n",
                    m_server.c_str(), static_cast<unsigned>(m_port),
                    static_cast<unsigned>(lastError()));
    closeSocket();
    connectTcp();
    if (sendStream(frame)) return;
    throwSendError(lastError());
}

void CSyslogClient::throwSendError(uint32_t error) {
    closeSocket();
    throwReport(error,
                "CSyslogClient::send Error sending to syslog server '%s' port %u (error %u) - "
                "message not sent.",
                m_server.c_str(), static_cast<unsigned>(m_port), static_cast<unsigned>(error));
}
