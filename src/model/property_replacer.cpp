// The property replacer: one pass over the template, fixed scratch buffers for search terms,
// and every piece appended straight to the caller's growing output.
#include "model/property_replacer.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cstdio>

#include "base/quillet_string.h"
#include "model/info_unit.h"
#include "model/unit_time.h"
#include "platform/local_time.h"

namespace vt {
namespace {

constexpr size_t kMaxName = 2047;
constexpr size_t kMaxTerm = 511;
constexpr size_t kMaxOption = 256;
constexpr size_t kMaxErrorText = 512;
constexpr int64_t kMaxPosition = 1 << 30;

enum Option : uint32_t {
    OPT_LOWERCASE = 1u << 0,
    OPT_UPPERCASE = 1u << 1,
    OPT_SPACECC = 1u << 2,
    OPT_ESCAPECC = 1u << 3,
    OPT_COMPRESSSPACE = 1u << 4,
    OPT_CONVGERMUML = 1u << 5,
    OPT_UXTIMESTAMP = 1u << 6,
    OPT_UXLOCALTIMESTAMP = 1u << 7,
    OPT_LOCALTIME = 1u << 8,
};
constexpr uint32_t kTimeOptions = OPT_UXTIMESTAMP | OPT_UXLOCALTIMESTAMP | OPT_LOCALTIME;
constexpr uint32_t kControlOptions = OPT_SPACECC | OPT_ESCAPECC;
constexpr uint32_t kTextOptions =
    OPT_LOWERCASE | OPT_UPPERCASE | kControlOptions | OPT_COMPRESSSPACE | OPT_CONVGERMUML;

struct OptionName {
    std::u16string_view name;
    uint32_t flag;
};
constexpr OptionName kOptions[] = {
    {u"uxTimeStamp", OPT_UXTIMESTAMP}, {u"uxLocalTimeStamp", OPT_UXLOCALTIMESTAMP},
    {u"localtime", OPT_LOCALTIME},     {u"lowercase", OPT_LOWERCASE},
    {u"uppercase", OPT_UPPERCASE},     {u"spacecc", OPT_SPACECC},
    {u"escapecc", OPT_ESCAPECC},       {u"compressspace", OPT_COMPRESSSPACE},
    {u"compsp", OPT_COMPRESSSPACE},    {u"convgermuml", OPT_CONVGERMUML},
};

struct SearchTerm {
    std::array<char16_t, kMaxTerm> text;
    std::bitset<kMaxTerm> anyChar;  // an unescaped "?"
    size_t length = 0;
    bool afterMatch = false;  // the "$" flag
};

enum class PosKind { Default, Number, Search, Relative };

struct Position {
    PosKind kind = PosKind::Default;
    int64_t number = 0;
    SearchTerm term;
};

struct Sequence {
    std::u16string_view name;
    Position from;
    Position to;
    uint32_t options = 0;
    const char* error = nullptr;
    size_t errorAt = 0;
};

bool isDigit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

bool isControl(char16_t c) {
    return c < 32 || c == 127;
}

int hexValue(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    return -1;
}

bool equalsNoCase(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (toLowerChar(a[i]) != toLowerChar(b[i])) return false;
    return true;
}

void appendAscii(std::u16string& out, const char* text, size_t n) {
    for (size_t i = 0; i < n; ++i) out.push_back(static_cast<unsigned char>(text[i]));
}

void appendAscii(std::u16string& out, const char* text) {
    while (*text) out.push_back(static_cast<unsigned char>(*text++));
}

// The "escapecc" form of a control character: "##13##".
void appendControlCode(std::u16string& out, char16_t c) {
    char code[16];
    const int n = std::snprintf(code, sizeof code, "##%d#", static_cast<int>(c));
    appendAscii(out, code, static_cast<size_t>(n));
    out.push_back(u'#');
}

// The "convgermuml" spelling of a German umlaut or sharp s; null for any other character.
const char* spelledUmlaut(char16_t c) {
    switch (c) {
        case 0xC4:
            return "Ae";
        case 0xD6:
            return "Oe";
        case 0xDC:
            return "Ue";
        case 0xE4:
            return "ae";
        case 0xF6:
            return "oe";
        case 0xFC:
            return "ue";
        case 0xDF:
            return "ss";
        default:
            return nullptr;
    }
}

// Parses the template from `t[i]` (the character after the opening "%") to the closing "%".
class SequenceParser {
  public:
    SequenceParser(std::u16string_view t, size_t& i, Sequence& seq) : t_(t), i_(i), seq_(seq) {}

