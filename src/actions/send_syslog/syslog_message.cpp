#include "actions/send_syslog/syslog_message.h"

#include <zlib.h>

#include <cstdio>

#include "base/debug_log.h"
#include "base/net/rfc5424_parser.h"
#include "model/info_unit.h"
#include "model/unit_time.h"
#include "platform/charset_codec.h"

namespace vt {
namespace {

constexpr const char* kMonths[12] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                     "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

void appendAscii(std::u16string& out, const char* text) {
    for (; *text; ++text) out.push_back(static_cast<char16_t>(static_cast<unsigned char>(*text)));
}

}  // namespace

std::u16string formatSyslogHeader(const SyslogHeaderFields& f) {
    const int pri = (f.facility * 8 | f.severity) & 255;
    const int month = f.time.month >= 1 && f.time.month <= 12 ? f.time.month - 1 : 0;
    char stamp[96];
    std::snprintf(
        stamp, sizeof stamp,
        f.time.day < 10 ? "<%d>%s  %d %2.2d:%2.2d:%2.2d " : "<%d>%s %d %2.2d:%2.2d:%2.2d ", pri,
        kMonths[month], f.time.day, f.time.hour, f.time.minute, f.time.second);
    std::u16string header;
    header.reserve(64 + f.host.size() + f.tag.size() + f.realSource.size());
    appendAscii(header, stamp);
    header += f.host;
    header += u' ';
    header += f.tag;
    if (!f.tag.empty()) header += u": ";
    if (f.insertRealSource) {
        header += u"RealSource:\"";
        header += f.realSource;
        header += u"\" ";
    }
    return header;
}

std::u16string_view syslogTagFor(std::u16string_view tag, std::u16string_view text) noexcept {
    if (tag.empty() || text.starts_with(tag)) return {};
    return tag;
}

int64_t syslogTimeOf(const CInfoUnit& unit) {
    return unit.getPropertyTime(unit.isNotSyslog() ? u"timegenerated" : u"timereported");
}

std::u16string buildSyslogText(const CInfoUnit& unit, std::u16string_view text,
                               bool processDuringRelay, bool insertRealSource) {
    if (!processDuringRelay) return std::u16string(text);
    SyslogHeaderFields fields;
    fields.facility = unit.getSyslogFacility();
    fields.severity = unit.getSyslogPriority();
    const int64_t seconds = syslogTimeOf(unit);
    if (!localTimeOf(seconds, fields.time)) utcBreakdown(seconds, fields.time);
    const char16_t* source = unit.getPropertyString(u"source");
    const char16_t* tag = unit.getPropertyString(u"syslogtag");
    fields.host = source ? source : u"";
    fields.tag = syslogTagFor(tag ? tag : u"", text);
    fields.insertRealSource = insertRealSource;
    fields.realSource = fields.host;
    std::u16string whole = formatSyslogHeader(fields);
    whole += text;
    return whole;
}

namespace {

// A header field and its blank: "-" when absent or empty.
void appendField(std::u16string& out, std::u16string_view value) {
    if (value.empty())
        out += u'-';
    else
        out += value;
    out += u' ';
}

// "app[1234]:" or "app:" -> "app" and "1234".
void splitTag(std::u16string_view tag, std::u16string& app, std::u16string& procId) {
    if (!tag.empty() && tag.back() == u':') tag.remove_suffix(1);
    const size_t open = tag.find(u'[');
    if (open != std::u16string_view::npos && !tag.empty() && tag.back() == u']') {
        procId = tag.substr(open + 1, tag.size() - open - 2);
        tag = tag.substr(0, open);
    }
    for (char16_t c : tag)
        if (c > 32 && c < 127) app.push_back(c);
}

std::u16string utcStamp(int64_t seconds) {
    CivilTime t;
    utcBreakdown(seconds, t);
    char stamp[40];
    std::snprintf(stamp, sizeof stamp, "%04d-%02d-%02dT%02d:%02d:%02dZ", t.year, t.month, t.day,
                  t.hour, t.minute, t.second);
    std::u16string out;
    appendAscii(out, stamp);
    return out;
}

}  // namespace

std::u16string buildRfc5424Text(const CInfoUnit& unit, std::u16string_view text,
                                bool processDuringRelay) {
    if (!processDuringRelay) return std::u16string(text);
    const int pri = (unit.getSyslogFacility() * 8 | unit.getSyslogPriority()) & 255;
    std::u16string whole;
    whole.reserve(96 + text.size());
    whole += u'<';
    appendAscii(whole, std::to_string(pri).c_str());
    appendAscii(whole, ">1 ");
    Rfc5424Fields received;
    if (parseRfc5424(unit.getRawMsgText(), received)) {
        // Received with such a header: its fields go back as they came, NILVALUE included.
        for (std::u16string_view field : {received.timestamp, received.host, received.appName,
                                          received.procId, received.msgId, received.structuredData})
            appendField(whole, field);
        whole.pop_back();
    } else {
        appendField(whole, std::u16string_view(utcStamp(syslogTimeOf(unit))));
        const char16_t* source = unit.getPropertyString(u"source");
        appendField(whole, std::u16string_view(source ? source : u""));
        const char16_t* tag = unit.getPropertyString(u"syslogtag");
        std::u16string name, procId;
        splitTag(tag ? tag : u"", name, procId);
        appendField(whole, std::u16string_view(name));
        appendField(whole, std::u16string_view(procId));
        appendField(whole, std::u16string_view());
        whole += u'-';
    }
    if (!text.empty()) {
        whole += u' ';
        whole += text;
    }
    return whole;
}

std::string encodeSyslogText(std::u16string_view text, uint32_t encoding) {
    if (encoding != 0) {
        std::string out;
        if (wideToCharset(encoding, text, out)) return out;
        debugPrintf(DBG_ERROR,
                    "CSyslogClient::send: output encoding %u cannot be used - message sent in the "
                    "default encoding.\r\n",
                    encoding);
    }
    CQuilletString narrow(text);
    return std::string(narrow.narrowView());
}

CompressResult compressSyslogMessage(std::string_view bytes, int level, SyslogTransport transport,
                                     std::string& out, int& zlibError) {
    zlibError = Z_OK;
    if (bytes.size() <= kMinCompressLength || transport == SyslogTransport::Rfc3195)
        return CompressResult::Plain;
    const size_t overhead = transport == SyslogTransport::Udp ? 1 : 5;
    uLongf packedLength = static_cast<uLongf>(bytes.size() + bytes.size() / 100 + 12 + 1);
    out.assign(1 + packedLength, '\0');
    out[0] = 'z';
    zlibError = compress2(reinterpret_cast<Bytef*>(out.data() + 1), &packedLength,
                          reinterpret_cast<const Bytef*>(bytes.data()),
                          static_cast<uLong>(bytes.size()), level);
    if (zlibError != Z_OK) {
        out.clear();
        return CompressResult::Failed;
    }
    if (packedLength + overhead >= bytes.size()) {
        out.clear();
        return CompressResult::Plain;
    }
    out.resize(1 + packedLength);
    return CompressResult::Compressed;
}

std::string frameSyslogTcp(std::string_view payload, bool compressed, bool octetCounting) {
    std::string frame;
    if (compressed || octetCounting) {
        frame = std::to_string(payload.size());
        frame += ' ';
        frame.reserve(frame.size() + payload.size());
        frame += payload;
    } else {
        frame.reserve(payload.size() + 1);
        frame += payload;
        frame += '\n';
    }
    return frame;
}

}  // namespace vt
