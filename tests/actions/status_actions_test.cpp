#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "actions/actions_test_helper.h"
#include "engine/status_table.h"
#include "model/property_replacer.h"

namespace vt::test {
namespace {

class StatusActionsTest : public testing::Test {
  protected:
    ScopedRegistry registry;
    CConfigSettings settings;
    int keys = 0;

    // An action of `type` on a fresh key holding `values` (DWORD or string).
    std::unique_ptr<CActionListEntry> action(
        int32_t type, std::vector<std::pair<std::u16string, std::u16string>> strings,
        std::vector<std::pair<std::u16string, uint32_t>> dwords = {}) {
        const std::u16string key = registry.base() + u"\\A" + u16(std::to_string(++keys));
        for (auto& [name, value] : strings) regSetString(key, name, value);
        for (auto& [name, value] : dwords) regSetDword(key, name, value);
        auto entry = loadAction(key, type);
        EXPECT_NE(entry->getAction(), nullptr) << type;
        return entry;
    }
    std::u16string status(std::u16string_view name) {
        std::u16string value;
        return statusTable().getValue(name, value) ? value : u"<none>";
    }
    void TearDown() override { statusTable().clear(); }
};

// Five workers counting the same variable lose no update; a decrement stops at 0 (refused at
// 0, clamped below), text that is no number is left alone, and the variable's name is a
// template rendered against the unit.
TEST_F(StatusActionsTest, ComputeVariableCountsExactly) {
    auto increment = action(1023, {{u"szStatusVar", u"fails-%source%"}});
    std::vector<std::thread> workers;
    for (int w = 0; w < 5; ++w)
        workers.emplace_back([&] {
            for (int i = 0; i < 400; ++i) increment->CallAction(*makeForwardUnit(u"x"), settings);
        });
    for (auto& t : workers) t.join();
    EXPECT_EQ(status(u"fails-host1"), u"2000");

    auto decrement =
        action(1023, {{u"szStatusVar", u"left"}}, {{u"nCalcType", 2}, {u"nChangeVal", 3}});
    auto unit = makeForwardUnit(u"x");
    statusTable().setValue(u"left", u"4");
    decrement->CallAction(*unit, settings);
    EXPECT_EQ(status(u"left"), u"1");
    decrement->CallAction(*unit, settings);
    EXPECT_EQ(status(u"left"), u"0");
    DebugCapture log;
    decrement->CallAction(*unit, settings);
    EXPECT_EQ(status(u"left"), u"0");
    EXPECT_EQ(log.count("is already 0, can not DECREMENT"), 1u);
    statusTable().setValue(u"left", u"ten");
    decrement->CallAction(*unit, settings);
    EXPECT_EQ(status(u"left"), u"ten");
    EXPECT_EQ(log.count("was not a NUMBER Type value"), 1u);
}

// Every property type: the custom property by its name, source, message, priority and
// facility within their ranges; an out-of-range number or an unknown type changes nothing.
TEST_F(StatusActionsTest, SetPropertyByType) {
    struct Row {
        int32_t type;
        uint32_t number;
        const char16_t* property;
        const char16_t* expected;
    } rows[] = {
        {-1, 0, u"ticket", u"T-host1"},    {0, 0, u"source", u"T-host1"},
        {1, 0, u"msg", u"T-host1"},        {2, 9, u"syslogpriority", u"5"},
        {2, 3, u"syslogpriority", u"3"},   {3, 24, u"syslogfacility", u"1"},
        {3, 23, u"syslogfacility", u"23"}, {7, 1, u"msg", u"m"},
    };
    for (const Row& row : rows) {
        auto entry = action(
            1012, {{u"szPropertyValue", u"T-%source%"}, {u"szPropertyType", u"ticket"}},
            {{u"nPropertyType", static_cast<uint32_t>(row.type)}, {u"nPropertyValue", row.number}});
        auto unit = makeForwardUnit(u"m");
        entry->CallAction(*unit, settings);
        EXPECT_EQ(replaceProperties(std::u16string(u"%") + row.property + u"%", unit.get()),
                  row.expected)
            << row.type << " " << row.number;
    }
}

// Set-status stores the rendered value under the rendered name, replacing the earlier one.
TEST_F(StatusActionsTest, SetStatusReplacesTheValue) {
    auto entry =
        action(1013, {{u"szPropertyName", u"last-%source%"}, {u"szPropertyValue", u"%msg%"}});
    entry->CallAction(*makeForwardUnit(u"first"), settings);
    entry->CallAction(*makeForwardUnit(u"second"), settings);
    EXPECT_EQ(status(u"last-host1"), u"second");
}

}  // namespace
}  // namespace vt::test
