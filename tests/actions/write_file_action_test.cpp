#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "actions/write_file/write_file_config.h"
#include "engine/timer_queue.h"
#include "model/info_unit_types.h"
#include "platform/append_file.h"
#include "platform/utf_codec.h"
#include "write_file_test_helper.h"

namespace {

using namespace vt;
using namespace vt::test;
namespace fs = std::filesystem;

constexpr int64_t kNoon = 1237034096;        // 2009-03-14 12:34:56 UTC
constexpr int64_t kLastSecond = 1237075199;  // 2009-03-14 23:59:59 UTC

std::vector<std::string> filesIn(const fs::path& dir) {
    std::vector<std::string> names;
    for (const auto& e : fs::recursive_directory_iterator(dir))
        if (e.is_regular_file()) names.push_back(fs::relative(e.path(), dir).generic_string());
    std::sort(names.begin(), names.end());
    return names;
}

// The daily file's name stays the default, every line is its message: the file is "Vantor.log".
void plainMessageFile(WriteFileRig& rig) {
    rig.setDword(u"nUniqueFileName", 0);
    rig.messageLines();
}

// A message template that makes each line exactly `size` bytes with the "%msg%%$CRLF%" format.
std::u16string lineOf(size_t size, char fill) {
    return std::u16string(size - 2, static_cast<char16_t>(fill));
}

TEST(WriteFileSettingsTest, DefaultsAndLoadedValues) {
    WriteFileRig rig;
    rig.setString(u"szFilePath", u"%NTEventLogType%/x");
    rig.setString(u"szLineFormat", u"[%NTEventLogType%] %msg%");
    rig.setDword(u"nMaxFileSize", 3);
    rig.setDword(u"nSegmentFileBySize", 5);
    rig.load();
    // The other defaults show in the names and lines the tests below expect.
    CActionConfigWriteFile& c = rig.config();
    EXPECT_EQ(c.filePath(), u"%nteventlogtype%/x");
    EXPECT_EQ(c.lineFormat(), u"[%nteventlogtype%] %msg%");
    EXPECT_EQ(c.maxFileSize(), 3u * 1024);
    EXPECT_EQ(c.segmentFileBySize(), 5u * 1024);
    EXPECT_EQ(c.numberOfLogfiles(), 10);
    EXPECT_TRUE(c.hasTimer());

    CActionConfigWriteFile missing(CQuilletString(rig.keyPath() + u"\\none"));
    missing.LoadConfig();
#ifdef _WIN32
    EXPECT_EQ(missing.filePath(), u"C:\\temp");
#else
    EXPECT_EQ(missing.filePath(), u"/var/log/vtagent");
#endif
    EXPECT_EQ(missing.segmentFileBySize(), 4096u * 1024);
}

TEST(WriteFileActionTest, DefaultsWriteTheDailyFileWithEveryField) {
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.load();
    CInfoUnitSyslog unit;
    unit.setMsg(u"disk full, again");
    unit.setPropertyString(u"source", u"10.0.0.7");
    unit.setSyslogFacility(1);
    unit.setSyslogPriority(2);
    rig.write(unit);
    EXPECT_EQ(unit.getActionFailed(), 0);
    EXPECT_EQ(filesIn(rig.dir()), std::vector<std::string>{"Vantor-2009-03-14.log"});
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor-2009-03-14.log"),
              "2009-03-14,12:34:56,2009-03-14,12:34:56,10.0.0.7,1,2,disk full, again\r\n");
}

