#pragma once
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "actions/send_syslog/syslog_message.h"
#include "base/net/ip_client.h"
#include "base/quillet_string.h"
#include "platform/tls_stream.h"

// The connection of a forward-syslog action to its server, and the sending of one message:
// encoding, compression, framing and the transport. Used under the action's lock only.
//
// TCP: a connection that the server closed between two messages is noticed before the next
// one is sent and replaced; a send that fails closes the connection, connects again and sends
// once more. What still fails is thrown as a CErrorReport*, so the action's retry rules
// apply. UDP: the server is resolved on first use and stays resolved until close().
class CSyslogClient : public CIPClient {
  public:
    // Bounds for a server that does not answer, so that a worker is not held for minutes.
    static constexpr uint32_t kConnectTimeoutMs = 10000;
    static constexpr uint32_t kSendTimeoutMs = 30000;

    CSyslogClient() = default;

    void setServer(const CQuilletString& server, uint16_t port, vt::SyslogTransport transport);
    void setCompression(bool on, int level, int32_t spoofIPAddress) noexcept;
    void setOutputEncoding(uint32_t encoding) noexcept { m_encoding = encoding; }
    void setProcessDuringRelay(bool on) noexcept { m_processDuringRelay = on; }
    void setRealSourceSwitch(bool on) noexcept { m_insertRealSource = on; }
    void setRfc5424(bool on) noexcept { m_rfc5424 = on; }
    void setOctetCounting(bool on) noexcept { m_octetCounting = on; }
    // TCP connections become TLS sessions of `context`; null turns TLS off.
    void setTls(std::shared_ptr<const vt::net::CTlsContext> context) noexcept {
        m_tlsContext = std::move(context);
    }

    // Makes the connection (TCP) or the socket (UDP); throws CErrorReport* on failure.
    void open();
    void close() noexcept;

    // Sends `text` for `unit` (header first when relay processing is on). Throws
    // CErrorReport* when the message could not be sent.
    void send(const CInfoUnit& unit, std::u16string_view text);
    // Sends finished message bytes (no header, no encoding step).
    void sendBytes(std::string_view bytes);

    vt::SyslogTransport transport() const noexcept { return m_transport; }
    const std::string& serverName() const noexcept { return m_server; }
    uint16_t port() const noexcept { return m_port; }

  private:
    void resolveTarget(int socketType, std::vector<CIPAddress>& targets);
    void connectTcp();
    // The client handshake over the new connection; throws CErrorReport* when it fails.
    void startTls();
    // Takes in what the server sent (tickets, a closing alert); true when the session ended.
    bool tlsSessionEnded();
    bool sendFrame(std::string_view frame);
    void dropConnection() noexcept;
    void sendUdp(std::string_view payload);
    void sendTcp(std::string_view frame);
    [[noreturn]] void throwSendError(uint32_t error);

    std::string m_server;
    uint16_t m_port = 514;
    vt::SyslogTransport m_transport = vt::SyslogTransport::Udp;
    bool m_compress = false;
    int m_compressionLevel = 9;
    int32_t m_spoofIPAddress = 0;  // kept, has no effect in this build
    uint32_t m_encoding = 0;
    bool m_processDuringRelay = true;
    bool m_insertRealSource = false;
    bool m_rfc5424 = false;        // "nSyslogFormat" 1
    bool m_octetCounting = false;  // "nTCPFraming" 1
    bool m_resolved = false;
    std::string m_scratch;
    std::shared_ptr<const vt::net::CTlsContext> m_tlsContext;
    std::unique_ptr<vt::net::CTlsStream> m_tls;  // the open connection's session
};
