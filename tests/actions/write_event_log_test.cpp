#include <gtest/gtest.h>

#include <string>

#include "actions/actions_test_helper.h"
#include "common/service_fixture_helper.h"

namespace vt::test {
namespace {

// The rendered message under the configured id, type and source (the agent's own unless the
// custom source is switched on); on Linux that is the tag and severity of a local syslog
// datagram.
TEST(WriteEventLog, ReportsTheRenderedMessage) {
    TempDir dir;
    ScopedRegistry registry;
    SyslogSink sink((dir.path() / "events.sock").string());
    struct Row {
        uint32_t replace, type;
        const char* expected;
    } rows[] = {
        {1, 1, "<27>"},  // daemon.err
        {0, 2, "<28>"},  // daemon.warning
        {1, 0, "<30>"},  // daemon.info
    };
    for (const Row& row : rows) {
        const std::u16string key = registry.base() + u"\\A" + u16(std::to_string(row.type));
        regSetDword(key, u"bReplaceEventLogSource", row.replace);
        regSetDword(key, u"nEventType", row.type);
        regSetDword(key, u"nEventID", 777);
        regSetString(key, u"szMessageContent", u"from %source%: %msg%");
        regSetString(key, u"szCustomSource", u"Firewall");
        auto entry = loadAction(key, 1007);
        auto unit = makeForwardUnit(u"port scan");
        CConfigSettings settings;
        entry->CallAction(*unit, settings);
        EXPECT_EQ(unit->getActionFailed(), 0);
#ifndef _WIN32
        const std::vector<std::string> got = sink.take(1);
        ASSERT_EQ(got.size(), 1u);
        EXPECT_EQ(got[0].substr(0, 4), row.expected);
        const std::string tag = row.replace ? "Firewall[" : "QuilletVantoreAgent[";
        EXPECT_NE(got[0].find(tag), std::string::npos) << got[0];
        EXPECT_NE(got[0].find("]: [777] from host1: port scan"), std::string::npos) << got[0];
#endif
    }
}

}  // namespace
}  // namespace vt::test
