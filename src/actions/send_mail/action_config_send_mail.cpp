#include "actions/send_mail/action_config_send_mail.h"

#include <random>

#include "actions/send_mail/action_send_mail.h"
#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "platform/base64.h"
#include "platform/computer_name.h"
#include "platform/utf_codec.h"

namespace {

constexpr uint32_t kMailError = 117;
constexpr uint32_t kDialogueTimeoutMs = 30000;
constexpr char16_t kDefaultBody[] =
    u"Event message:\r\nFacility: %syslogfacility%\r\nPriority: %syslogpriority%\r\nSource: "
    u"%source%\r\n\r\nMessage:\r\n%msg%";

[[noreturn]] void fail(const char* text) {
    throw new CErrorReport(kMailError, CQuilletString(std::string_view(text)));
}

void renameLogType(CQuilletString& templ) {
    std::u16string text(templ.view());
    const std::u16string from = u"%NTEventLogType%", to = u"%nteventlogtype%";
    for (size_t at = text.find(from); at != std::u16string::npos; at = text.find(from, at))
        text.replace(at, from.size(), to);
    templ = CQuilletString(std::u16string_view(text));
}

}  // namespace

CActionConfigSendMail::CActionConfigSendMail(const CQuilletString& keyPath,
                                             const vt::ActionLoadContext& context)
    : CActionConfig(keyPath), m_clock(context.clock), m_mailNumber(std::random_device{}()) {}

CActionConfigSendMail::~CActionConfigSendMail() {
    endSession(true);
}

void CActionConfigSendMail::LoadConfig() {
    if (!loadEnabled()) return;
    auto& r = m_regAccess;
    r.ReadStringValue(u"szSMTPServer", m_szSMTPServer, u"127.0.0.1");
    r.ReadDWORDValue(u"nSMTPPort", m_nSMTPPort, 25);
    r.ReadStringValue(u"szSMTPRecipient", m_szSMTPRecipient, u"");
    r.ReadStringValue(u"szSMTPSender", m_szSMTPSender, u"");
    r.ReadStringValue(u"szSMTPSubject", m_szSMTPSubject, u"No Subject given");
    r.ReadStringValue(u"szSMTPBody", m_szSMTPBody, kDefaultBody);
    r.ReadDWORDValue(u"nEnableBackupServer", m_nEnableBackupServer, 0);
    r.ReadStringValue(u"szSMTPServerBackup", m_szSMTPServerBackup, u"127.0.0.1");
    r.ReadDWORDValue(u"nSMTPPortBackup", m_nSMTPPortBackup, 25);
    r.ReadStringValue(u"szSMTPUsername", m_szSMTPUsername, u"");
    r.ReadStringValue(u"szSMTPPassword", m_szSMTPPassword, u"");
    r.ReadDWORDValue(u"nUseXMLtoReport", m_nUseXMLtoReport, 0);
    r.ReadDWORDValue(u"nTimeoutValue", m_nTimeoutValue, 0);
    r.ReadDWORDValue(u"nOutputEncoding", m_nOutputEncoding, 0);
    r.ReadDWORDValue(u"nUseSMTPAuth", m_nUseSMTPAuth, 0);
    r.ReadDWORDValue(u"nMailPriority", m_nMailPriority, 1);
    r.ReadDWORDValue(u"nUseLegacySubjectProcessing", m_nUseLegacySubjectProcessing, 1);
    r.ReadDWORDValue(u"nSMTPTLS", m_nSMTPTLS, 0);
    r.ReadDWORDValue(u"nSMTPTLSVerify", m_nSMTPTLSVerify, 1);
    r.ReadStringValue(u"szSMTPCAFile", m_szSMTPCAFile, u"");
    r.ReadDWORDValue(u"nMaxMailsPerInterval", m_nMaxMailsPerInterval, 0);
    r.ReadDWORDValue(u"nMailInterval", m_nMailInterval, 60);
    r.CloseKey();
    renameLogType(m_szSMTPSubject);
    renameLogType(m_szSMTPBody);
    m_recipients.setRecipients(vt::utf16ToUtf8(m_szSMTPRecipient.view()));
    if (m_nOutputEncoding != 0)
        vt::debugPrintf(vt::DBG_ERROR,
                        "CActionSendMail| nOutputEncoding %u: mails are always sent as UTF-8\r\n",
                        m_nOutputEncoding);
    if (m_nSMTPTLS != 0 && !CStreamClient::tlsAvailable()) {
        const char* text =
            "CActionSendMail| nSMTPTLS is set, but TLS is not available in this "
            "build: every mail of this action will fail";
        vt::debugPrintf(vt::DBG_ERROR, "%s\r\n", text);
        vt::reportError(kMailError, "CActionSendMail", text);
    }
    createTimer();
}

std::string CActionConfigSendMail::heloName() const {
    std::u16string name;
    return vt::localComputerName(name) && !name.empty() ? vt::utf16ToUtf8(name) : "localhost";
}

bool CActionConfigSendMail::exchange(const std::string& command, int expect, const char* shown) {
    m_lost = false;
    if (!command.empty() && !m_session.send(command)) {
        m_lost = true;
        return false;
    }
    if (!readSmtpReply([this](std::string& line) { return m_session.readLine(line, 4096); },
                       m_reply)) {
        m_lost = true;
        return false;
    }
    if (m_reply.multiline)
        vt::debugPrintf(vt::DBG_ULTRA, "Multiline Reply: %s\r\n", m_reply.text.c_str());
    if (m_reply.code == expect) return true;
    vt::debugPrintf(vt::DBG_ERROR, "Mail error: Sent: %sReceived: %d %s\r\n",
                    shown ? shown : command.c_str(), m_reply.code, m_reply.text.c_str());
    return false;
}

