#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "platform/registry.h"

// The regedit file format: reading ("Windows Registry Editor Version 5.00" or "REGEDIT4",
// UTF-16LE with BOM or UTF-8 with or without BOM, CRLF or LF) and writing. Parsing never
// touches the registry, so a file is checked completely before anything is applied.
namespace vtreg {

// Files above this size are refused before they are read: a configuration is a few hundred
// kilobytes, and the whole file is held in memory twice while it is parsed.
inline constexpr size_t kMaxRegFileBytes = 32u * 1024 * 1024;

struct RegFileValue {
    std::u16string name;  // empty: the key's default value ("@")
    bool remove = false;  // "name"=-
    uint32_t type = vt::kRegNone;
    std::vector<uint8_t> data;
    int line = 0;
};

struct RegFileKey {
    std::u16string path;  // below HKEY_LOCAL_MACHINE, without the root
    bool remove = false;  // [-KEY]
    std::vector<RegFileValue> values;
    int line = 0;
};

struct RegFile {
    bool regedit4 = false;
    std::vector<RegFileKey> keys;
};

struct RegParseError {
    int line = 0;
    std::string reason;
};

// Parses the raw bytes of a .reg file. On failure `error` names the line and the reason and
// `out` must not be used.
bool parseRegFile(std::string_view bytes, RegFile& out, RegParseError& error);

// Splits "HKLM\A\B" or "HKEY_LOCAL_MACHINE\A\B" (any case) into the path below the root.
// False with a reason for any other root or a malformed path.
bool parseKeyName(std::u16string_view key, std::u16string& path, std::string& reason);

// Applies a parsed file: keys and values in file order; deleting what does not exist is not an
// error. On the hive everything happens in one transaction. Returns the Windows error code of
// the first failure, with `where` naming the key.
uint32_t applyRegFile(const RegFile& file, std::string& where);

// The lines of one value in the regedit 5 form, without the line end. A value that the quoted
// or dword form cannot carry exactly (no single terminator, an embedded NUL or line break, a
// lone surrogate, a DWORD of another size) is written as hex(N), so that reading the output
// gives back the same type and bytes.
std::u16string formatRegValue(const vt::RegValue& value);

enum class RegTextEncoding { Utf8, Utf16 };

// Writes `key` (a path below HKEY_LOCAL_MACHINE; empty for all of it) with its values and all
// its subkeys in the form parseRegFile reads: the header, then each key followed by its values,
// CRLF line ends; UTF-8 without BOM, or UTF-16LE with BOM as regedit writes.
uint32_t exportRegFile(std::u16string_view key, RegTextEncoding encoding, std::string& out);

}  // namespace vtreg
