#include "actions/send_mail/mail_message.h"

#include <cstdio>

#include "platform/base64.h"
#include "platform/local_time.h"

namespace {

bool isAscii(const std::string& text) {
    for (const char c : text)
        if (static_cast<unsigned char>(c) > 127) return false;
    return true;
}

// The body's lines with CR LF ends, whatever ends they had (CR LF, LF or CR alone).
std::vector<std::string> bodyLines(const std::string& body) {
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < body.size(); ++i) {
        if (body[i] == '\r' || body[i] == '\n') {
            if (body[i] == '\r' && i + 1 < body.size() && body[i + 1] == '\n') ++i;
            lines.emplace_back();
        } else {
            lines.back().push_back(body[i]);
        }
    }
    if (lines.size() > 1 && lines.back().empty()) lines.pop_back();
    return lines;
}

std::string recipientsHeader(const std::vector<std::string>& to) {
    std::string out;
    for (const std::string& r : to) {
        if (!out.empty()) out += ",\r\n ";
        out += "\"" + r + "\" <" + r + ">";
    }
    return out;
}

// Base64 of UTF-8 text cut between characters, so that each encoded word stands alone.
std::vector<std::string> utf8Pieces(const std::string& text, size_t maxBytes) {
    std::vector<std::string> pieces;
    size_t start = 0;
    while (start < text.size()) {
        size_t end = std::min(start + maxBytes, text.size());
        while (end < text.size() && end > start + 1 &&
               (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
            --end;
        pieces.push_back(text.substr(start, end - start));
        start = end;
    }
    return pieces;
}

}  // namespace

std::string encodedHeaderText(const std::string& text) {
    if (isAscii(text)) return text;
    std::string out;
    // 45 bytes give 60 characters of base64: each word stays within 75 characters.
    for (const std::string& piece : utf8Pieces(text, 45)) {
        if (!out.empty()) out += "\r\n ";
        out += "=?UTF-8?B?" + vt::base64Encode(piece) + "?=";
    }
    return out;
}

std::string subjectLine(const std::string& text, bool legacy) {
    std::string out;
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (u < 32 || u == 127) {
            if (legacy && (c == '\r' || c == '\n')) break;
            out.push_back(' ');
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string mailDate(int64_t seconds) {
    static const char* kDays[] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    vt::CivilTime t;
    if (!vt::localTimeOf(seconds, t)) vt::localTimeOf(0, t);
    // UTC = local + bias: the offset from UTC is the bias turned round.
    const int64_t offset = -vt::localTimeZoneBiasSeconds();
    const int64_t magnitude = offset < 0 ? -offset : offset;
    char text[64];
    std::snprintf(text, sizeof text, "%s, %2d %s %4d %2d:%02d:%02d %c%02d%02d",
                  kDays[t.weekday % 7], t.day, kMonths[(t.month + 11) % 12], t.year, t.hour,
                  t.minute, t.second, offset < 0 ? '-' : '+', int(magnitude / 3600),
                  int(magnitude % 3600 / 60));
    return text;
}

std::string mailData(const MailContent& mail, uint64_t uniqueNumber) {
    std::string data = "Date: " + mailDate(mail.date) + "\r\n";
    if (mail.priority == 2) data += "X-Priority: 1\r\nPriority: Urgent\r\nImportance: high\r\n";
    if (mail.priority == 0) data += "X-Priority: 5\r\nPriority: Non-Urgent\r\nImportance: low\r\n";
    data += "From: " + mail.from + "\r\n";
    data += "Subject: " + encodedHeaderText(mail.subject) + "\r\n";
    data += "To: " + recipientsHeader(mail.to) + "\r\n";
    data += "Message-ID: <" + std::to_string(mail.date) + "." + std::to_string(uniqueNumber) +
            ".vtagent@" + (mail.host.empty() ? std::string("localhost") : mail.host) + ">\r\n";
    data += "X-Mailer: Quillet Vantor Reporting Subsystem\r\nMIME-Version: 1.0\r\n";
    data += "Content-Type: text/plain; charset=utf-8\r\n";
    const std::vector<std::string> lines = bodyLines(mail.body);
    bool plain = isAscii(mail.body);
    for (const std::string& line : lines) plain = plain && line.size() <= 998;
    if (!plain) {
        data += "Content-Transfer-Encoding: base64\r\n\r\n";
        std::string joined;
        for (const std::string& line : lines) joined += line + "\r\n";
        const std::string encoded = vt::base64Encode(joined);
        for (size_t at = 0; at < encoded.size(); at += 76) data += encoded.substr(at, 76) + "\r\n";
        return data;
    }
    data += "Content-Transfer-Encoding: 7bit\r\n\r\n";
    for (const std::string& line : lines) {
        if (!line.empty() && line[0] == '.') data += ".";  // transparency: the end mark is ".\r\n"
        data += line + "\r\n";
    }
    return data;
}
