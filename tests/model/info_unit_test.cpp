#include "model/info_unit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <thread>

#include "base/error_report.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "model/concat.h"
#include "model/info_unit_types.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

using LogCapture = vt::test::DebugCapture;

class InfoUnitTest : public ::testing::Test {
  protected:
    void SetUp() override { vt::setUnitClock(&clock); }
    void TearDown() override { vt::setUnitClock(nullptr); }
    vt::test::FakeClock clock{1704114309};  // 2024-01-01 13:05:09
};

// A fresh unit carries the base properties in this order, the layout of its XML form.
TEST_F(InfoUnitTest, FreshBaseUnitXmlForm) {
    CInfoUnit unit;
    const std::string source = n(unit.getPropertyString(u"source"));
    EXPECT_FALSE(source.empty());
    EXPECT_EQ(n(unit.toXML().view()),
              ncat("<event><iut>0</iut><timegenerated>2024-01-01 13:05:09</timegenerated>"
                   "<timereported>2024-01-01 13:05:09</timereported><importance>5</importance>"
                   "<syslogpriority>5</syslogpriority><syslogfacility>128</syslogfacility>"
                   "<resource></resource><syslogtag>Vantor</syslogtag><iuvers>2</iuvers><source>",
                   source, "</source><CustomerID>3</CustomerID><SystemID>3</SystemID></event>"));
}

// The priority sets the importance, never the other way; a non-numeric importance reads 0.
TEST_F(InfoUnitTest, PrioritySetsImportanceButNotTheOtherWay) {
    CInfoUnit unit;
    unit.setSyslogPriority(3);
    EXPECT_EQ(unit.getImportance(), 3);
    unit.setImportance(6);
    EXPECT_EQ(unit.getSyslogPriority(), 3);
    unit.setPropertyString(u"importance", u"x");
    EXPECT_EQ(unit.getImportance(), 0);
}

// Catches a silent default: reading an absent must-exist property throws 1100 and is logged.
TEST_F(InfoUnitTest, MustExistPropertiesThrow1100WhenAbsent) {
    LogCapture log;
    auto unit = CInfoUnit::createInfoUnitFromXML(u"<event><iut>3</iut><iuvers>2</iuvers></event>");
    ASSERT_NE(unit, nullptr);
    const std::function<void()> reads[] = {
        [&] { unit->getSyslogPriority(); }, [&] { unit->getSyslogFacility(); },
        [&] { static_cast<CInfoUnitNTEventReport&>(*unit).getEventID(); }};
    for (const auto& read : reads) {
        const auto report = vt::test::thrownReport(read);
        ASSERT_NE(report, nullptr);
        EXPECT_EQ(report->getErrorCode(), 1100u);
    }
    EXPECT_EQ(log.count("CNameValueTree|Fatal error, Int VALUE NOT FOUND: syslogpriority\r\n"), 1u);
    EXPECT_EQ(unit->getImportance(), 0);
}

// Every type id has its class: description, waitability and whether XML may carry it.
TEST_F(InfoUnitTest, EveryTypeIdHasItsClass) {
    const std::map<int32_t, std::u16string_view> described = {{1, u"received syslog message"},
                                                              {3, u"Windows Event Log Entry"},
                                                              {4, u"received SNMP message"},
                                                              {13, u"received serial port data"}};
    const std::set<int32_t> waitable = {3, 5, 12, 23}, notFromXml = {16, 23}, none = {6, 7, 15};
    for (int32_t type = -1; type <= 24; ++type) {
        SCOPED_TRACE(type);
        auto unit = CInfoUnit::createInfoUnitOfType(type);
        if (type < 1 || type > 23 || none.count(type)) {
            EXPECT_EQ(unit == nullptr, type != 0);
            continue;
        }
        ASSERT_NE(unit, nullptr);
        EXPECT_EQ(unit->getType(), type);
        const auto d = described.find(type);
        EXPECT_EQ(unit->getDescription(), d == described.end() ? u"unknown" : d->second);
        EXPECT_EQ(dynamic_cast<CWaitableInfoUnit*>(unit.get()) != nullptr, waitable.count(type));
        LogCapture log;
        auto back = CInfoUnit::createInfoUnitFromXML(unit->toXML().view());
        EXPECT_EQ(back == nullptr, notFromXml.count(type) == 1);
        if (back) {
            EXPECT_EQ(back->getType(), type);
            EXPECT_EQ(back->toXML(), unit->toXML());
        } else {
            EXPECT_EQ(
                log.count(ncat("constructInfoUnitFrom XML detected an invalid InfoUnit type (",
                               std::to_string(type), ") - unit discarded.")),
                1u);
        }
    }
}

