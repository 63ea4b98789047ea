#include "vtreg/reg_file.h"

#include <algorithm>
#include <functional>

#include "platform/case_fold.h"
#include "platform/utf_codec.h"

namespace vtreg {
namespace {

constexpr std::u16string_view kHeader5 = u"Windows Registry Editor Version 5.00";
constexpr std::u16string_view kHeader4 = u"REGEDIT4";
constexpr size_t kMaxKeyNameLength = 255;

bool isSpace(char16_t c) {
    return c == u' ' || c == u'\t' || c == u'\r';
}

std::u16string_view trimLeft(std::u16string_view s) {
    while (!s.empty() && isSpace(s.front())) s.remove_prefix(1);
    return s;
}

std::u16string_view trimRight(std::u16string_view s) {
    while (!s.empty() && isSpace(s.back())) s.remove_suffix(1);
    return s;
}

int hexDigit(char16_t c) {
    if (c >= u'0' && c <= u'9') return c - u'0';
    if (c >= u'a' && c <= u'f') return c - u'a' + 10;
    if (c >= u'A' && c <= u'F') return c - u'A' + 10;
    return -1;
}

bool startsWithNoCase(std::u16string_view s, std::u16string_view prefix) {
    return s.size() >= prefix.size() &&
           vt::upcase(s.substr(0, prefix.size())) == vt::upcase(prefix);
}

// Strict UTF-8 check: the offset of the first malformed sequence, or npos.
size_t firstInvalidUtf8(std::string_view s) {
    size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<uint8_t>(s[i]);
        if (c < 0x80) {
            ++i;
            continue;
        }
        int len = 0;
        uint32_t cp = 0, min = 0;
        if ((c & 0xE0) == 0xC0)
            len = 2, cp = c & 0x1F, min = 0x80;
        else if ((c & 0xF0) == 0xE0)
            len = 3, cp = c & 0x0F, min = 0x800;
        else if ((c & 0xF8) == 0xF0)
            len = 4, cp = c & 0x07, min = 0x10000;
        else
            return i;
        if (i + len > s.size()) return i;
        for (int k = 1; k < len; ++k) {
            const auto cc = static_cast<uint8_t>(s[i + k]);
            if ((cc & 0xC0) != 0x80) return i;
            cp = (cp << 6) | (cc & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return i;
        i += len;
    }
    return std::string_view::npos;
}

int lineAt(std::string_view bytes, size_t offset) {
    return 1 + static_cast<int>(std::count(bytes.begin(), bytes.begin() + offset, '\n'));
}

bool decodeText(std::string_view bytes, std::u16string& text, RegParseError& error) {
    if (bytes.size() > kMaxRegFileBytes) {
        error = {0,
                 "file is larger than " + std::to_string(kMaxRegFileBytes / (1024 * 1024)) + " MB"};
        return false;
    }
    if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFE &&
        static_cast<uint8_t>(bytes[1]) == 0xFF) {
        error = {1, "UTF-16 big-endian text is not supported (save as UTF-16LE or UTF-8)"};
        return false;
    }
    if (bytes.size() >= 2 && static_cast<uint8_t>(bytes[0]) == 0xFF &&
        static_cast<uint8_t>(bytes[1]) == 0xFE) {
        const std::string_view body = bytes.substr(2);
        text.clear();
        text.reserve(body.size() / 2);
        for (size_t i = 0; i + 1 < body.size(); i += 2)
            text.push_back(static_cast<char16_t>(static_cast<uint8_t>(body[i]) |
                                                 (static_cast<uint8_t>(body[i + 1]) << 8)));
        if (body.size() % 2) {
            error = {1 + static_cast<int>(std::count(text.begin(), text.end(), u'\n')),
                     "UTF-16 text ends in the middle of a character (odd number of bytes)"};
            return false;
        }
        return true;
    }
    if (bytes.size() >= 3 && bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    if (const size_t bad = firstInvalidUtf8(bytes); bad != std::string_view::npos) {
        error = {lineAt(bytes, bad), "text is neither UTF-16LE with BOM nor valid UTF-8"};
        return false;
    }
    vt::utf8ToUtf16(bytes, text);
    return true;
}

std::vector<std::u16string_view> splitLines(std::u16string_view text) {
    std::vector<std::u16string_view> lines;
    size_t start = 0;
    for (;;) {
        const size_t nl = text.find(u'\n', start);
        std::u16string_view line =
            text.substr(start, nl == std::u16string_view::npos ? nl : nl - start);
        if (!line.empty() && line.back() == u'\r') line.remove_suffix(1);
        lines.push_back(line);
        if (nl == std::u16string_view::npos) return lines;
        start = nl + 1;
    }
}

std::string utf8Of(std::u16string_view s) {
    return vt::utf16ToUtf8(s);
}

// File content quoted in a message: at most 40 characters, control characters shown as '?',
// so that a hostile file cannot play escape sequences on the terminal.
std::string shown(std::u16string_view s) {
    std::u16string out(s.substr(0, 40));
    for (auto& c : out)
        if (c < 0x20 || c == 0x7F || (c >= 0x80 && c < 0xA0)) c = u'?';
    return utf8Of(out) + (s.size() > 40 ? "..." : "");
}

class Parser {
  public:
    Parser(std::vector<std::u16string_view> lines, RegFile& out, RegParseError& error)
        : m_lines(std::move(lines)), m_out(out), m_error(error) {}

    bool run() {
        const std::u16string_view header = trimRight(m_lines.empty() ? u"" : m_lines[0]);
        if (header == kHeader5) {
            m_out.regedit4 = false;
        } else if (header == kHeader4) {
            m_out.regedit4 = true;
        } else {
            return fail(1,
                        "not a registry file: the first line must be \"Windows Registry Editor "
                        "Version 5.00\" or \"REGEDIT4\"");
        }
        for (m_index = 1; m_index < m_lines.size(); ++m_index) {
            const std::u16string_view line = trimLeft(m_lines[m_index]);
            if (line.empty() || line.front() == u';') continue;
            if (line.front() == u'[') {
                if (!keyLine(line)) return false;
            } else if (line.front() == u'"' || line.front() == u'@') {
                if (!valueLine(line)) return false;
            } else {
                return fail(lineNo(),
                            "unrecognised line (expected [KEY], \"name\"=..., @=... or ; comment)");
            }
        }
        return true;
    }

  private:
    int lineNo() const { return static_cast<int>(m_index) + 1; }

    bool fail(int line, std::string reason) {
        m_error = {line, std::move(reason)};
        return false;
    }

    bool keyLine(std::u16string_view line) {
        line = trimRight(line);
        if (line.size() < 2 || line.back() != u']')
            return fail(lineNo(), "key line without closing ']'");
        std::u16string_view inner = line.substr(1, line.size() - 2);
        RegFileKey key;
        key.line = lineNo();
        if (!inner.empty() && inner.front() == u'-') {
            key.remove = true;
            inner.remove_prefix(1);
        }
        std::string reason;
        if (!parseKeyName(inner, key.path, reason)) return fail(lineNo(), reason);
        if (key.path.empty() && key.remove)
            return fail(lineNo(), "HKEY_LOCAL_MACHINE itself cannot be deleted");
        m_out.keys.push_back(std::move(key));
        return true;
    }

    // A quoted name or string: "..." with \\ and \" as the only escapes. `pos` is at the
    // opening quote and ends after the closing one.
    bool quoted(std::u16string_view line, size_t& pos, std::u16string& text, const char* what) {
        text.clear();
        for (++pos; pos < line.size(); ++pos) {
            const char16_t c = line[pos];
            if (c == u'"') {
                ++pos;
                return true;
            }
            if (c == u'\\') {
                if (pos + 1 >= line.size()) break;
                const char16_t e = line[++pos];
                if (e != u'\\' && e != u'"')
                    return fail(lineNo(), std::string("unknown escape '\\") +
                                              shown(std::u16string_view(&e, 1)) + "' in " + what +
                                              " (only \\\\ and \\\" are allowed)");
                text.push_back(e);
                continue;
            }
            text.push_back(c);
        }
        return fail(lineNo(), std::string("unterminated ") + what);
    }

    // Only blanks or a comment may follow a complete value.
    bool endOfValue(std::u16string_view rest) {
        rest = trimLeft(rest);
        if (rest.empty() || rest.front() == u';') return true;
        return fail(lineNo(), "unexpected text after the value: '" + shown(rest) + "'");
    }

    bool valueLine(std::u16string_view line) {
        if (m_out.keys.empty())
            return fail(lineNo(), "value outside a key (no [KEY] line before it)");
        RegFileKey& key = m_out.keys.back();
        if (key.remove) return fail(lineNo(), "value in a key that is being deleted ([-KEY])");
        if (key.path.empty()) return fail(lineNo(), "HKEY_LOCAL_MACHINE itself cannot hold values");
        RegFileValue value;
        value.line = lineNo();
        size_t pos = 0;
        if (line.front() == u'@') {
            pos = 1;
        } else if (!quoted(line, pos, value.name, "value name")) {
            return false;
        }
        std::u16string_view rest = trimLeft(line.substr(pos));
        if (rest.empty() || rest.front() != u'=')
            return fail(lineNo(), "'=' expected after the value name");
        rest = trimLeft(rest.substr(1));
        if (!valueData(rest, value)) return false;
        key.values.push_back(std::move(value));
        return true;
    }

    bool valueData(std::u16string_view rest, RegFileValue& value) {
        if (!rest.empty() && rest.front() == u'-') {
            value.remove = true;
            return endOfValue(rest.substr(1));
        }
        if (!rest.empty() && rest.front() == u'"') {
            size_t pos = 0;
            std::u16string text;
            if (!quoted(rest, pos, text, "string")) return false;
            value.type = vt::kRegSz;
            value.data = vt::regStringBytes(text);
            return endOfValue(rest.substr(pos));
        }
        if (startsWithNoCase(rest, u"dword:")) {
            rest.remove_prefix(6);
            size_t n = 0;
            uint32_t v = 0;
            while (n < rest.size() && hexDigit(rest[n]) >= 0) {
                if (n == 8) return fail(lineNo(), "dword value has more than 8 hex digits");
                v = (v << 4) | static_cast<uint32_t>(hexDigit(rest[n++]));
            }
            if (n == 0) return fail(lineNo(), "dword value without hex digits");
            value.type = vt::kRegDword;
            value.data = vt::regDwordBytes(v);
            return endOfValue(rest.substr(n));
        }
        if (startsWithNoCase(rest, u"hex:")) {
            value.type = vt::kRegBinary;
            return hexList(rest.substr(4), value);
        }
        if (startsWithNoCase(rest, u"hex(")) {
            rest.remove_prefix(4);
            size_t n = 0;
            uint32_t t = 0;
            while (n < rest.size() && hexDigit(rest[n]) >= 0) {
                if (n == 8) return fail(lineNo(), "hex(N) type number has more than 8 hex digits");
                t = (t << 4) | static_cast<uint32_t>(hexDigit(rest[n++]));
            }
            if (n == 0 || n + 1 >= rest.size() || rest[n] != u')' || rest[n + 1] != u':')
                return fail(lineNo(), "malformed hex(N): type");
            value.type = t;
            if (!hexList(rest.substr(n + 2), value)) return false;
            // REGEDIT4 files carry these two string types in the narrow code page.
            if (m_out.regedit4 && (t == vt::kRegExpandSz || t == vt::kRegMultiSz)) {
                const std::string bytes(value.data.begin(), value.data.end());
                std::u16string wide = vt::utf8ToUtf16(bytes);
                value.data = vt::regStringBytes(wide);
                value.data.resize(value.data.size() - 2);  // the narrow data had its own NULs
            }
            return true;
        }
        return fail(lineNo(),
                    "unrecognised value data (expected \"text\", dword:, hex:, hex(N): or -)");
    }

    // Comma-separated bytes of one or two hex digits; a trailing '\' continues the list on the
    // next line.
    bool hexList(std::u16string_view rest, RegFileValue& value) {
        std::u16string joined;
        std::u16string_view part = trimRight(rest);
        for (;;) {
            const size_t comment = part.find(u';');
            if (comment != std::u16string_view::npos) part = trimRight(part.substr(0, comment));
            if (part.empty() || part.back() != u'\\') {
                joined.append(part);
                break;
            }
            joined.append(part.substr(0, part.size() - 1));
            if (m_index + 1 >= m_lines.size())
                return fail(lineNo(), "hex list continues past the end of the file");
            ++m_index;
            part = trimRight(trimLeft(m_lines[m_index]));
        }
        std::u16string_view list = joined;
        value.data.clear();
        value.data.reserve(list.size() / 3 + 1);
        while (true) {
            list = trimLeft(list);
            if (list.empty()) break;
            size_t digits = 0;
            int byte = 0;
            while (digits < list.size() && digits < 3 && hexDigit(list[digits]) >= 0)
                byte = byte * 16 + hexDigit(list[digits++]);
            if (digits == 0 || digits > 2)
                return fail(lineNo(),
                            "malformed hex list (bytes are 1 or 2 hex digits separated by commas)");
            value.data.push_back(static_cast<uint8_t>(byte));
            list = trimLeft(list.substr(digits));
            if (list.empty()) break;
            if (list.front() != u',')
                return fail(lineNo(),
                            "malformed hex list (bytes are 1 or 2 hex digits separated by commas)");
            list.remove_prefix(1);
        }
        return true;
    }

    std::vector<std::u16string_view> m_lines;
    RegFile& m_out;
    RegParseError& m_error;
    size_t m_index = 0;
};

}  // namespace

bool parseKeyName(std::u16string_view key, std::u16string& path, std::string& reason) {
    const size_t sep = key.find(u'\\');
    const std::u16string root = vt::upcase(key.substr(0, sep));
    if (root != u"HKEY_LOCAL_MACHINE" && root != u"HKLM") {
        reason =
            "only HKEY_LOCAL_MACHINE (HKLM) is supported, not '" + shown(key.substr(0, sep)) + "'";
        return false;
    }
    path.clear();
    if (sep == std::u16string_view::npos) return true;
    std::u16string_view rest = key.substr(sep + 1);
    while (!rest.empty() && rest.back() == u'\\') rest.remove_suffix(1);
    size_t start = 0;
    while (start <= rest.size() && !rest.empty()) {
        const size_t next = rest.find(u'\\', start);
        const auto name =
            rest.substr(start, next == std::u16string_view::npos ? next : next - start);
        if (name.empty()) {
            reason = "empty key name in '" + shown(key) + "'";
            return false;
        }
        if (name.size() > kMaxKeyNameLength) {
            reason = "key name longer than 255 characters";
            return false;
        }
        if (next == std::u16string_view::npos) break;
        start = next + 1;
    }
    path.assign(rest);
    return true;
}

bool parseRegFile(std::string_view bytes, RegFile& out, RegParseError& error) {
    out = RegFile{};
    std::u16string text;
    if (!decodeText(bytes, text, error)) return false;
    if (const size_t nul = text.find(u'\0'); nul != std::u16string::npos) {
        error = {1 + static_cast<int>(std::count(text.begin(), text.begin() + nul, u'\n')),
                 "NUL character in the text (binary data?)"};
        return false;
    }
    Parser parser(splitLines(text), out, error);
    return parser.run();
}

uint32_t applyRegFile(const RegFile& file, std::string& where) {
    return vt::regRunAtomically([&]() -> uint32_t {
        for (const auto& key : file.keys) {
            where = "[HKEY_LOCAL_MACHINE\\" + utf8Of(key.path) + "] (line " +
                    std::to_string(key.line) + ")";
            if (key.remove) {
                const uint32_t err = vt::regDeleteTree(vt::RegRoot::LocalMachine, key.path);
                if (err != vt::kRegOk && err != vt::kRegNotFound) return err;
                continue;
            }
            vt::RegKey handle;
            if (const uint32_t err = handle.create(vt::RegRoot::LocalMachine, key.path);
                err != vt::kRegOk)
                return err;
            for (const auto& value : key.values) {
                where = "line " + std::to_string(value.line);
                const uint32_t err = value.remove
                                         ? handle.deleteValue(value.name)
                                         : handle.setValue(value.name, value.type,
                                                           value.data.data(), value.data.size());
                if (err != vt::kRegOk && !(value.remove && err == vt::kRegNotFound)) return err;
            }
        }
        where.clear();
        return vt::kRegOk;
    });
}

namespace {

std::u16string quote(std::u16string_view text) {
    std::u16string out = u"\"";
    for (char16_t c : text) {
        if (c == u'\\' || c == u'"') out.push_back(u'\\');
        out.push_back(c);
    }
    out.push_back(u'"');
    return out;
}

// True when the bytes are text that the quoted form gives back exactly.
bool quotable(const std::vector<uint8_t>& data) {
    if (data.size() < 2 || data.size() % 2) return false;
    const size_t units = data.size() / 2;
    for (size_t i = 0; i < units; ++i) {
        const char16_t c = static_cast<char16_t>(data[2 * i] | (data[2 * i + 1] << 8));
        if (i + 1 == units) return c == 0;
        if (c == 0 || c == u'\r' || c == u'\n') return false;
        if (c >= 0xD800 && c <= 0xDBFF) {  // a high surrogate needs its low partner
            if (i + 2 >= units) return false;
            const char16_t d = static_cast<char16_t>(data[2 * i + 2] | (data[2 * i + 3] << 8));
            if (d < 0xDC00 || d > 0xDFFF) return false;
            ++i;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return false;
        }
    }
    return false;
}

std::u16string hexType(uint32_t type) {
    static const char16_t* digits = u"0123456789abcdef";
    std::u16string n;
    do {
        n.insert(n.begin(), digits[type & 0xF]);
        type >>= 4;
    } while (type);
    return u"hex(" + n + u"):";
}

// The path with every name in the case it was created with, so that an export shows the stored
// names whatever case the caller typed.
uint32_t canonicalPath(std::u16string_view path, std::u16string& out) {
    out.clear();
    while (!path.empty() && path.back() == u'\\') path.remove_suffix(1);
    size_t start = 0;
    while (!path.empty()) {
        const size_t next = path.find(u'\\', start);
        const auto name =
            path.substr(start, next == std::u16string_view::npos ? next : next - start);
        vt::RegKey parent;
        if (const uint32_t err = parent.open(vt::RegRoot::LocalMachine, out, vt::kKeyRead);
            err != vt::kRegOk)
            return err;
        std::vector<std::u16string> subkeys;
        if (const uint32_t err = parent.enumSubKeys(subkeys); err != vt::kRegOk) return err;
        const std::u16string folded = vt::upcase(name);
        const auto it = std::find_if(subkeys.begin(), subkeys.end(), [&](const std::u16string& s) {
            return vt::upcase(s) == folded;
        });
        if (it == subkeys.end()) return vt::kRegNotFound;
        if (!out.empty()) out += u'\\';
        out += *it;
        if (next == std::u16string_view::npos) break;
        start = next + 1;
    }
    return vt::kRegOk;
}

}  // namespace

std::u16string formatRegValue(const vt::RegValue& value) {
    static const char16_t* digits = u"0123456789abcdef";
    std::u16string line = value.name.empty() ? u"@" : quote(value.name);
    line += u'=';
    if (value.type == vt::kRegSz && quotable(value.data)) {
        return line + quote(vt::regBytesToString(value.data));
    }
    if (value.type == vt::kRegDword && value.data.size() == 4) {
        line += u"dword:";
        for (int i = 3; i >= 0; --i) {
            line += digits[value.data[i] >> 4];
            line += digits[value.data[i] & 0xF];
        }
        return line;
    }
    line += value.type == vt::kRegBinary ? std::u16string(u"hex:") : hexType(value.type);
    // Wrapped like regedit: lines of at most 80 characters, continued with '\'.
    size_t column = line.size();
    for (size_t i = 0; i < value.data.size(); ++i) {
        const bool last = i + 1 == value.data.size();
        if (column + (last ? 2 : 3) > 79) {
            line += u"\\\r\n  ";
            column = 2;
        }
        line += digits[value.data[i] >> 4];
        line += digits[value.data[i] & 0xF];
        if (!last) line += u',';
        column += last ? 2 : 3;
    }
    return line;
}

uint32_t exportRegFile(std::u16string_view key, RegTextEncoding encoding, std::string& out) {
    std::u16string text(kHeader5);
    text += u"\r\n\r\n";
    std::function<uint32_t(const std::u16string&)> walk =
        [&](const std::u16string& path) -> uint32_t {
        vt::RegKey handle;
        if (const uint32_t err = handle.open(vt::RegRoot::LocalMachine, path, vt::kKeyRead);
            err != vt::kRegOk)
            return err;
        if (!path.empty()) {
            std::vector<vt::RegValue> values;
            if (const uint32_t err = handle.enumValues(values); err != vt::kRegOk) return err;
            text += u"[HKEY_LOCAL_MACHINE\\" + path + u"]\r\n";
            for (const auto& v : values) text += formatRegValue(v) + u"\r\n";
            text += u"\r\n";
        }
        std::vector<std::u16string> subkeys;
        if (const uint32_t err = handle.enumSubKeys(subkeys); err != vt::kRegOk) return err;
        for (const auto& name : subkeys) {
            const uint32_t err = walk(path.empty() ? name : path + u"\\" + name);
            // Keys the reader may not open (Windows) are left out rather than failing the export.
            if (err != vt::kRegOk && err != vt::kRegAccessDenied) return err;
        }
        return vt::kRegOk;
    };
    std::u16string start;
    if (const uint32_t err = canonicalPath(key, start); err != vt::kRegOk) return err;
    if (const uint32_t err = walk(start); err != vt::kRegOk) return err;
    out.clear();
    if (encoding == RegTextEncoding::Utf16) {
        out.reserve(2 + text.size() * 2);
        out += "\xFF\xFE";
        for (char16_t c : text) {
            out.push_back(static_cast<char>(c & 0xFF));
            out.push_back(static_cast<char>(c >> 8));
        }
    } else {
        vt::utf16ToUtf8(text, out);
    }
    return vt::kRegOk;
}

}  // namespace vtreg
