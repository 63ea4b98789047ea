#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vt {

// One SD-PARAM of a structured data element; the value still has its escapes.
struct SdParam {
    std::u16string_view sdId;
    std::u16string_view name;
    std::u16string_view value;
};

// A message with a version 1 header taken apart. Views into the parsed text; a NILVALUE ("-")
// field is empty.
struct Rfc5424Fields {
    uint32_t facility = 0;
    uint32_t severity = 0;
    bool hasTime = false;
    int64_t time = 0;           // seconds since 1970 UTC, the offset applied
    uint32_t microseconds = 0;  // the fraction, to six digits
    std::u16string_view timestamp;
    std::u16string_view host;
    std::u16string_view appName;
    std::u16string_view procId;
    std::u16string_view msgId;
    std::u16string_view structuredData;  // all elements as sent, brackets included
    std::vector<SdParam> params;
    std::u16string_view msg;  // without a leading byte order mark
};

// False when `text` has no valid version 1 header; `out` is then unspecified.
bool parseRfc5424(std::u16string_view text, Rfc5424Fields& out);
// A PARAM-VALUE with its escapes (\" \\ \]) resolved; other backslashes stay.
std::u16string unescapeSdValue(std::u16string_view value);
// The tag a version 3164 message would carry: "APP[PROCID]:", "APP:", or empty without APP.
std::u16string rfc5424Tag(const Rfc5424Fields& fields);

}  // namespace vt
