// A configuration imported from a .reg file, a rule set whose rule writes a file, and units
// pushed through the queue and its workers: the lines end up in the file.
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>

#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"
#include "model/info_unit_types.h"
#include "platform/utf_codec.h"
#include "service/config_settings.h"
#include "vtreg/reg_file.h"
#include "write_file_test_helper.h"

namespace {

using namespace vt;
using namespace vt::test;

// A .reg string value: backslashes and quotes escaped.
std::string regString(const std::string& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\' || c == '"') out.push_back('\\');
        out.push_back(c);
    }
    return out;
}

TEST(WriteFileEndToEndTest, ImportedRuleWritesQueuedUnits) {
    ScopedRegistry registry;
    TempDir files;
    const std::string base = utf16ToUtf8(registry.base());
    const std::string dir = regString(utf16ToUtf8(u16(files.path() / "out")));
    const std::string reg =
        "Windows Registry Editor Version 5.00\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\" +
        base +
        "\\RuleSets]\r\n"
        "\"nRuleSetsVersion\"=dword:00000001\r\n"
        "\"nRuleSetCount\"=dword:00000001\r\n"
        "\"szRSName1\"=\"Files\"\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\" +
        base +
        "\\RuleSets\\RS1]\r\n"
        "\"nRuleCount\"=dword:00000001\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\" +
        base +
        "\\RuleSets\\RS1\\R1]\r\n"
        "\"nActionCount\"=dword:00000001\r\n"
        "\"nActionType1\"=dword:000003eb\r\n"
        "\"szActionName1\"=\"Write the file\"\r\n\r\n"
        "[HKEY_LOCAL_MACHINE\\" +
        base +
        "\\RuleSets\\RS1\\R1\\A1]\r\n"
        "\"szFilePath\"=\"" +
        dir +
        "\"\r\n"
        "\"szFileBaseName\"=\"e2e\"\r\n"
        "\"nUniqueFileName\"=dword:00000000\r\n"
        "\"nFileFormat\"=dword:00000003\r\n"
        "\"szLineFormat\"=\"%source% %msg%%$CRLF%\"\r\n";
    vtreg::RegFile parsed;
    vtreg::RegParseError error;
    ASSERT_TRUE(vtreg::parseRegFile(reg, parsed, error)) << error.line << ": " << error.reason;
    std::string where;
    ASSERT_EQ(vtreg::applyRegFile(parsed, where), 0u) << where;

    CRuleSetList ruleSets;
    ASSERT_TRUE(ruleSets.load(CQuilletString(registry.base() + u"\\RuleSets")));
    CRuleSetListEntry* ruleSet = ruleSets.findRuleSet(u"Files");
    ASSERT_NE(ruleSet, nullptr);

    constexpr int kUnits = 2000;
    CConfigSettings settings;
    settings.workerThreads = 3;
    {
        CQueManList queue(&settings);
        for (int i = 0; i < kUnits; ++i) {
            auto* unit = new CInfoUnitSyslog;
            unit->setMsg(u16("message " + std::to_string(i)));
            unit->setPropertyString(u"source", u"10.1.2.3");
            bindRuleList(*unit, &ruleSet->getRuleList());
            queue.Enqueue(unit);
        }
        // Every line is on disk as soon as its unit is processed: no buffering in between.
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        const auto file = files.path() / "out" / "e2e.log";
        auto lineCount = [&] {
            const std::string text = readFileBytes(file);
            size_t n = 0;
            for (size_t at = text.find("\r\n"); at != std::string::npos;
                 at = text.find("\r\n", at + 2))
                ++n;
            return n;
        };
        while (lineCount() < static_cast<size_t>(kUnits) && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }  // the workers finish the units in hand and close the file as they leave

    const std::string text = readFileBytes(files.path() / "out" / "e2e.log");
    std::set<std::string> lines;
    size_t start = 0;
    for (size_t at; (at = text.find("\r\n", start)) != std::string::npos; start = at + 2)
        lines.insert(text.substr(start, at - start));
    EXPECT_EQ(start, text.size());
    EXPECT_EQ(lines.size(), static_cast<size_t>(kUnits));
    for (int i = 0; i < kUnits; ++i)
        EXPECT_TRUE(lines.count("10.1.2.3 message " + std::to_string(i))) << i;
    ruleSets.unload();
}

}  // namespace
