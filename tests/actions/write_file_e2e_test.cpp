// A configuration imported from a .reg file, a rule set whose rule writes a file, and units
// pushed through the queue and its workers: the lines end up in the file.
#include <gtest/gtest.h>

#include <chrono>
#include <set>
#include <string>

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
    const std::string sets = "[HKEY_LOCAL_MACHINE\\" + utf16ToUtf8(registry.base()) + "\\RuleSets";
    const std::string reg =
        "Windows Registry Editor Version 5.00\r\n\r\n" + sets +
        "]\r\n\"nRuleSetsVersion\"=dword:00000001\r\n\"nRuleSetCount\"=dword:00000001\r\n"
        "\"szRSName1\"=\"Files\"\r\n\r\n" +
        sets + "\\RS1]\r\n\"nRuleCount\"=dword:00000001\r\n\r\n" + sets +
        "\\RS1\\R1]\r\n\"nActionCount\"=dword:00000001\r\n\"nActionType1\"=dword:000003eb\r\n"
        "\"szActionName1\"=\"Write the file\"\r\n\r\n" +
        sets + "\\RS1\\R1\\A1]\r\n\"szFilePath\"=\"" +
        regString(utf16ToUtf8(u16(files.path() / "out"))) +
        "\"\r\n\"szFileBaseName\"=\"e2e\"\r\n\"nUniqueFileName\"=dword:00000000\r\n"
        "\"nFileFormat\"=dword:00000003\r\n\"szLineFormat\"=\"%source% %msg%%$CRLF%\"\r\n";
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
    const auto file = files.path() / "out" / "e2e.log";
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
        eventually([&] { return countOf(readFileBytes(file), "\r\n") >= size_t(kUnits); },
                   std::chrono::seconds(60));
    }  // the workers finish the units in hand and close the file as they leave

    const std::string text = readFileBytes(file);
    const auto all = splitLines(text);
    const std::set<std::string> lines(all.begin(), all.end());
    EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
    EXPECT_EQ(lines.size(), static_cast<size_t>(kUnits));
    for (int i = 0; i < kUnits; ++i)
        EXPECT_TRUE(lines.count("10.1.2.3 message " + std::to_string(i))) << i;
    ruleSets.unload();
}

}  // namespace
