#include "model/name_value_tree.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "common/registry_fixture.h"
#include "model/concat.h"
#include "model/linked_list.h"
#include "model/property_names.h"
#include "model/unit_time.h"
#include "platform/utf_codec.h"

namespace {

// Catches a lost index entry: the first entry of a name is found below and beyond the index
// capacity, after removals and a clear, and a standard name by id as well as by text.
TEST(SearchableLinkedList, FindsTheFirstEntryOfEachName) {
    const auto& msg = vt::sharedPropertyName(vt::StdProperty::Msg);
    auto name = [](int i) { return ucat(u"p", vt::utf8ToUtf16(std::to_string(i))); };
    for (const int count : {5, 40}) {
        SCOPED_TRACE(count);
        CNameValueTree tree;
        std::vector<CNameValueTreeEntry*> entries;
        for (int i = 0; i < count; ++i) entries.push_back(tree.addEntry(name(i)));
        CNameValueTreeEntry* byText = tree.addString(u"msg", u"first");
        CNameValueTreeEntry* byId = tree.addEntry(msg);
        CNameValueTreeEntry* later = tree.addString(u"p3", u"second");
        EXPECT_EQ(&byId->getName(), &byText->getName());
        EXPECT_EQ(tree.findEntry(msg), byText);
        EXPECT_EQ(tree.findEntry(name(count - 1)), entries.back());
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

// An entry that counts its destruction, to prove the list deletes what it owns.
struct CountedEntry : CLinkedListEntry {
    explicit CountedEntry(int* deleted) : deleted(deleted) {}
    ~CountedEntry() override { ++*deleted; }
    int* deleted;
};

// Catches a recursive clear: a million entries would overflow the stack.
TEST(LinkedList, ClearOfAMillionEntriesNeedsNoStack) {
    CLinkedList list;
    int deleted = 0;
    for (int i = 0; i < 1000000; ++i) list.append(new CountedEntry(&deleted));
    list.clear();
    EXPECT_EQ(deleted, 1000000);
}

// Catches an unlocked append: four appending threads against a remover lose nothing.
TEST(ThreadSafeLinkedList, ConcurrentAppendAndRemoveFirstStayConsistent) {
    CThreadSafeLinkedList list;
    std::vector<std::thread> producers;
    for (int t = 0; t < 4; ++t)
        producers.emplace_back([&list] {
            for (int i = 0; i < 5000; ++i) list.append(new CLinkedListEntry());
        });
    for (size_t removed = 0; removed < 20000;) {
        std::scoped_lock lock(list);
        if (list.isEmpty()) continue;
        list.removeFirst();
        ++removed;
    }
    for (auto& p : producers) p.join();
    EXPECT_TRUE(list.isEmpty());
    EXPECT_EQ(list.getLast(), nullptr);
}

// Catches set appending or add overwriting, and inexact name matches.
TEST(NameValueTree, SetOverwritesAddAppends) {
    CNameValueTree tree;
    tree.setString(u"a", u"1");
    tree.setString(u"a", u"2");
    tree.addString(u"b", u"first");
    tree.addString(u"b", u"second");
    tree.setString(u"b", u"changed");
    EXPECT_EQ(tree.count(), 3u);
    EXPECT_EQ(std::u16string_view(tree.getString(u"a")), u"2");
    EXPECT_EQ(tree.nextEntry(tree.findEntry(u"b"))->getValue(), u"second");
    for (const char16_t* other : {u"A", u"", u"aa"}) EXPECT_EQ(tree.findEntry(other), nullptr);
}

// Catches signs, blanks or overflow read as numbers: only decimal digits within 31 bits count.
TEST(NameValueTree, IntReadRules) {
    const std::pair<const char16_t*, int32_t> rows[] = {{u"42", 42},
                                                        {u"", 0},
                                                        {u"12a", -1},
                                                        {u"-5", -1},
                                                        {u" 7", -1},
                                                        {u"007", 7},
                                                        {u"2147483647", 2147483647},
                                                        {u"2147483648", -1},
                                                        {u"99999999999999999999", -1}};
    CNameValueTree tree;
    for (const auto& [text, expected] : rows) {
        tree.setString(u"v", text);
        EXPECT_EQ(tree.getInt(u"v"), expected) << expected;
    }
    EXPECT_EQ(tree.getInt(u"absent"), -1);
}

// Catches a stale cache: a bad number or time is parsed (and complained about) once until the
// next set; set numbers and times replace the text, its narrow copy and the other kind's cache.
TEST(NameValueTree, CachedValuesFollowEverySet) {
    vt::test::DebugCapture log;
    CNameValueTree tree;
    CNameValueTreeEntry* e = tree.setString(u"v", u"12a");
    tree.setString(u"t", u"1969-12-31 23:59:59");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(tree.getInt(u"v"), -1);
        EXPECT_EQ(tree.getTime(u"t"), 0);
    }
    EXPECT_EQ(log.count("No Numeric value in Tag!!!\r\n"), 1u);
    EXPECT_EQ(log.count("Invalid Date value in Tag!!!"), 1u);
    EXPECT_STREQ(e->getValue().getStringA(), "12a");
    e->setInt(2147483647);
    EXPECT_STREQ(e->getValue().getStringA(), "2147483647");
    e->setTime(86400 + 3661);
    EXPECT_EQ(e->getInt(), -1);
    EXPECT_STREQ(e->getValue().getStringA(), "1970-01-02 01:01:01");
    EXPECT_EQ(e->getTime(), 86400 + 3661);
    e->setInt(5);
    e->setValue(u"text");
    EXPECT_EQ(e->getInt(), -1);
}

// Catches a calendar fix-up: a leap day every fourth year from 1972 without century rule, day
// 31 of a 30-day month runs on; bad fields and layouts are refused.
TEST(Calendar, TextToSecondsByTheAgentsRoutine) {
    const std::pair<const char16_t*, int64_t> rows[] = {
        {u"1972-02-29 00:00:00", 68169600},   {u"1970-01-01 00:00:00", 0},
        {u"1972-03-01 00:00:00", 68256000},   {u"2000-03-01 00:00:00", 951868800},
        {u"2038-01-19 03:14:08", 2147483648}, {u"2100-03-01 00:00:00", 4107628800},
        {u"2023-04-31 00:00:00", 1682899200}};
    for (const auto& [text, seconds] : rows) {
        int64_t s = -1;
        ASSERT_TRUE(vt::parseTimeText(text, s)) << seconds;
        EXPECT_EQ(s, seconds);
    }
    for (const char16_t* bad :
         {u"1969-12-31 23:59:59", u"2024-13-01 00:00:00", u"2024-00-01 00:00:00",
          u"2024-01-00 00:00:00", u"2024-01-32 00:00:00", u"2024-01-01 24:00:00",
          u"2024-01-01 00:60:00", u"2024-01-01 00:00:60", u"2024-01-01 00:00:0",
          u"2024-01-01 00:00:000", u"2024/01/01 00:00:00", u"2024-01-01T00:00:00",
          u"2024-01-01 00-00-00", u"2024-0a-01 00:00:00", u""}) {
        int64_t s = 0;
        EXPECT_FALSE(vt::parseTimeText(bad, s)) << std::u16string_view(bad).size();
    }
}

// Catches the parser's calendar leaking into formatting, which uses the true one.
TEST(Calendar, SecondsToTextIsTheUtcBreakdown) {
    EXPECT_EQ(vt::formatTimeText(951782400), u"2000-02-29 00:00:00");
    EXPECT_EQ(vt::formatTimeText(4107542400), u"2100-03-01 00:00:00");
}

}  // namespace
