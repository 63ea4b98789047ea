#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/icmp_echo.h"
#include "sources/probes/dialogue_probes.h"
#include "sources/probes/port_ping_probes.h"

namespace vt::test {
namespace {

// Greetings that mean "service not available" fail the check, with the reply code as status;
// ordinary greetings of each protocol pass.
TEST(ProbeGreetings, ServiceNotAvailableIsAFailure) {
    InfoSourceContext context;
    CInfoSourceNNTPProbe nntp(context);
    CInfoSourceFTPProbe ftp(context);
    CInfoSourceSMTPProbe smtp(context);
    CInfoSourcePOP3Probe pop3(context);
    CInfoSourceIMAPProbe imap(context);
    struct Row {
        const CInfoSourceGreetingProbe& probe;
        const char* greeting;
        uint32_t status;
    } rows[] = {
        {nntp, "200 news.example ready", 0}, {nntp, "400 service discontinued", 400},
        {nntp, "502 access denied", 502},    {ftp, "220 FTP ready", 0},
        {ftp, "421 too many users", 421},    {smtp, "220 mail ESMTP", 0},
        {smtp, "421 shutting down", 421},    {smtp, "554 no service here", 554},
        {pop3, "+OK POP3 ready", 0},         {pop3, "-ERR maintenance", 1},
        {imap, "* OK IMAP4rev1 ready", 0},   {imap, "* BYE too busy", 1},
    };
    for (const Row& row : rows) {
        uint32_t status = 99;
        EXPECT_EQ(row.probe.refuses(row.greeting, status), row.status != 0) << row.greeting;
        EXPECT_EQ(status, row.status) << row.greeting;
    }
}

// Ping: the retries are spaced and counted as configured, the first reply ends them, and no
// ICMP socket at all is not retried.
TEST(PingProbe, RetriesUntilAReply) {
    struct Row {
        std::vector<uint32_t> answers;
        size_t calls;
        uint32_t status;
    } rows[] = {
        {{kEchoTimedOut, kEchoTimedOut, kEchoSuccess}, 3, 0},
        {{kEchoTimedOut, kEchoTimedOut, kEchoTimedOut, kEchoSuccess}, 3, kEchoTimedOut},
        {{10013}, 1, 10013},
    };
    for (const Row& row : rows) {
        InfoSourceContext context;
        CInfoSourcePingProbe ping(context);
        ping.m_nRetryInterval = 1;
        ping.m_nNbrOfRetries = 3;
        size_t calls = 0;
        ping.m_echo = [&](const std::string&, uint32_t, uint32_t& rtt, std::string&) {
            rtt = 7;
            return row.answers[calls++];
        };
        EXPECT_EQ(ping.checkOnce().status, row.status);
        EXPECT_EQ(calls, row.calls);
    }
}

// The real echo on loopback, both families, where this machine lets us open an ICMP socket.
TEST(PingProbe, LoopbackAnswers) {
    for (const char* host : {"127.0.0.1", "::1"}) {
        uint32_t rtt = 0;
        std::string error;
        const uint32_t status = icmpEcho(host, 2000, rtt, error);
        if (status != kEchoSuccess && status != kEchoTimedOut &&
            error.find("ICMP socket") != std::string::npos)
            GTEST_SKIP() << "no ICMP socket here: " << error;
        EXPECT_EQ(status, kEchoSuccess) << host << ": " << error;
    }
}

}  // namespace
}  // namespace vt::test
