#include "sources/file_monitor/file_monitor_text.h"

#include <gtest/gtest.h>

#include <string>

#include "platform/utf_codec.h"

namespace vt {
namespace {

std::string narrow(const std::u16string& text) {
    return utf16ToUtf8(text);
}

// 2009-03-07 23:59:58 UTC was a Saturday.
constexpr int64_t kSaturdayNight = 1236470398;

// Catches a wrong placeholder value, or unknown placeholders changed.
TEST(FileNameExpansion, Placeholders) {
    const CivilTime when = utcCivilTime(kSaturdayNight);
    struct Case {
        const char16_t* pattern;
        const char* expected;
    };
    const Case cases[] = {
        {u"ex%y%m%d.log", "ex090307.log"},
        {u"%Y-%m-%d %h:%M:%S", "2009-03-07 23:59:58"},
        {u"day%w-%W", "day6-Sat"},
        {u"100%% sure %q %", "100%% sure %q %"},  // unknown placeholders stay as written
        {u"C:\\logs\\app.log", "C:\\logs\\app.log"},
        {u"", ""},
    };
    for (const Case& c : cases)
        EXPECT_EQ(narrow(expandFileName(c.pattern, when)), c.expected) << narrow(c.pattern);

    // Two seconds later it is Sunday, 2009-03-08.
    EXPECT_EQ(narrow(expandFileName(u"ex%y%m%d-%W%w.log", utcCivilTime(kSaturdayNight + 2))),
              "ex090308-Sun0.log");
}

// Catches calendar errors at leap days and before 1970, and an unbounded expanded name.
TEST(FileNameExpansion, CalendarEdgesAndLengthLimit) {
    struct Case {
        int64_t seconds;
        const char* expected;
    };
    const Case cases[] = {
        {0, "1970-01-01 4"},
        {951782400, "2000-02-29 2"},   // leap day of a century leap year
        {4107542400, "2100-03-01 1"},  // 2100 is no leap year
        {-86400, "1969-12-31 3"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(narrow(expandFileName(u"%Y-%m-%d %w", utcCivilTime(c.seconds))), c.expected);

    const std::u16string longName(2000, u'a');
    EXPECT_EQ(expandFileName(longName + u"%Y", utcCivilTime(0)).size(), kMaxExpandedFileName);
}

// Catches a missed BOM, a BOM skipped against the forced encoding, or a wrong BOM length.
TEST(Encoding, BomAndForcedEncoding) {
    struct Case {
        std::string head;
        TextEncoding forced;
        TextEncoding expected;
        size_t bom;
    };
    const Case cases[] = {
        {"abc", TextEncoding::Auto, TextEncoding::Utf8, 0},
        {"\xEF\xBB\xBF"
         "a",
         TextEncoding::Auto, TextEncoding::Utf8, 3},
        {"\xFF\xFE"
         "a",
         TextEncoding::Auto, TextEncoding::Utf16LE, 2},
        {"\xFE\xFF"
         "a",
         TextEncoding::Auto, TextEncoding::Utf16BE, 2},
        {"a\0b", TextEncoding::Utf16LE, TextEncoding::Utf16LE, 0},
        {"\xFF\xFE", TextEncoding::Utf8, TextEncoding::Utf8, 0},  // forced wins, no BOM skipped
        {"", TextEncoding::Auto, TextEncoding::Utf8, 0},
    };
    for (const Case& c : cases) {
        const auto [encoding, bom] = detectEncoding(c.head, c.forced);
        EXPECT_EQ(encoding, c.expected) << c.head;
        EXPECT_EQ(bom, c.bom) << c.head;
    }
}

std::string le(std::u16string_view text) {
    std::string out;
    for (char16_t c : text) {
        out.push_back(static_cast<char>(c & 0xFF));
        out.push_back(static_cast<char>(c >> 8));
    }
    return out;
}
std::string be(std::u16string_view text) {
    std::string out;
    for (char16_t c : text) {
        out.push_back(static_cast<char>(c >> 8));
        out.push_back(static_cast<char>(c & 0xFF));
    }
    return out;
}

// Cuts the whole buffer into lines the way the monitor does; "|" ends a complete line,
// what is left is reported as held back.
std::string cutAll(const std::string& bytes, TextEncoding encoding, size_t maxBytes,
                   size_t& heldBack) {
    std::string out;
    size_t pos = 0;
    LineCut cut;
    while (findLine(std::string_view(bytes).substr(pos), encoding, maxBytes, cut)) {
        out += narrow(decodeLine(std::string_view(bytes).substr(pos, cut.contentBytes), encoding));
        out += cut.piece ? "+" : "|";
        pos += cut.consumed;
    }
    heldBack = bytes.size() - pos;
    return out;
}

// Catches wrong line ends per encoding, a CR split from its LF, or rests not held back.
TEST(LineSplitting, LineEndsEncodingsAndHeldBackRests) {
    struct Case {
        const char* name;
        std::string bytes;
        TextEncoding encoding;
        const char* lines;
        size_t heldBack;
    };
    const Case cases[] = {
        {"lf", "a\nbb\n", TextEncoding::Utf8, "a|bb|", 0},
        {"crlf", "a\r\nbb\r\n", TextEncoding::Utf8, "a|bb|", 0},
        {"cr", "a\rbb\rc", TextEncoding::Utf8, "a|bb|", 1},
        {"mixed and empty", "a\n\r\n\rb\n", TextEncoding::Utf8, "a|||b|", 0},
        {"no end yet", "a\nhalf", TextEncoding::Utf8, "a|", 4},
        // A CR as the last byte waits: a LF may follow and must not make an empty line.
        {"trailing cr", "a\r", TextEncoding::Utf8, "", 2},
        {"utf8", "gr\xC3\xBC\xC3\x9F\n", TextEncoding::Utf8, "gr\xC3\xBC\xC3\x9F|", 0},
        {"utf16le", le(u"ab\r\nc\u00E9\n"), TextEncoding::Utf16LE, "ab|c\xC3\xA9|", 0},
        {"utf16be", be(u"ab\nc\r"), TextEncoding::Utf16BE, "ab|", 4},
        // A LF byte inside a UTF-16 character is no line end.
        {"utf16 0x0A byte", le(u"\u0A41\n"), TextEncoding::Utf16LE, "\xE0\xA9\x81|", 0},
        {"utf16 odd byte", le(u"a\n") + "x", TextEncoding::Utf16LE, "a|", 1},
    };
    for (const Case& c : cases) {
        size_t heldBack = 0;
        EXPECT_EQ(cutAll(c.bytes, c.encoding, 65536, heldBack), c.lines) << c.name;
        EXPECT_EQ(heldBack, c.heldBack) << c.name;
    }
}

// Catches pieces that split a character or pair, or an exact-limit line cut in two.
TEST(LineSplitting, LongLinesComeInPiecesWithoutSplittingCharacters) {
    size_t heldBack = 0;
    EXPECT_EQ(cutAll("abcdefghij\n", TextEncoding::Utf8, 4, heldBack), "abcd+efgh+ij|");
    // A line of exactly the limit is one line, not a piece and an empty line.
    EXPECT_EQ(cutAll("abcd\nefgh\r\n", TextEncoding::Utf8, 4, heldBack), "abcd|efgh|");
    // Exactly the limit without the next byte: it may be a line end, so wait.
    EXPECT_EQ(cutAll("abcd", TextEncoding::Utf8, 4, heldBack), "");
    EXPECT_EQ(heldBack, 4u);
    // Less than a piece without a line end is held back.
    EXPECT_EQ(cutAll("abcdefg", TextEncoding::Utf8, 4, heldBack), "abcd+");
    EXPECT_EQ(heldBack, 3u);
    // "\xE2\x82\xAC" (3 bytes) would straddle the 4-byte limit: the piece ends before it.
    EXPECT_EQ(cutAll("ab\xE2\x82\xAC"
                     "cd\n",
                     TextEncoding::Utf8, 4, heldBack),
              "ab+\xE2\x82\xAC"
              "c+d|");
    // A surrogate pair stays whole in UTF-16 pieces.
    EXPECT_EQ(cutAll(le(u"a\U0001F600bc\n"), TextEncoding::Utf16LE, 4, heldBack),
              "a+\xF0\x9F\x98\x80+bc|");
}

// Catches cleanup options applied when off, or NUL characters kept or not counted.
TEST(LineCleanup, Options) {
    struct Case {
        std::u16string line;
        LineCleanup how;
        const char* expected;
        size_t nuls;
    };
    const Case cases[] = {
        {u"  a   b\t\x01 c", {}, "  a   b\t\x01 c", 0},
        {u"  a   b\t\x01 c", {true, false, false}, "  a   b\t c", 0},
        {u" \t a b", {false, true, false}, "a b", 0},
        {u"  a   b  ", {false, false, true}, " a b ", 0},
        {u"  a \x7F  b", {true, true, true}, "a b", 0},
        {std::u16string(u"a\0b\0", 4), {}, "ab", 2},
    };
    for (const Case& c : cases) {
        size_t nuls = 0;
        EXPECT_EQ(narrow(cleanLine(c.line, c.how, nuls)), c.expected) << narrow(c.line);
        EXPECT_EQ(nuls, c.nuls);
    }
}

// Catches empty columns dropped, unbounded columns, or wrong names for extra columns.
TEST(W3C, FieldsColumnsAndParamNames) {
    const auto fields = parseW3CFields(u" date time  c-ip cs-method");
    ASSERT_EQ(fields.size(), 4u);
    EXPECT_EQ(narrow(fields[2]), "c-ip");

    struct Case {
        std::u16string line;
        std::vector<std::string> columns;
    };
    const Case cases[] = {
        {u"2009-03-07 10:00:00 10.0.0.1 GET", {"2009-03-07", "10:00:00", "10.0.0.1", "GET"}},
        {u"a  b", {"a", "", "b"}},  // two spaces make an empty column
        {u"a ", {"a", ""}},
        {u"", {""}},
    };
    for (const Case& c : cases) {
        const auto columns = splitW3CColumns(c.line);
        ASSERT_EQ(columns.size(), c.columns.size()) << narrow(c.line);
        for (size_t i = 0; i < columns.size(); ++i) EXPECT_EQ(narrow(columns[i]), c.columns[i]);
    }
    EXPECT_EQ(splitW3CColumns(std::u16string(5000, u'z') + u" y")[0].size(), kMaxW3CColumn);

    EXPECT_EQ(narrow(w3cColumnName(fields, 3)), "cs-method");
    EXPECT_EQ(narrow(w3cColumnName(fields, 4)), "p-param4");
    EXPECT_EQ(narrow(w3cColumnName({}, 0)), "p-param0");
}

}  // namespace
}  // namespace vt
