#include "platform/utf_codec.h"

#include <cstdint>
#include <cstring>

namespace vt {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

// The leading ASCII run copied a word at a time (almost every syslog message is ASCII from
// end to end); returns its length. `out` has room for in.size() characters.
size_t widenAscii(std::string_view in, char16_t* out) noexcept {
    size_t i = 0;
    for (; i + 8 <= in.size(); i += 8) {
        uint64_t word;
        std::memcpy(&word, in.data() + i, sizeof word);
        if (word & 0x8080808080808080ull) break;
        for (size_t k = 0; k < 8; ++k)
            out[i + k] = static_cast<char16_t>(static_cast<unsigned char>(in[i + k]));
    }
    for (; i < in.size() && static_cast<unsigned char>(in[i]) < 0x80; ++i)
        out[i] = static_cast<char16_t>(in[i]);
    return i;
}

size_t narrowAscii(std::u16string_view in, char* out) noexcept {
    size_t i = 0;
    for (; i + 4 <= in.size(); i += 4) {
        uint64_t word;
        std::memcpy(&word, in.data() + i, sizeof word);
        if (word & 0xFF80FF80FF80FF80ull) break;
        for (size_t k = 0; k < 4; ++k) out[i + k] = static_cast<char>(in[i + k]);
    }
    for (; i < in.size() && in[i] < 0x80; ++i) out[i] = static_cast<char>(in[i]);
    return i;
}

// Decodes one UTF-8 sequence starting at in[i]; advances i. Returns U+FFFD for anything that
// is not a shortest-form scalar value, consuming one byte so that decoding resynchronises.
char32_t decodeUtf8(std::string_view in, size_t& i) {
    const auto b0 = static_cast<unsigned char>(in[i]);
    int extra = b0 >= 0xF0 && b0 <= 0xF4 ? 3 : b0 >= 0xE0 ? 2 : b0 >= 0xC2 && b0 < 0xE0 ? 1 : -1;
    if (b0 < 0x80) {
        ++i;
        return b0;
    }
    if (extra < 0 || i + static_cast<size_t>(extra) >= in.size()) {
        ++i;
        return kReplacement;
    }
    char32_t cp = b0 & (0x3F >> extra);
    for (int k = 1; k <= extra; ++k) {
        const auto b = static_cast<unsigned char>(in[i + k]);
        if ((b & 0xC0) != 0x80) {
            ++i;
            return kReplacement;
        }
        cp = (cp << 6) | (b & 0x3F);
    }
    const bool overlong = (extra == 2 && cp < 0x800) || (extra == 3 && cp < 0x10000);
    if (overlong || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
        ++i;
        return kReplacement;
    }
    i += extra + 1;
    return cp;
}

void appendUtf8(std::string& out, char32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

}  // namespace

void utf8ToUtf16(std::string_view in, std::u16string& out) {
    out.resize(in.size());
    const size_t ascii = widenAscii(in, out.data());
    out.resize(ascii);
    for (size_t i = ascii; i < in.size();) {
        const char32_t cp = decodeUtf8(in, i);
        if (cp >= 0x10000) {
            out.push_back(static_cast<char16_t>(0xD800 + ((cp - 0x10000) >> 10)));
            out.push_back(static_cast<char16_t>(0xDC00 + ((cp - 0x10000) & 0x3FF)));
        } else {
            out.push_back(static_cast<char16_t>(cp));
        }
    }
}

void utf16ToUtf8(std::u16string_view in, std::string& out) {
    out.resize(in.size());
    const size_t ascii = narrowAscii(in, out.data());
    out.resize(ascii);
    if (ascii == in.size()) return;
    out.reserve(ascii + (in.size() - ascii) * 3);
    for (size_t i = ascii; i < in.size(); ++i) {
        char32_t cp = in[i];
        if (cp >= 0xD800 && cp <= 0xDBFF && i + 1 < in.size() && in[i + 1] >= 0xDC00 &&
            in[i + 1] <= 0xDFFF) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (in[i + 1] - 0xDC00);
            ++i;
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            cp = kReplacement;
        }
        appendUtf8(out, cp);
    }
}

std::u16string utf8ToUtf16(std::string_view in) {
    std::u16string out;
    utf8ToUtf16(in, out);
    return out;
}

std::string utf16ToUtf8(std::u16string_view in) {
    std::string out;
    utf16ToUtf8(in, out);
    return out;
}

}  // namespace vt
