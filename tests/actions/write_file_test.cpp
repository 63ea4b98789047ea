#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "actions/actions_test_helper.h"
#include "actions/write_file/write_file_format.h"
#include "engine/timer_queue.h"
#include "platform/append_file.h"

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

// The file is "Vantor.log", every line is its message.
void plainMessageFile(WriteFileRig& rig) {
    rig.set(u"nUniqueFileName", 0);
    rig.messageLines();
}

// Catches a wrong default line, daily name, circle length or segment size.
TEST(WriteFileActionTest, DefaultsWriteTheDailyFileWithEveryField) {
    ScopedEnv tz("TZ", "UTC0");
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.load();
    auto unit = makeForwardUnit(u"disk full, again", 1, 2);
    rig.write(*unit);
    EXPECT_EQ(unit->getActionFailed(), 0);
    EXPECT_EQ(rig.config().numberOfLogfiles(), 10);  // the length of a circle
    EXPECT_EQ(rig.config().segmentFileBySize(), 4096u * 1024);
    EXPECT_EQ(rig.file("Vantor-2009-03-14.log"),
              "2009-03-14,12:34:56,2009-03-14,12:34:56,host1,1,2,disk full, again\r\n");
}

// Catches an open file kept past midnight, local or UTC as configured.
TEST(WriteFileActionTest, DailyNameChangesAtMidnightWhileTheFileIsOpen) {
    // The local day of "XYZ-3" ends three hours before the UTC day.
    for (const auto& [utcNames, lastSecond] :
         {std::pair{1u, kLastSecond}, std::pair{0u, kLastSecond - 3 * 3600}}) {
        ScopedEnv tz("TZ", "XYZ-3");
        ScopedFakeTime time(lastSecond);
        TimerQueueScope timers;  // as on a worker: the file stays open between units
        WriteFileRig rig;
        rig.set(u"nUseUTCInFileName", utcNames);
        rig.messageLines();
        rig.load();
        rig.write(u"before");
        ASSERT_TRUE(rig.config().isFileOpen());
        time.set(lastSecond + 1);
        rig.write(u"after");
        EXPECT_EQ(rig.file("Vantor-2009-03-14.log"), "before\r\n") << utcNames;
        EXPECT_EQ(rig.file("Vantor-2009-03-15.log"), "after\r\n") << utcNames;
    }
}

// Catches a wrong name scheme or precedence, and a source that leaves the directory.
TEST(WriteFileActionTest, NameSchemesInOrderOfPrecedence) {
    struct Case {
        std::vector<std::pair<std::u16string, uint32_t>> values;
        std::string file;
    };
    const Case cases[] = {
        {{{u"nIncludeSourceInFilename", 1}}, "Vantor-______etc-2009-03-14.log"},
        {{{u"nCircularLogging", 1}}, "Vantor-2009-03-14.log"},  // daily beats circle
        {{{u"nUniqueFileName", 0}, {u"nCircularLogging", 1}, {u"nLastFileNumber", 7}},
         "Vantor7.log"},
        {{{u"nUniqueFileName", 0}}, "Vantor.log"},
        {{{u"nSegmentFileEnable", 1}}, "Vantor-2009-03-14_1.log"},
        {{{u"nSegmentFileEnable", 1}, {u"nIncludeSourceInFilename", 1}, {u"nUniqueFileName", 0}},
         "Vantor-______etc-2009-03-14_1.log"},
        {{{u"nSegmentFileEnable", 1}, {u"nCircularLogging", 1}, {u"nUniqueFileName", 0}},
         "Vantor1.log"},  // a circle switches segments off
    };
    ScopedEnv tz("TZ", "UTC0");
    ScopedFakeTime time(kNoon);
    for (const Case& c : cases) {
        WriteFileRig rig;
        for (const auto& [name, value] : c.values) rig.set(name, value);
        rig.load();
        rig.write(u"x", u"../..\\etc");
        EXPECT_EQ(filesIn(rig.dir()), std::vector<std::string>{c.file});
    }
}

