#pragma once
#include "actions/send_mail/action_config_send_mail.h"
#include "actions/send_mail/mail_message.h"
#include "engine/action_config.h"

class CInfoUnit;

// Mails each unit: the session of the settings is opened by the first unit and reused until
// the idle routine ends it. A reused session the server has dropped meanwhile is opened anew
// once before the mail counts as failed; a rejection by the server fails it at once.
class CActionSendMail : public CAction {
  public:
    explicit CActionSendMail(CActionConfigSendMail& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // What the settings make of the unit.
    static MailContent contentFor(const CActionConfigSendMail& config, const CInfoUnit& unit);
    // Sends one mail through the session; throws CErrorReport* on failure.
    static void send(CActionConfigSendMail& config, const MailContent& mail);
    // The flood summary of a closed interval (of any, with `force`).
    static void sendSummaryIfDue(CActionConfigSendMail& config, bool force);

  private:
    // False when the connection was lost; throws when the server refused.
    static bool transaction(CActionConfigSendMail& config, const MailContent& mail);
    void armIdleTimer();

    CActionConfigSendMail& m_config;
};
