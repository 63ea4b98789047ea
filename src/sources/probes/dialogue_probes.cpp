#include "sources/probes/dialogue_probes.h"

#include <cstdio>

#include "base/debug_log.h"
#include "base/net/stream_client.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"

namespace {

int replyCode(const std::string& line) {
    int code = 0;
    return std::sscanf(line.c_str(), "%3d", &code) == 1 ? code : 0;
}

// The greeting's socket error: the server closed before a line (10054), or nothing came in
// time (10060).
ProbeResult receiveFailed(const CStreamClient& client) {
    ProbeResult r;
    r.status = client.lastError() ? client.lastError() : 10054;
    r.failText = "Receive call failed";
    return r;
}

}  // namespace

void CInfoSourceGreetingProbe::loadOwn(CRegAccess& reg) {
    reg.ReadStringValue(serverValue(), m_szServer, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue(portValue(), m_nPort, defaultPort());
}

ProbeResult CInfoSourceGreetingProbe::check() {
    CStreamClient client;
    std::string greeting;
    if (!client.open(m_szServer.getStringA(), static_cast<uint16_t>(m_nPort), m_nTimeOutLimit) ||
        !client.readLine(greeting, 65536)) {
        vt::debugPrintf(vt::DBG_INFO, "CInfoSource%sProbe| Receive call failed\r\n", name());
        return receiveFailed(client);
    }
    vt::debugPrintf(vt::DBG_ULTRA, "CInfoSource%sProbe| %s Response '%s' \r\n", name(), name(),
                    greeting.c_str());
    ProbeResult r;
    r.response = greeting;
    if (refuses(greeting, r.status)) r.failText = greeting;
    client.send(quitCommand());
    return r;
}

#define VT_NEW_UNIT(Class, Unit)                        \
    std::unique_ptr<CInfoUnit> Class::newUnit() const { \
        return std::make_unique<Unit>();                \
    }
VT_NEW_UNIT(CInfoSourceNNTPProbe, CInfoUnitNNTPProbe)
VT_NEW_UNIT(CInfoSourcePOP3Probe, CInfoUnitPOP3Probe)
VT_NEW_UNIT(CInfoSourceFTPProbe, CInfoUnitFTPProbe)
VT_NEW_UNIT(CInfoSourceSMTPProbe, CInfoUnitSMTPProbe)
VT_NEW_UNIT(CInfoSourceIMAPProbe, CInfoUnitIMAPProbe)
VT_NEW_UNIT(CInfoSourceHTTPProbe, CInfoUnitHTTPProbe)
#undef VT_NEW_UNIT

bool CInfoSourceNNTPProbe::refuses(const std::string& greeting, uint32_t& status) const {
    const int code = replyCode(greeting);
    status = (code == 400 || code == 502) ? uint32_t(code) : 0;
    return status != 0;
}
bool CInfoSourceFTPProbe::refuses(const std::string& greeting, uint32_t& status) const {
    status = replyCode(greeting) == 421 ? 421 : 0;
    return status != 0;
}
bool CInfoSourceSMTPProbe::refuses(const std::string& greeting, uint32_t& status) const {
    const int code = replyCode(greeting);
    status = (code == 421 || code == 554) ? uint32_t(code) : 0;
    return status != 0;
}
bool CInfoSourcePOP3Probe::refuses(const std::string& greeting, uint32_t& status) const {
    status = greeting.rfind("-ERR", 0) == 0 ? 1 : 0;
    return status != 0;
}
bool CInfoSourceIMAPProbe::refuses(const std::string& greeting, uint32_t& status) const {
    status = greeting.rfind("* BYE", 0) == 0 ? 1 : 0;
    return status != 0;
}

void CInfoSourceHTTPProbe::loadOwn(CRegAccess& reg) {
    reg.ReadStringValue(u"szHTTPServer", m_szServer, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue(u"nUseSSL", m_nUseSSL, 0);
    reg.ReadDWORDValue(u"nHTTPPort", m_nPort, m_nUseSSL == 1 ? 443 : 80);
    reg.ReadStringValue(u"szRequestType", m_szRequestType, CQuilletString(u"GET"));
    reg.ReadStringValue(u"szUrl", m_szUrl, CQuilletString(u"/"));
    reg.ReadStringValue(u"szReferer", m_szReferer, CQuilletString());
    reg.ReadStringValue(u"szUserAgent", m_szUserAgent, CQuilletString(u"Mozilla/4.0"));
    reg.ReadDWORDValue(u"nSSLVerify", m_nSSLVerify, 1);
    reg.ReadStringValue(u"szCAFile", m_szCAFile, CQuilletString());
    if (m_nUseSSL == 1 && !CStreamClient::tlsAvailable())
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceHTTPProbe| nUseSSL is set, but TLS is not available in this "
                       "build: every check will fail\r\n");
}

std::string CInfoSourceHTTPProbe::request() const {
    std::string url = m_szUrl.getStringA();
    if (url.empty() || url[0] != '/') url = "/" + url;
    std::string text = std::string(m_szRequestType.getStringA()) + " " + url + " HTTP/1.1\r\n";
    text += "Host: " + std::string(m_szServer.getStringA()) + "\r\n";
    if (m_szReferer.getLength() > 0)
        text += "Referer: " + std::string(m_szReferer.getStringA()) + "\r\n";
    text +=
        "User-Agent: " + std::string(m_szUserAgent.getStringA()) + "\r\nConnection: close\r\n\r\n";
    return text;
}

ProbeResult CInfoSourceHTTPProbe::check() {
    CStreamClient client;
    const std::string server = m_szServer.getStringA();
    if (!client.open(server, static_cast<uint16_t>(m_nPort), m_nTimeOutLimit)) {
        vt::debugWrite(vt::DBG_INFO, "CInfoSourceHTTPProbe| Receive call failed\r\n");
        return receiveFailed(client);
    }
    ProbeResult r;
    if (m_nUseSSL == 1) {
        vt::debugWrite(vt::DBG_INFO, "CInfoSourceHTTPProbe::Enable SSL in Socket\r\n");
        if (!client.startTls({server, m_nSSLVerify == 1, m_szCAFile.getStringA()})) {
            r.status = client.lastError() ? client.lastError() : 1;
            r.failText = "TLS: " + client.lastErrorText();
            return r;
        }
    }
    std::string status;
    if (!client.send(request()) || !client.readLine(status, 65536)) {
        vt::debugWrite(vt::DBG_INFO, "CInfoSourceHTTPProbe| Receive call failed\r\n");
        return receiveFailed(client);
    }
    vt::debugPrintf(vt::DBG_ULTRA, "CInfoSourceHTTPProbe| HTTP Response '%s' \r\n", status.c_str());
    r.response = status;
    int code = 0;
    if (std::sscanf(status.c_str(), "HTTP/%*d.%*d %d", &code) != 1) code = 0;
    if (code < 200 || code >= 400) {
        r.status = code ? uint32_t(code) : 1;
        r.failText = "HTTP status " + status;
    }
    return r;
}

void CInfoSourceHTTPProbe::fill(CInfoUnit& unit, const ProbeResult&) const {
    unit.setPropertyInt(u"usessl", static_cast<int32_t>(m_nUseSSL));
}
