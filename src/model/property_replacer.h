#pragma once
#include <functional>
#include <string>
#include <string_view>

class CInfoUnit;
class CQuilletString;

namespace vt {
// Expands every "%name[:from[:to[:options]]]%" sequence of `templ` against the properties of
// `unit` (which may be null) and appends the result to `out`. Never fails: a syntax error
// becomes an "%ERROR: ...%" text in the output. Reads the unit without locking; the caller is
// the one thread that owns the unit.
void replaceProperties(std::u16string_view templ, const CInfoUnit* unit, std::u16string& out);

// The same, calling `afterSequence(out, start)` after each sequence has been expanded, with
// `start` the offset in `out` where the sequence's text begins: for callers that must treat
// text taken from the unit differently from the template's own text.
using ExpansionHook = std::function<void(std::u16string& out, size_t start)>;
void replaceProperties(std::u16string_view templ, const CInfoUnit* unit, std::u16string& out,
                       const ExpansionHook& afterSequence);

// Expands `text` in place.
void replaceProperties(CQuilletString& text, const CInfoUnit* unit);

// Convenience form that returns a new string.
std::u16string replaceProperties(std::u16string_view templ, const CInfoUnit* unit);
}  // namespace vt
