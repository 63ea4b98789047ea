#include "platform/charset_codec.h"

#include <iconv.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include "platform/utf_codec.h"

namespace vt {
namespace {
// Windows code page numbers to the names glibc's iconv knows.
std::string iconvName(uint32_t id) {
    switch (id) {
        case 65001:
            return "UTF-8";
        case 1200:
            return "UTF-16LE";
        case 1201:
            return "UTF-16BE";
        case 12000:
            return "UTF-32LE";
        case 12001:
            return "UTF-32BE";
        case 20127:
            return "ASCII";
        case 20866:
            return "KOI8-R";
        case 21866:
            return "KOI8-U";
        case 51932:
            return "EUC-JP";
        case 51949:
            return "EUC-KR";
        case 50220:
            return "ISO-2022-JP";
        case 54936:
            return "GB18030";
        case 936:
            return "GBK";
        case 950:
            return "BIG5";
        default:
            break;
    }
    if (id >= 28591 && id <= 28606) return "ISO-8859-" + std::to_string(id - 28590);
    return "CP" + std::to_string(id);
}
}  // namespace

bool wideToCharset(uint32_t charsetId, std::u16string_view wide, std::string& out) {
    out.clear();
    if (charsetId == 65001) {
        utf16ToUtf8(wide, out);
        return true;
    }
    iconv_t cd = iconv_open(iconvName(charsetId).c_str(), "UTF-16LE");
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    // Four bytes per wide character plus one, as the converter's contract says.
    out.resize(wide.size() * 4 + 1);
    char* in = reinterpret_cast<char*>(const_cast<char16_t*>(wide.data()));
    size_t inLeft = wide.size() * sizeof(char16_t);
    char* dst = out.data();
    size_t outLeft = out.size();
    bool ok = true;
    while (inLeft > 0) {
        if (iconv(cd, &in, &inLeft, &dst, &outLeft) != static_cast<size_t>(-1)) break;
        if (errno == EILSEQ || errno == EINVAL) {
            // A character the target cannot hold (or a broken surrogate) becomes "?".
            if (outLeft == 0) {
                ok = false;
                break;
            }
            *dst++ = '?';
            --outLeft;
            const char16_t c = *reinterpret_cast<const char16_t*>(in);
            const size_t skip = (c >= 0xD800 && c <= 0xDBFF && inLeft >= 4) ? 2 * sizeof(char16_t)
                                                                            : sizeof(char16_t);
            in += std::min(skip, inLeft);
            inLeft -= std::min(skip, inLeft);
            continue;
        }
        ok = false;
        break;
    }
    if (ok) {
        size_t flushLeft = outLeft;
        iconv(cd, nullptr, nullptr, &dst, &flushLeft);
        outLeft = flushLeft;
    }
    iconv_close(cd);
    if (!ok) {
        out.clear();
        return false;
    }
    out.resize(out.size() - outLeft);
    return true;
}
}  // namespace vt
