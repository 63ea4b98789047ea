#include "sources/event_log/event_log_monitor.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"

namespace vt::test {
namespace {

EventRecord record(uint32_t number, uint16_t type = 4) {
    EventRecord r;
    r.position.record = number;
    r.type = type;
    r.eventId = 1000 + number;
    r.source = "app";
    r.message = "event " + std::to_string(number);
    return r;
}

// A log held in memory: reads in batches of two, seeks by record number, and can be cleared,
// truncated (old records gone) or corrupted at a record.
struct RecordedLog {
    std::vector<EventRecord> records;
    std::set<uint32_t> corrupt;
    int clears = 0;
    uint32_t clearError = 0;
};

class RecordedReader final : public IEventLogReader {
  public:
    explicit RecordedReader(RecordedLog& log) : m_log(log) {}
    uint32_t open() override { return 0; }
    uint32_t readFirst(const LogPosition& from, std::vector<EventRecord>& out) override {
        m_next = 0;
        if (from.record != 0) {
            while (m_next < m_log.records.size() &&
                   m_log.records[m_next].position.record != from.record)
                ++m_next;
            if (m_next == m_log.records.size()) return kEventLogNoRecord;
        }
        return readNext(out);
    }
    uint32_t readNext(std::vector<EventRecord>& out) override {
        out.clear();
        while (m_next < m_log.records.size() && out.size() < 2) {
            if (m_log.corrupt.count(m_log.records[m_next].position.record))
                return out.empty() ? kEventLogCorrupt : 0;
            out.push_back(m_log.records[m_next++]);
        }
        return out.empty() ? kEventLogEnd : 0;
    }
    uint32_t clear(const std::string&) override {
        ++m_log.clears;
        if (m_log.clearError == 0) m_log.records.clear();
        return m_log.clearError;
    }

  private:
    RecordedLog& m_log;
    size_t m_next = 0;
};

// The monitor with its units recorded instead of handed to a queue.
class RecordingMonitor : public CInfoSourceNTEventReport {
  public:
    using CInfoSourceNTEventReport::CInfoSourceNTEventReport;
    std::vector<std::string> units;
    int failAt = 0;  // the n-th hand-over fails (0: none)

  protected:
    bool handOver(CInfoUnitNTEventReport& unit) override {
        if (failAt != 0 && int(units.size()) + 1 == failAt) return false;
        units.emplace_back(unit.getMsgA());
        return true;
    }
};

class EventLogMonitorTest : public testing::Test {
  protected:
    ScopedRegistry registry;
    FakeClock clock;
    std::u16string services = registry.base() + u"\\Services";
    std::u16string config = services + u"\\IS1";
    RecordedLog log;

    void SetUp() override {
        regSetDword(config, u"nConfigVersion", 1);
        regSetDword(config, u"nPreventOverrunDelay", 0);
        regSetDword(config + u"\\Application", u"nEnabled", 1);
    }
    std::unique_ptr<RecordingMonitor> make() {
        InfoSourceContext context;
        context.serviceName = CQuilletString(u"events");
        context.serviceId = 3;
        context.servicesKeyPath = CQuilletString(std::u16string_view(services));
        context.dataKeyPath = CQuilletString(registry.base() + u"\\AgentData");
        context.clock = &clock;
        auto monitor = std::make_unique<RecordingMonitor>(context);
        monitor->setServiceNumber(1);
        EXPECT_TRUE(monitor->LoadConfig());
        monitor->setRegPathes();
        monitor->m_makeReader = [this](const CInfoSourceNTEventReport::LogConfig&) {
            return std::make_unique<RecordedReader>(log);
        };
        return monitor;
    }
    void add(uint32_t from, uint32_t to, uint16_t type = 4) {
        for (uint32_t n = from; n <= to; ++n) log.records.push_back(record(n, type));
    }
    // The numbers of the units' events, in order.
    static std::vector<int> numbers(const std::vector<std::string>& units) {
        std::vector<int> out;
        for (const std::string& u : units) out.push_back(std::stoi(u.substr(u.rfind(' ') + 1)));
        return out;
    }
};

// Fresh state reports everything; the next run starts after the saved record (never again the
// saved one); a restart of the monitor goes on from the saved state.
TEST_F(EventLogMonitorTest, EachRecordOnceAcrossRunsAndRestarts) {
    add(1, 5);
    auto monitor = make();
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2, 3, 4, 5}));
    add(6, 7);
    monitor->runOnce();
    auto again = make();
    add(8, 8);
    again->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(numbers(again->units), (std::vector<int>{8}));
}

// The start-up skip moves the position to the newest record without units; "nNoExistingEntries"
// does the same for a log seen the first time only.
TEST_F(EventLogMonitorTest, StartupSkipAndExistingEntries) {
    add(1, 3);
    regSetDword(config, u"nDoNotProcessLastRecordOnStartup", 1);
    auto monitor = make();
    monitor->runOnce();
    add(4, 4);
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{4}));

    regSetDword(config, u"nDoNotProcessLastRecordOnStartup", 0);
    regSetDword(config, u"nConfigVersion", 2);
    regSetDword(config + u"\\Application", u"nNoExistingEntries", 1);
    auto restarted = make();  // the log has a saved state: nothing is skipped
    add(5, 5);
    restarted->runOnce();
    EXPECT_EQ(numbers(restarted->units), (std::vector<int>{5}));
}

