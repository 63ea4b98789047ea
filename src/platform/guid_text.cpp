#include "platform/guid.h"

namespace vt {

std::u16string guidToText(const Guid& guid) {
    static const char16_t kHex[] = u"0123456789ABCDEF";
    std::u16string text;
    text.reserve(38);
    auto put = [&](uint64_t value, int digits) {
        for (int shift = (digits - 1) * 4; shift >= 0; shift -= 4)
            text.push_back(kHex[(value >> shift) & 0xF]);
    };
    text.push_back(u'{');
    put(guid.data1, 8);
    text.push_back(u'-');
    put(guid.data2, 4);
    text.push_back(u'-');
    put(guid.data3, 4);
    text.push_back(u'-');
    put(guid.data4[0], 2);
    put(guid.data4[1], 2);
    text.push_back(u'-');
    for (int i = 2; i < 8; ++i) put(guid.data4[i], 2);
    text.push_back(u'}');
    return text;
}

}  // namespace vt