TEST(WriteFileActionTest, DailyNameChangesAtMidnightWhileTheFileIsOpen) {
    struct Case {
        const char* tz;
        int32_t utcNames;
        int64_t lastSecond;
    };
    // The local day of "XYZ-3" ends three hours before the UTC day.
    const Case cases[] = {{"XYZ-3", 1, kLastSecond}, {"XYZ-3", 0, kLastSecond - 3 * 3600}};
    for (const Case& c : cases) {
        ScopedTimeZone tz(c.tz);
        ScopedFakeTime time(c.lastSecond);
        TimerQueueScope timers;  // as on a worker: the file stays open between units
        WriteFileRig rig;
        rig.setDword(u"nUseUTCInFileName", static_cast<uint32_t>(c.utcNames));
        rig.messageLines();
        rig.load();
        rig.write(u"before");
        ASSERT_TRUE(rig.config().isFileOpen());
        time.set(c.lastSecond + 1);
        rig.write(u"after");
        EXPECT_EQ(readFileBytes(rig.dir() / "Vantor-2009-03-14.log"), "before\r\n")
            << "UTC names " << c.utcNames;
        EXPECT_EQ(readFileBytes(rig.dir() / "Vantor-2009-03-15.log"), "after\r\n")
            << "UTC names " << c.utcNames;
    }
}

TEST(WriteFileActionTest, NameSchemesInOrderOfPrecedence) {
    struct Case {
        const char* name;
        std::vector<std::pair<std::u16string, uint32_t>> values;
        std::string file;
    };
    const Case cases[] = {
        {"daily with source", {{u"nIncludeSourceInFilename", 1}}, "Vantor-host1-2009-03-14.log"},
        {"daily beats circle", {{u"nCircularLogging", 1}}, "Vantor-2009-03-14.log"},
        {"circle",
         {{u"nUniqueFileName", 0}, {u"nCircularLogging", 1}, {u"nLastFileNumber", 7}},
         "Vantor7.log"},
        {"plain", {{u"nUniqueFileName", 0}}, "Vantor.log"},
        {"segment", {{u"nSegmentFileEnable", 1}}, "Vantor-2009-03-14_1.log"},
        {"segment with source",
         {{u"nSegmentFileEnable", 1}, {u"nIncludeSourceInFilename", 1}, {u"nUniqueFileName", 0}},
         "Vantor-host1-2009-03-14_1.log"},
        {"circle switches segments off",
         {{u"nSegmentFileEnable", 1}, {u"nCircularLogging", 1}, {u"nUniqueFileName", 0}},
         "Vantor1.log"},
    };
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    for (const Case& c : cases) {
        WriteFileRig rig;
        for (const auto& [name, value] : c.values) rig.setDword(name, value);
        rig.load();
        rig.write(u"x");
        EXPECT_EQ(filesIn(rig.dir()), std::vector<std::string>{c.file}) << c.name;
    }
}

TEST(WriteFileActionTest, CircleOfThreeRestartsEachFileEmpty) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.setDword(u"nUniqueFileName", 0);
    rig.setDword(u"nCircularLogging", 1);
    rig.setDword(u"nNumberOfLogfiles", 3);
    rig.setDword(u"nMaxFileSize", 1);  // 1024 bytes: two lines of 512
    rig.messageLines();
    // Old content in the later files must be gone when the circle reaches them.
    std::ofstream(rig.dir() / "Vantor2.log") << "stale two\r\n";
    std::ofstream(rig.dir() / "Vantor3.log") << "stale three\r\n";
    rig.load();

    const std::string b(510, 'b'), c(510, 'c'), d(510, 'd');
    std::vector<uint32_t> numbers;
    for (char fill : {'a', 'a', 'b', 'b', 'c', 'c', 'd'}) {
        rig.write(lineOf(512, fill));
        numbers.push_back(rig.storedDword(u"nLastFileNumber"));
    }
    // Stored after each rotation: 2 after the 2nd line, 3 after the 4th, 1 after the 6th.
    const std::vector<uint32_t> expected = {0xFFFFFFFFu, 2, 2, 3, 3, 1, 1};
    EXPECT_EQ(numbers, expected);
    EXPECT_EQ(rig.config().lastFileNumber(), 1);
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor1.log"), d + "\r\n");
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor2.log"), b + "\r\n" + b + "\r\n");
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor3.log"), c + "\r\n" + c + "\r\n");
}