// Catches a circle that appends to old content, stores the wrong next number, or ignores what
// a file held before.
TEST(WriteFileActionTest, CircleRestartsEachFileEmptyAndCountsWhatItHeld) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.set(u"nUniqueFileName", 0);
    rig.set(u"nCircularLogging", 1);
    rig.set(u"nNumberOfLogfiles", 3);
    rig.set(u"nMaxFileSize", 1);  // 1024 bytes
    rig.messageLines();
    std::ofstream(rig.dir() / "Vantor1.log") << std::string(1000, 'o');
    std::ofstream(rig.dir() / "Vantor2.log") << "stale two\r\n";
    rig.load();
    std::vector<uint32_t> numbers;
    for (char fill : {'a', 'b', 'b', 'b', 'c', 'c', 'c', 'd'}) {
        rig.write(u16(std::string(504, fill)));  // 506-byte lines: two stay below 1024
        numbers.push_back(rig.storedDword(u"nLastFileNumber"));
    }
    // The old 1000 bytes and one line reach 1024; then every third line does.
    EXPECT_EQ(numbers, (std::vector<uint32_t>{2, 2, 2, 3, 3, 3, 1, 1}));
    const std::string b = std::string(504, 'b') + "\r\n", c = std::string(504, 'c') + "\r\n";
    EXPECT_EQ(rig.file("Vantor1.log"), std::string(504, 'd') + "\r\n");
    EXPECT_EQ(rig.file("Vantor2.log"), b + b + b);
    EXPECT_EQ(rig.file("Vantor3.log"), c + c + c);
}

// Catches a segment cut at the wrong line, lines lost or reordered, and a new day that does
// not start again at segment 1.
TEST(WriteFileActionTest, SegmentsAreCutAtTheirSize) {
    ScopedEnv tz("TZ", "UTC0");
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    rig.set(u"nSegmentFileEnable", 1);
    rig.set(u"nSegmentFileBySize", 1);
    rig.messageLines();
    rig.load();
    for (int i = 0; i < 10; ++i) rig.write(u16(std::to_string(i) + std::string(337, 'x')));
    // A segment is cut by the line that reaches 1024 bytes: four 340-byte lines each.
    const size_t counts[] = {4, 4, 2};
    std::string first;
    for (int f = 0; f < 3; ++f) {
        const auto lines =
            splitLines(rig.file("Vantor-2009-03-14_" + std::to_string(f + 1) + ".log"));
        ASSERT_EQ(lines.size(), counts[f]);
        for (const std::string& line : lines) first += line[0];
    }
    EXPECT_EQ(first, "0123456789");
    time.set(kNoon + 86400);
    rig.write(u"tomorrow");
    EXPECT_EQ(rig.file("Vantor-2009-03-15_1.log"), "tomorrow\r\n");
}

// Catches a file written in an unknown format instead of event 114.
TEST(WriteFileActionTest, InvalidFormatWritesNothingAndReports) {
    DebugCapture log;
    WriteFileRig rig;
    rig.set(u"nFileFormat", 4);
    rig.load();
    rig.write(u"lost?");
    EXPECT_TRUE(filesIn(rig.dir()).empty());
    EXPECT_NE(log.text().find("Error Event 114 logged with data 'Invalid file format 4 for Action "
                              "Write File - nothing written.'"),
              std::string::npos)
        << log.text();
}

// Catches property names left unexpanded, the old property spelling, values that leave the
// directory, and an open file reused for a unit whose name differs.
TEST(WriteFileActionTest, PropertyFileNamesAreExpandedAndSanitised) {
    ScopedEnv tz("TZ", "UTC0");
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    rig.set(u"szFilePath", u16(rig.dir()) + u"/%syslogtag%-%NTEventLogType%");
    rig.set(u"szFileBaseName", u"%NTEventLogType%-%source%");
    rig.set(u"nEnablePropertyFileName", 1);
    rig.set(u"nFileFormat", 3);
    rig.set(u"szLineFormat", u"%NTEventLogType%:%msg%%$CRLF%");
    rig.load();
    CInfoUnitSyslog unit;
    unit.setPropertyString(u"source", u"h1");
    unit.setPropertyString(u"nteventlogtype", u"sec");
    for (const char16_t* tag : {u"app", u"../up", u"app"}) {
        unit.setPropertyString(u"syslogtag", tag);
        unit.setMsg(tag);
        rig.write(unit);
    }
    EXPECT_EQ(rig.file("app-sec/sec-h1-2009-03-14.log"), "sec:app\r\nsec:app\r\n");
    EXPECT_EQ(rig.file("___up-sec/sec-h1-2009-03-14.log"), "sec:../up\r\n");
}

