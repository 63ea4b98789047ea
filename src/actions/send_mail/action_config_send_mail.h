#pragma once
#include <atomic>
#include <cstdint>
#include <string>

#include "actions/send_mail/mail_rcpt_list.h"
#include "actions/send_mail/smtp_reply.h"
#include "base/net/stream_client.h"
#include "engine/action_config.h"
#include "engine/action_types.h"

// Settings of the send-mail action, and its SMTP session, which stays open between units until
// the idle routine ends it with QUIT. Beyond the classic settings: "nSMTPTLS" (0 none,
// 1 STARTTLS required, 2 STARTTLS when offered, 3 TLS from the start), "nSMTPTLSVerify" (1),
// "szSMTPCAFile", and flood control: at most "nMaxMailsPerInterval" mails (0: no limit) per
// "nMailInterval" seconds, the rest counted into one summary mail.
class CActionConfigSendMail : public CActionConfig {
  public:
    CActionConfigSendMail(const CQuilletString& keyPath, const vt::ActionLoadContext& context);
    ~CActionConfigSendMail() override;
    void LoadConfig() override;

    CQuilletString m_szSMTPServer{u"127.0.0.1"};
    uint32_t m_nSMTPPort = 25;
    CQuilletString m_szSMTPRecipient;
    CQuilletString m_szSMTPSender;
    CQuilletString m_szSMTPSubject{u"No Subject given"};
    CQuilletString m_szSMTPBody;
    uint32_t m_nEnableBackupServer = 0;
    CQuilletString m_szSMTPServerBackup{u"127.0.0.1"};
    uint32_t m_nSMTPPortBackup = 25;
    CQuilletString m_szSMTPUsername;
    CQuilletString m_szSMTPPassword;
    uint32_t m_nUseXMLtoReport = 0;
    uint32_t m_nTimeoutValue = 0;
    uint32_t m_nOutputEncoding = 0;
    uint32_t m_nUseSMTPAuth = 0;
    uint32_t m_nMailPriority = 1;
    uint32_t m_nUseLegacySubjectProcessing = 1;
    uint32_t m_nSMTPTLS = 0;
    uint32_t m_nSMTPTLSVerify = 1;
    CQuilletString m_szSMTPCAFile;
    uint32_t m_nMaxMailsPerInterval = 0;
    uint32_t m_nMailInterval = 60;
    CMailRcptList m_recipients;
    vt::Clock* m_clock;

    // The session, used under the action's lock.
    bool sessionOpen() const noexcept { return m_session.isOpen(); }
    // Connects (the backup server when the main one cannot be reached), greets, starts TLS and
    // logs in as configured. Throws CErrorReport* on failure.
    void openSession();
    // QUIT when `polite`, then the connection is closed.
    void endSession(bool polite) noexcept;
    // Sends `command` (nothing when empty) and reads the reply; false, with the exchange
    // logged, when its code is not `expect`. `shown` replaces the command in the log (for
    // credentials).
    bool exchange(const std::string& command, int expect, const char* shown = nullptr);
    const SmtpReply& lastReply() const noexcept { return m_reply; }
    bool lostConnection() const noexcept { return m_lost; }

    // Flood control, under the lock: whether this unit may be mailed now; a unit beyond the
    // limit is counted instead.
    bool admit();
    // The summary of the closed interval, when one is due: the count, and the interval is
    // reset.
    uint32_t takeSummary(bool force);
    uint64_t nextMailNumber() noexcept { return ++m_mailNumber; }
    std::string heloName() const;

    static void TimerAPCProc(void* context, uint32_t, uint32_t);

  private:
    bool connect();
    void hello();
    void login();

    CStreamClient m_session;
    std::string m_connectedHost;  // the name TLS checks the certificate against
    SmtpReply m_reply;
    bool m_lost = false;
    int64_t m_windowEnd = 0;
    uint32_t m_sentInWindow = 0;
    uint32_t m_suppressed = 0;
    std::atomic<uint64_t> m_mailNumber;
};
