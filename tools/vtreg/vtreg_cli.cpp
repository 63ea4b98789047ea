#include "vtreg/vtreg_cli.h"

#include <charconv>
#include <cstdint>
#include <fstream>
#include <sstream>

#include "platform/case_fold.h"
#include "platform/registry.h"
#include "platform/text_codec.h"
#include "vtreg/reg_file.h"

namespace vtreg {
namespace {

constexpr const char* kUsage =
    "usage: vtreg [--registry PATH] COMMAND ...\n"
    "  import FILE.reg              apply a regedit file (all or nothing)\n"
    "  export [--utf16] [KEY]       write KEY (default: all of HKLM) as a "
    "regedit file to stdout\n"
    "  get KEY NAME                 print one value\n"
    "  set KEY NAME TYPE VALUE      write one value (TYPE: REG_SZ, "
    "REG_EXPAND_SZ, REG_DWORD,\n"
    "                               REG_QWORD, REG_MULTI_SZ with \\0 between "
    "strings, REG_BINARY\n"
    "                               as hex bytes); creates KEY when missing\n"
    "  delete KEY [NAME]            delete a value, or KEY with everything "
    "below it\n"
    "  list KEY                     list the subkeys and values of KEY\n"
    "  tree KEY                     KEY's values and every key below it, indented\n"
    "KEY is HKLM\\path or HKEY_LOCAL_MACHINE\\path; NAME \"\" is the default "
    "value.\n"
    "--registry PATH names the hive file (Linux; default $VTAGENT_REGISTRY or\n"
    "/var/lib/vtagent/registry.db).\n";

std::string errorText(uint32_t code) {
    static constexpr struct {
        uint32_t code;
        const char* text;
    } kTexts[] = {
        {vt::kRegNotFound, "not found"},
        {vt::kRegAccessDenied, "access denied"},
        {vt::kRegInvalidData, "value has another type"},
        {vt::kRegInvalidParameter, "invalid parameter"},
        {vt::kRegBadPathname, "malformed key path"},
        {vt::kRegBusy, "registry busy"},
        {vt::kRegCorrupt, "registry file is corrupt or not a registry"},
        {vt::kRegIoFailed, "registry input/output failed"},
        {vt::kRegKeyDeleted, "key was deleted"},
    };
    std::string text = "failed";
    for (const auto& t : kTexts)
        if (t.code == code) text = t.text;
    return text + " (error " + std::to_string(code) + ")";
}

std::u16string wide(const std::string& s) {
    std::u16string w;
    vt::narrowToWide(s, w);
    return w;
}

std::string codePageText(std::u16string_view w) {
    std::string s;
    vt::wideToNarrow(w, s);
    return s;
}

struct TypeName {
    uint32_t type;
    const char* name;
};
constexpr TypeName kTypeNames[] = {
    {vt::kRegNone, "REG_NONE"},          {vt::kRegSz, "REG_SZ"},
    {vt::kRegExpandSz, "REG_EXPAND_SZ"}, {vt::kRegBinary, "REG_BINARY"},
    {vt::kRegDword, "REG_DWORD"},        {vt::kRegMultiSz, "REG_MULTI_SZ"},
    {vt::kRegQword, "REG_QWORD"},
};

const char* typeName(uint32_t type) {
    for (const auto& t : kTypeNames)
        if (t.type == type) return t.name;
    return nullptr;
}

uint64_t littleEndian(const std::vector<uint8_t>& data) {
    uint64_t v = 0;
    for (size_t i = 0; i < data.size() && i < 8; ++i)
        v |= static_cast<uint64_t>(data[i]) << (8 * i);
    return v;
}

// The value as a person reads it: text, a number, strings one per line, or hex bytes.
std::string showValue(const vt::RegValue& v) {
    if ((v.type == vt::kRegSz || v.type == vt::kRegExpandSz) && v.data.size() % 2 == 0) {
        std::u16string text = vt::regBytesToString(v.data);
        if (const size_t nul = text.find(u'\0'); nul != std::u16string::npos) text.resize(nul);
        return codePageText(text);
    }
    if ((v.type == vt::kRegDword && v.data.size() == 4) ||
        (v.type == vt::kRegQword && v.data.size() == 8))
        return std::to_string(littleEndian(v.data));
    if (v.type == vt::kRegMultiSz && v.data.size() % 2 == 0) {
        std::string out;
        const std::u16string all = vt::regBytesToString(v.data);
        size_t start = 0;
        while (start < all.size()) {
            size_t end = all.find(u'\0', start);
            if (end == std::u16string::npos) end = all.size();
            if (!out.empty()) out += '\n';
            out += codePageText(std::u16string_view(all).substr(start, end - start));
            start = end + 1;
        }
        return out;
    }
    static const char* digits = "0123456789abcdef";
    std::string out;
    for (size_t i = 0; i < v.data.size(); ++i) {
        if (i) out += ',';
        out += digits[v.data[i] >> 4];
        out += digits[v.data[i] & 0xF];
    }
    return out;
}

// A decimal or "0x" hexadecimal number, the whole text.
bool parseNumber(const std::string& text, uint64_t& value) {
    std::string_view s = text;
    int base = 10;
    if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
        s.remove_prefix(2);
        base = 16;
    }
    const auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), value, base);
    return !s.empty() && ec == std::errc() && end == s.data() + s.size();
}

