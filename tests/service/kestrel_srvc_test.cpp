#include "service/kestrel_srvc.h"

#include <gtest/gtest.h>

#include <regex>
#include <string>

#include "base/config_settings.h"
#include "base/reg_access.h"
#include "common/registry_fixture.h"
#include "common/service_fixture_helper.h"

namespace {
using vt::test::DebugLogScope;
using vt::test::fileIn;
using vt::test::readFileBytes;
using vt::test::ScopedRegistry;
using vt::test::TempDir;

constexpr const char16_t* kGeneral = u"SOFTWARE\\Quillet\\Vantor\\Agent\\General";
constexpr const char16_t* kParameters =
    u"SYSTEM\\CurrentControlSet\\Services\\QuilletVantoreAgent\\Parameters";

// Installing writes the version and the event source choice below the service's Parameters.
TEST(KestrelSrvc, InstallWritesTheInstallationValues) {
    ScopedRegistry registry;
    registry.alsoRemove(kParameters);
    CKestrelSrvc service;
    ASSERT_TRUE(service.OnInstall());
    CRegAccess key;
    ASSERT_TRUE(key.OpenKey(vt::RegRoot::LocalMachine, CQuilletString(kParameters)));
    for (auto [name, value] : {std::pair{"nServiceMajor", 4u},
                               {"nServiceMinor", 4u},
                               {"nServiceBuildID", 334u},
                               {"bReplaceEventLogSource", 0u}}) {
        uint32_t got = 0xDEAD;
        EXPECT_TRUE(key.ReadDWORDValue(CQuilletString(name), got)) << name;
        EXPECT_EQ(got, value) << name;
    }
}

// The start-up reads the General key: the debug log it describes gets the banner, the engine
// version and the hook lines; "LastVersionRun" is written back.
TEST(KestrelSrvc, StartupWritesBannerAndLastVersionRun) {
    ScopedRegistry registry;
    registry.alsoRemove(kGeneral);
    TempDir dir;
    const std::string logFile = fileIn(dir, "agent.txt");
    vt::test::regSetDword(kGeneral, u"nEnableDebugOutput", 1);
    vt::test::regSetDword(kGeneral, u"nDebugMini", 1);
    vt::test::regSetDword(kGeneral, u"nCircularLogging", 0);
    vt::test::regSetString(kGeneral, u"szDebugFileName", CQuilletString(logFile.c_str()).wide());
    DebugLogScope restore(vt::debugSettings());
    const bool firstStart = vt::processSettings() == nullptr;
    CKestrelSrvc service;
    EXPECT_TRUE(service.OnInit());
    EXPECT_EQ(CNTService::instance(), &service);
    vt::debugClose();

    const std::string text = readFileBytes(logFile);
    EXPECT_TRUE(std::regex_search(
        text,
        std::regex("\\| Minimum\t\\| \r\n\r\nService STARTUP \\[V4\\.4\\(Final Release\\)\\]- "
                   "the time is [A-Z][a-z]{2} [A-Z][a-z]{2} \\d{2} \\d{2}:\\d{2}:\\d{2} "
                   "\\d{4}\r\n\r\n")))
        << text;
    EXPECT_NE(text.find("Running Engine Version 4.4.334 ***\r\n"), std::string::npos);
    // The settings object is built (once per process) with the log open, so its heap line is
    // there.
    if (firstStart) {
        EXPECT_NE(text.find("CConfigSettings|CConfigSettings: "), std::string::npos);
    }
    EXPECT_NE(text.find("rule set(s) loaded"), std::string::npos);
    EXPECT_NE(text.find("No InfoSource service configured at all"), std::string::npos);
    EXPECT_EQ(text.find("STARTING MainThread"), std::string::npos) << "level 32 is off";

    CRegAccess general;
    ASSERT_TRUE(general.OpenKey(vt::RegRoot::LocalMachine, CQuilletString(kGeneral)));
    CQuilletString lastVersion;
    EXPECT_TRUE(general.ReadStringValue(u"LastVersionRun", lastVersion));
    EXPECT_EQ(std::string(lastVersion.getStringA()), "4.4.334");
}

// Without a General key everything takes its default and the start-up still succeeds; the
// debug log stays off (nEnableDebugOutput 0) and nothing is written back.
TEST(KestrelSrvc, StartupOnAnEmptyRegistryUsesDefaults) {
    ScopedRegistry registry;
    registry.alsoRemove(kGeneral);
    DebugLogScope restore(vt::debugSettings());
    CKestrelSrvc service;
    EXPECT_TRUE(service.OnInit());
    EXPECT_FALSE(vt::debugOn(vt::DBG_ERROR));
    EXPECT_EQ(vt::debugSettings().fileName, "VTAgentDebug.txt");
    CRegAccess general;
    EXPECT_FALSE(general.OpenKey(vt::RegRoot::LocalMachine, CQuilletString(kGeneral)));
}

}  // namespace
