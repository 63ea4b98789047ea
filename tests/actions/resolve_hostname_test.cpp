#include <gtest/gtest.h>

#include <map>
#include <string>

#include "actions/actions_test_helper.h"
#include "base/net/dns_cache_list.h"

namespace vt::test {
namespace {

// The shared cache answers (its resolver asked once for two units); without the cache the
// system is asked; a name is copied as it is, or resolved to its address's name when asked.
TEST(ResolveHostname, ThroughTheSharedCache) {
    std::map<std::string, int> lookups;
    CDNSCacheList cache(CDNSCacheList::Settings{}, [&](const CIPAddress& a, std::string& name) {
        ++lookups[a.toText()];
        name = a.toText() == "192.0.2.7" ? "gw.example" : "named-" + a.toText();
        return true;
    });
    setSharedDnsCache(&cache);
    struct Row {
        uint32_t cached, resolveNames;
        const char16_t* source;
        const char* expected;
    } rows[] = {
        {1, 1, u"192.0.2.7", "gw.example"},
        {1, 1, u"192.0.2.7", "gw.example"},
        {0, 1, u"192.0.2.7", "192.0.2.7"},  // TEST-NET: the system knows no name for it
        {1, 0, u"printer.local", "printer.local"},
        {1, 1, u"127.0.0.1", "named-127.0.0.1"},
        {1, 1, u"localhost", "named-"},  // forward first: 127.0.0.1 or ::1, whichever comes
    };
    for (const Row& row : rows) {
        ScopedRegistry registry;
        const std::u16string key = registry.base() + u"\\A1";
        regSetString(key, u"szSourcePropertyName", u"fromhost");
        regSetString(key, u"szDestinationPropertyName", u"fromname");
        regSetDword(key, u"nCacheNameEntry", row.cached);
        regSetDword(key, u"nResolveIfName", row.resolveNames);
        auto entry = loadAction(key, 1026);
        auto unit = makeForwardUnit(u"x");
        unit->setPropertyString(u"fromhost", std::u16string_view(row.source));
        CConfigSettings settings;
        entry->CallAction(*unit, settings);
        const std::string got = utf16ToUtf8(unit->getPropertyString(u"fromname"));
        EXPECT_EQ(got.substr(0, std::string(row.expected).size()), row.expected) << got;
    }
    EXPECT_EQ(lookups["192.0.2.7"], 1);  // the second unit was answered from the cache
    setSharedDnsCache(nullptr);
}

}  // namespace
}  // namespace vt::test