// Builds the raw data of `set`; false with a reason for a bad type or value.
bool encodeValue(const std::string& type, const std::string& text, uint32_t& regType,
                 std::vector<uint8_t>& data, std::string& reason) {
    std::string t = codePageText(vt::upcase(wide(type)));
    if (t.rfind("REG_", 0) != 0) t = "REG_" + t;
    regType = vt::kRegNone;
    for (const auto& n : kTypeNames)
        if (t == n.name) regType = n.type;
    switch (regType) {
        case vt::kRegSz:
        case vt::kRegExpandSz:
            data = vt::regStringBytes(wide(text));
            return true;
        case vt::kRegDword:
        case vt::kRegQword: {
            const bool dword = regType == vt::kRegDword;
            uint64_t v = 0;
            if (parseNumber(text, v) && (!dword || v <= UINT32_MAX)) {
                data = dword ? vt::regDwordBytes(static_cast<uint32_t>(v)) : vt::regQwordBytes(v);
                return true;
            }
            reason = dword ? "REG_DWORD needs a number from 0 to 4294967295 (or 0x...)"
                           : "REG_QWORD needs a number from 0 to 2^64-1 (or 0x...)";
            return false;
        }
        case vt::kRegMultiSz: {
            const std::u16string all = wide(text);
            data.clear();
            size_t start = 0;
            for (;;) {
                const size_t sep = all.find(u"\\0", start);
                const auto part = std::u16string_view(all).substr(
                    start, sep == std::u16string::npos ? sep : sep - start);
                if (!part.empty() || sep != std::u16string::npos) {
                    const auto bytes = vt::regStringBytes(part);
                    data.insert(data.end(), bytes.begin(), bytes.end());
                }
                if (sep == std::u16string::npos) break;
                start = sep + 2;
            }
            data.push_back(0);
            data.push_back(0);
            return true;
        }
        case vt::kRegBinary: {
            data.clear();
            std::string digits;
            for (char c : text)
                if (c != ',' && c != ' ' && c != ':') digits += c;
            if (digits.size() % 2)
                return reason = "REG_BINARY needs whole bytes of two hex digits", false;
            for (size_t i = 0; i < digits.size(); i += 2) {
                uint8_t b = 0;
                const auto [end, ec] =
                    std::from_chars(digits.data() + i, digits.data() + i + 2, b, 16);
                if (ec != std::errc() || end != digits.data() + i + 2)
                    return reason = "REG_BINARY needs hex digits, e.g. 01,ff,2a", false;
                data.push_back(b);
            }
            return true;
        }
        default:  // REG_NONE included: a value needs a type
            reason = "unknown type '" + type +
                     "' (REG_SZ, REG_EXPAND_SZ, REG_DWORD, REG_QWORD, REG_MULTI_SZ, "
                     "REG_BINARY)";
            return false;
    }
}

class Cli {
  public:
    Cli(std::ostream& out, std::ostream& err) : m_out(out), m_err(err) {}

    int usage(const std::string& problem) {
        m_err << "vtreg: " << problem << "\n" << kUsage;
        return kExitUsage;
    }

    int fail(const std::string& what) {
        m_err << "vtreg: " << what << "\n";
        return kExitFailure;
    }