// Catches a renamed or deleted file written on (and the lines lost) instead of made again.
TEST(WriteFileActionTest, RenamedOrDeletedFileIsReplacedOnTheNextUnit) {
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.load();
    rig.write(u"one");
    fs::rename(rig.dir() / "Vantor.log", rig.dir() / "rotated.log");
    rig.write(u"two");
    EXPECT_EQ(rig.file("rotated.log"), "one\r\n");
    EXPECT_EQ(rig.file("Vantor.log"), "two\r\n");
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
    fs::remove(rig.dir() / "Vantor.log");
    rig.write(u"three");
    EXPECT_EQ(rig.file("Vantor.log"), "three\r\n");
}

// Catches lines held back, split or reordered by the block buffer: the first line goes out at
// once, a line longer than a block alone after the gathered ones, the rest when the worker
// runs out of units or leaves, the file closes, or a producer waits for its unit.
TEST(WriteFileActionTest, LinesGoOutInWholeBlocksWhenTheWorkerRunsOutOfUnits) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.load();
    const std::string big(CActionConfigWriteFile::kBlockBytes, 'x');
    std::string expected = "a\r\n";
    {
        TimerQueueScope timers;
        rig.writeBusy(u"a");
        rig.writeBusy(u"b");
        EXPECT_EQ(rig.file("Vantor.log"), expected);
        rig.writeBusy(u16(big));
        expected += "b\r\n" + big + "\r\n";
        EXPECT_EQ(rig.file("Vantor.log"), expected);
        rig.writeBusy(u"c");
        EXPECT_EQ(rig.file("Vantor.log"), expected);
        timers.queue().runDue(TimerQueue::Clock::now());
        expected += "c\r\n";
        EXPECT_EQ(rig.file("Vantor.log"), expected);
        rig.writeBusy(u"d");
        rig.writeBusy(u"e");
    }
    expected += "d\r\ne\r\n";
    EXPECT_EQ(rig.file("Vantor.log"), expected);
    TimerQueueScope timers;
    rig.writeBusy(u"f");
    rig.writeBusy(u"g");
    CActionConfigWriteFile::TimerAPCProc(&rig.config(), 0, 0);  // the idle close
    EXPECT_FALSE(rig.config().isFileOpen());
    expected += "f\r\ng\r\n";
    EXPECT_EQ(rig.file("Vantor.log"), expected);
    rig.writeBusy(u"h");
    rig.writeBusy(u"i");
    CWaitableInfoUnit waited;
    waited.setMsg(u"j");
    rig.writeBusy(waited);
    EXPECT_EQ(rig.file("Vantor.log"), expected + "h\r\ni\r\nj\r\n");
}

// Windows refuses both while the action holds the file open, so there is nothing to notice.
#ifndef _WIN32
// Catches a file replaced by another program, or a directory moved away, written on unseen.
TEST(WriteFileActionTest, ReplacedFileOrMovedDirectoryIsNoticed) {
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    WriteFileRig rig;
    const fs::path sub = rig.dir() / "sub";
    rig.set(u"szFilePath", u16(sub));
    plainMessageFile(rig);
    rig.load();
    rig.write(u"one");
    std::ofstream(rig.dir() / "other.log", std::ios::binary) << "other\r\n";
    fs::rename(rig.dir() / "other.log", sub / "Vantor.log");
    rig.write(u"two");
    EXPECT_EQ(rig.file("sub/Vantor.log"), "other\r\ntwo\r\n");
    fs::rename(sub, rig.dir() / "moved");
    rig.write(u"three");
    EXPECT_EQ(rig.file("moved/Vantor.log"), "other\r\ntwo\r\n");
    EXPECT_EQ(rig.file("sub/Vantor.log"), "three\r\n");
}
#endif

