#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actions/actions_test_helper.h"
#include "actions/database/action_config_odbc.h"
#include "actions/database/action_odbc.h"
#include "base/error_report.h"

namespace vt::test {
namespace {

// The Part's example, the call form, and a field list without fields failing with 115.
TEST(OdbcStatement, GeneratedOnceFromTheFields) {
    EXPECT_EQ(CActionConfigODBC::generateSqlStatement("T", {"A", "B"}, 0),
              "INSERT INTO T (A, B) values(?, ?)");
    EXPECT_EQ(CActionConfigODBC::generateSqlStatement("T", {"A", "B"}, 1), "{Call T (?, ?)}");
    try {
        CActionConfigODBC::generateSqlStatement("T", {}, 0);
        ADD_FAILURE() << "no fields must fail";
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        EXPECT_EQ(report->getErrorCode(), 115u);
    }
    for (const char* name : {"SystemEvents", "dbo.SystemEvents", "_x1"})
        EXPECT_TRUE(CActionConfigODBC::isPlainIdentifier(name)) << name;
    for (const char* name : {"", "1abc", "a b", "x;drop", "a.", ".a", "t--", "a\"b"})
        EXPECT_FALSE(CActionConfigODBC::isPlainIdentifier(name)) << name;
}

class LegacyRow : public testing::Test {
  protected:
    ScopedRegistry registry;
    std::u16string key = registry.base() + u"\\A1";
    std::unique_ptr<CActionListEntry> load() { return loadAction(key, 1000); }
    CActionConfigODBC& config(CActionListEntry& entry) {
        return *static_cast<CActionConfigODBC*>(entry.getConfig());
    }
};

// A syslog unit binds twelve values, an event log unit seventeen; the limits hold.
TEST_F(LegacyRow, BindsByUnitType) {
    regSetDword(key, u"nMaxValueLength", 70000);
    auto entry = load();
    EXPECT_EQ(config(*entry).m_nMaxValueLength, 65535u);
    std::vector<COdbcConnection::Value> values;
    auto syslog = makeForwardUnit(u"m");
    const std::string sql = CActionRelaylogV3ODBC::statement(config(*entry), *syslog, values);
    EXPECT_EQ(values.size(), 12u);
    EXPECT_EQ(sql,
              "insert into SystemEvents (ReceivedAt, DeviceReportedTime, FromHost, Message, "
              "Facility, Priority, NTSeverity, Importance, InfoUnitID, CustomerID, SystemID, "
              "SysLogTag) values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    auto event = CInfoUnit::createInfoUnitOfType(IUT_NTEVENTREPORT);
    CActionRelaylogV3ODBC::statement(config(*entry), *event, values);
    EXPECT_EQ(values.size(), 17u);
    EXPECT_EQ(values[16].label, "17 (NTEventLogType)");
}

// A custom property set by an earlier action goes to the properties table; the row's own
// properties ("msg" among them) never do.
TEST_F(LegacyRow, FurtherPropertiesOnly) {
    auto unit = makeForwardUnit(u"m");
    unit->setPropertyString(u"mykey", u"v");
    std::vector<std::string> names;
    for (const auto& [name, value] : CActionRelaylogV3ODBC::extraProperties(*unit))
        names.push_back(name);
    EXPECT_NE(std::find(names.begin(), names.end(), "mykey"), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), "msg"), names.end());
    EXPECT_EQ(std::find(names.begin(), names.end(), "source"), names.end());
}

}  // namespace
}  // namespace vt::test
