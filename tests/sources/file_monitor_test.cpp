#include "sources/file_monitor/file_monitor.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "../common/registry_fixture.h"
#include "base/reg_access.h"
#include "common/engine_test_helper.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"
#include "service/info_source_types.h"

namespace vt::test {
namespace {

namespace fs = std::filesystem;

// 2009-03-07 23:59:00 UTC.
constexpr int64_t kBeforeMidnight = 1236470340;

struct Seen {
    std::string msg;
    std::map<std::string, std::string> properties;
};

// The monitor with the hand-over replaced: units are recorded, and one may be failed.
class RecordingMonitor : public CInfoSourceFileMonitor {
  public:
    using CInfoSourceFileMonitor::CInfoSourceFileMonitor;
    std::vector<Seen> seen;
    int failCall = -1;  // the hand-over with this index (counted from 0) reports a failure
    int calls = 0;
    std::vector<std::u16string> wanted{u"genericfilename", u"generatedfilename", u"msgsep",
                                       u"msgseplast"};

  protected:
    bool handOver(CInfoUnitFileMonitor& unit) override {
        if (calls++ == failCall) return false;
        Seen s;
        s.msg = utf16ToUtf8(unit.getMsgText());
        for (const auto& name : wanted)
            if (unit.findProperty(name))
                s.properties[utf16ToUtf8(name)] = utf16ToUtf8(unit.getPropertyString(name));
        seen.push_back(std::move(s));
        return true;
    }
};

class FileMonitorTest : public ::testing::Test {
  protected:
    ScopedRegistry registry;
    TempDir files;
    std::u16string services = registry.base() + u"\\Services";
    std::u16string data = registry.base() + u"\\AgentData";
    std::u16string config = services + u"\\IS1";

    void SetUp() override {
        setDword(u"nPreventOverrunDelay", 0);
        setDword(u"nConfigVersion", 1);
    }
    void setDword(const char16_t* name, uint32_t value) { regSetDword(config, name, value); }
    void setString(const char16_t* name, const std::string& value) {
        regSetString(config, name, utf8ToUtf16(value));
    }
    void follow(const std::string& pattern) {
        setString(u"szPathAndFileName", (files.path() / pattern).string());
    }
    std::string path(const std::string& name) const { return (files.path() / name).string(); }

    std::unique_ptr<RecordingMonitor> make(int64_t now = kBeforeMidnight) {
        InfoSourceContext context;
        context.serviceName = CQuilletString(u"files");
        context.serviceId = 5;
        context.servicesKeyPath = CQuilletString(std::u16string_view(services));
        context.dataKeyPath = CQuilletString(std::u16string_view(data));
        context.clock = &clock;
        auto monitor = std::make_unique<RecordingMonitor>(context);
        monitor->setServiceNumber(1);
        clock.set(now);
        EXPECT_TRUE(monitor->LoadConfig());
        monitor->setRegPathes();
        return monitor;
    }
    static void append(const std::string& file, const std::string& bytes) {
        std::ofstream out(file, std::ios::binary | std::ios::app);
        out << bytes;
    }
    static void rewrite(const std::string& file, const std::string& bytes) {
        std::ofstream out(file, std::ios::binary | std::ios::trunc);
        out << bytes;
    }
    static std::vector<std::string> msgs(const RecordingMonitor& m) {
        std::vector<std::string> out;
        for (const Seen& s : m.seen) out.push_back(s.msg);
        return out;
    }
    // The offset saved in the data key.
    uint64_t savedOffset(const RecordingMonitor& m) {
        CRegAccess reg;
        EXPECT_TRUE(reg.OpenKey(RegRoot::LocalMachine, m.getStatePath()));
        uint32_t low = 0, high = 0;
        reg.ReadDWORDValue(u"nLastPosLow", low, 0);
        reg.ReadDWORDValue(u"nLastPosHigh", high, 0);
        return (static_cast<uint64_t>(high) << 32) | low;
    }