TEST(WriteFileActionTest, CircleCountsWhatTheFileHeldBefore) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.setDword(u"nUniqueFileName", 0);
    rig.setDword(u"nCircularLogging", 1);
    rig.setDword(u"nNumberOfLogfiles", 2);
    rig.setDword(u"nMaxFileSize", 1);
    rig.messageLines();
    std::ofstream(rig.dir() / "Vantor1.log") << std::string(1000, 'o');
    rig.load();
    rig.write(u"0123456789012345678901234");  // 1000 + 27 bytes reaches 1024
    EXPECT_EQ(rig.storedDword(u"nLastFileNumber"), 2u);
    rig.write(u"next");
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor2.log"), "next\r\n");
}

TEST(WriteFileActionTest, SegmentsAreCutAtTheirSize) {
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.setDword(u"nSegmentFileEnable", 1);
    rig.setDword(u"nSegmentFileBySize", 1);
    rig.messageLines();
    rig.load();
    for (int i = 0; i < 10; ++i) {
        std::string msg = std::to_string(i) + std::string(297, 'x');  // 300-byte lines
        rig.write(u16(msg));
    }
    // A segment is cut by the line that reaches 1024 bytes: four lines each, two left.
    const std::vector<std::string> files = {"Vantor-2009-03-14_1.log", "Vantor-2009-03-14_2.log",
                                            "Vantor-2009-03-14_3.log"};
    ASSERT_EQ(filesIn(rig.dir()), files);
    int next = 0;
    const size_t counts[] = {4, 4, 2};
    for (int f = 0; f < 3; ++f) {
        const auto lines = splitLines(readFileBytes(rig.dir() / files[f]));
        ASSERT_EQ(lines.size(), counts[f]) << files[f];
        for (const std::string& line : lines) EXPECT_EQ(line[0], '0' + next++);
    }
    // A new day starts again at segment 1.
    time.set(kNoon + 86400);
    rig.write(u"tomorrow");
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor-2009-03-15_1.log"), "tomorrow\r\n");
}

TEST(WriteFileActionTest, InvalidFormatWritesNothingAndReports) {
    DebugCapture log;
    WriteFileRig rig;
    rig.setDword(u"nFileFormat", 4);
    rig.load();
    CInfoUnitSyslog unit;
    unit.setMsg(u"lost?");
    rig.write(unit);
    EXPECT_TRUE(filesIn(rig.dir()).empty());
    EXPECT_NE(log.text().find("Error Event 114 logged with data 'Invalid file format 4 for Action "
                              "Write File - nothing written.'"),
              std::string::npos)
        << log.text();
}

TEST(WriteFileActionTest, HostileSourceStaysInsideTheDirectory) {
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    const fs::path inner = rig.dir() / "a" / "b";
    rig.setString(u"szFilePath", u16(inner));
    rig.setDword(u"nIncludeSourceInFilename", 1);
    rig.load();
    rig.write(u"one", u"../../etc");
    rig.write(u"two", u"..\\..\\etc/passwd");
    EXPECT_EQ(filesIn(rig.dir()),
              (std::vector<std::string>{"a/b/Vantor-______etc-2009-03-14.log",
                                        "a/b/Vantor-______etc_passwd-2009-03-14.log"}));
}

TEST(WriteFileActionTest, PropertyFileNamesAreExpandedAndSanitised) {
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;  // the file stays open: each unit's name must still be its own
    WriteFileRig rig;
    rig.setString(u"szFilePath", u16(rig.dir()) + u"/%syslogtag%");
    rig.setString(u"szFileBaseName", u"log-%source%");
    rig.setDword(u"nEnablePropertyFileName", 1);
    rig.messageLines();
    rig.load();
    CInfoUnitSyslog unit;
    unit.setMsg(u"m1");
    unit.setPropertyString(u"syslogtag", u"app");
    unit.setPropertyString(u"source", u"h1");
    rig.write(unit);
    unit.setPropertyString(u"syslogtag", u"../up");
    unit.setMsg(u"m2");
    rig.write(unit);
    unit.setPropertyString(u"syslogtag", u"app");
    unit.setMsg(u"m3");
    rig.write(unit);
    EXPECT_EQ(readFileBytes(rig.dir() / "app" / "log-h1-2009-03-14.log"), "m1\r\nm3\r\n");
    EXPECT_EQ(readFileBytes(rig.dir() / "___up" / "log-h1-2009-03-14.log"), "m2\r\n");
}

