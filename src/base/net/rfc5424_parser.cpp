#include "base/net/rfc5424_parser.h"

namespace vt {
namespace {

constexpr size_t kMaxHost = 255;
constexpr size_t kMaxAppName = 48;
constexpr size_t kMaxProcId = 128;
constexpr size_t kMaxMsgId = 32;
constexpr size_t kMaxSdName = 32;

// Walks the text once, left to right; every take* leaves the position after what it took.
class CCursor {
  public:
    explicit CCursor(std::u16string_view text) : m_text(text) {}

    bool atEnd() const { return m_pos >= m_text.size(); }
    char16_t peek() const { return atEnd() ? 0 : m_text[m_pos]; }
    bool take(char16_t c) {
        if (peek() != c) return false;
        ++m_pos;
        return true;
    }
    // `count` decimal digits (or 1 to `count` when `exact` is false) into `value`.
    bool takeNumber(size_t count, uint32_t& value, bool exact = true) {
        size_t n = 0;
        value = 0;
        while (n < count && peek() >= u'0' && peek() <= u'9') {
            value = value * 10 + (m_text[m_pos++] - u'0');
            ++n;
        }
        return exact ? n == count : n > 0;
    }
    // A header field: printable ASCII up to the next space, at most `max` characters; "-" is
    // the empty NILVALUE.
    bool takeField(size_t max, std::u16string_view& field) {
        const size_t start = m_pos;
        while (!atEnd() && peek() > 32 && peek() < 127) ++m_pos;
        field = m_text.substr(start, m_pos - start);
        if (field.empty() || field.size() > max) return false;
        if (field == u"-") field = {};
        return true;
    }
    // An SD-NAME: printable ASCII except '=', ' ', ']' and '"'.
    bool takeSdName(std::u16string_view& name) {
        const size_t start = m_pos;
        while (!atEnd() && peek() > 32 && peek() < 127 && peek() != u'=' && peek() != u']' &&
               peek() != u'"')
            ++m_pos;
        name = m_text.substr(start, m_pos - start);
        return !name.empty() && name.size() <= kMaxSdName;
    }
    // A quoted PARAM-VALUE, escapes kept; the quotes are taken but not returned.
    bool takeQuoted(std::u16string_view& value) {
        if (!take(u'"')) return false;
        const size_t start = m_pos;
        while (!atEnd() && peek() != u'"') m_pos += peek() == u'\\' ? 2 : 1;
        if (atEnd()) return false;
        value = m_text.substr(start, m_pos - start);
        return take(u'"');
    }
    size_t pos() const { return m_pos; }
    std::u16string_view from(size_t start) const { return m_text.substr(start, m_pos - start); }
    std::u16string_view rest() const { return m_text.substr(std::min(m_pos, m_text.size())); }

  private:
    std::u16string_view m_text;
    size_t m_pos = 0;
};

int64_t daysFromCivil(int64_t y, uint32_t m, uint32_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468;
}

bool takePri(CCursor& c, Rfc5424Fields& out) {
    uint32_t pri = 0;
    if (!c.take(u'<') || !c.takeNumber(3, pri, false) || pri > 191 || !c.take(u'>')) return false;
    out.facility = pri / 8;
    out.severity = pri % 8;
    return true;
}

// FULL-DATE "T" FULL-TIME with an optional fraction of up to six digits and "Z" or an offset.
bool takeTimestamp(CCursor& c, Rfc5424Fields& out) {
    const size_t start = c.pos();
    if (c.take(u'-')) return true;
    uint32_t year, month, day, hour, minute, second, offHour = 0, offMinute = 0;
    if (!c.takeNumber(4, year) || !c.take(u'-') || !c.takeNumber(2, month) || !c.take(u'-') ||
        !c.takeNumber(2, day) || !c.take(u'T') || !c.takeNumber(2, hour) || !c.take(u':') ||
        !c.takeNumber(2, minute) || !c.take(u':') || !c.takeNumber(2, second))
        return false;
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60)
        return false;
    if (c.take(u'.')) {
        const size_t digits = c.pos();
        if (!c.takeNumber(6, out.microseconds, false)) return false;
        for (size_t n = c.pos() - digits; n < 6; ++n) out.microseconds *= 10;
    }
    int sign = 0;
    if (c.take(u'+'))
        sign = 1;
    else if (c.take(u'-'))
        sign = -1;
    else if (!c.take(u'Z'))
        return false;
    if (sign != 0 && (!c.takeNumber(2, offHour) || !c.take(u':') || !c.takeNumber(2, offMinute) ||
                      offHour > 23 || offMinute > 59))
        return false;
    out.hasTime = true;
    out.time = daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second -
               sign * static_cast<int64_t>(offHour * 3600 + offMinute * 60);
    out.timestamp = c.from(start);
    return true;
}

bool takeStructuredData(CCursor& c, Rfc5424Fields& out) {
    const size_t start = c.pos();
    if (c.take(u'-')) return true;
    if (c.peek() != u'[') return false;
    while (c.take(u'[')) {
        std::u16string_view sdId;
        if (!c.takeSdName(sdId)) return false;
        while (c.take(u' ')) {
            SdParam param{sdId, {}, {}};
            if (!c.takeSdName(param.name) || !c.take(u'=') || !c.takeQuoted(param.value))
                return false;
            out.params.push_back(param);
        }
        if (!c.take(u']')) return false;
    }
    out.structuredData = c.from(start);
    return true;
}

}  // namespace

bool parseRfc5424(std::u16string_view text, Rfc5424Fields& out) {
    CCursor c(text);
    uint32_t version = 0;
    out.params.clear();
    if (!takePri(c, out) || !c.takeNumber(1, version) || version != 1 || !c.take(u' ') ||
        !takeTimestamp(c, out) || !c.take(u' ') || !c.takeField(kMaxHost, out.host) ||
        !c.take(u' ') || !c.takeField(kMaxAppName, out.appName) || !c.take(u' ') ||
        !c.takeField(kMaxProcId, out.procId) || !c.take(u' ') ||
        !c.takeField(kMaxMsgId, out.msgId) || !c.take(u' ') || !takeStructuredData(c, out))
        return false;
    if (!c.atEnd() && !c.take(u' ')) return false;
    out.msg = c.rest();
    if (!out.msg.empty() && out.msg.front() == u'\xFEFF') out.msg.remove_prefix(1);
    return true;
}

std::u16string unescapeSdValue(std::u16string_view value) {
    std::u16string out;
    out.reserve(value.size());
    for (size_t i = 0; i < value.size(); ++i) {
        if (value[i] == u'\\' && i + 1 < value.size() &&
            (value[i + 1] == u'"' || value[i + 1] == u'\\' || value[i + 1] == u']'))
            ++i;
        out.push_back(value[i]);
    }
    return out;
}

std::u16string rfc5424Tag(const Rfc5424Fields& fields) {
    if (fields.appName.empty()) return {};
    std::u16string tag(fields.appName);
    if (!fields.procId.empty()) {
        tag.push_back(u'[');
        tag.append(fields.procId);
        tag.push_back(u']');
    }
    tag.push_back(u':');
    return tag;
}

}  // namespace vt
