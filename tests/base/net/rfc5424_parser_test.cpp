#include "base/net/rfc5424_parser.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/utf_codec.h"

namespace {

std::string u8(std::u16string_view text) {
    return vt::utf16ToUtf8(text);
}

struct Parsed {
    std::string header;  // pri|time|us|host|app|procid|msgid|sd
    std::vector<std::string> params;
    std::string msg;
};

bool parse(const std::string& text, Parsed& out) {
    static std::u16string keep;  // the fields are views into it
    keep = vt::utf8ToUtf16(text);
    vt::Rfc5424Fields f;
    if (!vt::parseRfc5424(keep, f)) return false;
    out.header = std::to_string(f.facility * 8 + f.severity) + "|" +
                 (f.hasTime ? std::to_string(f.time) : "-") + "|" + std::to_string(f.microseconds) +
                 "|" + u8(f.host) + "|" + u8(f.appName) + "|" + u8(f.procId) + "|" + u8(f.msgId) +
                 "|" + u8(f.structuredData);
    for (const vt::SdParam& p : f.params)
        out.params.push_back(u8(p.sdId) + "/" + u8(p.name) + "=" +
                             u8(vt::unescapeSdValue(p.value)));
    out.msg = u8(f.msg);
    return true;
}

// The examples of the protocol's own text, NILVALUE in every field, fractions, offsets and
// escapes in parameter values.
TEST(Rfc5424Parser, ParsesEveryFieldExactly) {
    struct Row {
        std::string text;
        std::string header;
        std::vector<std::string> params;
        std::string msg;
    } rows[] = {
        {"<34>1 2003-10-11T22:14:15.003Z mymachine.example.com su - ID47 - \xEF\xBB\xBF'su root' "
         "failed for lonvick on /dev/pts/8",
         "34|1065910455|3000|mymachine.example.com|su||ID47|",
         {},
         "'su root' failed for lonvick on /dev/pts/8"},
        {"<165>1 2003-08-24T05:14:15.000003-07:00 192.0.2.1 myproc 8710 - - %% It's time to make "
         "the do-nuts.",
         "165|1061727255|3|192.0.2.1|myproc|8710||",
         {},
         "%% It's time to make the do-nuts."},
        {"<165>1 2003-10-11T22:14:15.003Z mymachine.example.com evntslog - ID47 [exampleSDID@32473 "
         "iut=\"3\" eventSource=\"Application\" eventID=\"1011\"][examplePriority@32473 "
         "class=\"high\"]",
         "165|1065910455|3000|mymachine.example.com|evntslog||ID47|[exampleSDID@32473 iut=\"3\" "
         "eventSource=\"Application\" eventID=\"1011\"][examplePriority@32473 class=\"high\"]",
         {"exampleSDID@32473/iut=3", "exampleSDID@32473/eventSource=Application",
          "exampleSDID@32473/eventID=1011", "examplePriority@32473/class=high"},
         ""},
        {"<13>1 - - - - - -", "13|-|0|||||", {}, ""},
        {"<0>1 2024-02-29T23:59:60.5+01:30 h a p m [x a=\"q\\\"\\\\\\]\\n\"] text ",
         "0|1709245800|500000|h|a|p|m|[x a=\"q\\\"\\\\\\]\\n\"]",
         {"x/a=q\"\\]\\n"},
         "text "},
    };
    for (const Row& row : rows) {
        Parsed got;
        ASSERT_TRUE(parse(row.text, got)) << row.text;
        EXPECT_EQ(got.header, row.header) << row.text;
        EXPECT_EQ(got.params, row.params) << row.text;
        EXPECT_EQ(got.msg, row.msg) << row.text;
    }
}

// Anything that is not a whole version 1 header is refused, so the 3164 rules take the message.
TEST(Rfc5424Parser, RefusesBrokenHeaders) {
    for (const char* text : {
             "<34>Oct 11 22:14:15 mymachine su: 'su root' failed",
             "<34>2 2003-10-11T22:14:15Z h a p m - x",
             "<192>1 - - - - - -",
             "<34>1 2003-10-11T22:14:15 h a p m - x",
             "<34>1 2003-13-11T22:14:15Z h a p m - x",
             "<34>1 2003-10-11T22:14:15.1234567Z h a p m - x",
             "<34>1 - h a p m [x a=\"unterminated] msg",
             "<34>1 - h a p m [x a=b] msg",
             "<34>1 - h a p m -x",
             "<34>1 -  a p m - x",
             "<34>1 - h 0123456789012345678901234567890123456789012345678 p m - x",
             "<34>1 - h a p m [] x",
             "",
         }) {
        Parsed got;
        EXPECT_FALSE(parse(text, got)) << text;
    }
}

TEST(Rfc5424Parser, TagInTheFormOfTheOlderProtocol) {
    vt::Rfc5424Fields f;
    EXPECT_EQ(vt::rfc5424Tag(f), u"");
    f.appName = u"app";
    EXPECT_EQ(vt::rfc5424Tag(f), u"app:");
    f.procId = u"42";
    EXPECT_EQ(vt::rfc5424Tag(f), u"app[42]:");
}

}  // namespace