// Catches a failed open (a directory in the file's place) or write (a device that is always
// full) not flagged and logged, or a file left open so that the next unit cannot write.
TEST(WriteFileActionTest, FailedOpenOrWriteIsLoggedAndTheNextUnitWritesAgain) {
    const std::pair<bool, const char*> cases[] = {
        {false, "Second try - Could not create or open File"},
        {true, "writeFileFormatRelaylog| WriteFile() failed in WriteFileAction"}};
    for (const auto& [device, logged] : cases) {
#ifdef _WIN32
        if (device) continue;  // no such device
#endif
        DebugCapture log;
        ScopedFakeTime time(kNoon);
        TimerQueueScope timers;
        WriteFileRig rig;
        rig.set(u"nUniqueFileName", 0);
        rig.load();
        const fs::path file = rig.dir() / "Vantor.log";
        if (device)
            fs::create_symlink("/dev/full", file);
        else
            fs::create_directory(file);
        EXPECT_EQ(rig.write(u"refused"), 1);
        EXPECT_NE(log.text().find(logged), std::string::npos) << logged;
        EXPECT_FALSE(rig.config().isFileOpen());
        fs::remove(file);
        EXPECT_EQ(rig.write(u"accepted"), 0);
        EXPECT_NE(rig.file("Vantor.log").find(",accepted\r\n"), std::string::npos);
    }
}

// Catches a file opened per unit, and a cached name reused for another source.
TEST(WriteFileActionTest, BurstCostsOneOpenAndSourcesKeepTheirFiles) {
    ScopedEnv tz("TZ", "UTC0");
    ScopedFakeTime time(kNoon);
    TimerQueueScope timers;
    DebugCapture log;
    WriteFileRig rig;
    rig.messageLines();
    rig.set(u"nIncludeSourceInFilename", 1);
    rig.load();
    for (int i = 0; i < 50; ++i) rig.write(u"a", u"alpha");
    EXPECT_EQ(countOf(log.text(), "' open."), 1u);
    rig.write(u"b", u"beta");
    rig.write(u"c", u"alpha");
    EXPECT_EQ(rig.file("Vantor-beta-2009-03-14.log"), "b\r\n");
    EXPECT_EQ(splitLines(rig.file("Vantor-alpha-2009-03-14.log")).back(), "c");
}

// Catches an idle file closed early, kept open, or timed from the first unit instead of the
// last.
TEST(WriteFileActionTest, IdleFileClosesThreeSecondsAfterTheLastUnit) {
    TimerQueueScope timers;
    WriteFileRig rig;
    rig.load();
    const auto start = TimerQueue::Clock::now();
    rig.write(u"one");
    timers.queue().runDue(start + std::chrono::milliseconds(2900));
    EXPECT_TRUE(rig.config().isFileOpen());
    rig.write(u"two");
    const auto armed = TimerQueue::Clock::now();
    EXPECT_EQ(timers.queue().pending(), 1u);
    // The expiry may come up to a sixteenth of the idle time late.
    timers.queue().runDue(armed + std::chrono::milliseconds(3000 + 3000 / 16));
    EXPECT_FALSE(rig.config().isFileOpen());
    rig.write(u"three");
    EXPECT_TRUE(rig.config().isFileOpen());
}