    FakeClock clock{kBeforeMidnight};
};

using Lines = std::vector<std::string>;

// Catches a lost tail at the day change: at midnight the rest of yesterday's file comes first,
// then today's from its start, and the saved offset is the new file's.
TEST_F(FileMonitorTest, DailyNameAcrossMidnight) {
    follow("ex%y%m%d.log");
    append(path("ex090307.log"), "a\nb\n");
    auto monitor = make();
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b"}));
    ASSERT_FALSE(monitor->seen.empty());
    EXPECT_EQ(monitor->seen[0].properties["generatedfilename"], path("ex090307.log"));
    EXPECT_EQ(monitor->seen[0].properties["genericfilename"], path("ex%y%m%d.log"));

    append(path("ex090307.log"), "c\n");
    append(path("ex090308.log"), "d\n");
    clock.set(kBeforeMidnight + 120);
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b", "c", "d"}));
    EXPECT_EQ(monitor->seen.back().properties["generatedfilename"], path("ex090308.log"));
    EXPECT_EQ(savedOffset(*monitor), 2u);
}

// Catches a restart that starts with today's file: stopped before midnight, started after it,
// the rest of yesterday's file still comes first.
TEST_F(FileMonitorTest, RestartAfterMidnightFinishesYesterdaysFileFirst) {
    follow("ex%y%m%d.log");
    append(path("ex090307.log"), "a\n");
    make()->doProcessFile();
    append(path("ex090307.log"), "late\n");
    append(path("ex090308.log"), "new\n");
    auto monitor = make(kBeforeMidnight + 120);
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"late", "new"}));
}

// Catches a switch to the new day's name before that file exists.
TEST_F(FileMonitorTest, KeepReadingUntilTheNewFileExists) {
    follow("ex%y%m%d.log");
    setDword(u"nKeepReadingUntilNew", 1);
    append(path("ex090307.log"), "a\n");
    auto monitor = make();
    monitor->doProcessFile();
    clock.advance(120);
    append(path("ex090307.log"), "b\n");
    monitor->doProcessFile();
    append(path("ex090307.log"), "c\n");
    monitor->doProcessFile();
    append(path("ex090308.log"), "d\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b", "c", "d"}));
}

