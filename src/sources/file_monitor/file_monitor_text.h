#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/local_time.h"

// The parts of following a log file that need neither files nor threads: the file name's date
// placeholders, cutting bytes into lines, and W3C columns.
namespace vt {

inline constexpr size_t kMaxExpandedFileName = 1019;
inline constexpr size_t kMaxW3CColumn = 2047;

// The calendar fields of a UTC instant (seconds since 1970), weekday included.
CivilTime utcCivilTime(int64_t utcSeconds) noexcept;

// Replaces %Y %y %m %d %h %M %S %w %W by the fields of `when`; any other text, an unknown
// placeholder and a trailing "%" included, is copied. The result is cut at 1,019 characters.
std::u16string expandFileName(std::u16string_view pattern, const CivilTime& when);

// "nFileEncoding": 0 recognises a BOM (none: UTF-8); the others force the encoding, a BOM of
// that encoding still being skipped.
enum class TextEncoding : uint32_t { Auto = 0, Utf8 = 1, Utf16LE = 2, Utf16BE = 3 };

// The encoding of a file from its first bytes (`head`, up to 3), and the length of its BOM.
std::pair<TextEncoding, size_t> detectEncoding(std::string_view head, TextEncoding forced);

// One line found in a byte buffer.
struct LineCut {
    size_t contentBytes = 0;  // bytes of the line's text, line end excluded
    size_t consumed = 0;      // bytes up to the start of the next line
    bool piece = false;       // cut at the size limit, not at a line end
};

// Finds the first line of `bytes` (which start at a line start in a file in `encoding`, not
// Auto). Line ends are LF, CRLF and CR. False while the line is incomplete: no line end yet,
// or a CR that is the last byte (a LF may follow). A line reaching `maxBytes` without a line
// end is cut into a piece of at most `maxBytes` (whole characters; at least one).
bool findLine(std::string_view bytes, TextEncoding encoding, size_t maxBytes, LineCut& out);

// The text of a line's bytes in `encoding`.
std::u16string decodeLine(std::string_view bytes, TextEncoding encoding);

struct LineCleanup {
    bool removeControlChars = false;   // every character below 32 except TAB, and DEL
    bool removeLeadingSpaces = false;  // spaces and TABs at the start
    bool compressSpaces = false;       // a run of spaces becomes one space
};
// Applies the cleanups; NUL characters are always removed (returned in `nulCount`).
std::u16string cleanLine(std::u16string_view line, const LineCleanup& how, size_t& nulCount);

// The column names of a "#Fields:" line's remainder (split at spaces, empty names skipped).
std::vector<std::u16string> parseW3CFields(std::u16string_view fieldsRest);
// Cuts a data line at every single space; two spaces in a row make an empty column; each
// column is cut at 2,047 characters.
std::vector<std::u16string> splitW3CColumns(std::u16string_view line);
// The property name of column `index`: the header's name, or "p-param<index>".
std::u16string w3cColumnName(const std::vector<std::u16string>& fields, size_t index);

}  // namespace vt