    bool key(const std::string& arg, std::u16string& path) {
        std::string reason;
        if (parseKeyName(wide(arg), path, reason)) return true;
        m_err << "vtreg: " << arg << ": " << reason << "\n";
        return false;
    }

    // KEY parsed, and below the root: `refusal` is the message for the root itself.
    int subkey(const std::string& arg, std::u16string& path, const char* refusal) {
        if (!key(arg, path)) return kExitFailure;
        return path.empty() ? fail(refusal) : kExitOk;
    }

    // The exit code of a registry call on `what` (KEY or KEY\NAME), with its message.
    int check(uint32_t rc, const std::string& what) {
        return rc == vt::kRegOk ? kExitOk : fail(what + ": " + errorText(rc));
    }

    int openKey(const std::string& arg, uint32_t access, vt::RegKey& handle) {
        std::u16string path;
        if (!key(arg, path)) return kExitFailure;
        return check(handle.open(vt::RegRoot::LocalMachine, path, access), arg);
    }

    int importFile(const std::string& file) {
        std::ifstream in(file, std::ios::binary | std::ios::ate);
        if (!in) return fail(file + ": cannot be opened");
        const std::streamoff size = in.tellg();
        if (size < 0) return fail(file + ": cannot be read");
        if (static_cast<uint64_t>(size) > kMaxRegFileBytes)
            return fail(file + ":1: file is larger than " +
                        std::to_string(kMaxRegFileBytes / (1024 * 1024)) + " MB; nothing imported");
        std::string bytes(static_cast<size_t>(size), '\0');
        in.seekg(0);
        if (!in.read(bytes.data(), size)) return fail(file + ": cannot be read");
        RegFile parsed;
        RegParseError error;
        if (!parseRegFile(bytes, parsed, error)) {
            m_err << file << ":" << (error.line > 0 ? error.line : 1) << ": " << error.reason
                  << "\n";
            m_err << "vtreg: nothing imported\n";
            return kExitFailure;
        }
        std::string where;
        if (const uint32_t rc = applyRegFile(parsed, where); rc != vt::kRegOk)
            return fail(file + ": " + where + ": " + errorText(rc) + "; nothing imported");
        return kExitOk;
    }

    int exportKey(const std::vector<std::string>& args) {
        RegTextEncoding encoding = RegTextEncoding::Utf8;
        std::u16string path;
        bool haveKey = false;
        for (const auto& a : args) {
            if (a == "--utf16") {
                encoding = RegTextEncoding::Utf16;
            } else if (!haveKey) {
                if (!key(a, path)) return kExitFailure;
                haveKey = true;
            } else {
                return usage("export takes one KEY");
            }
        }
        std::string text;
        if (const int e = check(exportRegFile(path, encoding, text),
                                haveKey ? args.back() : "HKEY_LOCAL_MACHINE");
            e != kExitOk)
            return e;
        m_out.write(text.data(), static_cast<std::streamsize>(text.size()));
        return m_out ? kExitOk : fail("writing the output failed");
    }

    int get(const std::string& keyArg, const std::string& name) {
        vt::RegKey handle;
        if (const int e = openKey(keyArg, vt::kKeyRead, handle); e != kExitOk) return e;
        vt::RegValue v;
        v.name = wide(name);
        if (const int e = check(handle.queryValue(v.name, v.type, v.data), keyArg + "\\" + name);
            e != kExitOk)
            return e;
        m_out << showValue(v) << "\n";
        return kExitOk;
    }

    int set(const std::string& keyArg, const std::string& name, const std::string& type,
            const std::string& value) {
        std::u16string path;
        if (const int e = subkey(keyArg, path, "HKEY_LOCAL_MACHINE itself cannot hold values");
            e != kExitOk)
            return e;
        uint32_t regType = 0;
        std::vector<uint8_t> data;
        std::string reason;
        if (!encodeValue(type, value, regType, data, reason)) return usage(reason);
        vt::RegKey handle;
        if (const int e = check(handle.create(vt::RegRoot::LocalMachine, path), keyArg);
            e != kExitOk)
            return e;
        return check(handle.setValue(wide(name), regType, data.data(), data.size()),
                     keyArg + "\\" + name);
    }

