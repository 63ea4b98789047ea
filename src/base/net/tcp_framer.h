#pragma once
#include <cstddef>
#include <string>
#include <string_view>

namespace vt {

// Bytes that cannot travel inside a message as they are: NUL always becomes "<000>"; with
// escapeControl every other control character (1-31, 127) becomes "<%3.3d>" too.
bool needsSyslogEscape(std::string_view bytes, bool escapeControl) noexcept;
void appendSyslogEscaped(std::string_view bytes, bool escapeControl, std::string& out);

// The separator setting as the configuration writes it: "\r" and "\n" (backslash and letter)
// stand for carriage return and line feed, and "\0" is removed, not turned into a NUL.
std::u16string decodeTcpSeparator(std::u16string_view setting);

struct TcpFramingSettings {
    // The separator in the bytes of the wire; empty: every receive is one message.
    std::string separator;
    bool escapeControlCharacters = false;
    // A connection whose first byte is a digit 1-9 carries "<length> <message>" frames (one
    // line feed ending a frame is dropped); any other connection is framed as above.
    bool detectOctetCounting = false;

    // Separator mode needs the switch on and a separator that is not empty after decoding.
    static TcpFramingSettings fromConfig(bool enableSeparator, std::u16string_view separatorSetting,
                                         bool escapeControlCharacters);
    bool separatorMode() const noexcept { return !separator.empty(); }
};

class ITcpMessageSink {
  public:
    virtual ~ITcpMessageSink() = default;
    // A complete, non-empty message. The bytes are valid only during the call.
    virtual void onMessage(std::string_view message) = 0;
};

// Turns the bytes of one TCP connection into messages. Separator mode: a message ends after
// the separator (which stays at its end); matching restarts at the separator's first byte
// after any mismatch, without looking at the mismatching byte again. Otherwise each receive
// is one message. A message that fills the message buffer is delivered at that point and the
// rest of the stream goes on into the next one, so nothing is dropped. Messages that lie
// whole inside one receive and need no escaping are handed on without a copy.
class CTcpFramer {
  public:
    static constexpr size_t kReceiveBufferSize = 32768;
    static constexpr size_t kMessageBufferSize = 262144;
    // The message buffer also holds the terminating NUL.
    static constexpr size_t kMaxMessageLength = kMessageBufferSize - 1;

    // `settings` must outlive the framer (one settings object serves all connections).
    explicit CTcpFramer(const TcpFramingSettings& settings) noexcept : m_settings(&settings) {}

    // The bytes of one receive call.
    void feed(std::string_view bytes, ITcpMessageSink& sink);
    // End of the connection: a pending message that is not empty is delivered.
    void finish(ITcpMessageSink& sink);
    size_t pendingSize() const noexcept { return m_pending.size(); }
    // True once a counted connection sent a length that was not one; the rest of the
    // connection was framed as an uncounted one.
    bool fellBackFromCounting() const noexcept { return m_fellBack; }

  private:
    enum class Counting : uint8_t { Undecided, Length, Body, Off };
    // Longest length field taken: ten digits hold every length up to 2^32.
    static constexpr size_t kMaxLengthDigits = 10;

    void feedPlain(std::string_view bytes, ITcpMessageSink& sink);
    void feedCounted(std::string_view bytes, ITcpMessageSink& sink);
    // Ends counting for the connection and frames `bytes` (and the length digits taken so far)
    // the uncounted way.
    void fallBack(std::string_view bytes, ITcpMessageSink& sink);
    void feedSeparated(std::string_view bytes, ITcpMessageSink& sink);
    void appendSegment(std::string_view segment, ITcpMessageSink& sink);
    void deliverPending(ITcpMessageSink& sink);

    const TcpFramingSettings* m_settings;
    std::string m_pending;
    size_t m_match = 0;
    Counting m_counting = Counting::Undecided;
    bool m_fellBack = false;
    std::string m_lengthText;  // the digits of the length being read
    uint64_t m_remaining = 0;  // bytes of the counted message still to come
};

}  // namespace vt
