#include "sources/info_source.h"

#include <gtest/gtest.h>

#include <regex>

#include "base/config_settings.h"
#include "base/reg_access.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "common/test_info_source_helper.h"
#include "engine/que_man_list.h"
#include "engine/rule_set_list.h"
#include "model/info_unit.h"
#include "platform/guid.h"

namespace {

using namespace vt;
using namespace vt::test;

// A source on the test registry: its services key and AgentData key lie below the test base.
struct SourceOnRegistry {
    ScopedRegistry registry;
    std::u16string services = registry.base() + u"\\Services";
    std::u16string data = registry.base() + u"\\AgentData";
    std::shared_ptr<TestSourceScript> script = std::make_shared<TestSourceScript>();

    std::unique_ptr<CTestInfoSource> make(uint32_t number, CQueManList* queue = nullptr) {
        InfoSourceContext context;
        context.serviceName = CQuilletString(u"test");
        context.serviceId = 1;
        context.queue = queue;
        context.servicesKeyPath = CQuilletString(std::u16string_view(services));
        context.dataKeyPath = CQuilletString(std::u16string_view(data));
        auto source = std::make_unique<CTestInfoSource>(context, script);
        source->setServiceNumber(number);
        return source;
    }
    std::u16string key(uint32_t number) const {
        return services + u"\\IS" + std::u16string(1, static_cast<char16_t>(u'0' + number));
    }
    // The GUID and key version stored for source `number`.
    std::pair<std::string, uint32_t> stored(uint32_t number) {
        CRegAccess reg;
        EXPECT_TRUE(reg.OpenKey(RegRoot::LocalMachine, CQuilletString(key(number))));
        CQuilletString guid;
        uint32_t version = 0;
        reg.ReadStringValue(u"szMyGuid", guid, CQuilletString());
        reg.ReadDWORDValue(u"nInfoSourceVersion", version, 0);
        return {guid.getStringA(), version};
    }
};

const std::regex kGuidForm("\\{[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}\\}");

std::string narrow(const CQuilletString& text) {
    return text.getStringA();
}

// A fresh key gets version 1 and a GUID, written back, and keeps the number-based state path;
// a second preparation keeps the same GUID.
TEST(InfoSourceRegPathTest, FreshKeyGetsVersionOneAndGuid) {
    SourceOnRegistry env;
    regSetDword(env.key(2), u"bServiceEnabled", 1);
    auto source = env.make(2);
    source->setRegPathes();
    const auto [guid, version] = env.stored(2);
    EXPECT_TRUE(std::regex_match(guid, kGuidForm)) << guid;
    EXPECT_EQ(version, 1u);
    EXPECT_EQ(narrow(source->getGuid()), guid);
    EXPECT_EQ(source->getInfoSourceVersion(), 1);
    EXPECT_EQ(source->getStatePath().wide(), env.data + u"\\Services\\IS2");
    EXPECT_EQ(source->getConfigPath().wide(), env.key(2));

    auto again = env.make(2);
    again->setRegPathes();
    EXPECT_EQ(narrow(again->getGuid()), guid);
    EXPECT_EQ(env.stored(2).first, guid);

    // The AgentData key was created on the way.
    CRegAccess data;
    EXPECT_TRUE(data.OpenKey(RegRoot::LocalMachine, CQuilletString(std::u16string_view(env.data))));
}

// From key version 2 on the state is addressed by GUID; version 2 without a GUID gets one and
// keeps its version.
TEST(InfoSourceRegPathTest, VersionTwoUsesGuidPath) {
    SourceOnRegistry env;
    const std::u16string stored = u"{0123ABCD-0000-4000-8000-00000000BEEF}";
    regSetDword(env.key(1), u"nInfoSourceVersion", 2);
    regSetString(env.key(1), u"szMyGuid", stored);
    auto withGuid = env.make(1);
    withGuid->setRegPathes();
    EXPECT_EQ(withGuid->getStatePath().wide(), env.data + u"\\Services\\" + stored);
    EXPECT_EQ(env.stored(1).second, 2u);

    regSetDword(env.key(3), u"nInfoSourceVersion", 2);
    regSetString(env.key(3), u"szMyGuid", u"");
    auto noGuid = env.make(3);
    noGuid->setRegPathes();
    const auto [created, version] = env.stored(3);
    ASSERT_TRUE(std::regex_match(created, kGuidForm)) << created;
    EXPECT_EQ(version, 2u);
    EXPECT_EQ(narrow(noGuid->getStatePath()),
              narrow(CQuilletString(std::u16string_view(env.data))) + "\\Services\\" + created);
}

// The enabled rule: exactly 1 runs; the common values keep their defaults when missing.
TEST(InfoSourceConfigTest, EnabledOnlyWhenExactlyOne) {
    struct Case {
        int stored;  // -1: value missing
        bool enabled;
    };
    const Case cases[] = {{-1, true}, {1, true}, {0, false}, {2, false}, {255, false}};
    for (const Case& c : cases) {
        SourceOnRegistry env;
        regSetDword(env.key(1), u"nConfigVersion", 0);
        if (c.stored >= 0)
            regSetDword(env.key(1), u"bServiceEnabled", static_cast<uint32_t>(c.stored));
        auto source = env.make(1);
        // The base loader and a concrete loader agree.
        EXPECT_EQ(source->CInfoSource::LoadConfig(), c.enabled) << c.stored;
        auto concrete = env.make(1);
        EXPECT_EQ(concrete->LoadConfig(), c.enabled) << c.stored;
        EXPECT_EQ(source->getDefaultFacility(), 128u);
        EXPECT_EQ(source->getDefaultPriority(), 5u);
        EXPECT_EQ(source->getLoadedConfigVersion(), 0);
    }
}

// A concrete source re-reads its own values only after "nConfigVersion" changed; the base
// reads the rule set name with every open.
TEST(InfoSourceConfigTest, ReloadOnlyOnVersionChange) {
    SourceOnRegistry env;
    regSetDword(env.key(1), u"nTestValue", 7);
    regSetString(env.key(1), u"szRuleSetName", u"Default");
    auto source = env.make(1);
    EXPECT_EQ(source->getLoadedConfigVersion(), -1);
    EXPECT_TRUE(source->LoadConfig());
    EXPECT_EQ(source->typeReads, 1);
    EXPECT_EQ(source->testValue, 7u);
    EXPECT_EQ(narrow(source->getRuleSetName()), "Default");

    regSetDword(env.key(1), u"nTestValue", 8);
    EXPECT_TRUE(source->LoadConfig());
    EXPECT_EQ(source->typeReads, 1);
    EXPECT_EQ(source->testValue, 7u);

    regSetDword(env.key(1), u"nConfigVersion", 1);
    EXPECT_TRUE(source->LoadConfig());
    EXPECT_EQ(source->typeReads, 2);
    EXPECT_EQ(source->testValue, 8u);
    EXPECT_EQ(source->getLoadedConfigVersion(), 1);

    // Disabling takes effect even without a version change.
    regSetDword(env.key(1), u"bServiceEnabled", 0);
    EXPECT_FALSE(source->LoadConfig());
}

// The common properties go onto every unit: the stored facility (times 8) as the plain
// facility, the priority, an empty resource as an empty property, and the tag.
TEST(InfoSourceUnitTest, CommonSettingsStampedOnUnit) {
    SourceOnRegistry env;
    regSetDword(env.key(1), u"nSyslogFacility", 16 * 8);
    regSetDword(env.key(1), u"nSyslogPriority", 3);
    regSetString(env.key(1), u"szSyslogTagValue", u"tagged");
    auto source = env.make(1);
    ASSERT_TRUE(source->LoadConfig());
    CInfoUnit unit;
    source->setCommonInfoUnitSettings(unit);
    EXPECT_EQ(unit.getPropertyInt(u"syslogfacility"), 16);
    EXPECT_EQ(unit.getPropertyInt(u"syslogpriority"), 3);
    EXPECT_EQ(unit.getPropertyInt(u"importance"), 3);
    const char16_t* resource = unit.getPropertyString(u"resource");
    ASSERT_NE(resource, nullptr);
    EXPECT_EQ(std::u16string(resource), u"");
    ASSERT_NE(unit.getPropertyString(u"syslogtag"), nullptr);
    EXPECT_EQ(std::u16string(unit.getPropertyString(u"syslogtag")), u"tagged");
}

// The hand-over queues each unit with the source's rule list.
TEST(InfoSourceUnitTest, HandOverBindsRuleList) {
    SourceOnRegistry env;
    auto settings = makeSettings();
    CQueManList queue(settings.get(), CQueManList::StartWorkers::Later);
    CRuleSetListEntry ruleSet(CQuilletString(u"Default"));
    auto source = env.make(1, &queue);
    source->setRuleSet(&ruleSet);
    source->Enqueue(std::make_unique<CInfoUnit>());
    ASSERT_EQ(queue.getLength(), 1);
    CRuleList* rules = nullptr;
    std::unique_ptr<CInfoUnit> unit(queue.Remove(&rules));
    ASSERT_NE(unit, nullptr);
    EXPECT_EQ(rules, &ruleSet.getRuleList());
}

// A waiting hand-over returns when a worker has processed the unit.
TEST(InfoSourceUnitTest, WaitingHandOverReturnsAfterProcessing) {
    SourceOnRegistry env;
    ProbeActionType probeType;
    CActionConfigProbe* counter = nullptr;
    CRuleSetListEntry ruleSet(CQuilletString(u"Default"));
    ruleSet.getRuleList().add(probeRule(env.registry.base() + u"\\R1", counter));

    auto settings = makeSettings();
    settings->workerThreads = 2;
    CQueManList queue(settings.get());
    auto source = env.make(1, &queue);
    source->setRuleSet(&ruleSet);
    CWaitableInfoUnit unit;
    EXPECT_TRUE(source->EnqueueAndWait(unit));
    EXPECT_EQ(counter->calls.load(), 1);
}

// The GUID text has the registry form, and two GUIDs differ; the Linux one is version 4.
TEST(GuidTest, TextFormAndUniqueness) {
    Guid known;
    known.data1 = 0x0123ABCD;
    known.data2 = 0x00EF;
    known.data3 = 0x4A0B;
    known.data4 = {0x8C, 0x01, 0xFF, 0x10, 0x20, 0x30, 0x40, 0x5A};
    EXPECT_EQ(guidToText(known), u"{0123ABCD-00EF-4A0B-8C01-FF102030405A}");

    const auto a = createGuidText();
    const auto b = createGuidText();
    ASSERT_TRUE(a && b);
    EXPECT_NE(*a, *b);
    const std::string text = CQuilletString(*a).getStringA();
    EXPECT_TRUE(std::regex_match(text, kGuidForm)) << text;
    const auto raw = createGuid();
    ASSERT_TRUE(raw);
#ifndef _WIN32
    EXPECT_EQ(raw->data3 >> 12, 4);
    EXPECT_EQ(raw->data4[0] >> 6, 2);
#endif
}

}  // namespace