// Catches positions kept past a shrink, copy-truncate or rename, and lines lost on the way.
TEST_F(FileMonitorTest, TruncationAndRotation) {
    follow("app.log");
    append(path("app.log"), "one\ntwo\nthree\n");
    auto monitor = make();
    monitor->doProcessFile();

    // Shrunk below the saved offset: read again from the start.
    rewrite(path("app.log"), "x\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"one", "two", "three", "x"}));

    // Copy-truncate: same file, now empty; its new lines are read from the start.
    fs::copy_file(path("app.log"), path("app.log.1"));
    rewrite(path("app.log"), "");
    monitor->doProcessFile();
    append(path("app.log"), "y\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor).back(), "y");

    // Rename and re-create with a file already larger than the offset: the lines the old file
    // got before the rename come first, then the new file from its start.
    append(path("app.log"), "z\n");
    fs::rename(path("app.log"), path("app.log.2"));
    append(path("app.log"), "new file line 1\nnew file line 2\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor),
              (Lines{"one", "two", "three", "x", "y", "z", "new file line 1", "new file line 2"}));
}

// Catches an offset saved past a failed unit, kept empty lines, or a half line handed on.
TEST_F(FileMonitorTest, EmptyLinesAndFailedUnits) {
    follow("app.log");
    setDword(u"nIgnoreEmptyLines", 1);
    append(path("app.log"), "a\n\r\n\nb\n");
    auto monitor = make();
    monitor->failCall = 1;  // "b" fails once
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a"}));
    EXPECT_EQ(savedOffset(*monitor), 5u);  // past the empty lines, before "b"
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b"}));
    EXPECT_EQ(savedOffset(*monitor), 7u);

    setDword(u"nIgnoreEmptyLines", 0);
    setDword(u"nConfigVersion", 2);
    ASSERT_TRUE(monitor->LoadConfig());
    append(path("app.log"), "\nc");
    monitor->doProcessFile();  // "c" has no line end yet
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b", ""}));
    append(path("app.log"), "\r\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"a", "b", "", "c"}));
}

// Catches lost column names, comments taken as data, or a header forgotten over a restart.
TEST_F(FileMonitorTest, W3CHeaderColumnsAndComments) {
    follow("w3c.log");
    setDword(u"nLogFileType", 1);
    append(path("w3c.log"),
           "#Software: server\n#Fields: date time c-ip\n"
           "2009-03-07 10:00:00 10.0.0.1 GET /index\n#Remark: not a header\n"
           "2009-03-07 10:00:01  10.0.0.2\n");
    auto monitor = make();
    monitor->wanted = {u"date", u"time", u"c-ip", u"p-param3", u"p-param4"};
    monitor->doProcessFile();
    ASSERT_EQ(monitor->seen.size(), 2u);
    auto& first = monitor->seen[0].properties;
    EXPECT_EQ(first["date"], "2009-03-07");
    EXPECT_EQ(first["c-ip"], "10.0.0.1");
    EXPECT_EQ(first["p-param3"], "GET");
    EXPECT_EQ(first["p-param4"], "/index");
    auto& second = monitor->seen[1].properties;
    EXPECT_EQ(second["time"], "10:00:01");
    EXPECT_EQ(second["c-ip"], "");  // two spaces: an empty column
    EXPECT_EQ(second["p-param3"], "10.0.0.2");

    // The header is kept in the data key and used after a restart.
    CRegAccess reg;
    ASSERT_TRUE(reg.OpenKey(RegRoot::LocalMachine, monitor->getStatePath()));
    CQuilletString header;
    ASSERT_TRUE(reg.ReadStringValue(u"szW3CHeader", header));
    EXPECT_EQ(std::string(header.getStringA()), "#Fields: date time c-ip");
    append(path("w3c.log"), "d t 10.0.0.3\n");
    auto again = make();
    again->wanted = monitor->wanted;
    again->doProcessFile();
    ASSERT_EQ(again->seen.size(), 1u);
    EXPECT_EQ(again->seen[0].properties["c-ip"], "10.0.0.3");
}

// Catches offsets saved in characters instead of bytes, or a BOM read as text.
TEST_F(FileMonitorTest, Utf16FileWithBomKeepsByteOffsets) {
    follow("u16.log");
    const std::u16string text = u"caf\u00E9\r\nzwei\r\n";
    const std::string bytes = utf16File(text);
    append(path("u16.log"), bytes);
    auto monitor = make();
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"caf\xC3\xA9", "zwei"}));
    EXPECT_EQ(savedOffset(*monitor), bytes.size());
}

// Catches a monitor that stops, loses bytes or stays silent on hostile files.
TEST_F(FileMonitorTest, HostileFilesGiveADebugLineAndTheMonitorGoesOn) {
    DebugCapture debug;
    follow("bad.log");
    // Ten megabytes in one line, handed on whole in pieces.
    append(path("bad.log"), std::string(10u * 1024u * 1024u, 'x') + "\nend\n");
    auto monitor = make();
    monitor->doProcessFile();
    ASSERT_EQ(monitor->seen.size(), 161u);
    size_t total = 0;
    for (size_t i = 0; i + 1 < monitor->seen.size(); ++i) total += monitor->seen[i].msg.size();
    EXPECT_EQ(total, 10u * 1024u * 1024u);
    EXPECT_EQ(monitor->seen.back().msg, "end");
    EXPECT_NE(debug.text().find("handing it on in pieces"), std::string::npos);

    // A megabyte of NUL bytes makes no message.
    append(path("bad.log"), std::string(1024u * 1024u, '\0'));
    monitor->seen.clear();
    monitor->doProcessFile();
    EXPECT_TRUE(monitor->seen.empty());
    EXPECT_NE(debug.text().find("NUL character(s)"), std::string::npos);
    append(path("bad.log"), "\nafter nul\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"after nul"}));

    // Replaced by a directory, then by a file again.
    fs::remove(path("bad.log"));
    fs::create_directory(path("bad.log"));
    monitor->doProcessFile();
    EXPECT_NE(debug.text().find("is a directory"), std::string::npos);
    fs::remove(path("bad.log"));
    append(path("bad.log"), "back\n");
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"after nul", "back"}));

    // A name that cannot be opened even by an administrator: a path through a file.
    setString(u"szPathAndFileName", path("bad.log") + "/inner.log");
    setDword(u"nConfigVersion", 2);
    ASSERT_TRUE(monitor->LoadConfig());
    monitor->doProcessFile();
    EXPECT_NE(debug.text().find("Can't open file"), std::string::npos);
}

