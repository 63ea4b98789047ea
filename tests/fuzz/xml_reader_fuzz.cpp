// Feeds arbitrary text to the XML reader and the unit factory. The first byte picks how the
// rest is read: even as UTF-8, odd as raw UTF-16 code units. Whatever unit comes out must
// survive its own XML form unchanged.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "model/info_unit.h"
#include "model/name_value_tree.h"
#include "platform/utf_codec.h"

namespace {
std::u16string decode(const uint8_t* data, size_t size) {
    if (size == 0) return {};
    if ((data[0] & 1) == 0)
        return vt::utf8ToUtf16(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
    std::u16string out;
    for (size_t i = 1; i + 1 < size; i += 2)
        out.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    return out;
}

// A name beginning with "/" is written as "<//name>", which the reader takes for an end tag:
// such units cannot make the trip, by the design of the form.
bool writable(const CInfoUnit& unit) {
    const CNameValueTree& p = unit.getProperties();
    for (auto* e = p.firstEntry(); e; e = p.nextEntry(e)) {
        const std::u16string_view name = e->getName().view();
        if (!name.empty() && name[0] == u'/') return false;
    }
    return true;
}
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::u16string xml = decode(data, size);

    CThreadSafeNameValueTree shared;
    shared.parse(xml);
    shared.toXML(u"event");

    auto unit = CInfoUnit::createInfoUnitFromXML(xml);
    if (!unit) return 0;
    const CQuilletString first = unit->toXML();
    if (!writable(*unit)) return 0;
    auto again = CInfoUnit::createInfoUnitFromXML(first.view());
    if (!again || !(again->toXML() == first)) std::abort();
    return 0;
}