    void parse() {
        const size_t start = i_;
        while (i_ < t_.size() && t_[i_] != u':' && t_[i_] != u'%') ++i_;
        seq_.name = t_.substr(start, std::min(i_ - start, kMaxName));
        if (at(u':')) {
            ++i_;
            if (parseFrom() && at(u':')) {
                ++i_;
                if (parseTo() && at(u':')) {
                    ++i_;
                    parseOptions();
                }
            }
        }
        if (at(u'%')) {
            ++i_;
            return;
        }
        setError("invalid escape sequence");
        while (i_ < t_.size() && t_[i_] != u'%') ++i_;
        if (i_ < t_.size()) ++i_;
    }

  private:
    bool at(char16_t c) const { return i_ < t_.size() && t_[i_] == c; }

    // The first error of a sequence is the one shown, pointing at `at`.
    void setError(const char* text) { setError(text, i_); }
    void setError(const char* text, size_t at) {
        if (seq_.error) return;
        seq_.error = text;
        seq_.errorAt = at;
    }

    void parseNumber(Position& pos) {
        int64_t v = 0;
        while (i_ < t_.size() && isDigit(t_[i_])) {
            v = std::min<int64_t>(v * 10 + (t_[i_] - u'0'), kMaxPosition);
            ++i_;
        }
        pos.kind = PosKind::Number;
        pos.number = v;
    }

    // After the opening "/": the term up to the closing "/", then flags up to ":" or "%".
    void parseTerm(Position& pos) {
        SearchTerm& term = pos.term;
        term.length = 0;
        term.anyChar.reset();
        term.afterMatch = false;
        while (i_ < t_.size() && t_[i_] != u'/') {
            char16_t c = t_[i_++];
            bool any = false;
            if (c == u'\\') {
                if (i_ >= t_.size()) break;
                c = t_[i_++];
            } else if (c == u'?') {
                any = true;
            }
            if (term.length < kMaxTerm) {
                term.text[term.length] = c;
                term.anyChar[term.length] = any;
                ++term.length;
            }
        }
        if (at(u'/')) ++i_;
        while (i_ < t_.size() && t_[i_] != u':' && t_[i_] != u'%') {
            if (t_[i_] == u'$') term.afterMatch = true;
            ++i_;
        }
        pos.kind = PosKind::Search;
    }

    // A number or a "/term/" at the cursor; false when neither starts there.
    bool parseNumberOrTerm(Position& pos) {
        if (i_ < t_.size() && isDigit(t_[i_])) {
            parseNumber(pos);
            return true;
        }
        if (!at(u'/')) return false;
        ++i_;
        parseTerm(pos);
        return true;
    }

    // Nothing before the next ":" keeps the default, the first character.
    bool parseFrom() {
        if (parseNumberOrTerm(seq_.from) || at(u':')) return true;
        setError("%ERROR: Neither Search-Term nor Numerical Value in FromPos%");
        return false;
    }

    // Nothing before the next ":" or "%" keeps the default, the last character.
    bool parseTo() {
        if (parseNumberOrTerm(seq_.to) || at(u':') || at(u'%')) return true;
        if (at(u'+') || at(u'-')) {
            // Relative mode never got its number: the sign alone selects one character.
            ++i_;
            seq_.to.kind = PosKind::Relative;
            return true;
        }
        setError("Neither Search-Term nor Numerical Value in ToPos");
        return false;
    }

