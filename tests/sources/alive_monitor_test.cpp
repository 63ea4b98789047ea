#include <gtest/gtest.h>

#include <string>
#include <thread>

#include "sources/alive_monitor/alive_echo.h"
#include "sources/alive_monitor/alive_protocol.h"
#include "sources/alive_monitor/alive_request.h"

namespace {

// Only exact requests are answered and only exact echoes count: trailing bytes, signs,
// numbers beyond 32 bits and missing names are noise, not a sign of life.
TEST(AliveProtocol, ParsesOnlyWellFormedDatagrams) {
    uint32_t seq = 0;
    std::string name;
    EXPECT_TRUE(vt::alive::parseRequest(vt::alive::request(4294967295u), seq));
    EXPECT_EQ(seq, 4294967295u);
    ASSERT_TRUE(vt::alive::parseEcho(vt::alive::echo(7, "host a"), seq, name));
    EXPECT_EQ(seq, 7u);
    EXPECT_EQ(name, "host a");
    for (const char* bad : {"VTALIVE REQUEST ", "VTALIVE REQUEST 12x", "VTALIVE REQUEST -1",
                            "VTALIVE REQUEST 4294967296", "vtalive request 1", "VTALIVE ECHO 1"})
        EXPECT_FALSE(vt::alive::parseRequest(bad, seq)) << bad;
    for (const char* bad :
         {"VTALIVE ECHO 1", "VTALIVE ECHO 1x name", "VTALIVE ECHO  name", "VTALIVE REQUEST 1 name"})
        EXPECT_FALSE(vt::alive::parseEcho(bad, seq, name)) << bad;
}

// A request side against a running echo responder gets its echo; once the responder is
// stopped it reports the time-out after its retries instead of hanging or taking noise.
TEST(AliveMonitor, EchoAnswersAndSilenceIsATimeOut) {
    vt::InfoSourceContext context;
    CInfoSourceAliveMonEcho echo(context);
    echo.m_szMyIPAddress = CQuilletString(u"127.0.0.1");
    echo.m_nListenPort = 0;
    std::thread responder([&] { echo.Run(); });
    while (echo.boundPort() == 0) std::this_thread::yield();

    CInfoSourceAliveMonRequest request(context);
    request.m_szTargetHost = CQuilletString(u"127.0.0.1");
    request.m_nTargetPort = echo.boundPort();
    request.m_nTimeOutLimit = 300;
    request.m_nNbrOfRetries = 1;
    const auto answered = request.ask();
    EXPECT_EQ(answered.status, 0u);
    EXPECT_FALSE(answered.responder.empty());

    echo.setRun(false);
    echo.wake();
    responder.join();
    EXPECT_EQ(request.ask().status, 10060u);
    request.m_szTargetHost = CQuilletString(u"no.such.host.invalid");
    EXPECT_EQ(request.ask().status, 11001u);
}

}  // namespace
