// Feeds arbitrary server output, cut into lines, to the SMTP reply parser: it must end within
// its line limit and only ever accept a reply whose every line carries the same code.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "actions/send_mail/smtp_reply.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    int lines = 0;
    SmtpReply reply;
    const bool complete = readSmtpReply(
        [&](std::string& line) {
            if (rest.empty()) return false;
            const size_t end = rest.find('\n');
            line.assign(rest.substr(0, end));
            rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
            ++lines;
            return true;
        },
        reply, 20);
    check(lines <= 20);
    if (complete && reply.code != 0) check(reply.code >= 0 && reply.code <= 999);
    return 0;
}
