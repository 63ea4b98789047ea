#pragma once
#include <cstdint>
#include <string>
#include <vector>

// What one mail says, before it is put into the form the DATA command sends.
struct MailContent {
    std::string from;
    std::vector<std::string> to;
    std::string subject;  // one line, UTF-8
    std::string body;     // UTF-8, any line ends
    int priority = 1;     // 0 low, 1 normal (no headers), 2 high
    int64_t date = 0;     // seconds since 1970
    std::string host;     // the right side of the Message-ID
};

// The DATA text: the headers, a blank line and the body, every line ending in CR LF, ready to
// be followed by ".\r\n". A body of plain ASCII with lines a server takes goes as it is, with
// lines starting with "." doubled; any other body goes in base64 as UTF-8.
std::string mailData(const MailContent& mail, uint64_t uniqueNumber);

// "Tue, 24 Nov 2026 16:05:09 +0100" in the layout the headers have always had (day and hour
// padded with a blank).
std::string mailDate(int64_t seconds);

// A header text as it may go on the wire: non-ASCII text as RFC 2047 encoded words (UTF-8,
// base64), plain text as it is.
std::string encodedHeaderText(const std::string& text);

// The one line a subject may be: legacy processing cuts the text at its first line end, the
// other way makes every control character a blank.
std::string subjectLine(const std::string& text, bool legacy);
