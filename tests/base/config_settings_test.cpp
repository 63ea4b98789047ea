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

void expectDefaults(const CConfigSettings& c) {
    EXPECT_EQ(c.reloadRuleBase, 0u);
    EXPECT_EQ(c.timeMode, 0u);
    EXPECT_EQ(c.debugFileName.wide(), u"VTAgentDebug.txt");
    EXPECT_EQ(c.enableDebugOutput, 0u);
    EXPECT_EQ(c.debugErrors, 1u);
    EXPECT_EQ(c.debugMini, 0u);
    EXPECT_EQ(c.debugInternal, 0u);
    EXPECT_EQ(c.debugRuleEngine, 0u);
    EXPECT_EQ(c.debugUltra, 0u);
    EXPECT_EQ(c.circularLogging, 1u);
    EXPECT_EQ(c.numberOfLogfiles, 10u);
    EXPECT_EQ(c.maxFileSize, 51200u);
    EXPECT_EQ(c.processPriority, 3u);
    EXPECT_EQ(c.workerThreads, 5u);
    EXPECT_EQ(c.customerId, 3u);
    EXPECT_EQ(c.systemId, 3u);
    EXPECT_EQ(c.queueLimit, 200000u);
    EXPECT_EQ(c.protectAgainstShutdown, 0u);
    EXPECT_EQ(c.japanStringHandling, 0u);
    EXPECT_EQ(c.eightBitPassThrough, 0u);
    EXPECT_EQ(c.enableEventlogWarnings, 0u);
    EXPECT_TRUE(c.mibsPath.empty());
    EXPECT_EQ(c.abortRuleOnFailure, 0u);
    EXPECT_EQ(c.enableRetry, 0u);
    EXPECT_EQ(c.retryCount, 1u);
    EXPECT_EQ(c.retryPeriod, 100u);
    EXPECT_EQ(c.enableDnsCache, 1u);
    EXPECT_EQ(c.dnsCacheTimeSeconds, 7200u);
    EXPECT_EQ(c.dnsCacheLimit, 1024u);
    EXPECT_EQ(c.libCacheTimeOutSeconds, 1800u);
}

// No General key at all: every value takes its default, each default traced.
TEST(ConfigSettings, MissingGeneralKeyGivesAllDefaults) {
    GeneralKey general;
    vt::test::DebugCapture log;
    CConfigSettings c;
    c.readGeneralValues();
    c.load();
    expectDefaults(c);
    EXPECT_FALSE(vt::eightBitPassThrough());
    const std::string text = log.text();
    EXPECT_NE(text.find("RegistryRead:DWORD:SOFTWARE\\Quillet\\Vantor\\Agent\\General\\"
                        "nDNSCacheTime: DEFAULT ('7200000') used.\r\n"),
              std::string::npos);
    EXPECT_NE(text.find("RegistryRead:STRING:SOFTWARE\\Quillet\\Vantor\\Agent\\General\\"
                        "szDebugFileName: DEFAULT ('VTAgentDebug.txt') used.\r\n"),
              std::string::npos);
    EXPECT_EQ(c.serviceName.wide(), u"QuilletVantoreAgent");
    EXPECT_EQ(c.generalKeyPath.wide(), u"SOFTWARE\\Quillet\\Vantor\\Agent\\General");
    EXPECT_EQ(c.versionMajor, 4);
    EXPECT_EQ(c.buildNumber, 334);
}

// The cache lifetimes are milliseconds turned into whole seconds, never below one; the cache
// limit is at least two.
TEST(ConfigSettings, CacheRules) {
    struct Case {
        uint32_t stored;
        uint32_t seconds;
    };
    const Case cases[] = {{0, 1}, {999, 1}, {1000, 1}, {1001, 1}, {2500, 2}, {7200000, 7200}};
    GeneralKey general;
    for (const auto& c : cases) {
        general.set(u"nDNSCacheTime", c.stored);
        general.set(u"nLibCacheTimeOut", c.stored);
        CConfigSettings s;
        s.load();
        EXPECT_EQ(s.dnsCacheTimeSeconds, c.seconds) << c.stored;
        EXPECT_EQ(s.libCacheTimeOutSeconds, c.seconds) << c.stored;
    }
    const std::pair<uint32_t, uint32_t> limits[] = {{0, 2}, {1, 2}, {2, 2}, {3, 3}, {5000, 5000}};
    for (const auto& [stored, kept] : limits) {
        general.set(u"nDNSCacheLimit", stored);
        CConfigSettings s;
        s.load();
        EXPECT_EQ(s.dnsCacheLimit, kept) << stored;
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
    general.set(u"nRetryCount", 4);
    general.set(u"nEnableDNSCache", 0);
    CConfigSettings c;
    c.readGeneralValues();
    c.load();
    EXPECT_EQ(c.workerThreads, 9u);
    EXPECT_EQ(c.queueLimit, 0u);
    EXPECT_EQ(c.debugFileName.wide(), u"/tmp/x.txt");
    EXPECT_EQ(c.mibsPath.wide(), u"/usr/share/mibs");
    EXPECT_EQ(c.retryCount, 4u);
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

// The low-fragmentation heap line names the outcome; Linux has no such heap.
TEST(ConfigSettings, TracesLowFragmentationHeap) {
    vt::test::DebugCapture log;
    CConfigSettings c;
#ifdef _WIN32
    const std::string text = log.text();
    EXPECT_TRUE(
        text ==
            "CConfigSettings|CConfigSettings: HeapSetInformation succeeded, "
            "Low-fragmentation Heap enabled\r\n" ||
        text.rfind("CConfigSettings|CConfigSettings: HeapSetInformation failed with Error '", 0) ==
            0)
        << text;
#else
    EXPECT_EQ(log.text(),
              "CConfigSettings|CConfigSettings: Error, HeapSetInformation API not found!\r\n");
#endif
}

}  // namespace
