#include "base/debug_log.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "common/service_fixture_helper.h"
#include "platform/text_codec.h"
#include "platform/thread_id.h"

namespace {
using vt::test::DebugLogScope;
using vt::test::fileIn;
using vt::test::readFileBytes;
using vt::test::splitLines;
using vt::test::TempDir;

vt::DebugLogSettings settingsFor(const std::string& file, uint32_t mask = 0xF8,
                                 bool circular = false) {
    vt::DebugLogSettings s;
    s.enabled = true;
    s.mask = mask;
    s.fileName = file;
    s.circular = circular;
    return s;
}

// The body of a line, without the "<tid>\t| <time> | <level>\t| " prefix.
std::string bodyOf(const std::string& line) {
    const size_t cut = line.rfind("\t| ");
    return cut == std::string::npos ? line : line.substr(cut + 3);
}

// Catches a wrong level name, a mixed level named, unsigned numbers, or an overlong prefix.
TEST(DebugLogPrefix, NamesTheLevelAndCutsAt47Characters) {
    const std::pair<uint32_t, const char*> cases[] = {
        {vt::DBG_ERROR, "Error"},
        {vt::DBG_MINIMUM, "Minimum"},
        {vt::DBG_INFO, "Info"},
        {vt::DBG_RULEENG, "RuleEng"},
        {vt::DBG_ULTRA, "Ultra"},
        {vt::DBG_ERROR | vt::DBG_INFO, ""},
        {vt::writeAndClose(vt::DBG_MINIMUM), "Minimum"}};
    for (const auto& [level, name] : cases)
        EXPECT_EQ(vt::debugLinePrefix(1234, 1700000000, level),
                  std::string("1234\t| 1700000000 | ") + name + "\t| ")
            << level;
    EXPECT_EQ(vt::debugLinePrefix(4000000000u, 1700000000, vt::DBG_MINIMUM),
              "-294967296\t| 1700000000 | Minimum\t| ");
    EXPECT_LE(vt::debugLinePrefix(0xFFFFFFFF, -1234567890123LL, vt::DBG_RULEENG).size(), 47u);
}

// A debug log in a fresh directory; the previous settings come back at the end.
class DebugLogTest : public ::testing::Test {
  protected:
    TempDir dir;
    std::string file = fileIn(dir, "debug.txt");
    DebugLogScope restore{vt::debugSettings()};
    std::vector<std::string> lines(const std::string& name = {}) {
        vt::debugClose();
        return splitLines(readFileBytes(name.empty() ? file : name));
    }
};

// Only levels in the mask are written, and nothing while disabled.
TEST_F(DebugLogTest, WritesOnlyLevelsInTheMaskAndOnlyWhenEnabled) {
    vt::debugConfigure(settingsFor(file, vt::DBG_ERROR | vt::DBG_ULTRA));
    EXPECT_FALSE(vt::debugOn(vt::writeAndClose(vt::DBG_INFO)));
    vt::debugWrite(vt::DBG_ERROR, "error line");
    vt::debugWrite(vt::DBG_MINIMUM, "minimum line");
    vt::debugPrintf(vt::DBG_ULTRA, "ultra %d", 7);
    vt::debugWrite(vt::DBG_RULEENG, std::u16string(u"rule line"));
    vt::DebugLogSettings off = settingsFor(file, 0xF8);
    off.enabled = false;
    vt::debugConfigure(off);
    vt::debugWrite(vt::DBG_ERROR, "written while off");
    const auto written = lines();
    ASSERT_EQ(written.size(), 2u);
    EXPECT_EQ(bodyOf(written[1]), "ultra 7");
    EXPECT_TRUE(std::regex_match(written[0], std::regex(R"(\d+\t\| \d+ \| Error\t\| error line)")))
        << written[0];
}

// A line end is added only when the text has none; long formatted lines are not cut; missing
// directories are made.
TEST_F(DebugLogTest, LineEndsLengthAndDirectories) {
    file = (dir.path() / "a" / "b" / "debug.txt").string();
    vt::debugConfigure(settingsFor(file));
    const std::string longText(5000, 'x');
    vt::debugWrite(vt::DBG_ERROR, "plain");
    vt::debugWrite(vt::DBG_ERROR, "with crlf\r\n");
    vt::debugWrite(vt::DBG_ERROR, "with lf\n");
    vt::debugWrite(vt::DBG_ERROR, "odd end\n\r");
    vt::debugWrite(vt::DBG_ERROR, std::u16string(u"wide \u00e9"));
    vt::debugWriteNoAlloc(vt::DBG_ERROR, "narrow writer");
    vt::debugPrintf(vt::DBG_ERROR, "<%s>", longText.c_str());
    vt::debugClose();
    const std::string text = readFileBytes(file);
    std::string wideAsNarrow;
    vt::wideToNarrow(u"wide \u00e9", wideAsNarrow);
    const std::vector<std::string> bodies = {"plain\r\n",
                                             "with crlf\r\n",
                                             "with lf\n",
                                             "odd end\n\r\r\n",
                                             wideAsNarrow + "\r\n",
                                             "narrow writer\r\n",
                                             "<" + longText + ">\r\n"};
    size_t from = 0;
    for (const std::string& body : bodies) {
        const size_t at = text.find(body, from);
        ASSERT_NE(at, std::string::npos) << body;
        EXPECT_EQ(text.compare(at - 3, 3, "\t| "), 0) << body;
        from = at + body.size();
    }
    EXPECT_EQ(from, text.size());
}

// A write-and-close line leaves the file closed; the next line creates it anew.
TEST_F(DebugLogTest, WriteAndCloseLevelReopensForTheNextLine) {
    vt::debugConfigure(settingsFor(file));
    vt::debugWrite(vt::writeAndClose(vt::DBG_ERROR), "closed after this");
    ASSERT_TRUE(std::filesystem::remove(file));
    vt::debugWrite(vt::DBG_ERROR, "after reopen");
    const auto written = lines();
    ASSERT_EQ(written.size(), 1u);
    EXPECT_EQ(bodyOf(written[0]), "after reopen");
}

// The text that makes prefix + text + CRLF exactly `total` bytes on this thread.
std::string textForLineOf(size_t total, int number) {
    const size_t prefix =
        vt::debugLinePrefix(vt::currentThreadId(), std::time(nullptr), vt::DBG_ERROR).size();
    std::string text = "line " + std::to_string(number) + " ";
    text.resize(total - prefix - 2, '.');
    return text;
}

size_t fileSize(const std::string& path) {
    std::error_code ec;
    const auto size = std::filesystem::file_size(path, ec);
    return ec ? static_cast<size_t>(-1) : static_cast<size_t>(size);
}

vt::DebugLogSettings rotating(const std::string& base, uint32_t files) {
    vt::DebugLogSettings s = settingsFor(base, 0xF8, true);
    s.maxFileSizeKb = 1;
    s.numberOfFiles = files;
    return s;
}

// Lines of 100 bytes against a limit of 1 KB: the 11th line reaches 1100 bytes and the file
// rotates after it; the index runs 1, 2, 3 and back to 1, deleting the file it moves to.
TEST_F(DebugLogTest, RotatesAtTheLimitAndCyclesThroughTheFiles) {
    vt::debugConfigure(rotating(file, 3));
    EXPECT_EQ(vt::debugCurrentFileName(), file + "_1");
    int number = 0;
    for (int i = 0; i < 33; ++i) vt::debugWrite(vt::DBG_ERROR, textForLineOf(100, ++number));
    EXPECT_EQ(vt::debugCurrentFileName(), file + "_1");
    vt::debugWrite(vt::DBG_ERROR, textForLineOf(100, ++number));
    vt::debugClose();
    EXPECT_EQ(fileSize(file + "_1"), 100u);
    EXPECT_EQ(fileSize(file + "_2"), 1100u);
    EXPECT_EQ(fileSize(file + "_3"), 1100u);
    EXPECT_FALSE(std::filesystem::exists(file + "_4"));
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_EQ(bodyOf(lines(file + "_1").at(0)).substr(0, 8), "line 34 ");
    EXPECT_EQ(bodyOf(lines(file + "_2").at(0)).substr(0, 8), "line 12 ");
}

// Catches a rotation over fewer than two files (it would never leave the first one), and a
// restart that ignores the size of the file it appends to or a writer outside the rotation.
TEST_F(DebugLogTest, FewFilesExistingFileAndNarrowWriter) {
    for (uint32_t files : {0u, 1u}) {
        const std::string base = fileIn(dir, "two" + std::to_string(files));
        vt::debugConfigure(rotating(base, files));
        for (int i = 1; i <= 22; ++i) {
            vt::debugWrite(vt::DBG_ERROR, textForLineOf(100, i));
            if (i == 11) {
                EXPECT_EQ(vt::debugCurrentFileName(), base + "_2") << files;
            }
        }
        EXPECT_EQ(vt::debugCurrentFileName(), base + "_1") << files;
    }
    std::ofstream(file + "_1", std::ios::binary) << std::string(1000, 'o');
    vt::debugConfigure(rotating(file, 10));
    vt::debugWrite(vt::DBG_ERROR, textForLineOf(100, 1));
    EXPECT_EQ(vt::debugCurrentFileName(), file + "_2");
    for (int i = 1; i <= 11; ++i)
        vt::debugWriteNoAlloc(vt::DBG_ERROR, textForLineOf(100, i).c_str());
    EXPECT_EQ(vt::debugCurrentFileName(), file + "_3");
    vt::debugClose();
    EXPECT_EQ(fileSize(file + "_1"), 1100u);
    EXPECT_EQ(fileSize(file + "_2"), 1100u);
}

// Eight threads write at once: every line in the file is one whole line of one thread, and
// each thread's lines keep their order.
TEST_F(DebugLogTest, LinesOfConcurrentWritersNeverInterleave) {
    constexpr int kThreads = 8;
    constexpr int kLines = 2000;
    vt::debugConfigure(settingsFor(file));
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            const std::string filler(40 + t * 13, static_cast<char>('a' + t));
            for (int i = 0; i < kLines; ++i)
                vt::debugPrintf(vt::DBG_ERROR, "T%d #%d %s", t, i, filler.c_str());
        });
    for (auto& th : threads) th.join();
    const std::regex shape(R"(\d+\t\| \d+ \| Error\t\| T(\d) #(\d+) ([a-h]+))");
    std::map<int, int> next;
    for (const std::string& line : lines()) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(line, m, shape)) << line;
        const int t = std::stoi(m[1]);
        EXPECT_EQ(std::stoi(m[2]), next[t]++) << line;
        EXPECT_EQ(m[3].str(), std::string(40 + t * 13, static_cast<char>('a' + t))) << line;
    }
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kLines);
}

}  // namespace
