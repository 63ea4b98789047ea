// Interoperability with a real syslog server: rsyslogd, started by the test on loopback high
// ports with its own configuration, pid file and work directory, writing every message it gets
// to a file with a raw-message template. Linux only; skipped when rsyslogd is not installed.
#ifndef _WIN32
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "actions/send_syslog/syslog_message.h"
#include "actions/send_syslog_test_helper.h"
#include "base/config_settings.h"
#include "common/registry_fixture.h"
#include "engine/action_list.h"
#include "engine/timer_queue.h"
#include "platform/utf_codec.h"
#include "service/action_type_table.h"

extern char** environ;

namespace {

using namespace vt;
using namespace vt::test;
using namespace std::chrono;

constexpr const char* kRsyslogd = "/usr/sbin/rsyslogd";

uint16_t freePort(int type) {
    CIPAddress local;
    CIPAddress::fromText("127.0.0.1", 0, local);
    CWinSock s = CWinSock::create(AF_INET, type);
    s.bind(local);
    return s.localAddress().port();
}

// One rsyslogd: UDP input to udp.log, TCP input to tcp.log, each line the raw message.
class RsyslogPeer {
  public:
    RsyslogPeer() : m_udpPort(freePort(SOCK_DGRAM)), m_tcpPort(freePort(SOCK_STREAM)) {
        const std::string d = m_dir.path().string();
        std::ofstream conf(m_dir.path() / "rsyslog.conf");
        conf << "global(workDirectory=\"" << d << "\" maxMessageSize=\"128k\")\n"
             << "module(load=\"imudp\")\n"
             << "module(load=\"imtcp\")\n"
             << "template(name=\"raw\" type=\"string\" string=\"%rawmsg%\\n\")\n"
             << "ruleset(name=\"udp\") { action(type=\"omfile\" file=\"" << d
             << "/udp.log\" template=\"raw\") }\n"
             << "ruleset(name=\"tcp\") { action(type=\"omfile\" file=\"" << d
             << "/tcp.log\" template=\"raw\") }\n"
             << "input(type=\"imudp\" address=\"127.0.0.1\" port=\"" << m_udpPort
             << "\" ruleset=\"udp\")\n"
             << "input(type=\"imtcp\" address=\"127.0.0.1\" port=\"" << m_tcpPort
             << "\" ruleset=\"tcp\")\n";
    }
    ~RsyslogPeer() { stop(); }

    uint16_t udpPort() const { return m_udpPort; }
    uint16_t tcpPort() const { return m_tcpPort; }

    // Starts the daemon in the foreground and waits until both inputs take messages.
    bool start() {
        const std::string conf = (m_dir.path() / "rsyslog.conf").string();
        const std::string pid = (m_dir.path() / "rsyslogd.pid").string();
        const std::string log = (m_dir.path() / "rsyslogd.out").string();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                         0600);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        std::vector<std::string> args = {kRsyslogd, "-n", "-f", conf, "-i", pid};
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        const int rc = posix_spawn(&m_pid, kRsyslogd, &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (rc != 0) {
            m_pid = -1;
            return false;
        }
        return waitReady();
    }

    void stop() {
        if (m_pid <= 0) return;
        kill(m_pid, SIGTERM);
        int status = 0;
        if (!eventually([&] { return waitpid(m_pid, &status, WNOHANG) != 0; }, seconds(15))) {
            kill(m_pid, SIGKILL);
            waitpid(m_pid, &status, 0);
        }
        m_pid = -1;
    }

