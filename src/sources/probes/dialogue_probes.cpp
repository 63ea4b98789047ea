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

template <class Unit>
std::unique_ptr<CInfoUnit> makeUnit() {
    return std::make_unique<Unit>();
}

}  // namespace

const GreetingProtocol kNntpGreeting = {
    "NNTP",         u"szNntpServer", u"nNNTPPort", 119,     u"responsestatus",
    u"nntprespmsg", "QUIT\r\n",      {400, 502},   nullptr, makeUnit<CInfoUnitNNTPProbe>};
const GreetingProtocol kPop3Greeting = {
    "POP3",         u"szPOP3Server", u"nPOP3Port", 110,    u"pop3status",
    u"pop3respmsg", "QUIT\r\n",      {0, 0},       "-ERR", makeUnit<CInfoUnitPOP3Probe>};
const GreetingProtocol kFtpGreeting = {
    "FTP",         u"szFtpServer", u"nFTPPort", 21,      u"ftpstatus",
    u"ftprespmsg", "QUIT\r\n",     {421, 0},    nullptr, makeUnit<CInfoUnitFTPProbe>};
const GreetingProtocol kSmtpGreeting = {
    "SMTP",         u"szSmtpServer", u"nSMTPPort", 25,      u"smtpstatus",
    u"smtprespmsg", "QUIT\r\n",      {421, 554},   nullptr, makeUnit<CInfoUnitSMTPProbe>};
const GreetingProtocol kImapGreeting = {
    "IMAP",         u"szImapServer", u"nIMAPPort", 143,     u"imapstatus",
    u"imaprespmsg", "a1 LOGOUT\r\n", {0, 0},       "* BYE", makeUnit<CInfoUnitIMAPProbe>};

void CInfoSourceGreetingProbe::loadOwn(CRegAccess& reg) {
    reg.ReadStringValue(m_protocol.serverValue, m_szServer, CQuilletString(u"127.0.0.1"));
    reg.ReadDWORDValue(m_protocol.portValue, m_nPort, m_protocol.defaultPort);
}

std::unique_ptr<CInfoUnit> CInfoSourceGreetingProbe::newUnit() const {
    return m_protocol.newUnit();
}

bool CInfoSourceGreetingProbe::refuses(const std::string& greeting, uint32_t& status) const {
    status = 0;
    if (m_protocol.refusingPrefix) {
        if (greeting.rfind(m_protocol.refusingPrefix, 0) == 0) status = 1;
    } else {
        const int code = replyCode(greeting);
        for (int refusing : m_protocol.refusingCodes)
            if (refusing != 0 && code == refusing) status = static_cast<uint32_t>(code);
    }
    return status != 0;
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
    client.send(m_protocol.quitCommand);
    return r;
}

std::unique_ptr<CInfoUnit> CInfoSourceHTTPProbe::newUnit() const {
    return std::make_unique<CInfoUnitHTTPProbe>();
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
