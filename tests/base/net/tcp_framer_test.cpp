#include "base/net/tcp_framer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using vt::CTcpFramer;
using vt::TcpFramingSettings;

struct Collector : vt::ITcpMessageSink {
    std::vector<std::string> messages;
    void onMessage(std::string_view m) override { messages.emplace_back(m); }
};

TcpFramingSettings separated(std::u16string_view setting, bool escape = false) {
    return TcpFramingSettings::fromConfig(true, setting, escape);
}

std::vector<std::string> frame(const TcpFramingSettings& settings,
                               const std::vector<std::string>& receives) {
    CTcpFramer framer(settings);
    Collector sink;
    for (const auto& r : receives) framer.feed(r, sink);
    framer.finish(sink);
    return sink.messages;
}

// Only \\n, \\r and \\0 are decoded; any other backslash stays as it is.
TEST(TcpSeparatorSetting, BackslashSequences) {
    struct {
        const char16_t* setting;
        const char16_t* decoded;
    } cases[] = {
        {u"\\n", u"\n"},  {u"\\r\\n", u"\r\n"},    {u"\\0", u""},    {u"a\\0b", u"ab"},
        {u"\\t", u"\\t"}, {u"\\", u"\\"},          {u"x\\", u"x\\"}, {u"\\\\n", u"\\\n"},
        {u"END", u"END"}, {u"\\n\\0\\r", u"\n\r"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(
            std::string(c.setting, c.setting + std::char_traits<char16_t>::length(c.setting)));
        EXPECT_EQ(vt::decodeTcpSeparator(c.setting), c.decoded);
    }
}

// Separator mode needs the switch and a separator that decodes to something.
TEST(TcpSeparatorSetting, SeparatorModeNeedsSwitchAndText) {
    EXPECT_TRUE(TcpFramingSettings::fromConfig(true, u"\\n", false).separatorMode());
    EXPECT_FALSE(TcpFramingSettings::fromConfig(false, u"\\n", false).separatorMode());
    EXPECT_FALSE(TcpFramingSettings::fromConfig(true, u"", false).separatorMode());
    EXPECT_FALSE(TcpFramingSettings::fromConfig(true, u"\\0", false).separatorMode());
}

// Matching, pending text, and the escaping of NUL and control bytes.
TEST(TcpFramer, SeparatorCases) {
    struct {
        const char* name;
        const char16_t* separator;
        bool escape;
        std::string stream;
        std::vector<std::string> expected;
    } cases[] = {
        // The two-character setting "\n" keeps the line feed; pending text comes at the end.
        {"pending text delivered at end", u"\\n", false, "a\nb", {"a\n", "b"}},
        {"empty lines are messages", u"\\n", false, "\n\n", {"\n", "\n"}},
        {"two-byte separator", u"\\r\\n", false, "a\r\nb\r\n", {"a\r\n", "b\r\n"}},
        {"lone carriage return is text", u"\\r\\n", false, "a\rb\r\n", {"a\rb\r\n"}},
        // After "E" matched, the second "E" mismatches "N" and is not compared again, so
        // "EEND" does not end a message; the quirk is kept.
        {"mismatch restarts without backtracking", u"END", false, "xEENDyEND", {"xEENDyEND"}},
        {"multi-byte match", u"END", false, "aENDbEND", {"aEND", "bEND"}},
        {"NUL always escaped", u"\\n", false, std::string("a\0b\n", 4), {"a<000>b\n"}},
        {"control kept without escaping", u"\\n", false, "a\tb\n", {"a\tb\n"}},
        {"control escaped, separator too", u"\\n", true, "a\tb\x7f\n", {"a<009>b<127><010>"}},
        {"high bytes never escaped", u"\\n", true, "\xC3\xA9\n", {"\xC3\xA9<010>"}},
        {"escape bounds", u"\\n", true, "\x01\x1f ~\x7f\x80\n", {"<001><031> ~<127>\x80<010>"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(frame(separated(c.separator, c.escape), {c.stream}), c.expected);
    }
}

// Without separator mode every receive is one message, whatever it contains.
TEST(TcpFramer, OneMessagePerReceive) {
    const TcpFramingSettings perReceive = TcpFramingSettings::fromConfig(false, u"\\n", false);
    EXPECT_EQ(frame(perReceive, {"a\nb\n", "c", ""}), (std::vector<std::string>{"a\nb\n", "c"}));
    EXPECT_EQ(frame(perReceive, {std::string("\0", 1)}), (std::vector<std::string>{"<000>"}));
}

// Any cut of the stream into receives yields the same messages as the whole stream.
TEST(TcpFramer, EveryCutGivesTheSameMessages) {
    const std::string stream = std::string("<13>Jan  5 10:20:30 h a: one\r\n\r\n<14>two", 40) +
                               std::string("\0\ttwo\r\n", 7) + "tail\r";
    for (bool escape : {false, true}) {
        for (const char16_t* sep : {u"\\n", u"\\r\\n", u"wo"}) {
            const TcpFramingSettings settings = separated(sep, escape);
            const auto whole = frame(settings, {stream});
            ASSERT_GE(whole.size(), 2u);
            for (size_t a = 0; a <= stream.size(); ++a) {
                for (size_t b = a; b <= stream.size(); b += 3) {
                    const auto cut = frame(
                        settings, {stream.substr(0, a), stream.substr(a, b - a), stream.substr(b)});
                    ASSERT_EQ(cut, whole) << "cuts at " << a << " and " << b;
                }
            }
            // Byte by byte.
            std::vector<std::string> bytes;
            for (char c : stream) bytes.emplace_back(1, c);
            EXPECT_EQ(frame(settings, bytes), whole);
        }
    }
}

// A message without separator that outgrows the buffer is delivered in full buffers and no
// byte is lost.
TEST(TcpFramer, OneMegabyteWithoutSeparator) {
    std::string big(1 << 20, 'x');
    for (size_t i = 0; i < big.size(); i += 997) big[i] = static_cast<char>('a' + i % 26);
    for (size_t chunk : {size_t(1) << 20, size_t(32768), size_t(4099)}) {
        SCOPED_TRACE(chunk);
        std::vector<std::string> receives;
        for (size_t i = 0; i < big.size(); i += chunk) receives.push_back(big.substr(i, chunk));
        receives.push_back("end\n");
        const auto messages = frame(separated(u"\\n"), receives);
        ASSERT_EQ(messages.size(), 5u);
        std::string joined;
        for (size_t i = 0; i + 1 < messages.size(); ++i) {
            EXPECT_EQ(messages[i].size(), CTcpFramer::kMaxMessageLength);
            joined += messages[i];
        }
        joined += messages.back();
        EXPECT_EQ(joined, big + "end\n");
    }
}

// Escapes are never cut in two when the buffer fills: one that does not fit starts the next
// message, one that fills the last five bytes exactly stays.
TEST(TcpFramer, EscapeSequenceNotSplitAtBufferEnd) {
    const size_t max = CTcpFramer::kMaxMessageLength;
    for (const size_t before : {max - 2, max - 5}) {
        const std::string stream = std::string(before, 'x') + std::string("\0", 1) + "y\n";
        const auto messages = frame(separated(u"\\n"), {stream});
        ASSERT_EQ(messages.size(), 2u) << before;
        const bool fits = before + 5 <= max;
        EXPECT_EQ(messages[0], std::string(before, 'x') + (fits ? "<000>" : "")) << before;
        EXPECT_EQ(messages[1], fits ? "y\n" : "<000>y\n") << before;
    }
}

// A message of exactly the buffer's length, separator included, is one message.
TEST(TcpFramer, ExactlyFullMessage) {
    std::string message(CTcpFramer::kMaxMessageLength - 1, 'x');
    message += '\n';
    const auto messages = frame(separated(u"\\n"), {message.substr(0, 1000), message.substr(1000)});
    ASSERT_EQ(messages.size(), 1u);
    EXPECT_EQ(messages[0], message);
}

}  // namespace

namespace {

TcpFramingSettings counted(bool separator) {
    TcpFramingSettings settings = TcpFramingSettings::fromConfig(separator, u"\\n", false);
    settings.detectOctetCounting = true;
    return settings;
}

// Counted frames carry line feeds inside a message and come out the same at every cut; a
// connection that starts with anything but a length is framed by the separator.
TEST(TcpFramer, OctetCountingAtEveryCut) {
    const std::string stream = "11 <13>1 - a\nb9 <14>two\n\n3 end";
    const std::vector<std::string> expected = {"<13>1 - a\nb", "<14>two\n", "end"};
    const TcpFramingSettings settings = counted(true);
    for (size_t a = 0; a <= stream.size(); ++a)
        for (size_t b = a; b <= stream.size(); ++b)
            ASSERT_EQ(
                frame(settings, {stream.substr(0, a), stream.substr(a, b - a), stream.substr(b)}),
                expected)
                << a << " " << b;
    EXPECT_EQ(frame(settings, {"<13>x\n12 y\n"}), (std::vector<std::string>{"<13>x\n", "12 y\n"}));
}

// A length is never trusted for memory: 2^31 announced bytes come out in buffer-sized pieces
// as they arrive; a non-digit in the length hands the rest of the connection to the separator.
TEST(TcpFramer, OctetCountingHostileLengths) {
    CTcpFramer framer(counted(true));
    Collector sink;
    framer.feed("2147483648 ", sink);
    const std::string chunk(CTcpFramer::kMaxMessageLength + 10, 'x');
    framer.feed(chunk, sink);
    EXPECT_EQ(sink.messages.size(), 1u);
    EXPECT_EQ(sink.messages[0].size(), CTcpFramer::kMaxMessageLength);
    EXPECT_LE(framer.pendingSize(), 10u);
    EXPECT_FALSE(framer.fellBackFromCounting());

    EXPECT_EQ(frame(counted(true), {"5 hello12x4 rest\nnext\n"}),
              (std::vector<std::string>{"hello", "12x4 rest\n", "next\n"}));
    EXPECT_EQ(frame(counted(true), {"12345678901 x\n"}),
              (std::vector<std::string>{"12345678901 x\n"}));
    EXPECT_EQ(frame(counted(false), {"0 a", "b"}), (std::vector<std::string>{"0 a", "b"}));
}

}  // namespace