    // The lines of an output file, without the readiness probes.
    std::vector<std::string> lines(const char* file) {
        std::ifstream in(m_dir.path() / file, std::ios::binary);
        std::vector<std::string> out;
        std::string line;
        while (std::getline(in, line))
            if (line.rfind("probe-", 0) != 0) out.push_back(line);
        return out;
    }
    // Polls until the file holds `count` lines (besides probes), or 60 s have passed.
    bool waitForLines(const char* file, size_t count) {
        return eventually([&] { return lines(file).size() >= count; }, seconds(60));
    }
    std::string daemonOutput() {
        std::ifstream in(m_dir.path() / "rsyslogd.out");
        std::stringstream s;
        s << m_notReady << "; rsyslogd said: " << in.rdbuf();
        return s.str();
    }

  private:
    bool waitReady() {
        CIPAddress udpTarget;
        CIPAddress::fromText("127.0.0.1", m_udpPort, udpTarget);
        CWinSock probe = CWinSock::create(AF_INET, SOCK_DGRAM);
        const auto limit = steady_clock::now() + seconds(60);
        bool tcpReady = false;
        while (steady_clock::now() < limit) {
            if (!tcpReady) tcpReady = connectTo(m_tcpPort);
            const std::string p = "probe-" + std::to_string(++m_probes);
            probe.sendTo(p.data(), int(p.size()), udpTarget);
            if (tcpReady && fileHas("udp.log", p)) return true;
            std::this_thread::sleep_for(milliseconds(50));
        }
        int status = 0;
        m_notReady = std::string("tcp ready: ") + (tcpReady ? "yes" : "no") +
                     ", daemon running: " + (waitpid(m_pid, &status, WNOHANG) == 0 ? "yes" : "no");
        return false;
    }
    static bool connectTo(uint16_t port) {
        CIPAddress target;
        CIPAddress::fromText("127.0.0.1", port, target);
        CWinSock s = CWinSock::create(AF_INET, SOCK_STREAM);
        return s.connect(target);
    }
    bool fileHas(const char* file, const std::string& text) {
        std::ifstream in(m_dir.path() / file, std::ios::binary);
        std::string line;
        while (std::getline(in, line))
            if (line == text) return true;
        return false;
    }

    TempDir m_dir;
    uint16_t m_udpPort;
    uint16_t m_tcpPort;
    pid_t m_pid = -1;
    int m_probes = 0;
    std::string m_notReady;
};

class RsyslogInteropTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (access(kRsyslogd, X_OK) != 0) GTEST_SKIP() << "rsyslogd is not installed";
        ASSERT_TRUE(m_peer.start()) << m_peer.daemonOutput();
    }

    // A rule with one forward action per entry of `actions` (values of its key).
    std::unique_ptr<CActionList> rule(const std::vector<ActionValues>& actions) {
        const std::u16string key = m_registry.base() + u"\\Rule";
        ActionValues ruleValues;
        ruleValues.dwords = {{u"nActionCount", uint32_t(actions.size())}};
        for (size_t i = 0; i < actions.size(); ++i) {
            const std::u16string n = utf8ToUtf16(std::to_string(i + 1));
            ruleValues.dwords.push_back({u"nActionType" + n, 1001});
            writeActionKey(key + u"\\A" + n, actions[i]);
        }
        writeActionKey(key, ruleValues);
        return std::make_unique<CActionList>(CQuilletString(key),
                                             ActionLoadContext{nullptr, vt::agentActionTypes()});
    }
    ActionValues target(uint16_t port, uint32_t type, bool compress = false) {
        ActionValues v;
        v.strings = {{u"szSyslogSendServer", u"127.0.0.1"}};
        v.dwords = {{u"nSyslogSendPort", port}, {u"nType", type}, {u"nUseCompression", compress}};
        return v;
    }
    static std::string expectedText(const CInfoUnit& unit) {
        return encodeSyslogText(buildSyslogText(unit, unit.getMsgText(), true, false), 0);
    }
    static std::unique_ptr<CInfoUnit> numbered(int i, size_t padding = 0) {
        return makeForwardUnit(u"app[42]: message " + utf8ToUtf16(std::to_string(i)) + u" \u00e4 " +
                                   std::u16string(padding, u'p'),
                               (i % 24), (i % 8), u"host1", u"app");
    }

    ScopedRegistry m_registry;
    CConfigSettings m_settings;
    TimerQueueScope m_worker;
    RsyslogPeer m_peer;
};

