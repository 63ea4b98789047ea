#include <gtest/gtest.h>

#include <string>

#include "common/registry_fixture.h"
#include "model/concat.h"
#include "model/name_value_tree.h"
#include "platform/utf_codec.h"

namespace {

using LogCapture = vt::test::DebugCapture;

// Flattens a parsed tree to "name=value" and "name{...}" for compact expectations.
std::string dump(const CNameValueTree& tree) {
    std::string out;
    for (auto* e = tree.firstEntry(); e; e = tree.nextEntry(e)) {
        if (!out.empty()) out += ",";
        out += n(e->getName().view());
        if (e->getChild())
            out += ncat("{", dump(*e->getChild()), "}");
        else
            out += ncat("=", n(e->getValue().view()));
    }
    return out;
}

struct ReadCase {
    const char16_t* xml;
    const char* tree;
    const char* logged;  // a complaint expected in the debug log, or null for none at all
};

class XmlReadCases : public ::testing::TestWithParam<ReadCase> {};

// Catches a reader that repairs, drops or silently accepts malformed markup.
TEST_P(XmlReadCases, BuildsTheLiteralTree) {
    const ReadCase& c = GetParam();
    LogCapture log;
    CNameValueTree tree;
    tree.parse(c.xml);
    EXPECT_EQ(dump(tree), c.tree) << n(c.xml);
    if (c.logged)
        EXPECT_GE(log.count(c.logged), 1u) << n(c.xml) << "\n" << log.text();
    else
        EXPECT_EQ(log.text(), "") << n(c.xml);
}

const ReadCase kReadCases[] = {
    {u"<event><iut>1</iut><msg>hi</msg></event>", "event{iut=1,msg=hi}", nullptr},
    {u"<a>&quot;&amp;&apos;&lt;&gt;</a>", "a=\"&'<>", nullptr},
    {u"<a>&copy; &AMP; & x&</a>", "a=&copy; &AMP; & x&", nullptr},
    {u"  \r\n\t<a>1</a> \n <b>2</b>\r\n", "a=1,b=2", nullptr},
    {u"<a>  v  </a>", "a=  v  ", nullptr},
    {u"<a><b> 1</b>\n<c>2</c></a>", "a{b= 1,c=2}", nullptr},
    {u"<msg>x</mgs>", "msg=x",
     "XML parser found mismatch between begin (msg) and end (mgs) tag name."},
    {u"<a></a>", "a{}", nullptr},
    {u"<a>1</a>junk", "a=1", "XML parser detected extra information at the end of the XML stream."},
    {u"<a>1</a></b>", "a=1", "XML parser detected extra information at the end of the XML stream."},
    {u"<a>1", "a=1", "XML parser expected ending tag but found none."},
    {u"<event><iut>1</iut>", "event{iut=1}", "XML parser expected ending tag but found none."},
    {u"<a><b>1</b>x</a>", "a{b=1,x</a=}", "XML parser expected tag but found none."},
    {u"<a b=\"1\">v</a>", "a b=\"1\"=v", "Invalid Tag!"},
    {u"<?xml version=\"1.0\"?><event><iut>1</iut></event>", "?xml version=\"1.0\"?{event{iut=1}}",
     "Invalid Tag!"},
    {u"<!-- c --><a>1</a>", "!-- c --{a=1}", "XML parser expected ending tag but found none."},
    {u"<a/>", "a/=", "XML parser expected ending tag but found none."},
    {u"<a", "a=", "XML parser did not find delimiter for tag name - tag might be too large."},
    {u"<", "=", "XML parser did not find delimiter for tag name - tag might be too large."},
    {u"", "", nullptr},
    {u"plain text", "", "XML parser detected extra information at the end of the XML stream."},
};

INSTANTIATE_TEST_SUITE_P(Table, XmlReadCases, ::testing::ValuesIn(kReadCases));

// A start tag of 128 characters is whole; a longer one is cut there and its rest joins the value.
TEST(XmlRead, TagNameIsCutAt128Characters) {
    LogCapture log;
    const std::u16string name128(128, u't');
    CNameValueTree exact;
    exact.parse(ucat(u"<", name128, u">v</", name128, u">"));
    EXPECT_EQ(dump(exact), ncat(n(name128), "=v"));
    EXPECT_EQ(log.text(), "");
    CNameValueTree longer;
    longer.parse(ucat(u"<", name128, u"xy>v</", name128, u"xy>"));
    EXPECT_EQ(dump(longer), ncat(n(name128), "=xy>v"));
}

// The mismatch complaint needs the ultra level on top of the others.
TEST(XmlRead, MismatchIsLoggedOnlyWithUltraLevel) {
    for (const uint32_t mask : {32u, 32u | 128u}) {
        LogCapture log(mask);
        CNameValueTree().parse(u"<msg>x</mgs>");
        EXPECT_EQ(log.count("mismatch"), mask & 128 ? 1u : 0u) << mask;
    }
}

// Catches unbounded recursion: deep, unclosed and unbalanced nesting must not overflow the stack.
TEST(XmlRead, DeepNestingIsBounded) {
    std::u16string open, close;
    for (int i = 0; i < 100000; ++i) {
        open += u"<a>";
        close += u"</a>";
    }
    const std::u16string xml = ucat(open, u"x", close);
    CNameValueTree tree;
    tree.parse(xml);
    int levels = 0;
    for (const CNameValueTree* t = &tree; t && t->firstEntry(); t = t->firstEntry()->getChild())
        ++levels;
    EXPECT_GE(levels, 2);
    EXPECT_LE(levels, 256);
    CNameValueTree().parse(std::u16string(300000, u'<'));
    CNameValueTree().parse(ucat(u"<a>", std::u16string(50000, u'<'), u"</a>"));
}

// Only the five markup characters are escaped; blanks go around; child trees are left out.
TEST(XmlWrite, EscapesFiveCharactersAndLeavesChildrenOut) {
    CNameValueTree tree;
    tree.setString(u"v", u"\"&'<>\x01\u00e4\U0001F600");
    tree.addEntry(u"b")->createChild()->setString(u"c", u"2");
    EXPECT_EQ(tree.toXML(u"r", 2, 3),
              u"  <r><v>&quot;&amp;&apos;&lt;&gt;\x01\u00e4\U0001F600</v><b></b></r>   ");
    EXPECT_EQ(CNameValueTree().toXML(u"event"), u"<event></event>");
}

// Catches escaping and entity decoding that do not undo each other (double decoding, lost blanks).
TEST(XmlRoundTrip, ValuesSurviveWritingAndReading) {
    const std::u16string values[] = {
        u"\"&'<>",        u"&copy;", u"a&amp;b", u" lead and trail ",    u"",
        u"line\r\nbreak", u"&lt;",   u"]]>",     u"\U0001F600 surrogate"};
    CNameValueTree tree;
    char16_t name = u'a';
    for (const auto& v : values) tree.addString(std::u16string(1, name++), v);
    CNameValueTree back;
    back.parse(tree.toXML(u"event").view());
    const CNameValueTree* read = back.findEntry(u"event")->getChild();
    ASSERT_NE(read, nullptr);
    auto* r = read->firstEntry();
    for (auto* w = tree.firstEntry(); w; w = tree.nextEntry(w), r = read->nextEntry(r)) {
        ASSERT_NE(r, nullptr);
        EXPECT_EQ(r->getValue(), w->getValue().view()) << n(w->getValue().view());
    }
}

}  // namespace