    void parseOptions() {
        for (;;) {
            const size_t start = i_;
            while (i_ < t_.size() && t_[i_] != u',' && t_[i_] != u':' && t_[i_] != u'%') ++i_;
            const std::u16string_view name = t_.substr(start, std::min(i_ - start, kMaxOption));
            if (!name.empty()) {
                uint32_t flag = 0;
                for (const auto& o : kOptions)
                    if (equalsNoCase(name, o.name)) flag = o.flag;
                if (flag)
                    seq_.options |= flag;
                else
                    setError("Invalid Property Replacer Option", start);
            }
            if (!at(u',')) return;
            ++i_;
        }
    }

    std::u16string_view t_;
    size_t& i_;
    Sequence& seq_;
};

// The first position at or after `start` where the term matches; a term whose beginning
// matches the very end of the text counts as found there. `matched` is the number of text
// characters covered.
bool findTerm(std::u16string_view text, size_t start, const SearchTerm& term, size_t& at,
              size_t& matched) {
    if (text.empty()) return false;
    for (size_t p = start; p < text.size(); ++p) {
        size_t k = 0;
        while (k < term.length && p + k < text.size() &&
               (term.anyChar[k] || text[p + k] == term.text[k]))
            ++k;
        if (k == term.length || p + k == text.size()) {
            at = p;
            matched = k;
            return true;
        }
    }
    return false;
}

// Where `term` is found in `text` from `start`: its index, moved past the match by the "$"
// flag; -1 when it is not found.
int64_t termPosition(std::u16string_view text, size_t start, const SearchTerm& term) {
    size_t at = 0, matched = 0;
    if (!findTerm(text, start, term, at, matched)) return -1;
    return static_cast<int64_t>(at + (term.afterMatch ? matched : 0));
}

void appendErrorFrame(std::u16string& out, std::u16string_view templ, const Sequence& seq) {
    const size_t begin = out.size();
    appendAscii(out, "%ERROR: ");
    appendAscii(out, seq.error);
    if (seq.errorAt < templ.size()) {
        appendAscii(out, ", on or before '");
        out.append(templ.substr(seq.errorAt, kMaxErrorText));
        appendAscii(out, "'%");
    } else {
        appendAscii(out, ".%");
    }
    if (out.size() - begin > kMaxErrorText) out.resize(begin + kMaxErrorText);
}

// The value of a "$" name into `buffer`; returns its length (0: nothing).
size_t specialValue(std::u16string_view name, std::array<char16_t, 64>& buffer) {
    auto put = [&buffer](std::u16string_view s) {
        std::copy(s.begin(), s.end(), buffer.begin());
        return s.size();
    };
    auto putAscii = [&buffer](const char* s) {
        size_t n = 0;
        while (s[n] && n < buffer.size()) {
            buffer[n] = static_cast<unsigned char>(s[n]);
            ++n;
        }
        return n;
    };
    if (name == u"$CRLF") return put(u"\r\n");
    if (name == u"$CR") return put(u"\r");
    if (name == u"$LF") return put(u"\n");
    if (name == u"$TAB" || name == u"$HT") return put(u"\t");
    if (name == u"$NOW") {
        CivilTime t;
        if (!localTimeOf(currentTime(), t)) utcBreakdown(currentTime(), t);
        char text[64];
        const int n = std::snprintf(text, sizeof text, "%4.4d-%2.2d-%2.2d %2.2d.%2.2d.%2.2d",
                                    t.year, t.month, t.day, t.hour, t.minute, t.second);
        return putAscii(n > 0 ? text : "");
    }
    if (name.size() >= 2 && name[0] == u'$' && name[1] == u'x') {
        if (name.size() < 3) return putAscii("%ERROR: invalid hex1 sequence!%");
        const int high = hexValue(name[2]);
        if (high < 0 || name.size() < 4) return putAscii("%ERROR: invalid hex2 sequence!%");
        const int low = hexValue(name[3]);
        if (low < 0) return putAscii("%ERROR: invalid hex3 sequence!%");
        const int code = high * 16 + low;
        buffer[0] = code == 0 ? u'?' : static_cast<char16_t>(code);
        return 1;
    }
    return 0;
}

const char* const kWeekdays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
const char* const kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// Time text is written through a cursor into a fixed buffer: a number with leading zeros, a
// word, or a single character; each returns the cursor past what it wrote.
char16_t* putNumber(char16_t* at, int value, int width) {
    for (int i = width - 1; i >= 0; --i) {
        at[i] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    }
    return at + width;
}

char16_t* putWord(char16_t* at, const char* word) {
    while (*word) *at++ = static_cast<unsigned char>(*word++);
    return at;
}

char16_t* putChar(char16_t* at, char16_t c) {
    *at = c;
    return at + 1;
}

// "%2.2d %2.2d:%2.2d:%2.2d", the part both time forms share.
char16_t* putDayAndClock(char16_t* at, const CivilTime& t) {
    at = putChar(putNumber(at, t.day, 2), u' ');
    at = putChar(putNumber(at, t.hour, 2), u':');
    at = putChar(putNumber(at, t.minute, 2), u':');
    return putNumber(at, t.second, 2);
}

// Rewrites the time text at the start of `text` as the time options ask. Returns the length
// written to `buffer`, or 0 when the text is no time.
size_t convertTime(std::u16string_view text, uint32_t options, std::array<char16_t, 64>& buffer) {
    CivilTime t;
    if (text.size() < 19 || !parseTimeFields(text.substr(0, 19), t)) return 0;
    if (!(options & OPT_UXTIMESTAMP)) {
        CivilTime local;
        if (!localTimeOf(calendarToSeconds(t), local)) return 0;
        t = local;
    }
    // Years stay within 4 digits here: the parse accepts 1970-9999 and local time moves them by
    // hours only, so "%4.4d" and "%2.4d" need no wider field.
    if (t.year < 0 || t.year > 9999) return 0;
    char16_t* at = buffer.data();
    if (options & (OPT_UXTIMESTAMP | OPT_UXLOCALTIMESTAMP)) {
        // "%3.3s %3.3s %2.2d %2.2d:%2.2d:%2.2d %4.4d"
        at = putChar(putWord(at, kWeekdays[weekdayOf(t.year, t.month, t.day)]), u' ');
        at = putChar(putWord(at, kMonths[t.month - 1]), u' ');
        at = putChar(putDayAndClock(at, t), u' ');
        at = putNumber(at, t.year, 4);
    } else {
        // "%2.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d"
        at = putChar(putNumber(at, t.year, 4), u'-');
        at = putChar(putNumber(at, t.month, 2), u'-');
        at = putDayAndClock(at, t);
    }
    return static_cast<size_t>(at - buffer.data());
}

void appendTransformed(std::u16string& out, std::u16string_view text, uint32_t options) {
    if (!(options & kTextOptions)) {
        out.append(text);
        return;
    }
    if (!(options & ~(kControlOptions | kTimeOptions))) {
        // Only control characters change: copy the runs between them in one go.
        size_t start = 0;
        for (size_t i = 0; i < text.size(); ++i) {
            if (!isControl(text[i])) continue;
            out.append(text.substr(start, i - start));
            start = i + 1;
            if (options & OPT_SPACECC)
                out.push_back(u' ');
            else
                appendControlCode(out, text[i]);
        }
        out.append(text.substr(start));
        return;
    }
    bool lastBlank = false;
    for (char16_t c : text) {
        if (options & OPT_LOWERCASE) c = toLowerChar(c);
        if (options & OPT_UPPERCASE) c = toUpperChar(c);
        if ((options & OPT_SPACECC) && isControl(c)) c = u' ';
        if ((options & OPT_ESCAPECC) && isControl(c)) {
            appendControlCode(out, c);
            lastBlank = false;
            continue;
        }
        if (options & OPT_CONVGERMUML) {
            if (const char* spelled = spelledUmlaut(c)) {
                appendAscii(out, spelled, 2);
                lastBlank = false;
                continue;
            }
        }
        if ((options & OPT_COMPRESSSPACE) && c == u' ' && lastBlank) continue;
        out.push_back(c);
        lastBlank = c == u' ';
    }
}

void expandSequence(std::u16string_view templ, const Sequence& seq, const CInfoUnit* unit,
                    std::u16string& out) {
    if (seq.error) {
        appendErrorFrame(out, templ, seq);
        return;
    }
    std::array<char16_t, 64> special;
    std::u16string_view value;
    if (!seq.name.empty() && seq.name[0] == u'$') {
        value = std::u16string_view(special.data(), specialValue(seq.name, special));
    } else if (unit) {
        if (const CQuilletString* s = unit->getPropertyStringObject(seq.name)) value = s->view();
    }
    if (value.empty()) return;

    const auto length = static_cast<int64_t>(value.size());
    int64_t from = 1;
    switch (seq.from.kind) {
        case PosKind::Number:
            from = seq.from.number;
            break;
        case PosKind::Search:
            // A term that is not found leaves the position at 0, which becomes 1 below.
            from = termPosition(value, 0, seq.from.term) + 1;
            break;
        default:
            break;
    }
    if (from < 1) from = 1;

    int64_t to = length;
    switch (seq.to.kind) {
        case PosKind::Number:
            to = seq.to.number;
            break;
        case PosKind::Relative:
            to = from;
            break;
        case PosKind::Search:
            if (from <= length) {
                const int64_t at = termPosition(value, static_cast<size_t>(from - 1), seq.to.term);
                if (at >= 0) to = at;
            }
            break;
        default:
            break;
    }
    if (to < 1) to = length;
    if (to < from) std::swap(from, to);
    from = std::min(from, length);
    to = std::min(to, length);

    std::u16string_view selected =
        value.substr(static_cast<size_t>(from - 1), static_cast<size_t>(to - from + 1));
    std::array<char16_t, 64> timeText;
    if (seq.options & kTimeOptions) {
        if (const size_t n =
                convertTime(value.substr(static_cast<size_t>(from - 1)), seq.options, timeText))
            selected = std::u16string_view(timeText.data(), n);
    }
    appendTransformed(out, selected, seq.options);
}

}  // namespace

void replaceProperties(std::u16string_view templ, const CInfoUnit* unit, std::u16string& out) {
    replaceProperties(templ, unit, out, nullptr);
}

void replaceProperties(std::u16string_view templ, const CInfoUnit* unit, std::u16string& out,
                       const ExpansionHook& afterSequence) {
    size_t i = 0;
    while (i < templ.size()) {
        const size_t percent = templ.find(u'%', i);
        if (percent == std::u16string_view::npos) {
            out.append(templ.substr(i));
            break;
        }
        out.append(templ.substr(i, percent - i));
        i = percent + 1;
        if (i < templ.size() && templ[i] == u'%') {
            out.push_back(u'%');
            ++i;
            continue;
        }
        Sequence seq;
        SequenceParser(templ, i, seq).parse();
        const size_t start = out.size();
        expandSequence(templ, seq, unit, out);
        if (afterSequence) afterSequence(out, start);
    }
}

std::u16string replaceProperties(std::u16string_view templ, const CInfoUnit* unit) {
    std::u16string out;
    out.reserve(templ.size() + 64);
    replaceProperties(templ, unit, out);
    return out;
}

void replaceProperties(CQuilletString& text, const CInfoUnit* unit) {
    std::u16string out;
    out.reserve(text.getLength() + 64);
    replaceProperties(text.view(), unit, out);
    text.takeString(std::move(out));
}

}  // namespace vt