// Catches old state ignored or left in the configuration key.
TEST_F(FileMonitorTest, OldStateInTheConfigurationKeyIsMoved) {
    follow("app.log");
    append(path("app.log"), "old\nnew\n");
    setDword(u"nLastPosLow", 4);
    setString(u"szW3CHeader", "#Fields: a b");
    auto monitor = make();
    monitor->doProcessFile();
    EXPECT_EQ(msgs(*monitor), (Lines{"new"}));
    CRegAccess reg;
    ASSERT_TRUE(reg.OpenKey(RegRoot::LocalMachine, CQuilletString(std::u16string_view(config))));
    uint32_t value = 0;
    EXPECT_FALSE(reg.ReadDWORDValue(u"nLastPosLow", value));
    CQuilletString text;
    EXPECT_FALSE(reg.ReadStringValue(u"szW3CHeader", text));
}

// Catches a wildcard that matches directories, the wrong single file, or shares one offset.
TEST_F(FileMonitorTest, WildcardsOneOrSeveralFiles) {
    follow("app-*.log");
    setDword(u"nUseWildcard", 1);
    append(path("app-1.log"), "one\n");
    append(path("app-2.log"), "two\n");
    fs::create_directory(path("app-3.log"));  // a directory never matches
    auto single = make();
    single->doProcessFile();
    EXPECT_EQ(msgs(*single), (Lines{"two"}));

    setDword(u"nMultipleFiles", 1);
    auto several = make();
    several->doProcessFile();
    EXPECT_EQ(msgs(*several), (Lines{"one", "two"}));
    append(path("app-1.log"), "one more\n");
    several->doProcessFile();
    EXPECT_EQ(msgs(*several), (Lines{"one", "two", "one more"}));
    // Each file's offset survives a restart on its own.
    append(path("app-2.log"), "two more\n");
    auto restarted = make();
    restarted->doProcessFile();
    EXPECT_EQ(msgs(*restarted), (Lines{"two more"}));
}

// Catches old lines read on the first run, and wrong separator properties or cleanup.
TEST_F(FileMonitorTest, SkipLinesAndSeparatorsAndCleanup) {
    follow("app.log");
    setDword(u"nSkipLinesEnabled", 1);
    setDword(u"nPropertyMsgSep", 1);
    setDword(u"nEntriesCount", 2);
    setDword(u"nCompressSpaces", 1);
    setDword(u"nRemoveLeadingSpaces", 1);
    setString(u"szMsgSep1", "BEGIN");
    setString(u"szMsgSep2", "END");
    append(path("app.log"), "history\nmore history\n");
    auto monitor = make();
    monitor->doProcessFile();
    EXPECT_TRUE(monitor->seen.empty());  // what the file held before it was first followed

    append(path("app.log"), "   x  BEGIN\ny\nz END\n");
    monitor->doProcessFile();
    ASSERT_EQ(msgs(*monitor), (Lines{"x BEGIN", "y", "z END"}));
    EXPECT_EQ(monitor->seen[1].properties["msgsep"], "BEGIN");
    EXPECT_EQ(monitor->seen[1].properties.count("msgseplast"), 0u);
    EXPECT_EQ(monitor->seen[2].properties["msgsep"], "END");
    EXPECT_EQ(monitor->seen[2].properties["msgseplast"], "BEGIN");
}

}  // namespace
}  // namespace vt::test
