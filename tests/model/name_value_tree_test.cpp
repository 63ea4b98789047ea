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
// is walked. Either way the first entry of a name must be found, also after removals.
TEST(SearchableLinkedList, FindsTheFirstEntryOfEachNameBeyondTheIndexAndAfterRemovals) {
    auto nameOf = [](int i) {
        std::u16string name(1, u'p');
        for (const char digit : std::to_string(i)) name.push_back(static_cast<char16_t>(digit));
        return name;
    };
    for (const int count : {5, 40}) {
        SCOPED_TRACE(count);
        CNameValueTree tree;
        std::vector<CNameValueTreeEntry*> entries;
        for (int i = 0; i < count; ++i) entries.push_back(tree.addEntry(nameOf(i)));
        CNameValueTreeEntry* later = tree.addString(u"p3", u"second");
        for (int i = 0; i < count; ++i) EXPECT_EQ(tree.findEntry(nameOf(i)), entries[i]);
        EXPECT_EQ(tree.findEntry(nameOf(count)), nullptr);
        EXPECT_EQ(tree.findEntry(u""), nullptr);
        tree.removeFirst();
        EXPECT_EQ(tree.findEntry(u"p0"), nullptr);
        tree.removeAfter(entries[2], entries[3]);
        EXPECT_EQ(tree.findEntry(u"p3"), later);
        EXPECT_EQ(tree.findEntry(nameOf(count - 1)), entries.back());
        tree.clear();
        EXPECT_EQ(tree.findEntry(u"p4"), nullptr);
        CNameValueTreeEntry* fresh = tree.setString(u"p4", u"again");
        EXPECT_EQ(tree.findEntry(u"p4"), fresh);
    }
}

// A standard name is found by its id whether the entry was added by id or by its text (as the
// XML reader adds it), also past the index and after removals.
TEST(SearchableLinkedList, StandardNamesAreFoundByIdAndByText) {
    const auto& msg = vt::sharedPropertyName(vt::StdProperty::Msg);
    const auto& tag = vt::sharedPropertyName(vt::StdProperty::SyslogTag);
    EXPECT_EQ(vt::findSharedPropertyName(u"msg"), &msg);
    EXPECT_EQ(vt::findSharedPropertyName(u"Msg"), nullptr);
    EXPECT_EQ(vt::findSharedPropertyName(u"msgs"), nullptr);
    for (const int fillers : {0, 40}) {
        SCOPED_TRACE(fillers);
        CNameValueTree tree;
        for (int i = 0; i < fillers; ++i) {
            std::u16string name(u"f");
            name.push_back(static_cast<char16_t>(u'a' + i % 26));
            name.push_back(static_cast<char16_t>(u'a' + i / 26));
            tree.addEntry(name);
        }
        EXPECT_EQ(tree.findEntry(msg), nullptr);
        CNameValueTreeEntry* byText = tree.addString(u"msg", u"first");
        CNameValueTreeEntry* byId = tree.addEntry(msg);
        CNameValueTreeEntry* tagEntry = tree.entryFor(tag);
        EXPECT_EQ(&byId->getName(), &byText->getName());
        EXPECT_EQ(tree.findEntry(msg), byText);
        EXPECT_EQ(tree.findEntry(u"msg"), byText);
        EXPECT_EQ(tree.entryFor(tag), tagEntry);
        EXPECT_EQ(tree.findEntry(u"syslogtag"), tagEntry);
        // The first "msg" goes; the second one is found by both routes.
        CNameValueTreeEntry* before = nullptr;
        for (auto* e = tree.firstEntry(); e != byText; e = tree.nextEntry(e)) before = e;
        tree.removeAfter(before, byText);
        EXPECT_EQ(tree.findEntry(msg), byId);
        EXPECT_EQ(tree.findEntry(u"msg"), byId);
    }
}

