#include "base/net/tcp_framer.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/text_codec.h"

namespace vt {
namespace {

bool isControl(unsigned char c) {
    return c < 32 || c == 127;
}

// Index of the first byte that needs escaping, or bytes.size().
size_t findEscape(std::string_view bytes, bool escapeControl) noexcept {
    if (!escapeControl) {
        const void* p = std::memchr(bytes.data(), 0, bytes.size());
        return p ? static_cast<size_t>(static_cast<const char*>(p) - bytes.data()) : bytes.size();
    }
    for (size_t i = 0; i < bytes.size(); ++i)
        if (isControl(static_cast<unsigned char>(bytes[i]))) return i;
    return bytes.size();
}

void formatEscape(unsigned char c, char out[5]) {
    out[0] = '<';
    out[1] = static_cast<char>('0' + c / 100);
    out[2] = static_cast<char>('0' + (c / 10) % 10);
    out[3] = static_cast<char>('0' + c % 10);
    out[4] = '>';
}

constexpr size_t kEscapeLength = 5;
// Idle connections should not keep the memory of the largest message they ever carried.
constexpr size_t kKeptPendingCapacity = 65536;

}  // namespace

bool needsSyslogEscape(std::string_view bytes, bool escapeControl) noexcept {
    return findEscape(bytes, escapeControl) != bytes.size();
}

void appendSyslogEscaped(std::string_view bytes, bool escapeControl, std::string& out) {
    while (!bytes.empty()) {
        const size_t k = findEscape(bytes, escapeControl);
        out.append(bytes.data(), k);
        if (k == bytes.size()) break;
        char escaped[kEscapeLength];
        formatEscape(static_cast<unsigned char>(bytes[k]), escaped);
        out.append(escaped, kEscapeLength);
        bytes.remove_prefix(k + 1);
    }
}

std::u16string decodeTcpSeparator(std::u16string_view setting) {
    std::u16string out;
    out.reserve(setting.size());
    for (size_t i = 0; i < setting.size(); ++i) {
        if (setting[i] == u'\\' && i + 1 < setting.size()) {
            const char16_t next = setting[i + 1];
            if (next == u'r' || next == u'n' || next == u'0') {
                if (next == u'r') out.push_back(u'\r');
                if (next == u'n') out.push_back(u'\n');
                ++i;
                continue;
            }
        }
        out.push_back(setting[i]);
    }
    return out;
}

TcpFramingSettings TcpFramingSettings::fromConfig(bool enableSeparator,
                                                  std::u16string_view separatorSetting,
                                                  bool escapeControlCharacters) {
    TcpFramingSettings settings;
    settings.escapeControlCharacters = escapeControlCharacters;
    if (enableSeparator) wideToNarrow(decodeTcpSeparator(separatorSetting), settings.separator);
    return settings;
}

void CTcpFramer::feed(std::string_view bytes, ITcpMessageSink& sink) {
    if (m_counting == Counting::Undecided && !bytes.empty()) {
        const bool counted = m_settings->detectOctetCounting && bytes[0] >= '1' && bytes[0] <= '9';
        m_counting = counted ? Counting::Length : Counting::Off;
    }
    if (m_counting == Counting::Off || m_counting == Counting::Undecided)
        feedPlain(bytes, sink);
    else
        feedCounted(bytes, sink);
}

void CTcpFramer::feedCounted(std::string_view bytes, ITcpMessageSink& sink) {
    while (!bytes.empty()) {
        if (m_counting == Counting::Length) {
            const char c = bytes[0];
            if (c == ' ' && !m_lengthText.empty()) {
                m_remaining = std::stoull(m_lengthText);
                m_lengthText.clear();
                m_counting = Counting::Body;
            } else if (c >= '0' && c <= '9' && m_lengthText.size() < kMaxLengthDigits &&
                       !(m_lengthText.empty() && c == '0')) {
                m_lengthText.push_back(c);
            } else {
                fallBack(bytes, sink);
                return;
            }
            bytes.remove_prefix(1);
            continue;
        }
        const size_t take = static_cast<size_t>(std::min<uint64_t>(m_remaining, bytes.size()));
        std::string_view body = bytes.substr(0, take);
        bytes.remove_prefix(take);
        m_remaining -= take;
        const bool complete = m_remaining == 0;
        // Senders end a counted frame with a line feed out of habit; it is framing, not text.
        if (complete && !body.empty() && body.back() == '\n') body.remove_suffix(1);
        if (complete && m_pending.empty() && !body.empty() && body.size() <= kMaxMessageLength &&
            !needsSyslogEscape(body, m_settings->escapeControlCharacters)) {
            sink.onMessage(body);
        } else {
            // A length beyond the message buffer is not trusted: the body goes out in pieces
            // of the buffer as it arrives, as an uncounted stream would.
            appendSegment(body, sink);
            if (complete) deliverPending(sink);
        }
        if (complete) m_counting = Counting::Length;
    }
}

void CTcpFramer::fallBack(std::string_view bytes, ITcpMessageSink& sink) {
    m_counting = Counting::Off;
    m_fellBack = true;
    if (!m_lengthText.empty()) {
        const std::string digits = std::move(m_lengthText);
        m_lengthText.clear();
        feedPlain(digits, sink);
    }
    feedPlain(bytes, sink);
}

void CTcpFramer::feedPlain(std::string_view bytes, ITcpMessageSink& sink) {
    if (m_settings->separatorMode()) {
        feedSeparated(bytes, sink);
        return;
    }
    if (bytes.empty()) return;
    if (m_pending.empty() && bytes.size() <= kMaxMessageLength &&
        !needsSyslogEscape(bytes, m_settings->escapeControlCharacters)) {
        sink.onMessage(bytes);
        return;
    }
    appendSegment(bytes, sink);
    deliverPending(sink);
}

void CTcpFramer::feedSeparated(std::string_view bytes, ITcpMessageSink& sink) {
    const std::string& sep = m_settings->separator;
    const char* data = bytes.data();
    const size_t n = bytes.size();
    size_t pos = 0;
    while (pos < n) {
        size_t i = pos;
        bool complete = false;
        while (i < n) {
            if (m_match == 0) {
                const void* p = std::memchr(data + i, sep[0], n - i);
                if (!p) {
                    i = n;
                    break;
                }
                i = static_cast<size_t>(static_cast<const char*>(p) - data);
            }
            // A mismatching byte restarts the match and is not looked at again.
            if (data[i++] != sep[m_match]) {
                m_match = 0;
            } else if (++m_match == sep.size()) {
                m_match = 0;
                complete = true;
                break;
            }
        }
        const std::string_view segment = bytes.substr(pos, i - pos);
        pos = i;
        if (complete && m_pending.empty() && segment.size() <= kMaxMessageLength &&
            !needsSyslogEscape(segment, m_settings->escapeControlCharacters)) {
            sink.onMessage(segment);
            continue;
        }
        appendSegment(segment, sink);
        if (complete) deliverPending(sink);
    }
}

void CTcpFramer::appendSegment(std::string_view segment, ITcpMessageSink& sink) {
    const bool escapeControl = m_settings->escapeControlCharacters;
    while (!segment.empty()) {
        const size_t k = findEscape(segment, escapeControl);
        std::string_view plain = segment.substr(0, k);
        while (!plain.empty()) {
            const size_t take = std::min(plain.size(), kMaxMessageLength - m_pending.size());
            m_pending.append(plain.data(), take);
            plain.remove_prefix(take);
            if (m_pending.size() == kMaxMessageLength) deliverPending(sink);
        }
        if (k == segment.size()) break;
        // An escape sequence is never cut in two by a full buffer.
        if (m_pending.size() + kEscapeLength > kMaxMessageLength) deliverPending(sink);
        char escaped[kEscapeLength];
        formatEscape(static_cast<unsigned char>(segment[k]), escaped);
        m_pending.append(escaped, kEscapeLength);
        if (m_pending.size() == kMaxMessageLength) deliverPending(sink);
        segment.remove_prefix(k + 1);
    }
}

void CTcpFramer::deliverPending(ITcpMessageSink& sink) {
    if (m_pending.empty()) return;
    sink.onMessage(m_pending);
    m_pending.clear();
    if (m_pending.capacity() > kKeptPendingCapacity) std::string().swap(m_pending);
}

void CTcpFramer::finish(ITcpMessageSink& sink) {
    deliverPending(sink);
    m_match = 0;
    m_counting = Counting::Undecided;
    m_lengthText.clear();
    m_remaining = 0;
}

}  // namespace vt
