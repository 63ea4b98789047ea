#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "actions/actions_test_helper.h"
#include "actions/post_process/parse_template.h"
#include "model/property_replacer.h"

namespace vt::test {
namespace {

using Props = CCustomParseList::Properties;

// The README's two examples and one of each kind: the pieces land in their properties, "-"
// drops one, and a message that does not fit to its end is no match.
TEST(ParseTemplate, ParsesWholeMessagesIntoProperties) {
    struct Row {
        const char* templ;
        const char* message;
        Props expected;  // empty: no match
    } rows[] = {
        {"%time:UNIX-like Timestamp% %host:Word% %tag:UpTo:: %: %action:Word% SRC=%src:IPV4 "
         "Address% DPT=%dpt:Integer%",
         "May  1 12:34:56 fw01 kernel: DROP SRC=10.0.0.5 DPT=22",
         {{"time", "May  1 12:34:56"},
          {"host", "fw01"},
          {"tag", "kernel"},
          {"action", "DROP"},
          {"src", "10.0.0.5"},
          {"dpt", "22"}}},
        {"%client:IPV4 Address% %-:Word% %user:Word% [%time:UpTo:]%] \"%request:UpTo:\"%\" "
         "%status:Integer% %bytes:Integer%",
         "192.0.2.1 - frank [10/Oct/2000:13:55:36 -0700] \"GET /a.gif HTTP/1.0\" 200 2326",
         {{"client", "192.0.2.1"},
          {"user", "frank"},
          {"time", "10/Oct/2000:13:55:36 -0700"},
          {"request", "GET /a.gif HTTP/1.0"},
          {"status", "200"},
          {"bytes", "2326"}}},
        {"%t:ISO-like Timestamp% %n:2%%%%r:RestOfMessage%",
         "2024-05-01T12:34:56.123+02:00 -7%",
         {{"t", "2024-05-01T12:34:56.123+02:00"}, {"n", "-7"}, {"r", ""}}},
        {"%ip:IPV4 Address%", "10.0.0.256", {}},
        {"%ip:IPV4 Address%", "10.0.0.1 trailing", {}},
        {"id=%id:Integer%", "id=x", {}},
    };
    for (const Row& row : rows) {
        CCustomParseList list;
        std::string error;
        ASSERT_TRUE(list.add(row.templ, error)) << row.templ << ": " << error;
        Props got;
        EXPECT_EQ(list.parse(row.message, got), !row.expected.empty()) << row.message;
        EXPECT_EQ(got, row.expected) << row.message;
    }
}

// Templates that cannot be used are refused at load; an unknown kind number is logged and
// left out; a failing piece names its kind; the first template that fits wins.
TEST(ParseTemplate, BadTemplatesAndFailuresAreReported) {
    CCustomParseList list;
    std::string error;
    for (const char* bad : {"%open:Word", "%noKind%", "%x:Sentence%", "%x:UpTo%"})
        EXPECT_FALSE(list.add(bad, error)) << bad;
    DebugCapture log(DBG_ERROR | DBG_INFO);
    ASSERT_TRUE(list.add("%a:Integer% %b:42%", error));
    EXPECT_EQ(log.count("Unsupported parse type (syntax) 42 was detected"), 1u);
    ASSERT_TRUE(list.add("%w:Word% %rest:RestOfMessage%", error));
    Props got;
    ASSERT_TRUE(list.parse("abc def", got));
    EXPECT_EQ(got, (Props{{"w", "abc"}, {"rest", "def"}}));
    EXPECT_EQ(log.count("could NOT (re)parse an object of type \"Integer\" - Property \"a\", "
                        "ToParse \"abc def\"."),
              1u);
}

// Through the registry: the pieces become unit properties a later filter or template reads.
TEST(PostProcess, StoresPiecesOnTheUnit) {
    ScopedRegistry registry;
    const std::u16string key = registry.base() + u"\\A1";
    regSetDword(key, u"nTemplateCount", 2);
    regSetString(key, u"szTemplate1", u"%user:UpTo: %%% failed");  // refused: no closing %
    regSetString(key, u"szTemplate2", u"login of %user:Word% from %src:IPV4 Address% failed");
    auto entry = loadAction(key, 1015);
    auto unit = makeForwardUnit(u"login of root from 203.0.113.9 failed");
    CConfigSettings settings;
    entry->CallAction(*unit, settings);
    EXPECT_EQ(replaceProperties(u"%user%@%src%", unit.get()), u"root@203.0.113.9");
}

}  // namespace
}  // namespace vt::test