// Catches lines lost, doubled or torn by workers sharing the action across segment cuts.
TEST(WriteFileActionTest, WorkersSharingTheActionLoseAndTearNoLine) {
    ScopedFakeTime time(kNoon);
    WriteFileRig rig;
    plainMessageFile(rig);
    rig.set(u"nSegmentFileEnable", 1);
    rig.set(u"nSegmentFileBySize", 64);
    rig.load();
    constexpr int kThreads = 4, kPerThread = 500;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([&rig, t] {
            TimerQueueScope timers;
            for (int i = 0; i < kPerThread; ++i) {
                const std::string msg = std::to_string(t * kPerThread + i) + "-" +
                                        std::string(100 + i % 50, char('a' + t));
                // Mostly more units to go, so that the workers' lines gather in one block.
                if (i % 7)
                    rig.writeBusy(u16(msg));
                else
                    rig.write(u16(msg));
            }
        });
    for (auto& th : threads) th.join();
    std::set<int> seen;
    for (const std::string& name : filesIn(rig.dir()))
        for (const std::string& line : splitLines(rig.file(name))) {
            const int n = std::stoi(line);
            EXPECT_EQ(line.substr(line.find('-') + 1),
                      std::string(100 + n % kPerThread % 50, char('a' + n / kPerThread)));
            EXPECT_TRUE(seen.insert(n).second) << "twice: " << line;
        }
    EXPECT_EQ(seen.size(), size_t(kThreads * kPerThread));
}

constexpr int64_t kReported = kNoon - 86400 - 3723;  // 2009-03-13 11:32:53 UTC

std::unique_ptr<CInfoUnit> makeUnit(std::u16string_view msg = u"hello, world") {
    auto unit = makeForwardUnit(msg, 4, 3);
    unit->setPropertyTime(u"timegenerated", kNoon);
    unit->setPropertyTime(u"timereported", kReported);
    return unit;
}

std::string relaylogLine(const CInfoUnit& unit, const RelaylogLineFields& fields) {
    std::u16string out;
    formatRelaylogLine(unit, fields, out);
    return utf16ToUtf8(out);
}

// Catches a field written when off or left out when on (a time or the facility only for 1, the
// others for any non-zero value), a stray comma, or local and UTC times swapped.
TEST(RelaylogLineTest, EachFieldOnAndOff) {
    ScopedEnv tz("TZ", "XYZ-3");  // three hours east of UTC, no daylight time
    const std::string g = "2009-03-14,12:34:56,", r = "2009-03-13,11:32:53,";
    // Generated and reported time, source, facility, priority, XML, message, raw message.
    const std::pair<RelaylogLineFields, std::string> cases[] = {
        {{1, 1, 1, 1, 1, 0, 1, 0, true}, g + r + "host1,4,3,m"},
        {{0, 1, 1, 1, 1, 0, 1, 0, true}, r + "host1,4,3,m"},
        {{2, 1, 1, 1, 1, 0, 1, 0, true}, r + "host1,4,3,m"},
        {{1, 0, 1, 1, 1, 0, 1, 0, true}, g + "host1,4,3,m"},
        {{1, 2, 7, 1, 1, 0, 1, 0, true}, g + r + "host1,4,3,m"},
        {{1, 1, 0, 1, 1, 0, 1, 0, true}, g + r + "4,3,m"},
        {{1, 1, 1, 0, 1, 0, 1, 0, true}, g + r + "host1,3,m"},
        {{1, 1, 1, 2, 1, 0, 1, 0, true}, g + r + "host1,3,m"},
        {{1, 1, 1, 1, 0, 0, 1, 0, true}, g + r + "host1,4,m"},
        {{1, 1, 1, 1, 1, 0, 0, 0, true}, g + r + "host1,4,3"},
        {{1, 1, 1, 1, 1, 0, 1, 1, true}, g + r + "host1,4,3,m,<35>raw"},
        {{0, 0, 0, 0, 0, 0, 0, 0, true}, ""},
        {{0, 0, 0, 0, 0, 0, 1, 0, true}, "m"},
        {{0, 0, 0, 0, 0, 0, 0, 1, true}, "<35>raw"},
        {{1, 1, 0, 0, 0, 0, 0, 0, false}, "2009-03-14,15:34:56,2009-03-13,14:32:53"},
    };
    auto unit = makeUnit(u"m");
    static_cast<CInfoUnitSyslog&>(*unit).setRawMsg(u"<35>raw");
    for (const auto& [fields, expected] : cases)
        EXPECT_EQ(relaylogLine(*unit, fields), expected + "\r\n");
}

