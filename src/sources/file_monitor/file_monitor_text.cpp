#include "sources/file_monitor/file_monitor_text.h"

#include <algorithm>
#include <cstdio>

#include "platform/utf_codec.h"

namespace vt {

CivilTime utcCivilTime(int64_t utcSeconds) noexcept {
    int64_t days = utcSeconds / 86400;
    int64_t rest = utcSeconds % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    CivilTime t;
    t.hour = static_cast<int>(rest / 3600);
    t.minute = static_cast<int>(rest % 3600 / 60);
    t.second = static_cast<int>(rest % 60);
    t.weekday = static_cast<int>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
    // Days to civil date (proleptic Gregorian), era-based.
    const int64_t z = days + 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    t.day = static_cast<int>(doy - (153 * mp + 2) / 5 + 1);
    t.month = static_cast<int>(mp < 10 ? mp + 3 : mp - 9);
    t.year = static_cast<int>(yoe + era * 400 + (t.month <= 2 ? 1 : 0));
    return t;
}

std::u16string expandFileName(std::u16string_view pattern, const CivilTime& when) {
    static const char* const kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    std::u16string out;
    auto append = [&out](const char* text) {
        for (; *text; ++text) out.push_back(static_cast<char16_t>(*text));
    };
    char field[16];
    for (size_t i = 0; i < pattern.size(); ++i) {
        if (pattern[i] != u'%' || i + 1 >= pattern.size()) {
            out.push_back(pattern[i]);
            continue;
        }
        const char16_t letter = pattern[i + 1];
        field[0] = 0;
        switch (letter) {
            case u'Y':
                std::snprintf(field, sizeof field, "%04d", when.year);
                break;
            case u'y':
                std::snprintf(field, sizeof field, "%02d", ((when.year % 100) + 100) % 100);
                break;
            case u'm':
                std::snprintf(field, sizeof field, "%02d", when.month);
                break;
            case u'd':
                std::snprintf(field, sizeof field, "%02d", when.day);
                break;
            case u'h':
                std::snprintf(field, sizeof field, "%02d", when.hour);
                break;
            case u'M':
                std::snprintf(field, sizeof field, "%02d", when.minute);
                break;
            case u'S':
                std::snprintf(field, sizeof field, "%02d", when.second);
                break;
            case u'w':
                std::snprintf(field, sizeof field, "%d", ((when.weekday % 7) + 7) % 7);
                break;
            case u'W':
                std::snprintf(field, sizeof field, "%s", kDays[((when.weekday % 7) + 7) % 7]);
                break;
            default:
                out.push_back(pattern[i]);
                continue;
        }
        append(field);
        ++i;
    }
    if (out.size() > kMaxExpandedFileName) out.resize(kMaxExpandedFileName);
    return out;
}

std::pair<TextEncoding, size_t> detectEncoding(std::string_view head, TextEncoding forced) {
    const auto starts = [head](std::string_view bom) { return head.substr(0, bom.size()) == bom; };
    const bool utf8Bom = starts("\xEF\xBB\xBF");
    const bool leBom = starts("\xFF\xFE");
    const bool beBom = starts("\xFE\xFF");
    switch (forced) {
        case TextEncoding::Utf8:
            return {forced, utf8Bom ? 3u : 0u};
        case TextEncoding::Utf16LE:
            return {forced, leBom ? 2u : 0u};
        case TextEncoding::Utf16BE:
            return {forced, beBom ? 2u : 0u};
        case TextEncoding::Auto:
            break;
    }
    if (utf8Bom) return {TextEncoding::Utf8, 3};
    if (leBom) return {TextEncoding::Utf16LE, 2};
    if (beBom) return {TextEncoding::Utf16BE, 2};
    return {TextEncoding::Utf8, 0};
}

namespace {
bool isWide(TextEncoding e) {
    return e == TextEncoding::Utf16LE || e == TextEncoding::Utf16BE;
}
char16_t unitAt(std::string_view bytes, size_t i, TextEncoding e) {
    const auto lo = static_cast<unsigned char>(bytes[e == TextEncoding::Utf16LE ? i : i + 1]);
    const auto hi = static_cast<unsigned char>(bytes[e == TextEncoding::Utf16LE ? i + 1 : i]);
    return static_cast<char16_t>(lo | (hi << 8));
}
}  // namespace

bool findLine(std::string_view bytes, TextEncoding encoding, size_t maxBytes, LineCut& out) {
    const size_t step = isWide(encoding) ? 2 : 1;
    maxBytes = std::max(maxBytes, size_t{4});
    if (step == 2) maxBytes &= ~size_t{1};
    const size_t usable = bytes.size() - bytes.size() % step;
    // A line end right after maxBytes of text still ends that line: no empty piece follows.
    const size_t limit = std::min(usable, maxBytes + step);
    for (size_t i = 0; i < limit; i += step) {
        const char16_t c = step == 2 ? unitAt(bytes, i, encoding)
                                     : static_cast<char16_t>(static_cast<unsigned char>(bytes[i]));
        if (c == u'\n') {
            out = {i, i + step, false};
            return true;
        }
        if (c == u'\r') {
            if (i + step >= usable) return false;  // a LF may still follow
            const char16_t next =
                step == 2 ? unitAt(bytes, i + step, encoding)
                          : static_cast<char16_t>(static_cast<unsigned char>(bytes[i + step]));
            out = {i, i + step + (next == u'\n' ? step : 0), false};
            return true;
        }
    }
    // The character after the limit must be known: a line end there ends a whole line.
    if (usable < maxBytes + step) return false;
    // No line end within the limit: hand on a piece, never splitting a character.
    size_t cut = maxBytes;
    if (step == 2) {
        const char16_t last = unitAt(bytes, cut - 2, encoding);
        if (last >= 0xD800 && last <= 0xDBFF) cut -= 2;  // keep a surrogate pair whole
    } else {
        // Back to the lead byte of the last character; cut before it when it is incomplete.
        size_t lead = cut - 1;
        while (lead > 0 && cut - lead < 4 &&
               (static_cast<unsigned char>(bytes[lead]) & 0xC0) == 0x80)
            --lead;
        const auto b = static_cast<unsigned char>(bytes[lead]);
        const size_t length = b >= 0xF0 ? 4 : b >= 0xE0 ? 3 : b >= 0xC0 ? 2 : 1;
        if (lead > 0 && lead + length > cut) cut = lead;
    }
    out = {cut, cut, true};
    return true;
}

std::u16string decodeLine(std::string_view bytes, TextEncoding encoding) {
    if (!isWide(encoding)) return utf8ToUtf16(bytes);
    std::u16string out;
    out.reserve(bytes.size() / 2);
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) out.push_back(unitAt(bytes, i, encoding));
    return out;
}

