#include "platform/text_codec.h"

#include "platform/utf_codec.h"

namespace vt {
// The narrow code page on Linux is UTF-8.
bool narrowToWide(std::string_view narrow, std::u16string& wide) {
    utf8ToUtf16(narrow, wide);
    return true;
}

bool wideToNarrow(std::u16string_view wide, std::string& narrow) {
    utf16ToUtf8(wide, narrow);
    return true;
}
}  // namespace vt