bool CActionConfigSendMail::connect() {
    const std::string server = m_szSMTPServer.getStringA();
    vt::debugPrintf(vt::DBG_INFO, "CActionSendMail| initSMTP: Get Server '%s' \r\n",
                    server.c_str());
    m_connectedHost = server;
    if (m_session.open(server, static_cast<uint16_t>(m_nSMTPPort), kDialogueTimeoutMs)) return true;
    if (m_nEnableBackupServer != 1) return false;
    vt::debugWrite(
        vt::DBG_ERROR,
        "CActionSendMail|initSMTP: Catched CWinSockError - Trying Backup Server now!\r\n");
    m_connectedHost = m_szSMTPServerBackup.getStringA();
    return m_session.open(m_connectedHost, static_cast<uint16_t>(m_nSMTPPortBackup),
                          kDialogueTimeoutMs);
}

void CActionConfigSendMail::openSession() {
    if (!connect()) {
        vt::debugWrite(vt::DBG_ERROR, "CActionSendEmail: Connection failed\r\n");
        fail("Error: could not connect to the smtp-server");
    }
    const CStreamClient::TlsOptions tls{m_connectedHost, m_nSMTPTLSVerify == 1,
                                        m_szSMTPCAFile.getStringA()};
    if (m_nSMTPTLS == 3 && !m_session.startTls(tls)) {
        const std::string text =
            "Error: TLS with the smtp-server failed: " + m_session.lastErrorText();
        endSession(false);
        fail(text.c_str());
    }
    if (!exchange("", 220)) {
        endSession(false);
        fail("Error talking to smtp-server - no greeting");
    }
    try {
        hello();
        login();
    } catch (...) {
        endSession(false);
        throw;
    }
}

// HELO, or EHLO when logging in or asked for TLS; STARTTLS as configured.
void CActionConfigSendMail::hello() {
    const std::string name = heloName();
    const bool extended = m_nUseSMTPAuth == 1 || m_nSMTPTLS == 1 || m_nSMTPTLS == 2;
    if (!extended) {
        if (!exchange("HELO " + name + "\r\n", 250)) fail("Error talking to smtp-server - HELO");
        return;
    }
    if (!exchange("EHLO " + name + "\r\n", 250)) fail("Error talking to smtp-server - EHLO");
    const bool offered = m_reply.text.find("STARTTLS") != std::string::npos;
    if (m_nSMTPTLS == 1 && !offered) fail("Error: the smtp-server does not offer STARTTLS");
    if ((m_nSMTPTLS == 1 || m_nSMTPTLS == 2) && offered) {
        if (!exchange("STARTTLS\r\n", 220)) fail("Error talking to smtp-server - STARTTLS");
        const CStreamClient::TlsOptions tls{m_connectedHost, m_nSMTPTLSVerify == 1,
                                            m_szSMTPCAFile.getStringA()};
        if (!m_session.startTls(tls)) {
            const std::string text =
                "Error: TLS with the smtp-server failed: " + m_session.lastErrorText();
            fail(text.c_str());
        }
        if (!exchange("EHLO " + name + "\r\n", 250)) fail("Error talking to smtp-server - EHLO");
    }
}

void CActionConfigSendMail::login() {
    if (m_nUseSMTPAuth != 1) return;
    if (!exchange("AUTH LOGIN\r\n", 334)) fail("Error talking to smtp-server - AUTH LOGIN");
    const std::string user = vt::base64Encode(m_szSMTPUsername.getStringA());
    if (!exchange(user + "\r\n", 334, "<user name>\r\n"))
        fail("Mail Server Login failure - user name rejected");
    const std::string password = vt::base64Encode(m_szSMTPPassword.getStringA());
    if (!exchange(password + "\r\n", 235, "<password>\r\n"))
        fail("Mail Server Login failure - user name or password rejected");
}

void CActionConfigSendMail::endSession(bool polite) noexcept {
    if (!m_session.isOpen()) return;
    if (polite) {
        m_session.send("QUIT\r\n");
        std::string line;
        m_session.readLine(line, 512);
    }
    m_session.close();
}

bool CActionConfigSendMail::admit() {
    if (m_nMaxMailsPerInterval == 0) return true;
    const int64_t now = m_clock->nowSeconds();
    if (now >= m_windowEnd) {
        m_windowEnd = now + m_nMailInterval;
        m_sentInWindow = 0;
    }
    if (m_sentInWindow < m_nMaxMailsPerInterval) {
        ++m_sentInWindow;
        return true;
    }
    ++m_suppressed;
    return false;
}

uint32_t CActionConfigSendMail::takeSummary(bool force) {
    if (m_suppressed == 0 || (!force && m_clock->nowSeconds() < m_windowEnd)) return 0;
    const uint32_t count = m_suppressed;
    m_suppressed = 0;
    return count;
}

void CActionConfigSendMail::TimerAPCProc(void* context, uint32_t, uint32_t) {
    auto* config = static_cast<CActionConfigSendMail*>(context);
    config->enterLock();
    if (!config->isTimerPending()) {
        try {
            CActionSendMail::sendSummaryIfDue(*config, false);
        } catch (CErrorReport* raw) {
            std::unique_ptr<CErrorReport> report(raw);
            vt::debugPrintf(vt::DBG_ERROR, "CActionSendMail| summary mail failed: %s\r\n",
                            report->getMessage().getStringA());
        }
        config->endSession(true);
    }
    config->leaveLock();
}
