#include "actions/send_syslog/action_config_send_syslog.h"

#include "base/debug_log.h"
#include "base/net/ip.h"

namespace {
void replaceAll(std::u16string& text, std::u16string_view from, std::u16string_view to) {
    for (size_t at = text.find(from); at != std::u16string::npos;
         at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
}
}  // namespace

CActionConfigSendSyslog::~CActionConfigSendSyslog() {
    closeConnection();
}

void CActionConfigSendSyslog::LoadConfig() {
    if (loadEnabled()) {
        CRegAccess& r = m_regAccess;
        uint32_t timeout = 1800000;
        CQuilletString server, format;
        r.ReadStringValue(u"szSyslogSendServer", server, u"");
        r.ReadStringValue(u"szMessageFormat", format, u"%msg%");
        m_szSyslogSendServer = server;
        m_szMessageFormat = format;
        r.ReadDWORDValue(u"nSyslogSendPort", m_nSyslogSendPort, 0);
        r.ReadStringValue(u"szSyslogSendPortName", m_szSyslogSendPortName, u"");
        r.ReadDWORDValue(u"bUseSyslogSendPortName", m_bUseSyslogSendPortName, 0);
        r.ReadDWORDValue(u"nType", m_nType, 0);
        r.ReadDWORDValue(u"nSyslogInsertSource", m_nSyslogInsertSource, 0);
        r.ReadDWORDValue(u"nOutputEncoding", m_nOutputEncoding, 0);
        r.ReadDWORDValue(u"bReportInXML", m_bReportInXML, 0);
        r.ReadDWORDValue(u"nTimeoutValue", timeout, 1800000);
        r.ReadDWORDValue(u"nForwardIUT", m_nForwardIUT, 0);
        r.ReadDWORDValue(u"bProcessDuringRelay", m_bProcessDuringRelay, 1);
        r.ReadDWORDValue(u"nSpoofIPAddress", m_nSpoofIPAddress, 0);
        r.ReadDWORDValue(u"nUseCompression", m_nUseCompression, 0);
        r.ReadDWORDValue(u"nCompressionLevel", m_nCompressionLevel, 9);
        r.ReadDWORDValue(u"nSyslogFormat", m_nSyslogFormat, 0);
        r.ReadDWORDValue(u"nTCPFraming", m_nTCPFraming, 0);
        readTlsSettings(r);
        r.CloseKey();
        m_nTimeoutValue = static_cast<int32_t>(timeout);
    }
    normalise();
}

void CActionConfigSendSyslog::normalise() {
    const char* key = m_keyPath.getStringA();
    // The port is always taken from the number; the name is kept for the configuration only.
    m_bUseSyslogSendPortName = 0;
    if (m_nType == 3 || m_nType == 4) m_nType = 1;
    if (m_nType > 4) {
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CActionConfigSendSyslog| %s: unknown transport nType %u - UDP is used.\r\n", key,
            static_cast<unsigned>(m_nType));
        m_nType = 0;
    }
    if (m_nTimeoutValue < 0) m_nTimeoutValue = 0;
    if (m_nCompressionLevel > 9) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionConfigSendSyslog| %s: nCompressionLevel %u out of range - 9 is "
                        "used.\r\n",
                        key, static_cast<unsigned>(m_nCompressionLevel));
        m_nCompressionLevel = 9;
    }
    if (m_nSpoofIPAddress != 0 || m_nForwardIUT != 0)
        vt::debugPrintf(vt::DBG_INFO,
                        "CActionConfigSendSyslog| %s: nSpoofIPAddress and nForwardIUT have no "
                        "effect in this build.\r\n",
                        key);
    std::u16string format = m_szMessageFormat.wide();
    replaceAll(format, u"%NTEventLogType%", u"%nteventlogtype%");
    m_szMessageFormat = CSettingText(format);

    m_client.setServer(m_szSyslogSendServer, effectivePort(),
                       static_cast<vt::SyslogTransport>(m_nType));
    m_client.setCompression(m_nUseCompression != 0, static_cast<int>(m_nCompressionLevel),
                            static_cast<int32_t>(m_nSpoofIPAddress));
    m_client.setOutputEncoding(m_nOutputEncoding);
    m_client.setProcessDuringRelay(m_bProcessDuringRelay != 0);
    m_client.setRealSourceSwitch(m_nSyslogInsertSource == 1);
    m_client.setRfc5424(m_nSyslogFormat == 1);
    m_client.setOctetCounting(m_nTCPFraming == 1);
    m_client.setTls(m_nUseTLS == 1 ? makeTlsContext() : nullptr);
}

