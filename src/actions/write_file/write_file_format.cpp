#include "actions/write_file/write_file_format.h"

#include <cstdio>
#include <ctime>

#include "base/error_report.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "model/unit_time.h"
#include "platform/local_time.h"
#include "platform/text_codec.h"

namespace vt {
namespace {

// printf's "%N.Nd" (at least N digits, zero-padded, sign first), without printf's cost: it
// runs several times for every line written.
void appendPadded(std::u16string& out, int64_t value, int width) {
    char16_t digits[24];
    int n = 0;
    uint64_t v = value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value);
    do {
        digits[n++] = static_cast<char16_t>(u'0' + v % 10);
        v /= 10;
    } while (v != 0);
    while (n < width) digits[n++] = u'0';
    if (value < 0) out.push_back(u'-');
    while (n > 0) out.push_back(digits[--n]);
}

void appendDate(std::u16string& out, const CivilTime& t) {
    appendPadded(out, t.year, 4);
    out.push_back(u'-');
    appendPadded(out, t.month, 2);
    out.push_back(u'-');
    appendPadded(out, t.day, 2);
}

void appendClock(std::u16string& out, const CivilTime& t) {
    appendPadded(out, t.hour, 2);
    out.push_back(u':');
    appendPadded(out, t.minute, 2);
    out.push_back(u':');
    appendPadded(out, t.second, 2);
}

void appendNumber(std::u16string& out, int64_t value) {
    appendPadded(out, value, 1);
}

std::u16string_view sourceOf(const CInfoUnit& unit) {
    const CQuilletString* source = unit.getPropertyStringObject(u"source");
    return source ? source->view() : std::u16string_view();
}

std::u16string_view messageOf(const CInfoUnit& unit) {
    // Through the string object, so a NUL inside the message does not end it.
    if (const CQuilletString* msg = unit.getMsgString()) return msg->view();
    return unit.getMsgText();
}

// The syslog numbers of a unit; a unit without them (not every source sets them) gives -1
// instead of aborting the line.
int32_t facilityOf(const CInfoUnit& unit) {
    try {
        return unit.getSyslogFacility();
    } catch (CErrorReport* report) {
        delete report;
        return -1;
    }
}

int32_t severityOf(const CInfoUnit& unit) {
    try {
        return unit.getSyslogPriority();
    } catch (CErrorReport* report) {
        delete report;
        return -1;
    }
}

bool isSeparator(char16_t c) {
    return c == u'/' || c == u'\\' || c == u':' || c == u'\0';
}

}  // namespace

CivilTime breakDownTime(int64_t seconds, bool utc) noexcept {
    CivilTime t;
    if (utc || !localTimeOf(seconds, t)) utcBreakdown(seconds, t);
    return t;
}

void formatRelaylogLine(const CInfoUnit& unit, const RelaylogLineFields& fields,
                        std::u16string& out) {
    bool any = false;
    auto separate = [&] {
        if (any) out.push_back(u',');
        any = true;
    };
    if (fields.dateTime == 1) {
        const CivilTime t = breakDownTime(unit.getPropertyTime(u"timegenerated"), fields.utc);
        separate();
        appendDate(out, t);
        out.push_back(u',');
        appendClock(out, t);
    }
    if (fields.dateTimeReported != 0) {
        const CivilTime t = breakDownTime(unit.getPropertyTime(u"timereported"), fields.utc);
        separate();
        appendDate(out, t);
        out.push_back(u',');
        appendClock(out, t);
    }
    if (fields.source != 0) {
        separate();
        out.append(sourceOf(unit));
    }
    if (fields.facility == 1) {
        separate();
        appendNumber(out, facilityOf(unit));
    }
    if (fields.priority == 1) {
        separate();
        appendNumber(out, severityOf(unit));
    }
    if (fields.message == 1) {
        separate();
        if (fields.useXml != 0)
            unit.appendXML(out);
        else
            out.append(messageOf(unit));
    }
    if (fields.rawMessage == 1) {
        separate();
        out.append(std::u16string_view(unit.getRawMsgText(), unit.getRawMsgLength()));
    }
    out.append(u"\r\n");
}

void formatTextFormsLine(const CInfoUnit& unit, bool utc, std::u16string& out) {
    const CivilTime t = breakDownTime(unit.getPropertyTime(u"timereported"), utc);
    appendDate(out, t);
    out.push_back(u' ');
    appendClock(out, t);
    out.push_back(u' ');
    out.append(sourceOf(unit));
    out.push_back(u' ');
    out.append(unit.getDescription());
    out.append(u": ");
    out.append(messageOf(unit));
    out.append(u"\r\n");
}

