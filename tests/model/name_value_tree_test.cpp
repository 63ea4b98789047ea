#include "model/name_value_tree.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "base/error_report.h"
#include "common/registry_fixture.h"
#include "model/concat.h"
#include "model/linked_list.h"
#include "model/property_names.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

using LogCapture = vt::test::DebugCapture;

// An entry that reports its destruction, to prove the list deletes what it owns.
class CountedEntry : public CLinkedListEntry {
  public:
    explicit CountedEntry(int* deleted) : m_deleted(deleted) {}
    ~CountedEntry() override { ++*m_deleted; }

  private:
    int* m_deleted;
};

// Look-ups go through an index of the first entry of each name; past its capacity the list
// is walked. Either way the first entry of a name must be found, also after removals and a
// clear, and a standard name by its id as well as by its text (as the XML reader adds it).
TEST(SearchableLinkedList, FindsTheFirstEntryOfEachNameBeyondTheIndexAndAfterRemovals) {
    const auto& msg = vt::sharedPropertyName(vt::StdProperty::Msg);
    for (const int count : {5, 40}) {
        SCOPED_TRACE(count);
        CNameValueTree tree;
        std::vector<CNameValueTreeEntry*> entries;
        for (int i = 0; i < count; ++i)
            entries.push_back(tree.addEntry(ucat(u"p", vt::utf8ToUtf16(std::to_string(i)))));
        CNameValueTreeEntry* byText = tree.addString(u"msg", u"first");
        CNameValueTreeEntry* byId = tree.addEntry(msg);
        CNameValueTreeEntry* later = tree.addString(u"p3", u"second");
        EXPECT_EQ(&byId->getName(), &byText->getName());
        EXPECT_EQ(tree.findEntry(msg), byText);
        EXPECT_EQ(tree.findEntry(u"p4"), entries[4]);
        EXPECT_EQ(tree.findEntry(ucat(u"p", vt::utf8ToUtf16(std::to_string(count - 1)))),
                  entries.back());
        tree.removeFirst();
        EXPECT_EQ(tree.findEntry(u"p0"), nullptr);
        tree.removeAfter(entries[2], entries[3]);
        EXPECT_EQ(tree.findEntry(u"p3"), later);
        tree.removeAfter(entries.back(), byText);
        EXPECT_EQ(tree.findEntry(msg), byId);
        EXPECT_EQ(tree.findEntry(u"msg"), byId);
        tree.clear();
        EXPECT_EQ(tree.findEntry(u"p4"), nullptr);
        CNameValueTreeEntry* fresh = tree.setString(u"p4", u"again");
        EXPECT_EQ(tree.findEntry(u"p4"), fresh);
    }
}

// Clearing is a loop, not a recursion down the chain.
TEST(LinkedList, ClearOfAMillionEntriesNeedsNoStack) {
    CLinkedList list;
    int deleted = 0;
    for (int i = 0; i < 1000000; ++i) list.append(new CountedEntry(&deleted));
    list.clear();
    EXPECT_EQ(deleted, 1000000);
}

// Appends of four threads against a remover lose nothing and leave the list consistent.
TEST(ThreadSafeLinkedList, ConcurrentAppendAndRemoveFirstStayConsistent) {
    CThreadSafeLinkedList list;
    std::vector<std::thread> producers;
    for (int t = 0; t < 4; ++t)
        producers.emplace_back([&list] {
            for (int i = 0; i < 5000; ++i) list.append(new CLinkedListEntry());
        });
    size_t removed = 0;
    while (removed < 20000) {
        list.lock();
        if (!list.isEmpty()) {
            list.removeFirst();
            ++removed;
        }
        list.unlock();
    }
    for (auto& p : producers) p.join();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.getLast(), nullptr);
}

// setString changes the first entry of a name, addString appends a duplicate; names are exact
// and case-sensitive.
TEST(NameValueTree, SetOverwritesAddAppends) {
    CNameValueTree tree;
    tree.setString(u"a", u"1");
    tree.setString(u"a", u"2");
    tree.addString(u"b", u"first");
    tree.addString(u"b", u"second");
    tree.setString(u"b", u"changed");
    EXPECT_EQ(tree.count(), 3u);
    EXPECT_EQ(std::u16string_view(tree.getString(u"a")), u"2");
    EXPECT_EQ(tree.findEntry(u"b")->getValue(), u"changed");
    EXPECT_EQ(tree.nextEntry(tree.findEntry(u"b"))->getValue(), u"second");
    for (const char16_t* other : {u"A", u"", u"aa", u"B"})
        EXPECT_EQ(tree.findEntry(other), nullptr);
}

// Only plain decimal digits within 31 bits read as a number; anything else is -1.
TEST(NameValueTree, IntReadRules) {
    struct Row {
        const char16_t* text;
        int32_t expected;
    } rows[] = {
        {u"42", 42},
        {u"", 0},
        {u"12a", -1},
        {u"-5", -1},
        {u" 7", -1},
        {u"007", 7},
        {u"2147483647", 2147483647},
        {u"2147483648", -1},
        {u"99999999999999999999", -1},
    };
    CNameValueTree tree;
    for (const auto& r : rows) {
        tree.setString(u"v", r.text);
        EXPECT_EQ(tree.getInt(u"v"), r.expected) << r.expected;
    }
    EXPECT_EQ(tree.getInt(u"absent"), -1);
}