std::u16string cleanLine(std::u16string_view line, const LineCleanup& how, size_t& nulCount) {
    nulCount = 0;
    std::u16string out;
    out.reserve(line.size());
    bool leading = true;
    for (const char16_t c : line) {
        if (c == 0) {
            ++nulCount;
            continue;
        }
        if (how.removeControlChars && ((c < 32 && c != u'\t') || c == 0x7F)) continue;
        if (leading && how.removeLeadingSpaces && (c == u' ' || c == u'\t')) continue;
        leading = false;
        if (how.compressSpaces && c == u' ' && !out.empty() && out.back() == u' ') continue;
        out.push_back(c);
    }
    return out;
}

std::vector<std::u16string> parseW3CFields(std::u16string_view rest) {
    std::vector<std::u16string> names;
    size_t i = 0;
    while (i < rest.size()) {
        while (i < rest.size() && (rest[i] == u' ' || rest[i] == u'\t')) ++i;
        size_t end = i;
        while (end < rest.size() && rest[end] != u' ' && rest[end] != u'\t') ++end;
        if (end > i) names.emplace_back(rest.substr(i, end - i));
        i = end;
    }
    return names;
}

std::vector<std::u16string> splitW3CColumns(std::u16string_view line) {
    std::vector<std::u16string> columns;
    size_t start = 0;
    for (;;) {
        const size_t space = line.find(u' ', start);
        const std::u16string_view column = line.substr(
            start, space == std::u16string_view::npos ? std::u16string_view::npos : space - start);
        columns.emplace_back(column.substr(0, kMaxW3CColumn));
        if (space == std::u16string_view::npos) break;
        start = space + 1;
    }
    return columns;
}

std::u16string w3cColumnName(const std::vector<std::u16string>& fields, size_t index) {
    if (index < fields.size()) return fields[index];
    const std::string name = "p-param" + std::to_string(index);
    return std::u16string(name.begin(), name.end());
}

}  // namespace vt
