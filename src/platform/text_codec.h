#pragma once
#include <string>
#include <string_view>

namespace vt {
// Conversions between wide text (UTF-16) and the narrow "ANSI code page" form: the active
// code page on Windows, UTF-8 elsewhere. Unconvertible input is replaced, never dropped, the
// way the Windows converters do without MB_ERR_INVALID_CHARS; false means the system call
// itself failed.
bool narrowToWide(std::string_view narrow, std::u16string& wide);
bool wideToNarrow(std::u16string_view wide, std::string& narrow);
}  // namespace vt