// A bad number or time text is parsed (and complained about) once until the next set; a set
// time fills the cache with its text.
TEST(NameValueTree, ValuesAreParsedOnceUntilTheNextSet) {
    LogCapture log;
    CNameValueTree tree;
    tree.setString(u"v", u"12a");
    tree.setString(u"t", u"1969-12-31 23:59:59");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(tree.getInt(u"v"), -1);
        EXPECT_EQ(tree.getTime(u"t"), 0);
    }
    EXPECT_EQ(log.count("No Numeric value in Tag!!!\r\n"), 1u);
    EXPECT_EQ(log.count("Invalid Date value in Tag!!!"), 1u);
    tree.setString(u"v", u"12");
    EXPECT_EQ(tree.getInt(u"v"), 12);
    tree.setTime(u"t", 86400 + 3661);
    EXPECT_EQ(std::u16string_view(tree.getString(u"t")), u"1970-01-02 01:01:01");
    EXPECT_EQ(tree.getTime(u"t"), 86400 + 3661);
    EXPECT_EQ(log.count("Invalid Date value in Tag!!!"), 1u);
}

// Numbers and times set on an entry replace its text (and the narrow copy) and the other kind's
// cache.
TEST(NameValueTree, SetNumbersAndTimesReadBackAsText) {
    CNameValueTree tree;
    CNameValueTreeEntry* e = tree.setString(u"v", u"old");
    EXPECT_STREQ(e->getValue().getStringA(), "old");
    e->setInt(2147483647);
    EXPECT_STREQ(e->getValue().getStringA(), "2147483647");
    e->setTime(1700000000);
    EXPECT_EQ(e->getInt(), -1);
    EXPECT_STREQ(e->getValue().getStringA(), "2023-11-14 22:13:20");
    e->setInt(5);
    e->setValue(u"text");
    EXPECT_EQ(e->getInt(), -1);
}

// An absent must-exist int throws 1100 and is logged.
TEST(NameValueTree, MustExistIntThrows1100) {
    LogCapture log;
    CNameValueTree tree;
    const auto report = vt::test::thrownReport([&] { tree.getInt(u"syslogpriority", true); });
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->getErrorCode(), 1100u);
    EXPECT_EQ(log.count("CNameValueTree|Fatal error, Int VALUE NOT FOUND: syslogpriority\r\n"), 1u);
}

// The agent's own calendar: a leap day every fourth year from 1972, no century rule.
TEST(Calendar, TextToSecondsByTheAgentsRoutine) {
    struct Row {
        const char16_t* text;
        int64_t seconds;
    } rows[] = {
        {u"1970-01-01 00:00:00", 0},
        {u"1972-02-29 00:00:00", 68169600},
        {u"1972-03-01 00:00:00", 68256000},
        {u"2000-03-01 00:00:00", 951868800},
        {u"2038-01-19 03:14:08", 2147483648},
        // 2100 is no leap year, but the routine counts one: a day later than the calendar.
        {u"2100-03-01 00:00:00", 4107542400 + 86400},
        // Day 31 of a 30-day month is accepted and runs into the next month.
        {u"2023-04-31 00:00:00", 1682899200},
    };
    for (const auto& r : rows) {
        int64_t s = -1;
        ASSERT_TRUE(vt::parseTimeText(r.text, s)) << r.seconds;
        EXPECT_EQ(s, r.seconds);
    }
}

// Out-of-range fields and any other layout are refused.
TEST(Calendar, RejectedTimeTexts) {
    const char16_t* bad[] = {
        u"1969-12-31 23:59:59",  u"2024-13-01 00:00:00", u"2024-00-01 00:00:00",
        u"2024-01-00 00:00:00",  u"2024-01-32 00:00:00", u"2024-01-01 24:00:00",
        u"2024-01-01 00:60:00",  u"2024-01-01 00:00:60", u"2024-01-01 00:00:0",
        u"2024-01-01 00:00:000", u"2024/01/01 00:00:00", u"2024-01-01T00:00:00",
        u"2024-01-01 00-00-00",  u"2024-0a-01 00:00:00", u"",
    };
    for (const char16_t* t : bad) {
        int64_t s = 0;
        EXPECT_FALSE(vt::parseTimeText(t, s)) << std::u16string_view(t).size();
    }
}

// Formatting uses the true calendar (2000 and 2100 as they are).
TEST(Calendar, SecondsToTextIsTheUtcBreakdown) {
    EXPECT_EQ(vt::formatTimeText(1704114309), u"2024-01-01 13:05:09");
    EXPECT_EQ(vt::formatTimeText(951782400), u"2000-02-29 00:00:00");
    EXPECT_EQ(vt::formatTimeText(4107542400), u"2100-03-01 00:00:00");
}

}  // namespace
