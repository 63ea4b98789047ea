#pragma once
#include <cstdint>
#include <string>
#include <string_view>

#include "base/net/tcp_server.h"
#include "sources/info_source.h"
#include "sources/syslog/syslog_server.h"

class CInfoUnitSyslog;
class CIPAddress;
class CRegAccess;
namespace vt {
struct Rfc5424Fields;
}

// The syslog receiver: one source listens on one port with one transport and turns every
// message into a CInfoUnitSyslog for its rule set. UDP datagrams are received by the
// CSyslogServer member, TCP streams by the CTCPServer base (one event loop for all
// connections); both run on the source's own thread.
class CInfoSourceSyslog : public CInfoSource, public CTCPServer {
  public:
    enum Protocol : uint32_t { kProtocolUdp = 0, kProtocolTcp = 1, kProtocolRfc3195 = 3 };

    explicit CInfoSourceSyslog(const vt::InfoSourceContext& context);
    ~CInfoSourceSyslog() override;

    bool LoadConfig() override;
    void Run() override;
    void OnBeforeRun() override;
    void wake() override;

    // Builds the unit of one message received from `peerText` and hands it to the queue.
    // Safe to call from several threads at once.
    void deliverMessage(std::string_view bytes, const std::string& peerText);
    // The unit one message makes, filled but not yet handed over.
    std::unique_ptr<CInfoUnitSyslog> buildUnit(std::string_view bytes,
                                               const std::string& peerText) const;

    uint16_t getListenPort() const noexcept { return m_nListenPort; }
    uint32_t getProtocolType() const noexcept { return m_nProtocolType; }
    // The port bound by the running listener (0 before it is bound): for port 0 in tests.
    uint16_t boundPort() const noexcept { return m_boundPort.load(std::memory_order_acquire); }

  protected:
    void OnReceive(const CTcpConnection& connection, std::string_view message) override;

  private:
    // The fields are views into `text`, which moves into the unit last.
    std::unique_ptr<CInfoUnitSyslog> buildRfc5424Unit(std::u16string&& text,
                                                      const vt::Rfc5424Fields& fields,
                                                      const std::string& peerText) const;
    void readTlsSettings(CRegAccess& reg);
    // The listener's TLS context, or null (reported) when it cannot be made.
    std::shared_ptr<const vt::net::CTlsContext> makeTlsContext() const;
    void runUdp();
    void runTcp();
    // The sender's text: its resolved name with "nResolveNames" 1, else its address.
    std::string senderText(const CIPAddress& address, const std::string& numeric) const;

    uint16_t m_nListenPort = 514;
    uint32_t m_nProtocolType = kProtocolUdp;
    uint32_t m_nParseSyslogDate = 0;
    uint32_t m_nTakeSourceSysFromSyslogMsg = 0;
    uint32_t m_nResolveNames = 0;
    uint32_t m_nRFC3164Parsing = 1;
    uint32_t m_nParseRFC5424 = 0;      // 1: a version 1 header is recognised per message
    uint32_t m_nTCPOctetCounting = 0;  // 1: a connection whose first byte is a digit is counted
    uint32_t m_nUseTLS = 0;            // 1: TCP connections are TLS sessions
    uint32_t m_nTLSVerifyPeer = 0;     // 1: a trusted client certificate is required
    CQuilletString m_szTLSCertFile;
    CQuilletString m_szTLSKeyFile;
    CQuilletString m_szTLSCAFile;
    CQuilletString m_szTLSPeerFingerprint;
    uint32_t m_nEscapeControlCharacters = 0;
    uint32_t m_nEnableTCPMsgSep = 0;
    uint32_t m_nTimeOutMsg = 15000;
    uint32_t m_nTimeOutSession = 900000;
    CQuilletString m_szTCPMsgSep;
    CQuilletString m_szMyIPAddress = u"0.0.0.0";

    CSyslogServer m_udp;
    std::atomic<uint16_t> m_boundPort{0};
};
