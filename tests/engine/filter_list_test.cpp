#include "engine/filter_list.h"

#include <gtest/gtest.h>

#include <functional>
#include <thread>
#include <vector>

#include "base/config_settings.h"
#include "common/engine_test_helper.h"
#include "common/registry_fixture.h"
#include "engine/status_table.h"
#include "model/info_unit_types.h"

namespace {

using namespace vt;
using vt::test::makeSyslogUnit;
using Tweak = std::function<void(FilterEntryValues&)>;

std::unique_ptr<CFilterListEntry> cond(int32_t type, std::u16string name, std::u16string value,
                                       int32_t compare, Tweak tweak = {}) {
    FilterEntryValues v;
    v.operationType = FOP_LEAF;
    v.propertyType = type;
    v.propertyName = std::move(name);
    v.propertyValue = std::move(value);
    v.compareOperation = compare;
    if (tweak) tweak(v);
    return std::make_unique<CFilterListEntry>(v, 0);
}

template <class... Entries>
std::unique_ptr<CFilterList> group(int32_t op, int32_t ignoreUnknown, Entries... entries) {
    auto list = std::make_unique<CFilterList>(op, ignoreUnknown);
    (list->add(std::move(entries)), ...);
    return list;
}

std::unique_ptr<CFilterListEntry> nested(std::unique_ptr<CFilterList> child) {
    FilterEntryValues v;
    v.operationType = child->getOperation();
    v.hasChildFilterList = 1;
    auto entry = std::make_unique<CFilterListEntry>(v, child->getIgnoreUnknown());
    entry->setChildList(std::move(child));
    return entry;
}

// Conditions that are true / false / undetermined on the test unit ("hello world").
const auto isTrue = [] { return cond(PT_STRING, u"msg", u"hello", 0); };
const auto isFalse = [] { return cond(PT_STRING, u"msg", u"absent", 0); };
const auto unknownProp = [] { return cond(PT_STRING, u"nosuch", u"x", 0); };

struct FilterCase {
    const char* what;
    std::function<std::unique_ptr<CFilterList>()> tree;
    int32_t expected;
    std::function<void(CInfoUnit&)> prepare = {};
};

// An AND group over one condition, the shape of most cases below.
auto one(int32_t type, std::u16string name, std::u16string value, int32_t compare,
         Tweak tweak = {}) {
    return [=] { return group(FOP_AND, 0, cond(type, name, value, compare, tweak)); };
}
// "msg" contains `value` somewhere between the 1-based positions `start` and `end`.
auto inRange(std::u16string value, int32_t start, int32_t end) {
    return one(PT_STRING, u"msg", std::move(value), 4, [=](FilterEntryValues& v) {
        v.rangeStart = start;
        v.rangeEnd = end;
    });
}
const auto valueType = [](int32_t t) {
    return [t](FilterEntryValues& v) { v.propertyValueType = t; };
};
const auto id12 = [](CInfoUnit& u) { u.setPropertyInt(u"id", 12); };
const auto flag7 = [](CInfoUnit& u) { u.setPropertyInt(u"flag", 7); };
const auto tuesday = [](CInfoUnit& u) { u.setTimeGenerated(1704189600); };  // 2024-01-02 10:00 UTC
const auto disk = [](int64_t available, int64_t used) {
    return [=](CInfoUnit& u) {
        u.setPropertyInt(u"maxavailable", available), u.setPropertyInt(u"currusage", used);
    };
};
const auto groupWithoutChildList = [] {
    FilterEntryValues v;
    v.operationType = FOP_OR;
    return group(FOP_AND, 0, std::make_unique<CFilterListEntry>(v, 0), isTrue());
};

// clang-format off
const FilterCase kCases[] = {
    // Group operations over defined children.
    {"AND all true", [] { return group(FOP_AND, 0, isTrue(), isTrue()); }, 1},
    {"AND stops at false", [] { return group(FOP_AND, 0, isTrue(), isFalse(), isTrue()); }, 0},
    {"OR one true", [] { return group(FOP_OR, 0, isFalse(), isTrue()); }, 1},
    {"OR all false", [] { return group(FOP_OR, 0, isFalse(), isFalse()); }, 0},
    {"OR skips undetermined", [] { return group(FOP_OR, 0, unknownProp()); }, 0},
    {"NOT true", [] { return group(FOP_NOT, 0, isTrue()); }, 0},
    {"NOT false", [] { return group(FOP_NOT, 0, isFalse()); }, 1},
    {"XOR true true", [] { return group(FOP_XOR, 0, isTrue(), isTrue()); }, 0},
    {"XOR true false", [] { return group(FOP_XOR, 0, isTrue(), isFalse()); }, 1},
    {"XOR three true", [] { return group(FOP_XOR, 0, isTrue(), isTrue(), isTrue()); }, 1},
    {"XOR skips undetermined", [] { return group(FOP_XOR, 0, isTrue(), unknownProp()); }, 1},
    {"TRUE group", [] { return group(FOP_TRUE, 0, isFalse()); }, 1},
    {"FALSE group", [] { return group(FOP_FALSE, 0, isTrue()); }, 0},
    {"operation 9 is invalid as a group", [] { return group(9, 0, isFalse()); }, 1},
    {"empty group", [] { return group(FOP_AND, 0); }, 3},
    {"nested OR inside AND", [] { return group(FOP_AND, 0, isTrue(), nested(group(FOP_OR, 0, isFalse(), isTrue()))); }, 1},
    {"group entry without child list is skipped by AND", groupWithoutChildList, 1},
    // Absent properties and "nThreatNotFoundFilters".
    {"AND over absent property", [] { return group(FOP_AND, 0, unknownProp()); }, 0},
    {"AND over absent property, ignored", [] { return group(FOP_AND, 1, unknownProp()); }, 1},
    {"NOT over absent property", [] { return group(FOP_NOT, 0, unknownProp()); }, 1},
    {"NOT over absent property, ignored", [] { return group(FOP_NOT, 1, unknownProp()); }, 0},
    {"PT_INT absent", one(PT_INT, u"nosuch", u"1", 0), 0},
    // Strings: the comparisons, the range, templates.
    {"contains", one(PT_STRING, u"msg", u"lo wo", 0), 1},
    {"contains is case-sensitive", one(PT_STRING, u"msg", u"Hello", 0), 0},
    {"does not contain", one(PT_STRING, u"msg", u"xyz", 1), 1},
    {"equal", one(PT_STRING, u"msg", u"hello world", 5), 1},
    {"equal needs the whole text", one(PT_STRING, u"msg", u"hello", 5), 0},
    {"not equal", one(PT_STRING, u"msg", u"hello", 6), 1},
    {"range: 'lo' at 4-5 within 1-5", inRange(u"lo", 1, 5), 1},
    {"range: 'lo' at 4-5 not within 1-4", inRange(u"lo", 1, 4), 0},
    {"range: start 0 counts as 1", inRange(u"he", 0, 2), 1},
    {"range: only occurrences at or after the start count", inRange(u"o", 6, 7), 0},
    {"range: 'o' found again at 8", inRange(u"o", 6, 8), 1},
    {"range: start beyond the text", inRange(u"", 40, 80), 0},
    {"compare 2 is unsupported for strings, AND takes it as true", one(PT_STRING, u"msg", u"x", 2), 1},
    {"compare 3 is unsupported for strings", [] { return group(FOP_OR, 0, cond(PT_STRING, u"msg", u"x", 3)); }, 1},
    {"template tests the first five characters", one(PT_STRING, u"%msg:1:5%", u"hello", 5), 1},
    {"template cut excludes the rest", one(PT_STRING, u"%msg:1:5%", u"world", 0), 0},
    {"PT_STRING lower-cases the name", one(PT_STRING, u"MSG", u"hello", 0), 1},
    {"type 8 keeps the name's case", one(PT_STRING_CASED, u"MSG", u"hello", 0), 0},
    {"ntservicename tests sourceproc", one(PT_STRING, u"NTServiceName", u"spooler", 5), 1,
     [](CInfoUnit& u) { u.setPropertyString(u"sourceproc", u"spooler"); }},
    // Numbers and truth values.
    {"PT_INT 12abc compares with 12", one(PT_INT, u"id", u"12abc", 0), 1, id12},
    {"PT_INT greater", one(PT_INT, u"id", u"10", 2), 1, id12},
    {"PT_INT less", one(PT_INT, u"id", u"10", 3), 0, id12},
    {"PT_INT greater is strict", one(PT_INT, u"id", u"12", 2), 0, id12},
    {"PT_INT unsupported compare in OR is true", [] { return group(FOP_OR, 0, cond(PT_INT, u"id", u"10", 7)); }, 1, id12},
    {"PT_BOOL non-zero equals flag 1", one(PT_BOOL, u"flag", u"1", 0), 1, flag7},
    {"PT_BOOL differs", one(PT_BOOL, u"flag", u"1", 1), 0, flag7},
    // Unit types.
    {"IsSyslog with flag 1 and compare 0", one(PT_ENUM_IUT, u"IsSyslog", u"1", 0), 1},
    {"IsSyslog with flag 0 and compare 0 is false even for syslog", one(PT_ENUM_IUT, u"IsSyslog", u"0", 0), 0},
    {"IsSyslog with flag 0 and compare 1", one(PT_ENUM_IUT, u"IsSyslog", u"0", 1), 1},
    {"IsFileMonitor on a syslog unit", one(PT_ENUM_IUT, u"IsFileMonitor", u"0", 1), 0},
    {"unknown kind name matches no type", one(PT_ENUM_IUT, u"IsSomething", u"0", 1), 0},
    // Disk space: 1000 available, 400 used.
    {"disk space absolute", one(PT_DISKSPACE, u"", u"600", 0, valueType(3)), 1, disk(1000, 400)},
    {"disk space in units of 1024", one(PT_DISKSPACE, u"", u"1", 3, valueType(4)), 1, disk(1000, 400)},
    {"disk space percent", one(PT_DISKSPACE, u"", u"60", 0, valueType(5)), 1, disk(1000, 400)},
    {"disk space percent below 100 available is undetermined", one(PT_DISKSPACE, u"", u"60", 0, valueType(5)), 0,
     disk(99, 9)},
    // Time of day and weekday on Tuesday 10:00:00 UTC (settings select UTC).
    {"time of day equal", one(PT_TIME, u"IsTime", u"36000", 0, [](auto& v) { v.optionalValue = 4; }), 1, tuesday},
    {"time of day later than 09:59:59 (global UTC setting)", one(PT_TIME, u"IsTime", u"35999", 2), 1, tuesday},
    {"time of day compare 1 is unsupported", [] { return group(FOP_OR, 0, cond(PT_TIME, u"IsTime", u"0", 1)); }, 1, tuesday},
    {"time of day with a wrong name", [] { return group(FOP_AND, 1, cond(PT_TIME, u"Time", u"0", 2), isFalse()); }, 0},
    {"weekday on the named day", one(PT_WDAY, u"TimeTuesday", u"1", 0), 1, tuesday},
    {"Monday on a Tuesday fails an AND", one(PT_WDAY, u"TimeMonday", u"1", 0), 0, tuesday},
    {"Monday on a Tuesday is ignored with nThreatNotFoundFilters", [] { return group(FOP_AND, 1, cond(PT_WDAY, u"TimeMonday", u"1", 0)); }, 1, tuesday},
    {"unknown property type is undetermined", one(42, u"msg", u"hello", 0), 0},
};
// clang-format on

class FilterTableTest : public ::testing::TestWithParam<FilterCase> {};

// Each case: a wrong comparison, range, group operation or unknown-property rule flips it.
TEST_P(FilterTableTest, Evaluates) {
    const FilterCase& c = GetParam();
    auto settings = vt::test::makeSettings();
    settings->timeMode = 1;  // UTC
    auto unit = makeSyslogUnit(u"hello world");
    if (c.prepare) c.prepare(*unit);
    EXPECT_EQ(c.tree()->evaluate(*unit, settings.get()), c.expected) << c.what;
}

INSTANTIATE_TEST_SUITE_P(Cases, FilterTableTest, ::testing::ValuesIn(kCases));

// A match saves the matched text into the named property, a miss saves nothing, and a later
// condition sees it; a status variable is looked up by a template name.
TEST(FilterEntryTest, SaveIntoPropertyAndStatusVariables) {
    auto unit = makeSyslogUnit(u"hello world");
    auto saving = [](int32_t type, std::u16string name, std::u16string value) {
        return cond(type, std::move(name), std::move(value), 0, [](auto& v) {
            v.saveIntoProperty = 1;
            v.saveIntoPropertyName = u"matched";
        });
    };
    EXPECT_EQ(saving(PT_STRING, u"msg", u"absent")->evaluate(*unit, nullptr), FILTER_FALSE);
    EXPECT_EQ(unit->getPropertyStringObject(u"matched"), nullptr);
    EXPECT_EQ(saving(PT_STRING, u"msg", u"world")->evaluate(*unit, nullptr), FILTER_TRUE);
    EXPECT_EQ(cond(PT_STRING, u"matched", u"world", 5)->evaluate(*unit, nullptr), FILTER_TRUE);

    vt::statusTable().clear();
    auto status = [&] { return saving(PT_STATUS, u"state_%iut%", u"on"); };
    EXPECT_EQ(status()->evaluate(*unit, nullptr), FILTER_UNDETERMINED);
    vt::statusTable().setValue(u"state_1", u"switched on");
    EXPECT_EQ(status()->evaluate(*unit, nullptr), FILTER_TRUE);
    EXPECT_EQ(unit->getPropertyStringObject(u"matched")->view(), u"on");
    vt::statusTable().setValue(u"state_1", u"off");
    EXPECT_EQ(status()->evaluate(*unit, nullptr), FILTER_FALSE);
    vt::statusTable().clear();
}

// The tree as stored: "nFilterCount" and F1..Fn per level, a missing Fn skipped.
TEST(FilterLoadTest, LoadsNestedTreeFromRegistry) {
    vt::test::ScopedRegistry registry;
    const std::u16string filters = registry.base() + u"\\Filters";
    auto leaf = [](const std::u16string& key, uint32_t type, const char16_t* name,
                   const char16_t* value) {
        vt::test::regSetDword(key, u"nOperationType", 4);
        vt::test::regSetDword(key, u"PropertyType", type);
        vt::test::regSetString(key, u"PropertyName", name);
        vt::test::regSetString(key, u"PropertyValue", value);
    };
    // F1: msg contains "hello". F2 is missing. F3: priority 3 OR priority 5.
    vt::test::regSetDword(filters, u"nFilterCount", 3);
    leaf(filters + u"\\F1", 1, u"Msg", u"hello");
    const std::u16string f3 = filters + u"\\F3";
    vt::test::regSetDword(f3, u"nOperationType", 1);
    vt::test::regSetDword(f3, u"nHasChildFilterList", 1);
    vt::test::regSetDword(f3, u"nFilterCount", 2);
    leaf(f3 + u"\\F1", 0, u"syslogpriority", u"3");
    leaf(f3 + u"\\F2", 0, u"syslogpriority", u"5");

    CFilterList tree(FOP_AND, 0);
    tree.load(CQuilletString(std::u16string_view(filters)));
    EXPECT_EQ(tree.getCount(), 2);
    auto unit = makeSyslogUnit(u"hello there");
    for (auto [priority, expected] :
         {std::pair{5, FILTER_TRUE}, {4, FILTER_FALSE}, {3, FILTER_TRUE}}) {
        unit->setSyslogPriority(priority);
        EXPECT_EQ(tree.evaluate(*unit, nullptr), expected) << priority;
    }
    unit->setMsg(u"goodbye");
    EXPECT_EQ(tree.evaluate(*unit, nullptr), FILTER_FALSE);
}

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