    int remove(const std::string& keyArg, const std::string* name) {
        if (name) {
            vt::RegKey handle;
            if (const int e = openKey(keyArg, vt::kKeyRead | vt::kKeyWrite, handle); e != kExitOk)
                return e;
            return check(handle.deleteValue(wide(*name)), keyArg + "\\" + *name);
        }
        std::u16string path;
        if (const int e = subkey(keyArg, path, "HKEY_LOCAL_MACHINE itself cannot be deleted");
            e != kExitOk)
            return e;
        return check(vt::regDeleteTree(vt::RegRoot::LocalMachine, path), keyArg);
    }

    int list(const std::string& keyArg) {
        std::vector<std::u16string> subkeys;
        std::vector<vt::RegValue> values;
        if (const int e = read(keyArg, subkeys, values); e != kExitOk) return e;
        for (const auto& s : subkeys) m_out << codePageText(s) << "\\\n";
        for (const auto& v : values) printValue(v, "");
        return kExitOk;
    }

    // Values first, then each subkey with its own tree, two blanks deeper per level.
    int tree(const std::string& keyArg, const std::string& indent = "") {
        std::vector<std::u16string> subkeys;
        std::vector<vt::RegValue> values;
        if (const int e = read(keyArg, subkeys, values); e != kExitOk) return e;
        for (const auto& v : values) printValue(v, indent);
        for (const auto& s : subkeys) {
            m_out << indent << codePageText(s) << "\\\n";
            if (const int e = tree(keyArg + "\\" + codePageText(s), indent + "  "); e != kExitOk)
                return e;
        }
        return kExitOk;
    }

  private:
    int read(const std::string& keyArg, std::vector<std::u16string>& subkeys,
             std::vector<vt::RegValue>& values) {
        vt::RegKey handle;
        if (const int e = openKey(keyArg, vt::kKeyRead, handle); e != kExitOk) return e;
        uint32_t rc = handle.enumSubKeys(subkeys);
        if (rc == vt::kRegOk) rc = handle.enumValues(values);
        return check(rc, keyArg);
    }

    // "name<TAB>type<TAB>value", one value on one line.
    void printValue(const vt::RegValue& v, const std::string& indent) {
        const char* type = typeName(v.type);
        std::string shown = showValue(v);
        for (auto& c : shown)
            if (c == '\n') c = ' ';
        m_out << indent << (v.name.empty() ? std::string("(Default)") : codePageText(v.name))
              << "\t" << (type ? std::string(type) : "hex(" + std::to_string(v.type) + ")") << "\t"
              << shown << "\n";
    }

    std::ostream& m_out;
    std::ostream& m_err;
};

}  // namespace

int runVtreg(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
    Cli cli(out, err);
    std::vector<std::string> rest;
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        if (a == "-h" || a == "--help") {
            out << kUsage;
            return kExitOk;
        }
        if (rest.empty() && a == "--registry") {
            if (i + 1 >= args.size()) return cli.usage("--registry needs a PATH");
            vt::regSetHivePath(args[++i]);
        } else if (rest.empty() && a.rfind("--registry=", 0) == 0) {
            vt::regSetHivePath(a.substr(11));
        } else {
            rest.push_back(a);
        }
    }
    if (rest.empty()) return cli.usage("no command");
    const std::string command = rest[0];
    const size_t n = rest.size() - 1;
    if (command == "import")
        return n == 1 ? cli.importFile(rest[1]) : cli.usage("import takes one FILE");
    if (command == "export") return cli.exportKey({rest.begin() + 1, rest.end()});
    if (command == "get")
        return n == 2 ? cli.get(rest[1], rest[2]) : cli.usage("get takes KEY NAME");
    if (command == "set")
        return n == 4 ? cli.set(rest[1], rest[2], rest[3], rest[4])
                      : cli.usage("set takes KEY NAME TYPE VALUE");
    if (command == "delete") {
        if (n == 1) return cli.remove(rest[1], nullptr);
        if (n == 2) return cli.remove(rest[1], &rest[2]);
        return cli.usage("delete takes KEY [NAME]");
    }
    if (command == "list") return n == 1 ? cli.list(rest[1]) : cli.usage("list takes KEY");
    if (command == "tree") return n == 1 ? cli.tree(rest[1]) : cli.usage("tree takes KEY");
    return cli.usage("unknown command '" + command + "'");
}

}  // namespace vtreg