void formatSyslogLine(const CInfoUnit& unit, bool utc, std::string& out) {
    const CivilTime t = breakDownTime(unit.getPropertyTime(u"timereported"), utc);
    std::string source;
    wideToNarrow(sourceOf(unit), source);
    const int32_t severity = severityOf(unit);
    const int32_t facility = facilityOf(unit);
    const long long pri =
        (facility < 0 || severity < 0) ? -1 : static_cast<long long>(facility) * 8 + severity;
    char head[96];
    const int n =
        std::snprintf(head, sizeof head, "VTsyslog[%4.4d-%2.2d-%2.2d %2.2d:%2.2d:%2.2d ip=", t.year,
                      t.month, t.day, t.hour, t.minute, t.second);
    out.append(head, static_cast<size_t>(n));
    out.append(source);
    const int m = std::snprintf(head, sizeof head, " pri=%d] <%lld>", severity, pri);
    out.append(head, static_cast<size_t>(m));
    std::string msg;
    wideToNarrow(messageOf(unit), msg);
    out.append(msg);
    out.append("\r\n");
}

void formatTemplateLine(const CInfoUnit& unit, std::u16string_view lineTemplate,
                        std::u16string& out) {
    replaceProperties(lineTemplate, &unit, out);
}

void sanitizeNamePart(std::u16string& text, size_t from) {
    for (size_t i = from; i < text.size(); ++i) {
        if (isSeparator(text[i]))
            text[i] = u'_';
        else if (text[i] == u'.' && i + 1 < text.size() && text[i + 1] == u'.')
            text[i] = text[i + 1] = u'_';
    }
}

std::u16string expandNameTemplate(std::u16string_view nameTemplate, const CInfoUnit& unit) {
    std::u16string out;
    replaceProperties(nameTemplate, &unit, out,
                      [](std::u16string& text, size_t start) { sanitizeNamePart(text, start); });
    return out;
}

std::u16string makeDailyStem(std::u16string_view path, std::u16string_view base, bool withSource,
                             std::u16string_view source, const CivilTime& day, char16_t sep) {
    std::u16string out;
    out.reserve(path.size() + base.size() + source.size() + 16);
    out.append(path);
    out.push_back(sep);
    out.append(base);
    out.push_back(u'-');
    if (withSource) {
        out.append(source);
        out.push_back(u'-');
    }
    appendDate(out, day);
    return out;
}

std::u16string makeDailyName(std::u16string_view path, std::u16string_view base, bool withSource,
                             std::u16string_view source, const CivilTime& day,
                             std::u16string_view extension, char16_t sep) {
    std::u16string out = makeDailyStem(path, base, withSource, source, day, sep);
    out.push_back(u'.');
    out.append(extension);
    return out;
}

std::u16string makeCircularName(std::u16string_view path, std::u16string_view base, int32_t number,
                                std::u16string_view extension, char16_t sep) {
    std::u16string out(path);
    out.push_back(sep);
    out.append(base);
    appendNumber(out, number);
    out.push_back(u'.');
    out.append(extension);
    return out;
}

std::u16string makePlainName(std::u16string_view path, std::u16string_view base,
                             std::u16string_view extension, char16_t sep) {
    std::u16string out(path);
    out.push_back(sep);
    out.append(base);
    out.push_back(u'.');
    out.append(extension);
    return out;
}

std::u16string makeSegmentName(std::u16string_view stem, int32_t segment,
                               std::u16string_view extension) {
    std::u16string out(stem);
    out.push_back(u'_');
    appendNumber(out, segment);
    out.push_back(u'.');
    out.append(extension);
    return out;
}

int64_t endOfDay(int64_t now, bool utc) noexcept {
    constexpr int64_t kDay = 86400;
    if (!utc) {
        CivilTime t;
        if (localTimeOf(now, t)) {
            t.day += 1;
            t.hour = t.minute = t.second = 0;
            const int64_t next = secondsOfLocalTime(t);
            if (next > now) return next;
        }
    }
    const int64_t day = now >= 0 ? now / kDay : (now - kDay + 1) / kDay;
    return (day + 1) * kDay;
}

}  // namespace vt