// A log cleared between runs (the saved record is gone) restarts at its first record and says
// so; with "nDoNotProcessLastRecord" that run only moves the position.
TEST_F(EventLogMonitorTest, TruncatedLogRestartsAtTheBeginning) {
    for (uint32_t doNotProcess : {0u, 1u}) {
        log = {};
        add(1, 3);
        regSetDword(config, u"nDoNotProcessLastRecord", doNotProcess);
        regSetDword(config, u"nConfigVersion", 3 + doNotProcess);
        auto monitor = make();
        monitor->runOnce();
        log.records.clear();
        add(10, 11);
        DebugCapture capture;
        monitor->runOnce();
        EXPECT_GE(capture.count("ShowEvtLog: ERROR \"Application\"/87"), 1u);
        const std::vector<int> expected =
            doNotProcess ? std::vector<int>{1, 2, 3} : std::vector<int>{1, 2, 3, 10, 11};
        EXPECT_EQ(numbers(monitor->units), expected);
        registry.alsoRemove(registry.base() + u"\\AgentData");  // a fresh state next round
        CRegAccess().DeleteKey(RegRoot::LocalMachine,
                               CQuilletString(registry.base() + u"\\AgentData"));
    }
}

// Only the types in the filter become units, success (type 0) by bit 1; filtered records still
// move the position.
TEST_F(EventLogMonitorTest, EventTypeFilter) {
    regSetDword(config + u"\\Application", u"nFilterEventType", 2);
    log.records = {record(1, 0), record(2, 1), record(3, 4), record(4, 1)};
    auto monitor = make();
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{2, 4}));
    regSetDword(config + u"\\Application", u"nFilterEventType", 1);
    regSetDword(config, u"nConfigVersion", 7);
    auto success = make();
    log.records.push_back(record(5, 0));
    success->runOnce();
    EXPECT_EQ(numbers(success->units), (std::vector<int>{5}));
}

// A rule engine failure on the third record ends the pass with the second saved: the next run
// hands on the third again, and nothing twice before it.
TEST_F(EventLogMonitorTest, FailedUnitLeavesThePositionBeforeIt) {
    add(1, 5);
    auto monitor = make();
    monitor->failAt = 3;
    DebugCapture capture;
    monitor->runOnce();
    EXPECT_EQ(capture.count("Aborting current event log reporting run"), 1u);
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2}));
    monitor->failAt = 0;
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2, 3, 4, 5}));
}

// Corruption: mode 1 warns and steps over the record; mode 0 starts again at the beginning.
TEST_F(EventLogMonitorTest, CorruptedRecordByMode) {
    add(1, 4);
    auto monitor = make();
    monitor->runOnce();
    add(5, 7);
    log.corrupt = {5};
    DebugCapture capture;
    monitor->runOnce();  // 5 cannot be read: warned about and stepped over in the same pass
    EXPECT_GE(capture.count("is corrupted at entry 4"), 1u);
    log.corrupt.clear();
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2, 3, 4, 6, 7}));

    regSetDword(config, u"nEventLogCor", 0);  // start again at the beginning instead
    regSetDword(config, u"nConfigVersion", 9);
    auto restarting = make();
    add(8, 8);
    log.corrupt = {8};
    restarting->runOnce();
    EXPECT_EQ(numbers(restarting->units), (std::vector<int>{1, 2, 3, 4, 5, 6, 7}));
}

// Clearing every second run with records; a log that cannot be cleared is reported once.
TEST_F(EventLogMonitorTest, ClearingEveryNthRun) {
    regSetDword(config + u"\\Application", u"nClearEventLog", 1);
    regSetDword(config + u"\\Application", u"nClearEveryNthRun", 2);
    add(1, 2);
    auto monitor = make();
    monitor->runOnce();
    EXPECT_EQ(log.clears, 0);
    add(3, 3);
    monitor->runOnce();
    EXPECT_EQ(log.clears, 1);
    add(1, 2);  // the cleared log numbers anew
    monitor->runOnce();
    EXPECT_EQ(numbers(monitor->units), (std::vector<int>{1, 2, 3, 1, 2}));
    log.clearError = 50;
    DebugCapture capture;
    add(10, 10);
    monitor->runOnce();
    monitor->runOnce();  // the second run of the count: the clearing fails
    const size_t once = capture.count("cannot be cleared by this agent");
    EXPECT_GE(once, 1u);
    for (int i = 0; i < 4; ++i) {
        add(11 + i, 11 + i);
        monitor->runOnce();
    }
    EXPECT_EQ(capture.count("cannot be cleared by this agent"), once);
}

// The message layouts: tags, the optional parts, the legacy form, the sentence for a record
// without text, and control characters.
TEST(EventLogText, Layouts) {
    EventRecord r = record(7, 1);
    r.user = "CORP\\alice";
    r.message = "disk\r\n\tfull";
    EventTextOptions o;
    EXPECT_EQ(eventText(r, "System", o), "[ERR] app: 1007: CORP\\alice: disk full");
    o.addLogType = true;
    o.addUser = false;
    o.addFacility = false;
    EXPECT_EQ(eventText(r, "System", o), "[ERR] [System] 1007: disk full");
    o.legacy = true;
    EXPECT_EQ(eventText(r, "System", o), "app: 1007: disk full");
    r.message.clear();
    r.type = 16;
    r.strings = {"a\x01", "b"};
    o = EventTextOptions{};
    o.removeControlFromParams = true;
    EXPECT_EQ(
        eventText(r, "System", o),
        "[AUF] app: 1007: CORP\\alice: The description for Event ID ( 1007 ) in Source ( app ) "
        "could not be found. It contains the following insertion string(s): a b");
    EXPECT_EQ(eventFilterBit(0), 1u);
    EXPECT_EQ(eventFilterBit(16), 32u);
    EXPECT_STREQ(severityTag(3), "[NON]");
}

}  // namespace
}  // namespace vt::test