TEST(WriteFileActionTest, HugeAndBinaryMessagesArriveWhole) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.load();
    std::u16string big(1024 * 1024, u'z');
    big[0] = u'<';
    big.back() = u'>';
    rig.write(big);
    std::u16string odd = u"x";
    odd.push_back(u'\0');
    odd.push_back(static_cast<char16_t>(0xDC00));  // lone low surrogate
    odd += u"y";
    rig.write(odd);
    const std::string text = readFileBytes(rig.dir() / "Vantor.log");
    const auto lines = splitLines(text);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].size(), big.size());
    EXPECT_EQ(lines[0].front(), '<');
    EXPECT_EQ(lines[0].back(), '>');
    // The NUL is kept; the broken surrogate becomes the replacement character (UTF-8 on Linux,
    // "?" in an ANSI code page).
    ASSERT_GE(lines[1].size(), 4u);
    EXPECT_EQ(lines[1].substr(0, 2), std::string("x\0", 2));
    EXPECT_EQ(lines[1].back(), 'y');
}

// A file renamed (allowed while the action holds it open) or deleted under the action is
// replaced by a new one at the configured name on the next unit.
TEST(WriteFileActionTest, RenamedOrDeletedFileIsReplacedOnTheNextUnit) {
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.load();
    const fs::path file = rig.dir() / "Vantor.log";
    rig.write(u"one");
    ASSERT_TRUE(rig.config().isFileOpen());
    fs::rename(file, rig.dir() / "rotated.log");
    rig.write(u"two");
    EXPECT_EQ(readFileBytes(rig.dir() / "rotated.log"), "one\r\n");
    EXPECT_EQ(readFileBytes(file), "two\r\n");
#ifdef _WIN32
    {
        // Wine keeps a deleted file's name until its last handle closes and does not report
        // it as delete-pending, so there is nothing to detect there.
        TempDir probeDir;
        AppendFile probe;
        ASSERT_EQ(probe.open(u16(probeDir.path() / "probe.log")), 0u);
        fs::remove(probeDir.path() / "probe.log");
        const bool detectable = probe.isDetached();
        probe.close();
        if (!detectable) GTEST_SKIP() << "the system does not report delete-pending files";
    }
#endif
    ASSERT_TRUE(rig.config().isFileOpen());
    fs::remove(file);
    rig.write(u"three");
    EXPECT_EQ(readFileBytes(file), "three\r\n");
}

