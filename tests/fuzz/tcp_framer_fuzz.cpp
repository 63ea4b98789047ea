// The TCP framer against itself: however the stream is cut into receives, the messages are
// the same (or, without separator, one per receive), none is empty or longer than the buffer, and
// together they are the escaped stream.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/net/tcp_framer.h"

namespace {
struct Collect : vt::ITcpMessageSink {
    std::vector<std::string> messages;
    void onMessage(std::string_view m) override {
        if (m.empty() || m.size() > vt::CTcpFramer::kMaxMessageLength) std::abort();
        messages.emplace_back(m);
    }
};
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 2) return 0;
    static const char16_t* const kSeparators[] = {u"\\n", u"\\r\\n", u"END", u"aab", u"\\0"};
    const auto& separator = kSeparators[data[0] % 5];
    const bool escape = (data[0] & 0x80) != 0;
    const size_t cutStep = 1 + data[1] % 17;
    const std::string stream(reinterpret_cast<const char*>(data + 2), size - 2);
    vt::TcpFramingSettings settings = vt::TcpFramingSettings::fromConfig(true, separator, escape);
    // Octet counting: the stream is framed by its lengths until one is not a length.
    settings.detectOctetCounting = (data[0] & 0x40) != 0;

    Collect whole;
    vt::CTcpFramer a(settings);
    a.feed(stream, whole);
    a.finish(whole);

    Collect cut;
    vt::CTcpFramer b(settings);
    std::vector<std::string> perReceive;
    for (size_t at = 0; at < stream.size(); at += cutStep) {
        const std::string_view piece = std::string_view(stream).substr(at, cutStep);
        b.feed(piece, cut);
        perReceive.emplace_back();
        vt::appendSyslogEscaped(piece, escape, perReceive.back());
    }
    b.finish(cut);
    const bool counted =
        settings.detectOctetCounting && !stream.empty() && stream[0] >= '1' && stream[0] <= '9';
    if (counted) {
        // Counted frames do not depend on the cuts, unless a bad length handed the rest of the
        // connection to the uncounted framing, whose messages may then differ by cut.
        if (!a.fellBackFromCounting() && !b.fellBackFromCounting() &&
            cut.messages != whole.messages)
            std::abort();
        return 0;
    }
    // Without a separator ("\0" decodes to nothing) each receive is one message.
    if (cut.messages != (settings.separatorMode() ? whole.messages : perReceive)) std::abort();

    std::string joined, escaped;
    for (const auto& m : whole.messages) joined += m;
    vt::appendSyslogEscaped(stream, escape, escaped);
    if (joined != escaped) std::abort();
    return 0;
}
