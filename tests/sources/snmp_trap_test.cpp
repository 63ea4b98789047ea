#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <string>
#include <vector>

#include "platform/snmp_trap_listener.h"
#include "sources/snmp_trap/info_source_snmp_trap.h"
#include "sources/snmp_trap/snmp_trap_message.h"

namespace {

vt::SnmpTrap threeBindings() {
    vt::SnmpTrap trap;
    trap.source = "10.0.0.9";
    trap.community = "public";
    trap.version = 1;
    trap.bindings = {{"a.0", "INTEGER: 1"}, {"b.0", "STRING: \"x\""}, {"c.0", "OID: d"}};
    return trap;
}

// Three bindings are joined by exactly two separators; a text over the limit is cut to it and
// marked, one at the limit is left alone.
TEST(SnmpTrapMessage, JoinsBindingsAndTruncatesAtTheLimit) {
    const std::string full = vt::snmpTrapMessage(threeBindings());
    EXPECT_EQ(full,
              "source=\"10.0.0.9\" community=\"public\" version=\"Ver2\" variables: "
              "snmp_var_1 = 'a.0: 'INTEGER: 1'' , snmp_var_2 = 'b.0: 'STRING: \"x\"'' , "
              "snmp_var_3 = 'c.0: 'OID: d''");
    EXPECT_EQ(vt::snmpTrapMessage(threeBindings(), full.size()), full);
    const std::string cut = vt::snmpTrapMessage(threeBindings(), 60);
    EXPECT_EQ(cut.size(), 60u);
    EXPECT_EQ(cut, full.substr(0, 47) + " [TRUNCATED]\n");
}

// Days appear only from one day on, singular for one; the clock part always has its fields.
TEST(SnmpTrapMessage, UptimeTextAndGenericNames) {
    EXPECT_EQ(vt::snmpUptimeText(0), "0, 0:00:00.00");
    EXPECT_EQ(vt::snmpUptimeText(8639999), "8639999, 23:59:59.99");
    EXPECT_EQ(vt::snmpUptimeText(8640000), "8640000, 1 day 0:00:00.00");
    EXPECT_EQ(vt::snmpUptimeText(17286101), "17286101, 2 days 0:01:01.01");
    EXPECT_STREQ(vt::snmpGenericTrapName(-1), "Unknown Type");
    EXPECT_STREQ(vt::snmpGenericTrapName(6), "Enterprise Specific");
    EXPECT_STREQ(vt::snmpGenericTrapName(7), "Unknown Type");
}

// A dotted path that does not fit the resolver's buffer is reported and printed the library's
// way instead of being cut.
TEST(SnmpTrapListener, LongNameOverflowIsReported) {
    if (!vt::snmpAvailable()) GTEST_SKIP() << "no SNMP library in this build";
    std::vector<std::string> lines;
    vt::CSnmpTrapListener listener(
        {}, nullptr, [&](vt::SnmpLogLevel, const std::string& text) { lines.push_back(text); });
    const std::vector<uint32_t> oid = {1, 3, 6, 1, 4, 1, 99, 123456};
    EXPECT_EQ(listener.longName(oid), "1.3.6.1.4.1.99.123456");
    EXPECT_TRUE(lines.empty());
    EXPECT_FALSE(listener.longName(oid, 8).empty());
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              "CInfoSourceSNMPTrap|snmp_ResolveTree: Error, buffer to resolv OID to small!\r\n");
}

// Without an SNMP library the receiver must report and return, not block the service thread.
TEST(SnmpTrapSource, WithoutLibraryRunReturnsAtOnce) {
    if (vt::snmpAvailable()) GTEST_SKIP() << "this build has the SNMP library";
    CInfoSourceSNMPTrap source{vt::InfoSourceContext{}};
    auto run = std::async(std::launch::async, [&] { source.Run(); });
    EXPECT_EQ(run.wait_for(std::chrono::seconds(20)), std::future_status::ready);
}

}  // namespace