TEST(LinkedList, AppendRemoveAndOwnership) {
    int deleted = 0;
    CLinkedList list;
    auto* a = new CountedEntry(&deleted);
    list.append(a);
    EXPECT_EQ(list.getFirst(), a);
    EXPECT_EQ(list.getLast(), a);
    list.removeFirst();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.getLast(), nullptr);
    EXPECT_EQ(deleted, 1);
    list.removeFirst();  // no effect on an empty list
    EXPECT_EQ(deleted, 1);

    auto* b = new CountedEntry(&deleted);
    auto* c = new CountedEntry(&deleted);
    auto* d = new CountedEntry(&deleted);
    list.append(b);
    list.append(c);
    list.append(d);
    list.removeAfter(c, d);  // the last entry: its predecessor becomes last
    EXPECT_EQ(list.getLast(), c);
    EXPECT_EQ(list.next(c), nullptr);
    list.removeAfter(nullptr, b);  // the first entry
    EXPECT_EQ(list.getFirst(), c);
    EXPECT_EQ(list.getLast(), c);
    EXPECT_EQ(deleted, 3);
    list.append(new CountedEntry(&deleted));
    list.append(new CountedEntry(&deleted));
    int seen = 0;
    for (auto* e = list.next(nullptr); e; e = list.next(e)) ++seen;
    EXPECT_EQ(seen, 3);
    EXPECT_EQ(list.count(), 3u);
    list.clear();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(deleted, 6);
    {
        CLinkedList scoped;
        scoped.append(new CountedEntry(&deleted));
        scoped.append(new CountedEntry(&deleted));
    }
    EXPECT_EQ(deleted, 8);
}

TEST(LinkedList, ClearOfAMillionEntriesNeedsNoStack) {
    CLinkedList list;
    int deleted = 0;
    for (int i = 0; i < 1000000; ++i) list.append(new CountedEntry(&deleted));
    list.clear();
    EXPECT_EQ(deleted, 1000000);
}

TEST(ThreadSafeLinkedList, ConcurrentAppendsLoseNothing) {
    CThreadSafeLinkedList list;
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&list] {
            for (int i = 0; i < 5000; ++i) list.append(new CLinkedListEntry());
        });
    for (auto& th : threads) th.join();
    list.lock();
    EXPECT_EQ(list.count(), 20000u);
    list.unlock();
}

TEST(ThreadSafeLinkedList, ConcurrentAppendAndRemoveFirstStayConsistent) {
    CThreadSafeLinkedList list;
    std::thread producer([&list] {
        for (int i = 0; i < 20000; ++i) list.append(new CLinkedListEntry());
    });
    size_t removed = 0;
    while (removed < 20000) {
        list.lock();
        const bool any = !list.isEmpty();
        if (any) list.removeFirst();
        list.unlock();
        if (any) ++removed;
    }
    producer.join();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.getLast(), nullptr);
}

TEST(ThreadSafeLinkedList, DestructorIsLogged) {
    LogCapture log;
    { CThreadSafeLinkedList list; }
    EXPECT_EQ(log.count("CThreadSafeLinkedList::~CThreadSafeLinkedList() called\r\n"), 1u);
}

TEST(NameValueTree, SetOverwritesAddAppends) {
    CNameValueTree tree;
    tree.setString(u"a", u"1");
    tree.setString(u"a", u"2");
    EXPECT_EQ(tree.count(), 1u);
    EXPECT_EQ(std::u16string_view(tree.getString(u"a")), u"2");
    tree.addString(u"b", u"first");
    tree.addString(u"b", u"second");
    EXPECT_EQ(tree.count(), 3u);
    EXPECT_EQ(std::u16string_view(tree.getString(u"b")), u"first");
    // setString changes the first of the duplicates.
    tree.setString(u"b", u"changed");
    EXPECT_EQ(tree.findEntry(u"b")->getValue(), u"changed");
    EXPECT_EQ(tree.nextEntry(tree.findEntry(u"b"))->getValue(), u"second");
}