// Hostile or broken XML yields no unit and one complaint naming why.
TEST_F(InfoUnitTest, RefusedXml) {
    const std::pair<const char16_t*, const char*> rows[] = {
        {u"<unit><iut>1</iut></unit>", "invalid XML tree provided (no <event> present)"},
        {u"<event>text</event>", "invalid XML tree provided (no <event> child present)"},
        {u"<event><msg>m</msg></event>", "invalid XML tree provided (no <iut> present)"},
        {u"<event><iut>1x</iut></event>", "Non numerical IUT contained in InfoUnit - discarded."},
        {u"<event><iut>-1</iut></event>", "Non numerical IUT contained in InfoUnit - discarded."},
        {u"<event><iut>0</iut></event>", "invalid InfoUnit type (0)"},
        {u"<event><iut>6</iut></event>", "invalid InfoUnit type (6)"},
        {u"<event><iut>99</iut></event>", "invalid InfoUnit type (99)"},
        {u"", "invalid XML tree provided (no <event> present)"},
    };
    for (const auto& [xml, logged] : rows) {
        LogCapture log;
        EXPECT_EQ(CInfoUnit::createInfoUnitFromXML(xml), nullptr) << n(xml);
        EXPECT_EQ(log.count(logged), 1u) << n(xml) << "\n" << log.text();
    }
    EXPECT_EQ(CInfoUnit::createInfoUnitFromTree(nullptr), nullptr);
}

// A rebuilt unit has only what the XML carries (no defaults added), entities decoded; a
// unit's own XML form rebuilds the same unit.
TEST_F(InfoUnitTest, XmlCarriesExactlyTheProperties) {
    auto unit = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>1</iut><msg>a &lt;b&gt; &amp; &apos;c&apos; &quot;d&quot;</msg>"
        u"<custom>7</custom></event>");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(n(unit->toXML().view()),
              "<event><iut>1</iut><msg>a &lt;b&gt; &amp; &apos;c&apos; &quot;d&quot;</msg>"
              "<custom>7</custom></event>");
    EXPECT_EQ(std::u16string_view(unit->getMsgText()), u"a <b> & 'c' \"d\"");
    CInfoUnitSyslog own;
    own.setMsgA(platformNarrow(u"<tag> gr\u00FC\u00DF"));
    EXPECT_EQ(std::u16string_view(own.getMsgText()), u"<tag> gr\u00FC\u00DF");
    own.setPropertyFormatted(u"fmt", "%d-%s", 5, "z");
    own.setTimeGenerated(0);
    auto back = CInfoUnit::createInfoUnitFromXML(own.toXML().view());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->toXML(), own.toXML());
    EXPECT_EQ(back->getPropertyTime(u"timegenerated"), 0);
}

// An event log unit of an old sender (iuvers 1) has its severity turned into an event type and
// its ids and importance reset; current senders and other unit types are left alone.
TEST_F(InfoUnitTest, OldEventLogSenderIsConverted) {
    const std::pair<const char16_t*, int32_t> rows[] = {
        {u"[ERR]", 1},  {u"[WRN]", 2}, {u"[INF]", 4}, {u"[AUS]", 8},
        {u"[AUF]", 16}, {u"[wrn]", 0}, {u"[NON]", 0}};
    for (const auto& [severity, type] : rows) {
        LogCapture log;
        const std::u16string xml = u"<event><iut>3</iut><iuvers>1</iuvers><severity>" +
                                   std::u16string(severity) +
                                   u"</severity><importance>2</importance><CustomerID>9</"
                                   u"CustomerID><NTEventLogType>System</NTEventLogType></event>";
        auto unit = CInfoUnit::createInfoUnitFromXML(xml);
        ASSERT_NE(unit, nullptr);
        auto& ev = static_cast<CInfoUnitNTEventReport&>(*unit);
        EXPECT_EQ(ev.getEventType(), type) << n(severity);
        EXPECT_EQ(ev.getImportance(), 5);
        EXPECT_EQ(ev.getPropertyInt(u"CustomerID"), 0);
        EXPECT_NE(ev.getPropertyString(u"bdata"), nullptr);
        EXPECT_EQ(log.count("CInfoUnit|createInfoUnitFromTree: Found old VTRP Sender\r\n"), 1u);
    }
    // A current sender (iuvers 2) is taken as it is.
    auto current = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>3</iut><iuvers>2</iuvers><severity>[WRN]</severity><importance>2</"
        u"importance></event>");
    EXPECT_EQ(current->getImportance(), 2);
    // The conversion is for event log units only.
    auto syslog = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>1</iut><severity>[WRN]</severity><importance>2</importance></event>");
    EXPECT_EQ(syslog->getImportance(), 2);
}

// The waitable unit's signal wakes a waiter, is consumed by the wait, and is not lost when
// it comes first.
TEST_F(InfoUnitTest, WaitableUnitSignalsItsCreator) {
    CInfoUnitFileMonitor unit;
    EXPECT_FALSE(unit.waitProcessed(std::chrono::milliseconds(0)));
    std::thread worker([&unit] { unit.signalProcessed(); });
    EXPECT_TRUE(unit.waitProcessed(std::chrono::milliseconds(10000)));
    worker.join();
    EXPECT_FALSE(unit.waitProcessed(std::chrono::milliseconds(0)));
    unit.signalProcessed();
    EXPECT_TRUE(unit.waitProcessed(std::chrono::milliseconds(0)));
}

}  // namespace
