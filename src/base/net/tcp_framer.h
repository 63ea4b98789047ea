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

  private:
    void feedSeparated(std::string_view bytes, ITcpMessageSink& sink);
    void appendSegment(std::string_view segment, ITcpMessageSink& sink);
    void deliverPending(ITcpMessageSink& sink);

    const TcpFramingSettings* m_settings;
    std::string m_pending;
    size_t m_match = 0;
};

}  // namespace vt