// Catches a changed text-forms, syslog, template or XML line.
TEST(OtherLineFormatsTest, TextFormsSyslogTemplateAndXml) {
    auto unit = makeUnit();
    std::u16string wide;
    formatTextFormsLine(*unit, true, wide);
    EXPECT_EQ(utf16ToUtf8(wide),
              "2009-03-13 11:32:53 host1 received syslog message: hello, world\r\n");

    std::string narrow;
    formatSyslogLine(*unit, true, narrow);
    // <facility * 8 + severity>
    EXPECT_EQ(narrow, "VTsyslog[2009-03-13 11:32:53 ip=host1 pri=3] <35>hello, world\r\n");

    wide.clear();
    formatTemplateLine(*unit, u"%source%|%syslogfacility%|%msg%%$CRLF%", wide);
    EXPECT_EQ(utf16ToUtf8(wide), "host1|4|hello, world\r\n");
    wide.clear();
    formatTemplateLine(*unit, u"no line end", wide);
    EXPECT_EQ(utf16ToUtf8(wide), "no line end");

    const RelaylogLineFields xml{0, 0, 0, 0, 0, 1, 1, 0, true};
    EXPECT_EQ(relaylogLine(*unit, xml), utf16ToUtf8(unit->toXML().view()) + "\r\n");
}

// Catches a message cut at a NUL or a broken surrogate that swallows what follows.
TEST(OtherLineFormatsTest, MessageWithNulAndLoneSurrogateKeepsItsLength) {
    auto unit =
        makeUnit(std::u16string_view(u"a\0b\xD800"
                                     u"c",
                                     5));
    EXPECT_EQ(relaylogLine(*unit, {0, 0, 0, 0, 0, 0, 1, 0, true}), std::string("a\0b\xEF\xBF\xBD"
                                                                               "c\r\n",
                                                                               9));
}

// Catches the separator or extension ignored (the action tests leave them at their defaults).
TEST(FileNameTest, SeparatorAndExtensionAreTheCallers) {
    const CivilTime day{2009, 3, 4, 0, 0, 0, 0};
    EXPECT_EQ(makeDailyName(u"C:\\temp", u"B", false, u"", day, u"txt", u'\\'),
              u"C:\\temp\\B-2009-03-04.txt");
    EXPECT_EQ(makeCircularName(u"C:\\t", u"V", 10, u"x", u'\\'), u"C:\\t\\V10.x");
    EXPECT_EQ(makeSegmentName(makeDailyStem(u"C:\\t", u"V", true, u"h", day, u'\\'), 12, u"x"),
              u"C:\\t\\V-h-2009-03-04_12.x");
}

// Catches text from the unit that leaves the directory or names a drive or stream.
TEST(FileNameTest, TextFromTheUnitCannotLeaveTheDirectory) {
    struct Case {
        std::u16string in, out;
    };
    const Case cases[] = {
        {u"../../etc", u"______etc"},
        {u"..\\..\\x", u"______x"},
        {u"a/b", u"a_b"},
        {u"C:evil", u"C_evil"},
        {u"fe80::1", u"fe80__1"},
        {u"...", u"__."},
        {u"host.example", u"host.example"},
        {u"", u""},
    };
    for (const Case& c : cases) {
        std::u16string text = c.in;
        sanitizeNamePart(text);
        EXPECT_EQ(text, c.out) << utf16ToUtf8(c.in);
    }

    auto unit = makeUnit();
    unit->setPropertyString(u"source", u"../../etc");
    // The template's own separators stay; the value's are replaced.
    EXPECT_EQ(expandNameTemplate(u"/logs/%source%/x", *unit), u"/logs/______etc/x");
    EXPECT_EQ(expandNameTemplate(u"/logs/../%syslogfacility%", *unit), u"/logs/../4");
}

}  // namespace
