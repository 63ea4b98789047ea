#include "actions/send_mail/action_send_mail.h"

#include <algorithm>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

namespace {

[[noreturn]] void fail(const char* text) {
    throw new CErrorReport(117, CQuilletString(std::string_view(text)));
}

}  // namespace

MailContent CActionSendMail::contentFor(const CActionConfigSendMail& config,
                                        const CInfoUnit& unit) {
    MailContent mail;
    mail.from = config.m_szSMTPSender.getStringA();
    mail.to = config.m_recipients.recipients();
    const std::string subject =
        vt::utf16ToUtf8(vt::replaceProperties(config.m_szSMTPSubject.view(), &unit));
    mail.subject = subjectLine(subject, config.m_nUseLegacySubjectProcessing == 1);
    mail.body = config.m_nUseXMLtoReport == 1
                    ? vt::utf16ToUtf8(unit.toXML().view())
                    : vt::utf16ToUtf8(vt::replaceProperties(config.m_szSMTPBody.view(), &unit));
    mail.priority = config.m_nMailPriority == 0 ? 0 : config.m_nMailPriority == 2 ? 2 : 1;
    mail.date = config.m_clock->nowSeconds();
    mail.host = config.heloName();
    return mail;
}

bool CActionSendMail::transaction(CActionConfigSendMail& config, const MailContent& mail) {
    auto step = [&config](const std::string& command, int expect, const char* what) {
        if (config.exchange(command, expect)) return true;
        if (config.lostConnection()) return false;
        config.endSession(true);
        fail(what);
    };
    if (!step("MAIL FROM: <" + mail.from + ">\r\n", 250,
              "Error talking to smtp-server - MAIL FROM"))
        return false;
    for (const std::string& to : mail.to)
        if (!step("RCPT TO: <" + to + ">\r\n", 250, "Error talking to smtp-server - RCPT TO"))
            return false;
    if (!step("DATA\r\n", 354, "Error talking to smtp-server - DATA")) return false;
    if (!config.exchange(mailData(mail, config.nextMailNumber()) + ".\r\n", 250)) {
        if (config.lostConnection()) return false;
        vt::debugWrite(vt::DBG_ERROR,
                       "CActionSendEmail: GetResponseStatus did not respond with Status 250\r\n");
        config.endSession(true);
        fail("Error talking to smtp-server - END OF MAIL");
    }
    vt::debugWrite(vt::DBG_INFO, "CActionSendEmail: Send Message\r\n");
    return true;
}

void CActionSendMail::send(CActionConfigSendMail& config, const MailContent& mail) {
    if (mail.to.empty()) fail("Error: no valid recipient configured");
    const bool reused = config.sessionOpen();
    if (!reused) config.openSession();
    if (transaction(config, mail)) return;
    config.endSession(false);
    // A session that sat idle may have been dropped by the server: one fresh attempt.
    if (reused) {
        config.openSession();
        if (transaction(config, mail)) return;
        config.endSession(false);
    }
    fail("Error talking to smtp-server - connection lost");
}

void CActionSendMail::sendSummaryIfDue(CActionConfigSendMail& config, bool force) {
    const uint32_t count = config.takeSummary(force);
    if (count == 0) return;
    MailContent mail;
    mail.from = config.m_szSMTPSender.getStringA();
    mail.to = config.m_recipients.recipients();
    mail.subject = std::to_string(count) + " further alerts suppressed";
    mail.body = std::to_string(count) + " further alerts suppressed: more than " +
                std::to_string(config.m_nMaxMailsPerInterval) + " in " +
                std::to_string(config.m_nMailInterval) + " seconds.";
    mail.date = config.m_clock->nowSeconds();
    mail.host = config.heloName();
    send(config, mail);
}

void CActionSendMail::armIdleTimer() {
    uint32_t delay = m_config.m_nTimeoutValue;
    // While mails are being held back, the timer also ends the interval with its summary.
    if (m_config.m_nMaxMailsPerInterval != 0)
        delay = std::max(delay, m_config.m_nMailInterval * 1000);
    m_config.armTimer(&CActionConfigSendMail::TimerAPCProc, &m_config, delay);
}

void CActionSendMail::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    m_config.cancelTimer();
    try {
        sendSummaryIfDue(m_config, false);
        if (m_config.admit()) {
            send(m_config, contentFor(m_config, unit));
        } else {
            vt::debugWrite(vt::DBG_INFO, "CActionSendMail| flood control: mail held back\r\n");
        }
    } catch (...) {
        armIdleTimer();
        throw;
    }
    armIdleTimer();
}
