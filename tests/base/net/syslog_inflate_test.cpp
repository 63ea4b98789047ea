#include "base/net/syslog_inflate.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <string>

namespace {

using vt::InflateResult;

std::string zDatagram(const std::string& text, int level = 9) {
    uLongf size = compressBound(static_cast<uLong>(text.size()));
    std::string out(size, '\0');
    EXPECT_EQ(compress2(reinterpret_cast<Bytef*>(out.data()), &size,
                        reinterpret_cast<const Bytef*>(text.data()),
                        static_cast<uLong>(text.size()), level),
              Z_OK);
    out.resize(size);
    return "z" + out;
}

// A marked datagram is inflated, an unmarked one left alone, a broken or cut stream dropped
// at once (a cut stream is told apart from a full buffer).
TEST(SyslogInflate, MarkedUnmarkedAndBroken) {
    const std::string text = "<13>Jan  5 10:20:30 host1 app: compressed hello";
    std::string out = "untouched";
    EXPECT_EQ(vt::inflateSyslogDatagram("<13>plain", out), InflateResult::NotCompressed);
    EXPECT_EQ(vt::inflateSyslogDatagram("", out), InflateResult::NotCompressed);
    EXPECT_EQ(out, "untouched");
    EXPECT_EQ(vt::inflateSyslogDatagram(zDatagram(text), out), InflateResult::Inflated);
    EXPECT_EQ(out, text);
    const std::string good = zDatagram(std::string(200, 'q'));
    for (const std::string& broken :
         {std::string("zhello world"), good.substr(0, good.size() - 4), std::string("z")}) {
        EXPECT_EQ(vt::inflateSyslogDatagram(broken, out), InflateResult::Failed);
        EXPECT_TRUE(out.empty());
    }
}

// Runs of zeros compress about a thousand to one. Those that inflate to at most 128 times the
// datagram's length (which takes the buffer through several doublings) are accepted; those
// beyond are dropped, whatever their true size.
TEST(SyslogInflate, LimitIs128TimesTheDatagram) {
    int accepted = 0, refused = 0;
    for (size_t size = 1000; size <= 40000; size += 250) {
        const std::string text(size, '\0');
        const std::string datagram = zDatagram(text);
        std::string out;
        const InflateResult r = vt::inflateSyslogDatagram(datagram, out);
        SCOPED_TRACE(testing::Message() << size << " from " << datagram.size());
        if (size <= 128 * datagram.size()) {
            ASSERT_EQ(r, InflateResult::Inflated);
            ASSERT_EQ(out, text);
            if (size > 64 * datagram.size()) ++accepted;
        } else {
            ASSERT_EQ(r, InflateResult::TooLarge);
            ++refused;
        }
    }
    EXPECT_GT(accepted, 0);  // the boundary was approached from below
    EXPECT_GT(refused, 0);
    std::string out;
    EXPECT_EQ(vt::inflateSyslogDatagram(zDatagram(std::string(10 << 20, 'a')), out),
              InflateResult::TooLarge);
}

}  // namespace
