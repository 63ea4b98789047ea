#include "platform/text_codec.h"

#include <windows.h>

#include <climits>

namespace vt {
namespace {
bool isAscii(std::string_view s) {
    for (unsigned char c : s)
        if (c >= 0x80) return false;
    return true;
}
bool isAscii(std::u16string_view s) {
    for (char16_t c : s)
        if (c >= 0x80) return false;
    return true;
}
}  // namespace

bool narrowToWide(std::string_view narrow, std::u16string& wide) {
    if (isAscii(narrow)) {
        wide.assign(narrow.begin(), narrow.end());
        return true;
    }
    if (narrow.size() > INT_MAX) return false;
    const int n =
        MultiByteToWideChar(CP_ACP, 0, narrow.data(), static_cast<int>(narrow.size()), nullptr, 0);
    if (n <= 0) return false;
    wide.resize(static_cast<size_t>(n));
    MultiByteToWideChar(CP_ACP, 0, narrow.data(), static_cast<int>(narrow.size()),
                        reinterpret_cast<wchar_t*>(wide.data()), n);
    return true;
}

bool wideToNarrow(std::u16string_view wide, std::string& narrow) {
    if (isAscii(wide)) {
        narrow.assign(wide.begin(), wide.end());
        return true;
    }
    if (wide.size() > INT_MAX) return false;
    const auto* src = reinterpret_cast<const wchar_t*>(wide.data());
    const int n = WideCharToMultiByte(CP_ACP, 0, src, static_cast<int>(wide.size()), nullptr, 0,
                                      nullptr, nullptr);
    if (n <= 0) return false;
    narrow.resize(static_cast<size_t>(n));
    WideCharToMultiByte(CP_ACP, 0, src, static_cast<int>(wide.size()), narrow.data(), n, nullptr,
                        nullptr);
    return true;
}
}  // namespace vt
