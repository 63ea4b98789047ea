#pragma once
#include <string>
#include <string_view>

namespace vt {
// Case folding for registry key and value names: names are equal when their upper-cased forms
// are equal. Works on single UTF-16 units, so it is stable whatever the locale.
char16_t upcaseChar(char16_t c) noexcept;
std::u16string upcase(std::u16string_view text);
}  // namespace vt
