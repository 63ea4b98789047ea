#pragma once
#include <string>
#include <string_view>

namespace vt {
// Portable UTF-8 <-> UTF-16 conversion. Invalid sequences and lone surrogates become
// U+FFFD. Pure ASCII takes a fast path with one allocation and no per-character decoding.
void utf8ToUtf16(std::string_view in, std::u16string& out);
void utf16ToUtf8(std::u16string_view in, std::string& out);
std::u16string utf8ToUtf16(std::string_view in);
std::string utf16ToUtf8(std::u16string_view in);
}  // namespace vt
