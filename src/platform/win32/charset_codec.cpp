#include "platform/charset_codec.h"

#include <windows.h>

#include <climits>

namespace vt {
bool wideToCharset(uint32_t charsetId, std::u16string_view wide, std::string& out) {
    out.clear();
    if (wide.empty()) return true;
    if (wide.size() > INT_MAX / 4) return false;
    const auto* src = reinterpret_cast<const wchar_t*>(wide.data());
    // Four bytes per wide character plus one, as the converter's contract says.
    out.resize(wide.size() * 4 + 1);
    const int n = WideCharToMultiByte(charsetId, 0, src, static_cast<int>(wide.size()), out.data(),
                                      static_cast<int>(out.size()), nullptr, nullptr);
    if (n <= 0) {
        out.clear();
        return false;
    }
    out.resize(static_cast<size_t>(n));
    return true;
}
}  // namespace vt
