#include "base/quillet_string.h"

#include <gtest/gtest.h>

#include <string>

#include "model/concat.h"

namespace {

// Restores the global switch whatever a test does with it.
class EightBitGuard {
  public:
    EightBitGuard() : m_saved(vt::eightBitPassThrough()) {}
    ~EightBitGuard() { vt::setEightBitPassThrough(m_saved); }

  private:
    bool m_saved;
};

// The narrow form is built once and rebuilt after every change.
TEST(QuilletString, NarrowFormIsCachedAndDroppedOnChange) {
    CQuilletString s(u"gr\u00FC");
    const char* first = s.getStringA();
    EXPECT_EQ(std::string(first), platformNarrow(u"gr\u00FC"));
    EXPECT_EQ(s.getStringA(), first);  // same buffer: not rebuilt
    s.append(u'n');
    s.append(u"e!");
    EXPECT_EQ(std::string(s.getStringA(), s.getLengthA()), platformNarrow(u"gr\u00FCne!"));
    s.setString(platformNarrow(u"a\u00E4"));
    EXPECT_EQ(s.view(), u"a\u00E4");
    s.clear();
    EXPECT_STREQ(s.getStringA(), "");
    EXPECT_EQ(CQuilletString(static_cast<const char*>(nullptr)).view(), u"");
}

// The 8-bit switch keeps the low byte of every character instead of converting.
TEST(QuilletString, EightBitPassThroughKeepsTheLowByte) {
    EightBitGuard guard;
    vt::setEightBitPassThrough(true);
    CQuilletString s(u"a\u00E4\u20AC");
    const std::string narrow(s.getStringA(), s.getLengthA());
    EXPECT_EQ(narrow, std::string("a\xE4\xAC", 3));
    vt::setEightBitPassThrough(false);
    s.append(u"");  // any change drops the cache
    EXPECT_EQ(std::string(s.getStringA()), platformNarrow(u"a\u00E4\u20AC"));
}

// Each character set has its own form; unmappable characters become "?".
TEST(QuilletString, CharacterSetFormsAreCachedPerId) {
    CQuilletString s(u"\u00C4\u20AC\u4E2D");
    EXPECT_EQ(std::string(s.getStringInCharset(1252)), "\xC4\x80?");
    EXPECT_EQ(std::string(s.getStringInCharset(28591)), "\xC4??");
    EXPECT_EQ(std::string(s.getStringInCharset(65001)), "\xC3\x84\xE2\x82\xAC\xE4\xB8\xAD");
    EXPECT_EQ(std::string(s.getStringInCharset(850)), "\x8E??");
    // An unknown character set yields "" rather than stale text.
    EXPECT_EQ(std::string(s.getStringInCharset(4242424)), "");
    EXPECT_EQ(std::string(s.getStringInCharset(1252)), "\xC4\x80?");
}

// Case mapping covers Latin, Greek and Cyrillic and leaves caseless characters alone.
TEST(QuilletString, CaseChangesCoverLatinGreekAndCyrillic) {
    CQuilletString s(
        u"Abc \u00C4\u00D6\u00DC\u00DF \u0130\u0141 \u0391\u03A3\u03C2 \u0416\u0401 "
        u"\U0001F600");
    EXPECT_STREQ(s.getStringA(), platformNarrow(s.view()).c_str());
    s.toLower();
    EXPECT_EQ(s.view(),
              u"abc \u00E4\u00F6\u00FC\u00DF i\u0142 \u03B1\u03C3\u03C2 \u0436\u0451 "
              u"\U0001F600");
    s.toUpper();
    EXPECT_EQ(s.view(),
              u"ABC \u00C4\u00D6\u00DC\u00DF I\u0141 \u0391\u03A3\u03A3 \u0416\u0401 "
              u"\U0001F600");
    EXPECT_EQ(std::string(s.getStringA()), platformNarrow(s.view()));  // the cache was dropped
    // Characters without a case pair stay put: multiplication and division signs, y-diaeresis.
    EXPECT_EQ(vt::toLowerChar(0xD7), 0xD7);
    EXPECT_EQ(vt::toUpperChar(0xF7), 0xF7);
    EXPECT_EQ(vt::toUpperChar(0xFF), 0x178);
    EXPECT_EQ(vt::toLowerChar(0x178), 0xFF);
}

}  // namespace