void CActionConfigSendSyslog::readTlsSettings(CRegAccess& r) {
    r.ReadDWORDValue(u"nUseTLS", m_nUseTLS, 0);
    r.ReadDWORDValue(u"nTLSVerifyPeer", m_nTLSVerifyPeer, 1);
    r.ReadStringValue(u"szTLSCAFile", m_szTLSCAFile, u"");
    r.ReadStringValue(u"szTLSCertFile", m_szTLSCertFile, u"");
    r.ReadStringValue(u"szTLSKeyFile", m_szTLSKeyFile, u"");
    r.ReadStringValue(u"szTLSServerName", m_szTLSServerName, u"");
    r.ReadStringValue(u"szTLSPeerFingerprint", m_szTLSPeerFingerprint, u"");
}

// A context that cannot be made (a missing file, no TLS in this build) is logged at load; the
// action then fails every unit with that reason instead of sending in the clear.
std::shared_ptr<const vt::net::CTlsContext> CActionConfigSendSyslog::makeTlsContext() const {
    if (m_nType != 1)
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CActionConfigSendSyslog| %s: nUseTLS needs the TCP transport - ignored.\r\n",
            m_keyPath.getStringA());
    if (m_nType != 1) return nullptr;
    vt::net::TlsEndpointOptions options;
    options.caFile = m_szTLSCAFile.getStringA();
    options.certFile = m_szTLSCertFile.getStringA();
    options.keyFile = m_szTLSKeyFile.getStringA();
    options.verifyPeer = m_nTLSVerifyPeer != 0;
    options.fingerprint = m_szTLSPeerFingerprint.getStringA();
    options.peerName = m_szTLSServerName.empty() ? std::string(m_szSyslogSendServer.getStringA())
                                                 : std::string(m_szTLSServerName.getStringA());
    auto context = std::make_shared<vt::net::CTlsContext>();
    std::string error;
    if (!context->init(options, error))
        vt::debugPrintf(vt::DBG_ERROR, "CActionConfigSendSyslog| %s: TLS cannot start: %s\r\n",
                        m_keyPath.getStringA(), error.c_str());
    return context;
}

uint16_t CActionConfigSendSyslog::effectivePort() const noexcept {
    if (m_nSyslogSendPort == 0 || m_nSyslogSendPort > 65535)
        return CIP::servicePort("syslog", "udp", 514);
    return static_cast<uint16_t>(m_nSyslogSendPort);
}

void CActionConfigSendSyslog::openConnection() {
    m_client.open();
    m_bConnected = true;
    createTimer();
}

void CActionConfigSendSyslog::closeConnection() noexcept {
    m_client.close();
    m_bConnected = false;
    closeTimer();
}

void CActionConfigSendSyslog::TimerAPCProc(void* context, uint32_t, uint32_t) {
    auto* config = static_cast<CActionConfigSendSyslog*>(context);
    config->enterLock();
    // Another worker may have used the connection and armed the timer again while this expiry
    // waited for the lock; the connection is still wanted then.
    if (!config->isTimerPending()) {
        vt::debugWrite(vt::DBG_ULTRA, "CActionConfigSendSyslog::TimerAPCProc: idle close\r\n");
        config->closeConnection();
    }
    config->leaveLock();
}
