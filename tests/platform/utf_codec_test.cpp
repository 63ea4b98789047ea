#include "platform/utf_codec.h"

#include <gtest/gtest.h>

namespace {

struct Utf8Case {
    const char* name;
    std::string utf8;
    std::u16string utf16;
};

// Decoding: valid text round-trips; every malformed sequence becomes U+FFFD and decoding
// resynchronises on the next byte.
TEST(UtfCodec, DecodesValidAndReplacesMalformedUtf8) {
    const Utf8Case cases[] = {
        {"ascii", "hello", u"hello"},
        {"two-byte", "\xC3\xA4", u"\u00E4"},
        {"three-byte", "\xE2\x82\xAC", u"\u20AC"},
        {"astral", "\xF0\x9F\x98\x80", u"\xD83D\xDE00"},
        {"lone continuation", "a\x80" "b", u"a\uFFFDb"},
        {"overlong slash", "\xC0\xAF", u"\uFFFD\uFFFD"},
        {"truncated at end", "x\xE2\x82", u"x\uFFFD\uFFFD"},
        {"encoded surrogate", "\xED\xA0\x80", u"\uFFFD\uFFFD\uFFFD"},
        {"beyond U+10FFFF", "\xF4\x90\x80\x80", u"\uFFFD\uFFFD\uFFFD\uFFFD"},
    };
    for (const auto& c : cases) EXPECT_EQ(vt::utf8ToUtf16(c.utf8), c.utf16) << c.name;
}

// Encoding: a surrogate pair becomes one four-byte sequence, a lone surrogate U+FFFD.
TEST(UtfCodec, EncodesPairsAndReplacesLoneSurrogates) {
    EXPECT_EQ(vt::utf16ToUtf8(u"\xD83D\xDE00"), "\xF0\x9F\x98\x80");
    EXPECT_EQ(vt::utf16ToUtf8(std::u16string(u"a\xD800" "b")), "a\xEF\xBF\xBD" "b");
    EXPECT_EQ(vt::utf16ToUtf8(std::u16string(1, u'\xDC00')), "\xEF\xBF\xBD");
    EXPECT_EQ(vt::utf16ToUtf8(u"\u00E4\u20AC"), "\xC3\xA4\xE2\x82\xAC");
}

}  // namespace
