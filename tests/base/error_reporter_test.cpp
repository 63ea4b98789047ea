#include "base/error_reporter.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <regex>
#include <string>
#include <utility>
#include <vector>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "common/service_fixture_helper.h"
#include "platform/local_time.h"
#include "platform/process.h"

namespace {
using vt::ClockMinute;
using vt::EventThrottle;
using vt::test::DebugCapture;
using vt::test::fileIn;
using vt::test::SyslogSink;
using vt::test::TempDir;

// Feeds `count` events at one clock time; returns how many were admitted and how many closed
// the burst.
struct Outcome {
    int admitted = 0;
    int closed = 0;
};
Outcome feed(EventThrottle& throttle, ClockMinute at, int count) {
    Outcome o;
    for (int i = 0; i < count; ++i) {
        if (!throttle.admit(at)) continue;
        ++o.admitted;
        if (throttle.closeBurstIfFull(at)) ++o.closed;
    }
    return o;
}

// Catches a wrong burst window: each row feeds events at one clock time and expects how many
// are admitted and how many close the burst (100 within a minute and the one before silence the
// rest of the hour; a gap starts counting anew).
TEST(EventThrottle, BurstsAndSilence) {
    struct Step {
        ClockMinute at;
        int count, admitted, closed;
    };
    const std::vector<std::vector<Step>> runs = {
        {{{10, 5}, 100, 100, 1}, {{10, 6}, 5, 0, 0}, {{10, 59}, 5, 0, 0}, {{11, 0}, 99, 99, 0}},
        {{{8, 30}, 99, 99, 0}, {{8, 29}, 1, 1, 1}},
        {{{8, 30}, 99, 99, 0}, {{8, 31}, 1, 1, 0}},
        {{{9, 10}, 60, 60, 0},
         {{9, 40}, 99, 99, 0},
         {{9, 40}, 1, 1, 1},
         {{9, 59}, 3, 0, 0},
         {{10, 0}, 1, 1, 0}},
    };
    for (size_t r = 0; r < runs.size(); ++r) {
        EventThrottle throttle;
        for (const Step& step : runs[r]) {
            const Outcome o = feed(throttle, step.at, step.count);
            EXPECT_EQ(o.admitted, step.admitted) << r << " at " << step.at.minute;
            EXPECT_EQ(o.closed, step.closed) << r << " at " << step.at.minute;
        }
    }
}

// Catches a wrong severity, a lost second text or a missing separator in the datagram.
TEST(SyslogDatagram, CarriesPriorityTagIdAndTexts) {
    std::tm t{};
    t.tm_mon = 10, t.tm_mday = 2, t.tm_hour = 7, t.tm_min = 5, t.tm_sec = 9;
    EXPECT_EQ(vt::syslogEventDatagram("Tag", vt::EventType::error, 114, "first", "", false, t, 42),
              "<27>Nov  2 07:05:09 Tag[42]: [114] first");
    EXPECT_EQ(
        vt::syslogEventDatagram("Tag", vt::EventType::warning, 114, "first", "more", true, t, 42),
        "<28>Nov  2 07:05:09 Tag[42]: [114] first | more");
    EXPECT_EQ(
        vt::syslogEventDatagram("Tag", vt::EventType::information, 114, "first", "", true, t, 42),
        "<30>Nov  2 07:05:09 Tag[42]: [114] first | ");
}

// Catches a message set without its ultra-level trace, or a trace of the old message.
TEST(ErrorReport, MessageIsReplacedAndTracedAtUltra) {
    DebugCapture log(vt::DBG_ULTRA);
    CErrorReport report(7, CQuilletString("first"), 9);
    report.setMessage(CQuilletString(u"second"));
    EXPECT_EQ(std::string(report.getMessage().getStringA()), "second");
    EXPECT_EQ(log.text(),
              "CErrorReport| Error Message set: 'first'\r\n"
              "CErrorReport| Error Message set: 'second'\r\n");
}

// A clock the test sets; it starts in the last minute of an hour, local time.
class ManualClock final : public vt::Clock {
  public:
    ManualClock() {
        vt::CivilTime local;
        while (vt::localTimeOf(seconds, local) && local.minute != 59) seconds += 60;
    }
    int64_t nowSeconds() override { return seconds; }
    void sleepMs(uint32_t) override {}
    int64_t seconds = 1700000000 - 1700000000 % 60;
};

class ReporterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vt::resetErrorReporterThrottle();
        vt::setErrorReporterClock(&clock);
        vt::setEventlogWarningsSetting(-1);
    }
    void TearDown() override {
        vt::setErrorReporterClock(nullptr);
        vt::resetErrorReporterThrottle();
        vt::setEventlogWarningsSetting(-1);
    }
    TempDir dir;
    ManualClock clock;
};

