#pragma once
#include <functional>
#include <string>

// One reply of an SMTP server: "250-first line", ..., "250 last line". A reply whose lines do
// not start with three digits, or whose codes differ, or that does not end within the line limit,
// is malformed: code 0, so no status check passes on it.
struct SmtpReply {
    int code = 0;
    std::string text;  // the lines' texts, joined with CR LF
    bool multiline = false;
};

// Reads lines from `nextLine` (false when no line comes) until the reply ends. False when the
// connection gave out before the last line.
bool readSmtpReply(const std::function<bool(std::string&)>& nextLine, SmtpReply& reply,
                   int maxLines = 100);
