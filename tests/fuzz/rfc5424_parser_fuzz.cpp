// Feeds arbitrary text to the RFC 5424 header parser: a header it accepts must be made of views
// into the text, MSG must be the text's tail, and every parameter must belong to an element
// inside the structured data.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "platform/utf_codec.h"
#include "base/net/rfc5424_parser.h"

namespace {
void check(bool ok) {
    if (!ok) std::abort();
}
bool inside(std::u16string_view part, std::u16string_view whole) {
    return part.empty() || (part.data() >= whole.data() &&
                            part.data() + part.size() <= whole.data() + whole.size());
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::u16string text =
        vt::utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(data), size));
    vt::Rfc5424Fields f;
    if (!vt::parseRfc5424(text, f)) return 0;
    const std::u16string_view whole(text);
    check(f.facility < 24 && f.severity < 8 && f.microseconds < 1000000);
    for (auto part : {f.timestamp, f.host, f.appName, f.procId, f.msgId, f.structuredData, f.msg})
        check(inside(part, whole));
    check(whole.ends_with(f.msg));
    for (const vt::SdParam& p : f.params) {
        check(!p.sdId.empty() && !p.name.empty());
        check(inside(p.value, f.structuredData));
        vt::unescapeSdValue(p.value);
    }
    return 0;
}
