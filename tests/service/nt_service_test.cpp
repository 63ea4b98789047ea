#include "service/nt_service.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>
#include <tuple>
#include <vector>

#include "base/error_reporter.h"
#include "common/service_fixture_helper.h"
#include "platform/system_error.h"

namespace {
using vt::test::DebugCapture;
using vt::test::fileIn;
using vt::test::SyslogSink;
using vt::test::TempDir;

// Records which step the host called; user control 200 is the only one it handles.
class RecordingService : public CNTService {
  public:
    RecordingService()
        : CNTService("RecordingServiceNameThatIsLongerThanSixtyThreeCharactersInTotal!") {}
    std::vector<std::string> calls;
    void OnStop() override { calls.push_back("OnStop"); }
    void OnPause() override { calls.push_back("OnPause"); }
    void OnContinue() override { calls.push_back("OnContinue"); }
    void OnInterrogate() override { calls.push_back("OnInterrogate"); }
    void OnShutdown() override { calls.push_back("OnShutdown"); }
    bool OnUserControl(uint32_t control) override {
        calls.push_back("OnUserControl(" + std::to_string(control) + ")");
        return control == 200;
    }
};

// Each control code reaches its handler (a user code from 128 on), and only stop changes the
// state; the name is cut at 63 characters; a new service reports itself stopped.
TEST(NTService, ControlCodesReachTheirHandlers) {
    struct Case {
        uint32_t code;
        std::vector<std::string> calls;
        uint32_t state;  // state after the code
        bool running;
    } cases[] = {
        {1, {"OnStop"}, 3, false},
        {2, {"OnPause"}, 4, true},
        {3, {"OnContinue"}, 4, true},
        {4, {"OnInterrogate"}, 4, true},
        {5, {"OnShutdown"}, 4, true},
        {127, {}, 4, true},
        {128, {"OnUserControl(128)"}, 4, true},
        {200, {"OnUserControl(200)"}, 4, true},
    };
    for (const Case& c : cases) {
        RecordingService service;
        EXPECT_EQ(std::string(service.serviceName()).size(), 63u);
        const vt::ServiceStatus& st = service.status();  // stopped, stop accepted, own process
        EXPECT_EQ(std::tuple(st.currentState, st.controlsAccepted, st.serviceType),
                  std::tuple(1u, 1u, 16u));
        service.setRunning(true);
        service.SetStatus(4);
        service.HandleControl(c.code);
        EXPECT_EQ(service.calls, c.calls) << c.code;
        EXPECT_EQ(service.status().currentState, c.state) << c.code;
        EXPECT_EQ(service.isRunning(), c.running) << c.code;
    }
}

// Stop sets a 5 s wait hint; each checkpoint adds one and a second to the hint.
TEST(NTService, StopSetsTheWaitHintAndCheckpointsCountUp) {
    RecordingService service;
    DebugCapture log(vt::DBG_INFO);
    service.HandleControl(1);
    EXPECT_EQ(service.status().checkPoint, 0u);
    EXPECT_EQ(service.status().waitHint, 5000u);
    service.StillInShutdown();
    service.StillInShutdown();
    EXPECT_EQ(service.status().checkPoint, 2u);
    EXPECT_EQ(service.status().waitHint, 7000u);
    EXPECT_EQ(log.count("CNTService| StillInShutdown: Status checkpoint: dwCheckPoint: 2, "
                        "dwWaitHint: 7000, dwState: 3\r\n"),
              1u)
        << log.text();
}

// In console mode the checkpoints go to standard output instead of the service manager.
TEST(NTService, ConsoleCheckpointsArePrinted) {
    struct ConsoleService : CNTService {
        ConsoleService() : CNTService("ConsoleService") { m_consoleMode = true; }
    } service;
    testing::internal::CaptureStdout();
    service.HandleConsoleBreak();
    service.StillInShutdown();
    std::string out = testing::internal::GetCapturedStdout();
    std::erase(out, '\r');
    EXPECT_EQ(out,
              "ConsoleService: Initiating Shutdown, this can take up to 1 minute\n"
              "ConsoleService: InShutdown|Checkpoint: 1, WaitHint: 6000, dwState: 3\n");
    EXPECT_FALSE(service.isRunning());
}

// Every host step leaves a trace line "[<name>](<thread id>): <step>" at the Info level.
TEST(NTService, TraceLinesNameTheServiceAndThread) {
    DebugCapture log(vt::DBG_INFO);
    {
        CNTService service("TraceService");
        service.OnPause();
        service.OnUserControl(0xAB);
        EXPECT_TRUE(service.OnInit());
        EXPECT_FALSE(service.OnUserControl(300));
        service.SetStatus(3);
    }
    const std::string text = log.text();
    for (const char* step : {R"(OnPause\(\))", R"(OnUserControl\(000000ABH\))", R"(OnInit\(\))",
                             R"(SetStatus\(0, 3\))", R"(~CNTService\(\))"})
        EXPECT_TRUE(std::regex_search(
            text,
            std::regex(std::string(R"(\[TraceService\]\(\d+\): CNTService::)") + step + "\r\n")))
            << step << "\n"
            << text;
}

#ifndef _WIN32
// Refused controls are reported as error 106, a stop as information 108.
TEST(NTService, StopAndRefusedControlsAreReportedAsEvents) {
    TempDir dir;
    SyslogSink sink(fileIn(dir, "sock"));
    RecordingService service;
    service.HandleControl(127);
    service.HandleControl(128);
    service.HandleControl(200);
    service.HandleControl(1);
    const auto got = sink.take(3);
    ASSERT_EQ(got.size(), 3u);
    const std::string name = service.serviceName();
    EXPECT_NE(got[0].find("<27>"), std::string::npos);
    EXPECT_NE(got[0].find("]: [106] " + name), std::string::npos) << got[0];
    EXPECT_NE(got[1].find("]: [106] " + name), std::string::npos) << got[1];
    EXPECT_NE(got[2].find("<30>"), std::string::npos);
    EXPECT_NE(got[2].find("]: [108] " + name), std::string::npos) << got[2];
}
#endif

// Initialize: a failed OnInit leaves the service stopped with the system error as its exit
// code and reports 104; a successful one reports 105 and runs with a clean status.
TEST(NTService, InitializeReportsTheOutcomeOfOnInit) {
    struct StartingService : CNTService {
        explicit StartingService(bool succeed) : CNTService("StartingService"), ok(succeed) {}
        bool ok;
        bool OnInit() override {
            vt::setLastSystemError(1455);
            return ok;
        }
        bool start() { return Initialize(); }
    };
#ifndef _WIN32
    TempDir dir;
    SyslogSink sink(fileIn(dir, "sock"));
#endif
    StartingService failing(false);
    EXPECT_FALSE(failing.start());
    EXPECT_EQ(failing.status().currentState, 1u);
    EXPECT_EQ(failing.status().win32ExitCode, 1455u);
    StartingService starting(true);
    EXPECT_TRUE(starting.start());
    EXPECT_EQ(starting.status().currentState, 4u);
    EXPECT_EQ(starting.status().win32ExitCode, 0u);
#ifndef _WIN32
    const auto got = sink.take(2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_NE(got[0].find("<27>"), std::string::npos);
    EXPECT_NE(got[0].find("]: [104] StartingService"), std::string::npos) << got[0];
    EXPECT_NE(got[1].find("<30>"), std::string::npos);
    EXPECT_NE(got[1].find("]: [105] StartingService"), std::string::npos) << got[1];
#endif
}

// A stop during start-up: Run sees the cleared flag at once and returns without its wait.
TEST(NTService, RunReturnsAtOnceWhenStopCameFirst) {
    RecordingService service;
    service.setRunning(true);
    service.HandleControl(1);
    service.Run();
    EXPECT_FALSE(service.isRunning());
}

}  // namespace
