// Splits arbitrary text (read both as UTF-8 and as raw UTF-16) with and without header parsing
// and checks what must hold for any input.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/utf_codec.h"
#include "sources/syslog/syslog_splitter.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}

void splitAndCheck(std::u16string_view text) {
    const vt::SyslogClock clock{1700000000, 2023};
    for (bool parsing : {true, false}) {
        const vt::SyslogParts p = vt::splitSyslogMsg(text, parsing, clock);
        check(p.raw.view() == text);
        check(p.facility <= 127 && p.severity <= 7);
        // The message is always the tail of the raw text.
        check(p.msg.getLength() <= text.size());
        check(text.substr(text.size() - p.msg.getLength()) == p.msg.view());
        check(p.tag.getLength() <= 40);
        if (!p.priParsed) check(p.msg.view() == text && p.facility == 1 && p.severity == 5);
        if (!parsing) check(p.host.empty() && !p.timestampParsed);
        if (!p.timestampParsed) check(p.timestamp == clock.receptionTime);
    }
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    splitAndCheck(vt::utf8ToUtf16(bytes));
    std::u16string wide(size / 2, u'\0');
    for (size_t i = 0; i < wide.size(); ++i)
        wide[i] = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
    splitAndCheck(wide);
    return 0;
}
