#include "model/info_unit.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "base/error_report.h"
#include "common/registry_fixture.h"
#include "model/concat.h"
#include "model/info_unit_types.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

using LogCapture = vt::test::DebugCapture;

std::string n(std::u16string_view wide) {
    return vt::utf16ToUtf8(wide);
}

int64_t fixedClock() {
    return 1704114309;  // 2024-01-01 13:05:09
}

class InfoUnitTest : public ::testing::Test {
  protected:
    void SetUp() override {
        vt::setTimeSource(&fixedClock);
        vt::setInfoUnitIds(0, 0);
    }
    void TearDown() override {
        vt::setTimeSource(nullptr);
        vt::setInfoUnitIds(0, 0);
    }
};

std::string names(const CInfoUnit& unit) {
    std::string out;
    const CNameValueTree& p = unit.getProperties();
    for (auto* e = p.firstEntry(); e; e = p.nextEntry(e)) out += ncat(n(e->getName().view()), " ");
    return out;
}

TEST_F(InfoUnitTest, FreshBaseUnitHasTheBasePropertiesInOrder) {
    vt::setInfoUnitIds(77, 88);
    CInfoUnit unit;
    EXPECT_EQ(names(unit),
              "iut timegenerated timereported importance syslogpriority syslogfacility resource "
              "syslogtag iuvers source CustomerID SystemID ");
    const std::string xml = n(unit.toXML().view());
    const std::string source = n(unit.getPropertyString(u"source"));
    EXPECT_FALSE(source.empty());
    EXPECT_EQ(xml,
              ncat("<event><iut>0</iut><timegenerated>2024-01-01 13:05:09</timegenerated>"
                   "<timereported>2024-01-01 13:05:09</timereported><importance>5</importance>"
                   "<syslogpriority>5</syslogpriority><syslogfacility>128</syslogfacility>"
                   "<resource></resource><syslogtag>Vantor</syslogtag><iuvers>2</iuvers><source>",
                   source, "</source><CustomerID>77</CustomerID><SystemID>88</SystemID></event>"));
    EXPECT_EQ(unit.getPropertyString(u"msg"), nullptr);
    EXPECT_EQ(unit.getPropertyTime(u"timegenerated"), fixedClock());
    EXPECT_EQ(unit.getActionFailed(), 0);
}

TEST_F(InfoUnitTest, PrioritySetsImportanceButNotTheOtherWay) {
    CInfoUnit unit;
    unit.setSyslogPriority(3);
    EXPECT_EQ(unit.getSyslogPriority(), 3);
    EXPECT_EQ(unit.getImportance(), 3);
    unit.setImportance(6);
    EXPECT_EQ(unit.getImportance(), 6);
    EXPECT_EQ(unit.getSyslogPriority(), 3);
    unit.setSyslogFacility(4);
    EXPECT_EQ(unit.getSyslogFacility(), 4);
    unit.setPropertyString(u"importance", u"x");
    EXPECT_EQ(unit.getImportance(), 0);
}

TEST_F(InfoUnitTest, MustExistPropertiesThrow1100WhenAbsent) {
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
    EXPECT_EQ(unit->getImportance(), 0);
    EXPECT_EQ(unit->getIUVersion(), 2);
}

TEST_F(InfoUnitTest, MessageAccessors) {
    CInfoUnit unit;
    EXPECT_EQ(unit.getMsgLength(), 0u);
    EXPECT_STREQ(unit.getMsgA(), "");
    EXPECT_EQ(std::u16string_view(unit.getMsgText()), u"");
    EXPECT_EQ(unit.getMsgString(), nullptr);
    const std::string narrow = platformNarrow(u"gr\u00FC\u00DF");
    unit.setMsgA(narrow);
    EXPECT_EQ(unit.getMsgLength(), 4u);
    EXPECT_EQ(unit.getMsgLengthA(), narrow.size());
    EXPECT_EQ(std::u16string_view(unit.getMsgText()), u"gr\u00FC\u00DF");
    EXPECT_EQ(std::string(unit.getMsgInCharset(1252)), "gr\xFC\xDF");
    EXPECT_EQ(std::string(unit.getMsgInCharset(65001)), "gr\xC3\xBC\xC3\x9F");
    EXPECT_EQ(std::string(unit.getMsgInCharset(0)), narrow);
    EXPECT_EQ(std::u16string_view(unit.getRawMsgText()), u"gr\u00FC\u00DF");
    unit.setMsgString(CQuilletString(u"s"));
    EXPECT_EQ(std::u16string_view(unit.getPlainMsgText()), u"s");
    EXPECT_TRUE(unit.isNotSyslog());
    EXPECT_EQ(unit.getPropertyKind(), 4);
    EXPECT_EQ(std::u16string_view(unit.getDescription()), u"unknown");
}