TEST(WriteFileActionTest, LinesGoOutInWholeBlocksWhenTheWorkerRunsOutOfUnits) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.setDword(u"nUniqueFileName", 0);
    rig.setDword(u"nFileFormat", 3);
    rig.setString(u"szLineFormat", u"%msg%%$CRLF%");
    rig.load();
    const fs::path file = rig.dir() / "Vantor.log";
    const std::string big(CActionConfigWriteFile::kBlockBytes, 'x');
    std::string expected = "a\r\n";
    {
        TimerQueueScope timers;
        rig.writeBusy(u"a");  // the first line of a block at once
        rig.writeBusy(u"b");
        EXPECT_EQ(readFileBytes(file), expected);
        // A line longer than a block pushes the gathered lines out first and goes out alone.
        rig.writeBusy(u16(big));
        expected += "b\r\n" + big + "\r\n";
        EXPECT_EQ(readFileBytes(file), expected);
        rig.writeBusy(u"c");
        EXPECT_EQ(readFileBytes(file), expected);
        timers.queue().runDue(TimerQueue::Clock::now());  // the worker found no further unit
        expected += "c\r\n";
        EXPECT_EQ(readFileBytes(file), expected);
        rig.writeBusy(u"d");
        rig.writeBusy(u"e");
        expected += "d\r\n";
        EXPECT_EQ(readFileBytes(file), expected);
    }  // a worker that leaves runs what is pending
    expected += "e\r\n";
    EXPECT_EQ(readFileBytes(file), expected);
    // Closing the file (here: the idle routine) writes what was gathered.
    TimerQueueScope timers;
    rig.writeBusy(u"f");
    rig.writeBusy(u"g");
    CActionConfigWriteFile::TimerAPCProc(&rig.config(), 0, 0);
    EXPECT_FALSE(rig.config().isFileOpen());
    expected += "f\r\ng\r\n";
    EXPECT_EQ(readFileBytes(file), expected);
    // A producer that waits for its unit finds the line, and all gathered before, in the file.
    rig.writeBusy(u"h");
    rig.writeBusy(u"i");
    CWaitableInfoUnit waited;
    waited.setMsg(u"j");
    rig.writeBusy(waited);
    EXPECT_EQ(readFileBytes(file), expected + "h\r\ni\r\nj\r\n");
}

// Windows refuses both while the action holds the file open, so there is nothing to notice.
#ifndef _WIN32
TEST(WriteFileActionTest, ReplacedFileOrMovedDirectoryIsNoticed) {
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    const fs::path sub = rig.dir() / "sub";
    rig.setString(u"szFilePath", u16(sub));
    plainMessageFile(rig);
    rig.load();
    rig.write(u"one");
    // Another program puts a new file in its place.
    std::ofstream(rig.dir() / "other.log", std::ios::binary) << "other\r\n";
    fs::rename(rig.dir() / "other.log", sub / "Vantor.log");
    rig.write(u"two");
    EXPECT_EQ(readFileBytes(sub / "Vantor.log"), "other\r\ntwo\r\n");
    // The whole directory is moved away: the configured path is made again.
    fs::rename(sub, rig.dir() / "moved");
    rig.write(u"three");
    EXPECT_EQ(readFileBytes(rig.dir() / "moved" / "Vantor.log"), "other\r\ntwo\r\n");
    EXPECT_EQ(readFileBytes(sub / "Vantor.log"), "three\r\n");
}
#endif

TEST(WriteFileActionTest, FailedOpenIsLoggedAndTheNextUnitTriesAgain) {
    DebugCapture log;
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.setDword(u"nUniqueFileName", 0);
    rig.load();
    // A directory where the file should be: opening fails twice.
    fs::create_directory(rig.dir() / "Vantor.log");
    EXPECT_EQ(rig.write(u"blocked"), 1);
    EXPECT_NE(log.text().find("Second try - Could not create or open File"), std::string::npos);
    fs::remove(rig.dir() / "Vantor.log");
    EXPECT_EQ(rig.write(u"through"), 0);
    EXPECT_NE(readFileBytes(rig.dir() / "Vantor.log").find("through"), std::string::npos);
}

TEST(WriteFileActionTest, BurstCostsOneOpenAndSourcesKeepTheirFiles) {
    ScopedTimeZone tz("UTC0");
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    DebugCapture log;
    WriteFileRig rig;
    rig.messageLines();
    rig.setDword(u"nIncludeSourceInFilename", 1);
    rig.load();
    for (int i = 0; i < 100; ++i) {
        std::u16string msg = u"a";
        msg.append(u16(std::to_string(i)));
        rig.write(msg, u"alpha");
    }
    EXPECT_EQ(countOf(log.text(), "' open."), 1u);
    // The cached name belongs to one source: another source's unit must not reuse it.
    rig.write(u"b0", u"beta");
    rig.write(u"a100", u"alpha");
    EXPECT_EQ(readFileBytes(rig.dir() / "Vantor-beta-2009-03-14.log"), "b0\r\n");
    const auto alpha = splitLines(readFileBytes(rig.dir() / "Vantor-alpha-2009-03-14.log"));
    ASSERT_EQ(alpha.size(), 101u);
    EXPECT_EQ(alpha.back(), "a100");
}

