#include "base/net/dns_cache_list.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace std::chrono;

// A clock whose steady time the test moves.
struct SteadyClock final : vt::Clock {
    int64_t nowSeconds() override { return 0; }
    std::chrono::steady_clock::time_point steadyNow() override { return now; }
    void sleepMs(uint32_t) override {}
    std::chrono::steady_clock::time_point now{};
};

// A resolver that knows a few names and counts its calls, and a clock the test moves.
struct Fixture {
    std::map<std::string, std::string> names{
        {"10.0.0.1", "alpha"}, {"10.0.0.2", "beta"}, {"10.0.0.3", "gamma"}};
    int calls = 0;
    SteadyClock clock;

    CDNSCacheList make(CDNSCacheList::Settings settings) {
        return CDNSCacheList(
            settings,
            [this](const CIPAddress& a, std::string& name) {
                ++calls;
                auto it = names.find(a.toText());
                if (it == names.end()) return false;
                name = it->second;
                return true;
            },
            clock);
    }
};

CIPAddress ip(const char* text) {
    CIPAddress a;
    CIPAddress::fromText(text, 0, a);
    return a;
}

// Catches a cache that never expires, forgets failures, or caches while disabled.
TEST(DNSCacheList, CachesNamesAndFailuresUntilTheyExpire) {
    Fixture f;
    CDNSCacheList cache = f.make({true, 60, 10});
    EXPECT_EQ(cache.hostName(ip("10.0.0.1")), "alpha");
    EXPECT_EQ(cache.hostName(ip("10.0.0.1")), "alpha");
    EXPECT_EQ(f.calls, 1);
    EXPECT_EQ(cache.hostName(ip("10.9.9.9")), "10.9.9.9");  // no name: the address text
    EXPECT_EQ(cache.hostName(ip("10.9.9.9")), "10.9.9.9");
    EXPECT_EQ(f.calls, 2);
    f.names["10.0.0.1"] = "renamed";
    f.clock.now += seconds(59);
    EXPECT_EQ(cache.hostName(ip("10.0.0.1")), "alpha");
    f.clock.now += seconds(1);
    EXPECT_EQ(cache.hostName(ip("10.0.0.1")), "renamed");
    EXPECT_EQ(f.calls, 3);
    EXPECT_EQ(cache.size(), 2u);
    CDNSCacheList disabled = f.make({false, 3600, 10});
    EXPECT_EQ(disabled.hostName(ip("10.0.0.2")), "beta");
    EXPECT_EQ(disabled.hostName(ip("10.0.0.2")), "beta");
    EXPECT_EQ(f.calls, 5);
    EXPECT_EQ(disabled.size(), 0u);
}

// Catches an unbounded cache, the wrong entry evicted, or a limit below two.
TEST(DNSCacheList, OldestEntryLeavesWhenFull) {
    Fixture f;
    CDNSCacheList cache = f.make({true, 3600, 0});  // a limit below 2 means 2
    cache.hostName(ip("10.0.0.1"));
    cache.hostName(ip("10.0.0.2"));
    cache.hostName(ip("10.0.0.3"));
    EXPECT_EQ(cache.size(), 2u);
    EXPECT_EQ(f.calls, 3);
    cache.hostName(ip("10.0.0.3"));
    cache.hostName(ip("10.0.0.2"));
    EXPECT_EQ(f.calls, 3);
    cache.hostName(ip("10.0.0.1"));  // was dropped first
    EXPECT_EQ(f.calls, 4);
}

// The system's reverse look-up names the loopback address (from the hosts file).
TEST(DNSCacheList, SystemReverseLookup) {
    std::string name;
    ASSERT_TRUE(CDNSCacheList::reverseLookup(ip("127.0.0.1"), name));
    EXPECT_FALSE(name.empty());
    EXPECT_NE(name, "127.0.0.1");
}

}  // namespace
