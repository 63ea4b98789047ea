#include "base/config_settings.h"

#include <gtest/gtest.h>

#include <string_view>

#include "base/reg_access.h"
#include "common/registry_fixture.h"

namespace {

using vt::RegRoot;

// The General key is a fixed path: on Windows the test owns it for its duration.
struct GeneralKey {
    vt::test::ScopedRegistry reg;
    GeneralKey() { reg.alsoRemove(CConfigSettings::kGeneralKeyPath); }
    void set(std::u16string_view name, uint32_t value) {
        vt::test::regSetDword(CConfigSettings::kGeneralKeyPath, name, value);
    }
    void set(std::u16string_view name, std::u16string_view value) {
        vt::test::regSetString(CConfigSettings::kGeneralKeyPath, name, value);
    }
};

// No General key at all: every value takes its default, each default traced; the cache times
// are turned from milliseconds into seconds.
TEST(ConfigSettings, MissingGeneralKeyGivesDefaults) {
    GeneralKey general;
    vt::test::DebugCapture log;
    CConfigSettings c;
    c.readGeneralValues();
    c.load();
    EXPECT_EQ(c.workerThreads, 5u);
    EXPECT_EQ(c.dnsCacheTimeSeconds, 7200u);
    EXPECT_EQ(c.libCacheTimeOutSeconds, 1800u);
    EXPECT_FALSE(vt::eightBitPassThrough());
    const vt::DebugLogSettings d = c.debugLogSettings();
    EXPECT_FALSE(d.enabled);
    EXPECT_EQ(d.mask, uint32_t{vt::DBG_ERROR});
    EXPECT_EQ(d.fileName, "VTAgentDebug.txt");
    EXPECT_TRUE(d.circular);
    EXPECT_EQ(std::pair(d.numberOfFiles, d.maxFileSizeKb), std::pair(10u, 51200u));
    EXPECT_NE(log.text().find("RegistryRead:DWORD:SOFTWARE\\Quillet\\Vantor\\Agent\\General\\"
                              "nDNSCacheTime: DEFAULT ('7200000') used.\r\n"),
              std::string::npos);
}

// The cache lifetimes are milliseconds turned into whole seconds, never below one; the cache
// limit is at least two.
TEST(ConfigSettings, CacheRules) {
    struct Case {
        uint32_t stored, seconds, limit;
    };
    const Case cases[] = {{0, 1, 2},       {1, 1, 2},       {2, 1, 2},
                          {3, 1, 3},       {999, 1, 999},   {1000, 1, 1000},
                          {1001, 1, 1001}, {2500, 2, 2500}, {7200000, 7200, 7200000}};
    GeneralKey general;
    for (const auto& c : cases) {
        general.set(u"nDNSCacheTime", c.stored);
        general.set(u"nLibCacheTimeOut", c.stored);
        general.set(u"nDNSCacheLimit", c.stored);
        CConfigSettings s;
        s.load();
        EXPECT_EQ(s.dnsCacheTimeSeconds, c.seconds) << c.stored;
        EXPECT_EQ(s.libCacheTimeOutSeconds, c.seconds) << c.stored;
        EXPECT_EQ(s.dnsCacheLimit, c.limit) << c.stored;
    }
}

// Stored values win over defaults in both groups, whatever the case of the names; the 8-bit
// switch reaches the string type; the debug settings take a level only when its switch is 1.
TEST(ConfigSettings, ReadsStoredValues) {
    GeneralKey general;
    general.set(u"NWORKERTHREADS", 9);
    general.set(u"nQueueLimit", 0);
    general.set(u"szDebugFileName", u"/tmp/x.txt");
    general.set(u"nEnableDebugOutput", 1);
    general.set(u"nDebugErrors", 2);
    general.set(u"nDebugUltra", 1);
    general.set(u"nDebugRuleEngine", 1);
    general.set(u"bEnable8BitPassThrough", 1);
    general.set(u"szMIBSPath", u"/usr/share/mibs");
    general.set(u"nEnableDNSCache", 0);
    CConfigSettings c;
    c.readGeneralValues();
    c.load();
    EXPECT_EQ(c.workerThreads, 9u);
    EXPECT_EQ(c.queueLimit, 0u);
    EXPECT_EQ(c.mibsPath.wide(), u"/usr/share/mibs");
    EXPECT_EQ(c.enableDnsCache, 0u);
    EXPECT_TRUE(vt::eightBitPassThrough());
    const vt::DebugLogSettings d = c.debugLogSettings();
    EXPECT_TRUE(d.enabled);
    EXPECT_EQ(d.mask, uint32_t{vt::DBG_ULTRA | vt::DBG_RULEENG});
    EXPECT_EQ(d.fileName, "/tmp/x.txt");

    general.set(u"bEnable8BitPassThrough", 0);
    c.readGeneralValues();
    EXPECT_FALSE(vt::eightBitPassThrough());
}

}  // namespace
