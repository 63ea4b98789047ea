#pragma once
#include <string>
#include <string_view>

#include "platform/text_codec.h"
#include "platform/utf_codec.h"

// Joins text pieces with one buffer; also sidesteps a false -Wrestrict of g++ 12 at -O3 on
// "literal" + std::basic_string.
template <class Char, class... Parts>
std::basic_string<Char> cat(std::basic_string_view<Char> first, const Parts&... parts) {
    std::basic_string<Char> out(first);
    (out.append(std::basic_string_view<Char>(parts)), ...);
    return out;
}

template <class... Parts>
std::u16string ucat(const Parts&... parts) {
    return cat<char16_t>(std::u16string_view(), parts...);
}

template <class... Parts>
std::string ncat(const Parts&... parts) {
    return cat<char>(std::string_view(), parts...);
}

// The narrow form the platform gives (UTF-8 on Linux, the ANSI code page on Windows).
inline std::string platformNarrow(std::u16string_view wide) {
    std::string out;
    vt::wideToNarrow(wide, out);
    return out;
}

// UTF-8 of a wide text, for readable expectations and failure messages.
inline std::string n(std::u16string_view wide) {
    return vt::utf16ToUtf8(wide);
}
