#include "platform/registry.h"

namespace vt {

std::vector<uint8_t> regStringBytes(std::u16string_view text) {
    std::vector<uint8_t> out;
    out.reserve((text.size() + 1) * 2);
    for (char16_t c : text) {
        out.push_back(static_cast<uint8_t>(c & 0xFF));
        out.push_back(static_cast<uint8_t>(c >> 8));
    }
    out.push_back(0);
    out.push_back(0);
    return out;
}

std::u16string regBytesToString(const std::vector<uint8_t>& data) {
    std::u16string out;
    out.reserve(data.size() / 2);
    for (size_t i = 0; i + 1 < data.size(); i += 2)
        out.push_back(static_cast<char16_t>(data[i] | (data[i + 1] << 8)));
    while (!out.empty() && out.back() == 0) out.pop_back();
    return out;
}

std::vector<uint8_t> regDwordBytes(uint32_t value) {
    std::vector<uint8_t> out(4);
    for (int i = 0; i < 4; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
    return out;
}

std::vector<uint8_t> regQwordBytes(uint64_t value) {
    std::vector<uint8_t> out(8);
    for (int i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(value >> (8 * i));
    return out;
}

}  // namespace vt