// One rule forwards every unit over UDP, TCP and compressed UDP; rsyslog gets every message
// byte for byte, the compressed datagrams inflated.
TEST_F(RsyslogInteropTest, RuleForwardsOverUdpTcpAndCompressedUdp) {
    auto actions = rule({target(m_peer.udpPort(), 0), target(m_peer.tcpPort(), 1),
                         target(m_peer.udpPort(), 0, true)});
    std::vector<std::string> udpExpected, tcpExpected;
    for (int i = 0; i < 200; ++i) {
        auto unit = numbered(i, size_t(i % 3 == 0 ? 500 : 0));
        ASSERT_TRUE(actions->execute(*unit, m_settings));
        udpExpected.push_back(expectedText(*unit));
        udpExpected.push_back(expectedText(*unit));
        tcpExpected.push_back(expectedText(*unit));
        // Datagrams on loopback are not paced by anything; a pause now and then keeps the
        // receiver's socket buffer from overflowing.
        if (i % 50 == 49) m_peer.waitForLines("udp.log", udpExpected.size());
    }
    ASSERT_TRUE(m_peer.waitForLines("udp.log", udpExpected.size()));
    ASSERT_TRUE(m_peer.waitForLines("tcp.log", tcpExpected.size()));
    EXPECT_EQ(m_peer.lines("udp.log"), udpExpected);
    EXPECT_EQ(m_peer.lines("tcp.log"), tcpExpected);
}

// 100,000 units over one TCP connection arrive complete and in order.
TEST_F(RsyslogInteropTest, HundredThousandOverTcpInOrder) {
    auto actions = rule({target(m_peer.tcpPort(), 1)});
    std::vector<std::string> expected;
    expected.reserve(100000);
    const auto started = steady_clock::now();
    for (int i = 0; i < 100000; ++i) {
        auto unit = numbered(i);
        ASSERT_TRUE(actions->execute(*unit, m_settings));
        expected.push_back(expectedText(*unit));
    }
    const auto sent = steady_clock::now();
    ASSERT_TRUE(m_peer.waitForLines("tcp.log", expected.size()));
    EXPECT_EQ(m_peer.lines("tcp.log"), expected);
    std::printf("100000 units sent in %lld ms\n",
                (long long)duration_cast<milliseconds>(sent - started).count());
}

// The receiver restarts in the middle of a stream: the units sent after the restart arrive,
// in order, and the debug log shows the reconnect.
TEST_F(RsyslogInteropTest, ReceiverRestartInTheMiddleOfAStream) {
    DebugCapture capture;
    auto actions = rule({target(m_peer.tcpPort(), 1)});
    std::vector<std::string> expected;
    for (int i = 0; i < 1000; ++i) {
        auto unit = numbered(i);
        ASSERT_TRUE(actions->execute(*unit, m_settings));
        expected.push_back(expectedText(*unit));
    }
    ASSERT_TRUE(m_peer.waitForLines("tcp.log", expected.size()));
    m_peer.stop();
    ASSERT_TRUE(m_peer.start()) << m_peer.daemonOutput();
    for (int i = 1000; i < 2000; ++i) {
        auto unit = numbered(i);
        ASSERT_TRUE(actions->execute(*unit, m_settings));
        expected.push_back(expectedText(*unit));
    }
    ASSERT_TRUE(m_peer.waitForLines("tcp.log", expected.size()));
    EXPECT_EQ(m_peer.lines("tcp.log"), expected);
    const std::string log = capture.text();
    EXPECT_NE(log.find("was closed by the server"), std::string::npos);
    EXPECT_NE(log.find("reconnecting"), std::string::npos);
}

}  // namespace
#endif