#ifndef _WIN32
// The file name leads to a device that refuses every write with "disk full".
TEST(WriteFileActionTest, FailedWriteIsLoggedAndTheNextUnitWritesAgain) {
    if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
    DebugCapture log;
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    rig.setDword(u"nUniqueFileName", 0);
    rig.load();
    fs::create_symlink("/dev/full", rig.dir() / "Vantor.log");
    EXPECT_EQ(rig.write(u"refused"), 1);
    EXPECT_NE(log.text().find("writeFileFormatRelaylog| WriteFile() failed in WriteFileAction"),
              std::string::npos);
    EXPECT_FALSE(rig.config().isFileOpen());  // closed, so the next unit opens again
    fs::remove(rig.dir() / "Vantor.log");
    EXPECT_EQ(rig.write(u"accepted"), 0);
    const auto lines = splitLines(readFileBytes(rig.dir() / "Vantor.log"));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("accepted"), std::string::npos);
}
#endif

TEST(WriteFileActionTest, IdleFileClosesThreeSecondsAfterTheLastUnit) {
    TimerQueueScope timers;
    WriteFileRig rig;
    rig.load();
    const auto start = TimerQueue::Clock::now();
    rig.write(u"one");
    ASSERT_TRUE(rig.config().isFileOpen());
    timers.queue().runDue(start + std::chrono::milliseconds(2900));
    EXPECT_TRUE(rig.config().isFileOpen());
    // A second unit re-arms the timer from its own time (armed before `armed` is read).
    rig.write(u"two");
    const auto armed = TimerQueue::Clock::now();
    EXPECT_EQ(timers.queue().pending(), 1u);
    // The expiry may come up to a sixteenth of the idle time late.
    timers.queue().runDue(armed + std::chrono::milliseconds(3000 + 3000 / 16));
    EXPECT_FALSE(rig.config().isFileOpen());
    rig.write(u"three");  // opens again
    EXPECT_TRUE(rig.config().isFileOpen());
}

TEST(WriteFileActionTest, WorkersSharingTheActionLoseAndTearNoLine) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.setDword(u"nSegmentFileEnable", 1);
    rig.setDword(u"nSegmentFileBySize", 64);  // several cuts while the workers write
    rig.load();
    constexpr int kThreads = 4, kPerThread = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&rig, t] {
            TimerQueueScope timers;  // a worker owns a timer queue
            for (int i = 0; i < kPerThread; ++i) {
                std::string msg = "T";
                msg.append(std::to_string(t)).append("-").append(std::to_string(i)).append("-");
                msg.append(100 + (i % 50), static_cast<char>('a' + t));
                // Mostly more units to go, so that the workers' lines gather in one block.
                if (i % 7 == 0)
                    rig.write(u16(msg));
                else
                    rig.writeBusy(u16(msg));
            }
        });
    for (auto& th : threads) th.join();
    std::set<std::string> seen;
    for (const std::string& name : filesIn(rig.dir()))
        for (const std::string& line : splitLines(readFileBytes(rig.dir() / name))) {
            const size_t dash = line.find('-', 1), dash2 = line.find('-', dash + 1);
            ASSERT_NE(dash2, std::string::npos) << line;
            const int t = std::stoi(line.substr(1, dash - 1));
            const int i = std::stoi(line.substr(dash + 1, dash2 - dash - 1));
            EXPECT_EQ(line.substr(dash2 + 1),
                      std::string(100 + (i % 50), static_cast<char>('a' + t)));
            EXPECT_TRUE(seen.insert(line.substr(0, dash2)).second) << "twice: " << line;
        }
    EXPECT_EQ(seen.size(), static_cast<size_t>(kThreads * kPerThread));
}

}  // namespace
