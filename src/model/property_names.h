#pragma once
#include <string_view>

#include "model/quillet_string.h"

namespace vt {
// The names of the properties that every unit carries. An entry with one of these names
// refers to one shared copy instead of holding (and allocating) its own; the copies are never
// changed, and their narrow forms are built up front, so any thread may read them.
const CQuilletString* sharedPropertyName(std::u16string_view name) noexcept;
}  // namespace vt