// The wrapper's line goes to the debug log whatever happens to the event.
TEST_F(ReporterTest, WrappersWriteTheirDebugLines) {
    DebugCapture log(vt::DBG_ERROR | vt::DBG_ULTRA);
    SyslogSink sink(fileIn(dir, "sock"));
    vt::setEventlogWarningsSetting(0);
    vt::reportError(114, "Test::Error", "bad thing");
    vt::reportWarning(1044, "Test::Warning", "odd thing");
    vt::reportInformation(130, "Test::Info", "fine thing");
    const std::string text = log.raw();
    EXPECT_NE(text.find("| Error\t| Error Event 114 logged with data 'bad thing'.\r\n"),
              std::string::npos);
    EXPECT_NE(text.find("| Error\t| Warning Event 1044 logged with data 'odd thing'.\r\n"),
              std::string::npos);
    EXPECT_NE(text.find("| Ultra\t| Information Event 130 logged with data 'fine thing'.\r\n"),
              std::string::npos);
    EXPECT_EQ(text.find("Test::"), std::string::npos) << "the caller tag is not written";
}

// Catches lost exception lines, access details shown for other codes, or an event for id -1.
TEST_F(ReporterTest, SystemExceptionReportWritesItsLinesAndAsksForTheHandler) {
    DebugCapture log(vt::DBG_ERROR);
    vt::SystemExceptionDetails access;
    access.address = 0x401000;
    access.hasAccessDetails = true;
    access.accessKind = 1;
    access.accessAddress = 0x10;
    EXPECT_EQ(vt::reportSystemException(vt::kExceptionAccessViolation, "CWorker", "Run",
                                        vt::kNoEvent, access),
              vt::kExceptionExecuteHandler);
    vt::SystemExceptionDetails other;
    other.address = 0x1234;
    other.hasAccessDetails = true;  // ignored: not an access violation
    vt::reportSystemException(0xC0000094, "CWorker", "Divide", vt::kNoEvent, other);
    const std::string text = log.text();
    for (const char* line :
         {"CWorker| Run: System Exception caught, Code '0xc0000005'\r\n",
          "CWorker| Run: System Exception Details - ExceptionAddress='0x401000'\r\n",
          "CWorker| Run: System Exception Details - Parameter1='0x1', Parameter2='0x10'\r\n",
          "CWorker| Divide: System Exception caught, Code '0xc0000094'\r\n",
          "CWorker| Divide: System Exception Details - ExceptionAddress='0x1234'\r\n"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
    EXPECT_EQ(text.find("Divide: System Exception Details - Parameter1"), std::string::npos);
    EXPECT_EQ(text.find("Event"), std::string::npos) << "event id -1 reports no event";
}

#ifndef _WIN32
// Strips the "<PRI>Mmm dd hh:mm:ss " header and checks the tag; returns "<PRI>|<message>".
std::string shapeOf(const std::string& datagram) {
    static const std::regex header(
        R"(<(\d+)>[A-Z][a-z]{2} [ \d]\d \d{2}:\d{2}:\d{2} QuilletVantoreAgent\[\d+\]: ([\s\S]*))");
    std::smatch m;
    if (!std::regex_match(datagram, m, header)) return "malformed: " + datagram;
    return "<" + m[1].str() + ">|" + m[2].str();
}

// Catches a wrong severity or text on the wire, and warnings sent while switched off.
TEST_F(ReporterTest, EventsReachTheSyslogSocketWithSeverityAndText) {
    SyslogSink sink(fileIn(dir, "sock"));
    vt::reportError(114, "T", "engine failed", "details here");
    vt::reportWarning(1036, "T", "input restarted");
    vt::reportInformation(100, "T", "QuilletVantoreAgent");
    vt::setEventlogWarningsSetting(0);
    vt::reportWarning(1044, "T", "not sent: warnings are off");
    vt::setEventlogWarningsSetting(1);
    vt::reportWarning(1045, "T", "sent: warnings are on");
    const auto got = sink.take(4);
    ASSERT_EQ(got.size(), 4u);
    EXPECT_EQ(shapeOf(got[0]), "<27>|[114] engine failed | details here");
    EXPECT_EQ(shapeOf(got[1]), "<28>|[1036] input restarted");
    EXPECT_EQ(shapeOf(got[2]), "<30>|[100] QuilletVantoreAgent");
    EXPECT_EQ(shapeOf(got[3]), "<28>|[1045] sent: warnings are on");
}

// 100 errors in the last minute of an hour: the 100th is followed by event 151, then nothing until
// the next hour.
TEST_F(ReporterTest, BurstEndsWithEvent151AndSilenceUntilTheNextHour) {
    DebugCapture log(vt::DBG_ULTRA);
    SyslogSink sink(fileIn(dir, "sock"));
    for (int i = 1; i <= 100; ++i) vt::reportError(114, "T", "event " + std::to_string(i));
    vt::reportError(114, "T", "dropped in the same hour");
    clock.seconds += 60;  // the first minute of the next hour
    vt::reportError(114, "T", "first of the next hour");
    const auto got = sink.take(102);
    ASSERT_EQ(got.size(), 102u);
    EXPECT_EQ(shapeOf(got[99]), "<27>|[114] event 100");
    EXPECT_EQ(shapeOf(got[100]),
              "<27>|[151] Numerous runtime events were encountered .\r\nThis is usually caused by "
              "configuration or network problems.\r\nFrom now, there will no more events logged "
              "for this hour.");
    EXPECT_EQ(shapeOf(got[101]), "<27>|[114] first of the next hour");
    EXPECT_NE(log.text().find("A Event was not logged, internal EventLogging is disabled for "
                              "one hour\r\n"),
              std::string::npos);
}

// Catches a missing socket that is not reported as a failed registration.
TEST_F(ReporterTest, UnreachableSocketIsAFailedRegistration) {
    DebugCapture log(vt::DBG_INFO);
    vt::test::ScopedEnv socket("VTAGENT_EVENTLOG_SOCKET", fileIn(dir, "nobody-listens"));
    vt::reportError(114, "T", "lost");
    EXPECT_NE(log.raw().find("| Info\t| hEvtLog is NULL\r\n"), std::string::npos);
}

// Catches a wrong layout of the three exception lines in the event text.
TEST_F(ReporterTest, SystemExceptionWithAnEventIdReportsTheThreeLines) {
    SyslogSink sink(fileIn(dir, "sock"));
    vt::SystemExceptionDetails access;
    access.address = 0xABC;
    access.hasAccessDetails = true;
    access.accessKind = 0;
    access.accessAddress = 0x20;
    vt::reportSystemException(vt::kExceptionAccessViolation, "CQueManList", "Working", 114, access);
    vt::reportSystemException(0xE06D7363, "CServiceManager", "RunInfoSource", 1036, {});
    const auto got = sink.take(2);
    ASSERT_EQ(got.size(), 2u);
    EXPECT_EQ(shapeOf(got[0]),
              "<27>|[114] \nException: CQueManList| Working: System Exception caught, Code "
              "'0xc0000005' \nDetails: CQueManList| Working: System Exception Details - "
              "ExceptionAddress='0xabc' \nParams: CQueManList| Working: System Exception Details "
              "- Parameter1='0x0', Parameter2='0x20'");
    EXPECT_EQ(shapeOf(got[1]),
              "<27>|[1036] \nException: CServiceManager| RunInfoSource: System Exception caught, "
              "Code '0xe06d7363' \nDetails: CServiceManager| RunInfoSource: System Exception "
              "Details - ExceptionAddress='0x0' \nParams: ");
}
#endif

}  // namespace

#ifdef _WIN32
namespace {
// vtagent.exe carries a text for every event id the agent reports; the first insertion string
// appears in it. (The test program lives in tests/ below the directory of vtagent.exe.)
TEST(MessageTable, HasATextForEveryEventId) {
    const std::filesystem::path agent =
        std::filesystem::path(vt::executablePath()).parent_path().parent_path() / "vtagent.exe";
    ASSERT_TRUE(std::filesystem::exists(agent)) << agent.string();
    for (uint32_t id : {100u, 101u, 102u, 103u, 104u, 105u, 106u, 107u, 108u, 114u, 130u, 150u,
                        151u, 1036u, 1043u, 1044u, 1045u, 1050u, 1051u}) {
        std::string text;
        ASSERT_TRUE(vt::eventMessageText(agent.string(), id, {"INSERTED", "SECOND"}, text)) << id;
        EXPECT_NE(text.find("INSERTED"), std::string::npos) << id << ": " << text;
    }
    std::string text;
    EXPECT_FALSE(vt::eventMessageText(agent.string(), 109, {"x"}, text));
}
}  // namespace
#endif
