#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "actions/actions_test_helper.h"
#include "actions/send_mail/mail_message.h"
#include "actions/send_mail/mail_rcpt_list.h"
#include "actions/send_mail/smtp_reply.h"

namespace vt::test {
namespace {

// Multi-line replies, replies without a code or with changing codes, and replies that never
// end are told apart; a connection that ends mid-reply is no reply at all.
TEST(SmtpReply, ParsesRepliesAndRefusesMalformedOnes) {
    struct Row {
        std::vector<std::string> lines;
        bool complete;
        int code;
    } rows[] = {
        {{"250 OK"}, true, 250},
        {{"250-mail.example", "250-STARTTLS", "250 AUTH LOGIN"}, true, 250},
        {{"250-first", "354 second"}, true, 0},
        {{"hello there"}, true, 0},
        {{"25"}, true, 0},
        {{"250-first"}, false, 0},
        {std::vector<std::string>(150, "250-again"), true, 0},
    };
    for (const Row& row : rows) {
        size_t next = 0;
        SmtpReply reply;
        const bool complete = readSmtpReply(
            [&](std::string& line) {
                if (next == row.lines.size()) return false;
                line = row.lines[next++];
                return true;
            },
            reply);
        EXPECT_EQ(complete, row.complete) << row.lines[0];
        if (complete) {
            EXPECT_EQ(reply.code, row.code) << row.lines[0];
        }
    }
}

// Addresses separated by commas, semicolons or blanks; anything a command could be smuggled
// through is refused.
TEST(MailRecipients, SplitsAndRefuses) {
    CMailRcptList list;
    list.setRecipients("a@x.org, b@y.org;c@z.org  d@w.org;;bad,<e@v.org>,f@@g,h@i.org\r\nRSET");
    EXPECT_EQ(list.recipients(),
              (std::vector<std::string>{"a@x.org", "b@y.org", "c@z.org", "d@w.org", "h@i.org"}));
}

// The DATA text: bare LF and CR become CR LF, a line starting with "." is doubled, a subject
// cannot carry a second header, non-ASCII goes in encoded words and base64.
TEST(MailMessage, TransparencyLineEndsAndEncoding) {
    MailContent mail;
    mail.from = "agent@x.org";
    mail.to = {"ops@x.org"};
    mail.subject = subjectLine("disk\r\nBcc: evil@x.org", false);
    mail.body = "one\n.two\r..three\rfour";
    mail.priority = 0;
    const std::string data = mailData(mail, 7);
    EXPECT_NE(data.find("Subject: disk  Bcc: evil@x.org\r\n"), std::string::npos) << data;
    EXPECT_EQ(subjectLine("first\r\nsecond", true), "first");
    EXPECT_NE(data.find("X-Priority: 5\r\nPriority: Non-Urgent\r\nImportance: low\r\n"),
              std::string::npos);
    EXPECT_NE(data.find("\r\n\r\none\r\n..two\r\n...three\r\nfour\r\n"), std::string::npos) << data;
    mail.subject = "Störung";
    mail.body = "é";
    const std::string encoded = mailData(mail, 8);
    EXPECT_NE(encoded.find("Subject: =?UTF-8?B?U3TDtnJ1bmc=?=\r\n"), std::string::npos) << encoded;
    EXPECT_NE(encoded.find("Content-Transfer-Encoding: base64\r\n\r\nw6kNCg==\r\n"),
              std::string::npos)
        << encoded;
    // Day and hour padded with a blank, the offset as sign and four digits.
    EXPECT_TRUE(std::regex_match(
        mailDate(1700000000),
        std::regex(R"([A-Z][a-z]{2}, [ 123]\d [A-Z][a-z]{2} 2023 [ 12]\d:\d\d:\d\d [+-]\d{4})")))
        << mailDate(1700000000);
}

// A scripted server: each line it reads is answered from the script in order, then it closes.
class ScriptedSmtp {
  public:
    explicit ScriptedSmtp(std::vector<std::string> replies) {
        m_listener = CWinSock::create(AF_INET, SOCK_STREAM);
        CIPAddress any;
        CIPAddress::fromText("127.0.0.1", 0, any);
        m_listener.bind(any);
        m_listener.listen(1);
        m_thread = std::thread([this, replies] {
            CWinSock peer = m_listener.accept(nullptr);
            peer.sendAll("220 ready\r\n");
            std::string buffer;
            char chunk[4096];
            for (const std::string& reply : replies) {
                // One command (DATA content ends with ".\r\n").
                while (buffer.find("\r\n") == std::string::npos) {
                    const int n = peer.receive(chunk, sizeof chunk);
                    if (n <= 0) return;
                    buffer.append(chunk, static_cast<size_t>(n));
                }
                m_received += buffer;
                buffer.clear();
                if (reply == "<close>") return;
                peer.sendAll(reply + "\r\n");
            }
        });
    }
    ~ScriptedSmtp() { m_thread.join(); }
    uint16_t port() const { return m_listener.localAddress().port(); }

  private:
    CWinSock m_listener;
    std::thread m_thread;
    std::string m_received;
};

// A server that answers DATA with 250, or closes in the middle, fails the mail with the text
// of the step; a refused password is named as the Part names it.
TEST(SendMailAction, ServerMisbehaviourFailsTheMail) {
    struct Row {
        std::vector<std::string> replies;
        bool auth;
        const char* text;
    } rows[] = {
        {{"250 hi", "250 ok", "250 ok", "250 not 354"},
         false,
         "Error talking to smtp-server - DATA"},
        {{"250 hi", "250 ok", "<close>"}, false, "connection lost"},
        {{"250 hi", "334 VXNlcm5hbWU6", "334 UGFzc3dvcmQ6", "535 no"},
         true,
         "Mail Server Login failure - user name or password rejected"},
    };
    for (const Row& row : rows) {
        ScriptedSmtp server(row.replies);
        ScopedRegistry registry;
        const std::u16string key = registry.base() + u"\\A1";
        regSetDword(key, u"nSMTPPort", server.port());
        regSetString(key, u"szSMTPRecipient", u"ops@x.org");
        regSetDword(key, u"nUseSMTPAuth", row.auth ? 1 : 0);
        regSetString(key, u"szSMTPPassword", u"pw");
        auto entry = loadAction(key, 1002);
        DebugCapture log;
        CConfigSettings settings;
        entry->CallAction(*makeForwardUnit(u"x"), settings);
        EXPECT_GE(log.count(row.text), 1u) << row.text << "\n" << log.text();
        entry.reset();  // ends the session before the server goes
    }
}

}  // namespace
}  // namespace vt::test
