#include "engine/status_table.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace {

// Setting replaces, names are case-sensitive, a second remove fails. Counters kept by
// read-modify-write lose no update under concurrent writers, and readers see whole values.
TEST(StatusTableTest, ReplaceCaseAndConcurrentUpdates) {
    CStatusTable table;
    std::u16string value;
    EXPECT_FALSE(table.getValue(u"a", value));
    table.setValue(u"a", u"1");
    table.setValue(u"a", u"2");
    table.setValue(u"A", u"3");
    ASSERT_TRUE(table.getValue(u"a", value));
    EXPECT_EQ(value, u"2");
    EXPECT_TRUE(table.removeValue(u"A"));
    EXPECT_FALSE(table.removeValue(u"A"));

    constexpr int kIncrements = 2000;
    std::atomic<bool> torn{false};
    std::vector<std::thread> threads;
    for (int w = 0; w < 3; ++w) {
        threads.emplace_back([&] {
            for (int i = 0; i < kIncrements; ++i) {
                table.modifyValue(u"counter", [](std::u16string& v, bool) {
                    v.push_back(u'x');
                    return true;
                });
                table.setValue(u"flag", i % 2 ? u"on" : u"off");
                table.readValue(u"flag", [&](std::u16string_view v) {
                    if (v != u"on" && v != u"off") torn = true;
                });
            }
        });
    }
    for (auto& t : threads) t.join();
    ASSERT_TRUE(table.getValue(u"counter", value));
    EXPECT_EQ(value.size(), 3u * kIncrements);
    EXPECT_FALSE(torn.load());
}

}  // namespace