TEST_F(InfoUnitTest, SyslogUnitDefaultsAndRawMessage) {
    CInfoUnitSyslog unit;
    EXPECT_EQ(unit.getType(), 1);
    EXPECT_EQ(unit.getSyslogFacility(), 16);
    EXPECT_EQ(unit.getSyslogPriority(), 5);
    EXPECT_EQ(unit.getImportance(), 5);
    EXPECT_FALSE(unit.isNotSyslog());
    EXPECT_EQ(std::u16string_view(unit.getDescription()), u"received syslog message");
    unit.setMsg(u"text");
    unit.setRawMsg(u"<13>raw text");
    EXPECT_EQ(std::u16string_view(unit.getRawMsgText()), u"<13>raw text");
    EXPECT_EQ(unit.getRawMsgLength(), 12u);
    EXPECT_STREQ(unit.getRawMsgA(), "<13>raw text");
    EXPECT_EQ(std::u16string_view(unit.getMsgText()), u"text");
    // The type id is still the first property, the layout the XML form depends on.
    EXPECT_EQ(n(unit.getProperties().firstEntry()->getName().view()), "iut");
}

// Every type id with its class: description, waitability and whether XML may carry it.
struct TypeRow {
    int32_t type;
    const char16_t* description;
    bool waitable;
    bool fromXml;
};

const TypeRow kTypes[] = {
    {1, u"received syslog message", false, true},
    {2, u"unknown", false, true},
    {3, u"Windows Event Log Entry", true, true},
    {4, u"received SNMP message", false, true},
    {5, u"unknown", true, true},
    {8, u"unknown", false, true},
    {9, u"unknown", false, true},
    {10, u"unknown", false, true},
    {11, u"unknown", false, true},
    {12, u"unknown", true, true},
    {13, u"received serial port data", false, true},
    {14, u"unknown", false, true},
    {16, u"unknown", false, false},
    {17, u"unknown", false, true},
    {18, u"unknown", false, true},
    {19, u"unknown", false, true},
    {20, u"unknown", false, true},
    {21, u"unknown", false, true},
    {22, u"unknown", false, true},
    {23, u"unknown", true, false},
};

TEST_F(InfoUnitTest, EveryTypeIdHasItsClass) {
    for (const TypeRow& row : kTypes) {
        auto unit = CInfoUnit::createInfoUnitOfType(row.type);
        ASSERT_NE(unit, nullptr) << row.type;
        EXPECT_EQ(unit->getType(), row.type);
        EXPECT_EQ(std::u16string_view(unit->getDescription()), row.description) << row.type;
        EXPECT_EQ(dynamic_cast<CWaitableInfoUnit*>(unit.get()) != nullptr, row.waitable)
            << row.type;

        LogCapture log;
        auto back = CInfoUnit::createInfoUnitFromXML(unit->toXML().view());
        EXPECT_EQ(back != nullptr, row.fromXml) << row.type;
        if (back) {
            EXPECT_EQ(back->getType(), row.type);
            EXPECT_EQ(std::u16string_view(back->getDescription()), row.description);
            EXPECT_EQ(back->toXML(), unit->toXML());
        } else {
            EXPECT_EQ(
                log.count(ncat("constructInfoUnitFrom XML detected an invalid InfoUnit type (",
                               std::to_string(row.type), ") - unit discarded.")),
                1u);
        }
    }
    for (int32_t none : {6, 7, 15, 24, -1})
        EXPECT_EQ(CInfoUnit::createInfoUnitOfType(none), nullptr) << none;
    EXPECT_NE(CInfoUnit::createInfoUnitOfType(0), nullptr);
}

TEST_F(InfoUnitTest, SubclassDefaults) {
    auto ping = CInfoUnit::createInfoUnitOfType(8);
    EXPECT_EQ(ping->getPropertyInt(u"echostatus"), 11000);
    EXPECT_EQ(ping->getPropertyInt(u"roundtriptime"), 0);
    auto disk = CInfoUnit::createInfoUnitOfType(11);
    EXPECT_EQ(disk->getPropertyInt(u"currusage"), 0);
    EXPECT_EQ(disk->getPropertyInt(u"maxavailable"), 0);
}

struct Refusal {
    const char16_t* xml;
    const char* logged;
};

