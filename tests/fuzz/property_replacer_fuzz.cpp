// Feeds arbitrary templates and message texts to the property replacer. The input is split at
// the first 0xFF byte: template before, message after; both are read as raw UTF-16 code units
// so that lone surrogates and every control character reach the parser.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "base/quillet_string.h"
#include "model/info_unit_types.h"
#include "model/property_replacer.h"

namespace {
std::u16string units(const uint8_t* data, size_t size) {
    std::u16string out;
    out.reserve(size / 2 + 1);
    for (size_t i = 0; i + 1 < size; i += 2)
        out.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    if (size % 2) out.push_back(static_cast<char16_t>(data[size - 1]));
    return out;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    size_t split = 0;
    while (split < size && data[split] != 0xFF) ++split;
    const std::u16string templ = units(data, split);
    const std::u16string msg =
        split < size ? units(data + split + 1, size - split - 1) : std::u16string(u"abcdef");

    CInfoUnitSyslog unit;
    unit.setMsg(msg);
    unit.setPropertyString(u"t", u"2024-02-29 23:59:59");
    std::u16string out;
    vt::replaceProperties(templ, &unit, out);
    // Without sequences the template comes back as it is, with "%%" halved.
    if (templ.find(u'%') == std::u16string::npos && out != templ) std::abort();

    CQuilletString s(templ);
    vt::replaceProperties(s, nullptr);
    s.getStringA();
    return 0;
}