TEST(NameValueTree, FindIsCaseSensitiveAndExact) {
    CNameValueTree tree;
    tree.setString(u"msg", u"x");
    EXPECT_EQ(tree.findEntry(u"MSG"), nullptr);
    EXPECT_EQ(tree.findEntry(u"ms"), nullptr);
    EXPECT_EQ(tree.findEntry(u"msgs"), nullptr);
    EXPECT_EQ(tree.getString(u"Msg"), nullptr);
    EXPECT_EQ(tree.getStringObject(u"Msg"), nullptr);
    EXPECT_NE(tree.findEntry(u"msg"), nullptr);
}

TEST(NameValueTree, IntReadRules) {
    struct Row {
        const char16_t* text;
        int32_t expected;
    } rows[] = {
        {u"0", 0},
        {u"42", 42},
        {u"", 0},
        {u"12a", -1},
        {u"-5", -1},
        {u" 7", -1},
        {u"+7", -1},
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
    tree.setInt(u"neg", -3);
    EXPECT_EQ(std::u16string_view(tree.getString(u"neg")), u"-3");
    EXPECT_EQ(tree.getInt(u"neg"), -1);  // no sign on reading
    EXPECT_EQ(tree.getInt(u"absent"), -1);
}

TEST(NameValueTree, IntIsParsedOnceUntilTheNextSet) {
    LogCapture log;
    CNameValueTree tree;
    tree.setString(u"v", u"12a");
    EXPECT_EQ(tree.getInt(u"v"), -1);
    EXPECT_EQ(tree.getInt(u"v"), -1);
    EXPECT_EQ(log.count("No Numeric value in Tag!!!\r\n"), 1u);
    tree.setString(u"v", u"12b");
    EXPECT_EQ(tree.getInt(u"v"), -1);
    EXPECT_EQ(log.count("No Numeric value in Tag!!!\r\n"), 2u);
    tree.setString(u"v", u"12");
    EXPECT_EQ(tree.getInt(u"v"), 12);
}

TEST(NameValueTree, TimeIsParsedOnceAndSetFillsTheCache) {
    LogCapture log;
    CNameValueTree tree;
    tree.setString(u"t", u"1969-12-31 23:59:59");
    EXPECT_EQ(tree.getTime(u"t"), 0);
    EXPECT_EQ(tree.getTime(u"t"), 0);
    EXPECT_EQ(log.count("Invalid Date value in Tag!!!"), 1u);
    tree.setTime(u"t", 86400 + 3661);
    EXPECT_EQ(std::u16string_view(tree.getString(u"t")), u"1970-01-02 01:01:01");
    EXPECT_EQ(tree.getTime(u"t"), 86400 + 3661);
    EXPECT_EQ(log.count("Invalid Date value in Tag!!!"), 1u);
}

// Numbers and times written as values are read back through every form of the text, also
// after a text (and its narrow copy) was there before, and across kinds.
TEST(NameValueTree, SetNumbersAndTimesReadBackAsText) {
    CNameValueTree tree;
    CNameValueTreeEntry* e = tree.setString(u"v", u"old");
    EXPECT_STREQ(e->getValue().getStringA(), "old");
    e->setInt(2147483647);
    EXPECT_EQ(e->getInt(), 2147483647);
    EXPECT_STREQ(e->getValue().getStringA(), "2147483647");
    e->setInt(0);
    EXPECT_EQ(tree.getTime(u"v"), 0);  // "0" is no time text
    EXPECT_EQ(std::u16string_view(tree.getString(u"v")), u"0");
    e->setTime(1700000000);
    EXPECT_EQ(e->getInt(), -1);  // the time text is no number
    EXPECT_STREQ(e->getValue().getStringA(), "2023-11-14 22:13:20");
    e->setTime(-1);
    EXPECT_EQ(e->getTime(), 0);
    EXPECT_EQ(e->getValue(), u"1969-12-31 23:59:59");
    e->setInt(5);
    e->setValue(u"text");
    EXPECT_EQ(e->getValue(), u"text");
    EXPECT_EQ(e->getInt(), -1);
}

TEST(NameValueTree, MustExistIntThrows1100) {
    LogCapture log;
    CNameValueTree tree;
    const auto report = vt::test::thrownReport([&] { tree.getInt(u"syslogpriority", true); });
    ASSERT_NE(report, nullptr);
    EXPECT_EQ(report->getErrorCode(), 1100u);
    EXPECT_EQ(log.count("CNameValueTree|Fatal error, Int VALUE NOT FOUND: syslogpriority\r\n"), 1u);
    EXPECT_EQ(tree.getString(u"s", true), nullptr);
    EXPECT_EQ(log.count("CNameValueTree|Fatal error, Szt VALUE NOT FOUND: s"), 1u);
    EXPECT_EQ(tree.getStringObject(u"o", true), nullptr);
    EXPECT_EQ(log.count("CNameValueTree| Fatal error, Astr VALUE NOT FOUND: o"), 1u);
    EXPECT_EQ(tree.getTime(u"t"), 0);
    EXPECT_EQ(log.count("CNameValueTree|Fatal error, Time VALUE NOT FOUND: t"), 1u);
}

TEST(NameValueTree, ChildTreeCanBeDetached) {
    CNameValueTree root;
    auto* event = root.addEntry(u"event");
    CNameValueTree* children = event->createChild();
    EXPECT_EQ(children->getOwner(), event);
    children->setInt(u"iut", 1);
    std::unique_ptr<CNameValueTree> taken(event->detachChild());
    EXPECT_EQ(event->getChild(), nullptr);
    EXPECT_EQ(taken->getOwner(), nullptr);
    EXPECT_EQ(taken->getInt(u"iut"), 1);
}

TEST(NameValueTree, FormattedAndNarrowSetters) {
    CNameValueTree tree;
    tree.setFormatted(u"f", "%s-%d-%04x", "ab", 7, 255);
    EXPECT_EQ(std::u16string_view(tree.getString(u"f")), u"ab-7-00ff");
    tree.setStringA(u"n", platformNarrow(u"gr\u00FC\u00DF"));
    EXPECT_EQ(std::u16string_view(tree.getString(u"n")), u"gr\u00FC\u00DF");
    tree.addEntry(u"i")->setInt(5);
    tree.addEntry(u"i")->setInt(6);
    EXPECT_EQ(tree.getInt(u"i"), 5);
}

TEST(ThreadSafeNameValueTree, SameTypedAccess) {
    CThreadSafeNameValueTree tree;
    tree.setInt(u"n", 17);
    tree.setString(u"s", u"x");
    EXPECT_EQ(tree.getInt(u"n"), 17);
    EXPECT_EQ(tree.findEntry(u"S"), nullptr);
    tree.parse(u"<a>1</a><b><c>2</c></b>");
    ASSERT_NE(tree.findEntry(u"b"), nullptr);
    ASSERT_NE(tree.findEntry(u"b")->getChild(), nullptr);
    EXPECT_EQ(tree.findEntry(u"b")->getChild()->getInt(u"c"), 2);
}

// The agent's own calendar: a leap day every fourth year from 1972, no century rule.
TEST(Calendar, TextToSecondsByTheAgentsRoutine) {
    struct Row {
        const char16_t* text;
        int64_t seconds;
    } rows[] = {
        {u"1970-01-01 00:00:00", 0},
        {u"1970-01-02 01:01:01", 90061},
        {u"1972-02-29 00:00:00", 68169600},
        {u"1972-03-01 00:00:00", 68256000},
        {u"2000-03-01 00:00:00", 951868800},
        {u"2024-01-01 13:05:09", 1704114309},
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

TEST(Calendar, SecondsToTextIsTheUtcBreakdown) {
    EXPECT_EQ(vt::formatTimeText(0), u"1970-01-01 00:00:00");
    EXPECT_EQ(vt::formatTimeText(1704114309), u"2024-01-01 13:05:09");
    EXPECT_EQ(vt::formatTimeText(951782400), u"2000-02-29 00:00:00");
    EXPECT_EQ(vt::formatTimeText(4107542400), u"2100-03-01 00:00:00");
}

}  // namespace