TEST_F(InfoUnitTest, RefusedXml) {
    const Refusal rows[] = {
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
    for (const Refusal& r : rows) {
        LogCapture log;
        EXPECT_EQ(CInfoUnit::createInfoUnitFromXML(r.xml), nullptr) << n(r.xml);
        EXPECT_EQ(log.count(r.logged), 1u) << n(r.xml) << "\n" << log.text();
    }
    EXPECT_EQ(CInfoUnit::createInfoUnitFromTree(nullptr), nullptr);
}

TEST_F(InfoUnitTest, RebuiltUnitKeepsOnlyWhatTheXmlCarries) {
    auto unit = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>1</iut><msg>a &lt;b&gt; &amp; &apos;c&apos; &quot;d&quot;</msg>"
        u"<custom>7</custom></event>");
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(names(*unit), "iut msg custom ");
    EXPECT_EQ(std::u16string_view(unit->getMsgText()), u"a <b> & 'c' \"d\"");
    EXPECT_EQ(unit->getPropertyInt(u"custom"), 7);
    EXPECT_EQ(unit->getIUVersion(), -1);
    EXPECT_FALSE(unit->isNotSyslog());
}

TEST_F(InfoUnitTest, CustomPropertiesTravelAndSpecialCharactersSurvive) {
    CInfoUnitSyslog unit;
    unit.setMsg(u"<tag> & \"quoted\" 'single' \u00e4\U0001F600");
    unit.setPropertyString(u"custom", u"x>y");
    unit.setPropertyFormatted(u"fmt", "%d-%s", 5, "z");
    unit.setResource(u"res");
    unit.setTimeGenerated(0);
    auto back = CInfoUnit::createInfoUnitFromXML(unit.toXML().view());
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->toXML(), unit.toXML());
    EXPECT_EQ(std::u16string_view(back->getPropertyString(u"custom")), u"x>y");
    EXPECT_EQ(std::u16string_view(back->getPropertyString(u"fmt")), u"5-z");
    EXPECT_EQ(back->getPropertyTime(u"timegenerated"), 0);
}

TEST_F(InfoUnitTest, OldEventLogSenderIsConverted) {
    struct Row {
        const char16_t* severity;
        int32_t type;
    } rows[] = {{u"[ERR]", 1},  {u"[WRN]", 2}, {u"[INF]", 4}, {u"[AUS]", 8},
                {u"[AUF]", 16}, {u"[wrn]", 0}, {u"[NON]", 0}};
    for (const Row& r : rows) {
        LogCapture log;
        const std::u16string xml = u"<event><iut>3</iut><iuvers>1</iuvers><severity>" +
                                   std::u16string(r.severity) +
                                   u"</severity><importance>2</importance><CustomerID>9</"
                                   u"CustomerID><NTEventLogType>System</NTEventLogType></event>";
        auto unit = CInfoUnit::createInfoUnitFromXML(xml);
        ASSERT_NE(unit, nullptr);
        auto& ev = static_cast<CInfoUnitNTEventReport&>(*unit);
        EXPECT_EQ(ev.getEventType(), r.type) << n(r.severity);
        EXPECT_EQ(ev.getImportance(), 5);
        EXPECT_EQ(ev.getPropertyInt(u"CustomerID"), 0);
        EXPECT_EQ(ev.getPropertyInt(u"SystemID"), 0);
        ASSERT_NE(ev.getPropertyString(u"bdata"), nullptr);
        EXPECT_EQ(std::u16string_view(ev.getPropertyString(u"bdata")), u"");
        EXPECT_EQ(std::u16string_view(ev.getPropertyString(u"nteventlogtype")), u"System");
        EXPECT_EQ(log.count("CInfoUnit|createInfoUnitFromTree: Found old VTRP Sender\r\n"), 1u);
    }
    // A current sender (iuvers 2) is taken as it is.
    auto current = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>3</iut><iuvers>2</iuvers><severity>[WRN]</severity><importance>2</"
        u"importance></event>");
    ASSERT_NE(current, nullptr);
    EXPECT_EQ(current->getImportance(), 2);
    EXPECT_EQ(current->getPropertyString(u"severityid"), nullptr);
    // The conversion is for event log units only.
    auto syslog = CInfoUnit::createInfoUnitFromXML(
        u"<event><iut>1</iut><severity>[WRN]</severity><importance>2</importance></event>");
    EXPECT_EQ(syslog->getImportance(), 2);
}

TEST_F(InfoUnitTest, WaitableUnitSignalsItsCreator) {
    CInfoUnitFileMonitor unit;
    EXPECT_FALSE(unit.waitProcessed(std::chrono::milliseconds(0)));
    std::thread worker([&unit] { unit.signalProcessed(); });
    EXPECT_TRUE(unit.waitProcessed(std::chrono::milliseconds(10000)));
    worker.join();
    // Auto-reset: the signal is consumed by the wait.
    EXPECT_FALSE(unit.waitProcessed(std::chrono::milliseconds(0)));
    // A signal before the wait is not lost.
    unit.signalProcessed();
    unit.waitProcessed();
    // The base class ignores the call.
    CInfoUnit plain;
    plain.signalProcessed();
}

}  // namespace
