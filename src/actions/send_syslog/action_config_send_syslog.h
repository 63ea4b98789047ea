#pragma once
#include <cstdint>
#include <memory>

#include "actions/send_syslog/syslog_client.h"
#include "base/quillet_string.h"
#include "base/setting_text.h"
#include "engine/action_config.h"

// Settings of the forward-syslog action, read once from the action's key, and the connection
// to the server (run-time state, touched only under the action's lock: by doAction and by the
// idle routine, which takes the lock itself).
class CActionConfigSendSyslog : public CActionConfig {
  public:
    explicit CActionConfigSendSyslog(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    ~CActionConfigSendSyslog() override;

    void LoadConfig() override;

    // Gives the client the settings and the unit's source, connects and creates the idle
    // timer. Throws CErrorReport* when the server cannot be reached.
    void openConnection();
    // Closes the connection and the idle timer.
    void closeConnection() noexcept;
    bool isConnected() const noexcept { return m_bConnected; }
    CSyslogClient& client() noexcept { return m_client; }

    // The idle routine: closes the connection unless another unit has armed the timer again.
    static void TimerAPCProc(void* context, uint32_t timeLow, uint32_t timeHigh);

    // --- the loaded values ---
    CSettingText m_szSyslogSendServer;
    CSettingText m_szMessageFormat{u"%msg%"};
    uint32_t m_nSyslogSendPort = 0;
    CQuilletString m_szSyslogSendPortName;
    uint32_t m_bUseSyslogSendPortName = 0;
    uint32_t m_nType = 0;
    uint32_t m_nSyslogInsertSource = 0;
    uint32_t m_nOutputEncoding = 0;
    uint32_t m_bReportInXML = 0;
    int32_t m_nTimeoutValue = 1800000;
    uint32_t m_nForwardIUT = 0;
    uint32_t m_bProcessDuringRelay = 1;
    uint32_t m_nSpoofIPAddress = 0;
    uint32_t m_nUseCompression = 0;
    uint32_t m_nCompressionLevel = 9;
    uint32_t m_nSyslogFormat = 0;  // 1: RFC 5424 header
    uint32_t m_nTCPFraming = 0;    // 1: octet counting on TCP
    uint32_t m_nUseTLS = 0;        // 1: the TCP connection is a TLS session
    uint32_t m_nTLSVerifyPeer = 1;
    CQuilletString m_szTLSCAFile;
    CQuilletString m_szTLSCertFile;
    CQuilletString m_szTLSKeyFile;
    CQuilletString m_szTLSServerName;  // "" the server's name as configured
    CQuilletString m_szTLSPeerFingerprint;

    // The port the client uses: 0 and values above 65535 stand for the syslog port.
    uint16_t effectivePort() const noexcept;

  private:
    // Adjustments after loading; also applied when the key could not be read.
    void normalise();
    void readTlsSettings(CRegAccess& r);
    std::shared_ptr<const vt::net::CTlsContext> makeTlsContext() const;

    CSyslogClient m_client;
    bool m_bConnected = false;
};
