#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace vt {
// Converts wide text to the character set with the given id. Ids are Windows code page numbers
// on both builds (1252, 850, 65001, 28591 ...); on Linux they are mapped to iconv names.
// Characters the target cannot hold become "?". False when the id is unknown or the
// conversion itself fails; `out` is then empty.
bool wideToCharset(uint32_t charsetId, std::u16string_view wide, std::string& out);
}  // namespace vt
