#include "actions/send_mail/smtp_reply.h"

namespace {

int codeOf(const std::string& line) {
    if (line.size() < 3) return 0;
    for (int i = 0; i < 3; ++i)
        if (line[i] < '0' || line[i] > '9') return 0;
    return (line[0] - '0') * 100 + (line[1] - '0') * 10 + (line[2] - '0');
}

}  // namespace

bool readSmtpReply(const std::function<bool(std::string&)>& nextLine, SmtpReply& reply,
                   int maxLines) {
    reply = SmtpReply{};
    std::string line;
    for (int n = 0; n < maxLines; ++n) {
        if (!nextLine(line)) return false;
        const int code = codeOf(line);
        if (n > 0) reply.text += "\r\n";
        reply.text += line.size() > 4 ? line.substr(4) : "";
        if (code == 0 || (n > 0 && code != reply.code)) {
            reply.code = 0;  // malformed; the rest of it is not waited for
            return true;
        }
        reply.code = code;
        if (line.size() > 3 && line[3] == '-') {
            reply.multiline = true;
            continue;
        }
        return true;
    }
    reply.code = 0;  // a reply that does not end
    return true;
}
