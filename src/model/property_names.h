#pragma once
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "base/quillet_string.h"

namespace vt {
// The properties that every unit carries (and the two a syslog unit adds), in the order a new
// unit gets them.
enum class StdProperty : uint8_t {
    Iut,
    TimeGenerated,
    TimeReported,
    Importance,
    SyslogPriority,
    SyslogFacility,
    Resource,
    SyslogTag,
    IuVers,
    Source,
    CustomerId,
    SystemId,
    Msg,
    RawSyslogMsg,
};
inline constexpr size_t kStdPropertyCount = 14;

// Length and three characters: property names differ in these almost always, and it costs no
// loop over the name.
constexpr uint32_t propertyNameHash(std::u16string_view name) noexcept {
    if (name.empty()) return 0;
    const size_t n = name.size();
    const uint32_t h = static_cast<uint32_t>(n) * 0x9E3779B1u ^ name[0] * 0x85EBCA77u ^
                       name[n - 1] * 0xC2B2AE3Du ^ name[n / 2] * 0x27D4EB2Fu;
    return h ^ (h >> 15);
}

// One shared, read-only copy of a standard name (its narrow form built up front, so any
// thread may read it) and its hash. An entry with one of these names refers to the copy
// instead of holding (and allocating) its own, so a look-up by id compares pointers.
struct SharedPropertyName {
    const CQuilletString* text;
    uint32_t hash;
};

const SharedPropertyName& sharedPropertyName(StdProperty id) noexcept;
// Null when `name` is not a standard name.
const SharedPropertyName* findSharedPropertyName(std::u16string_view name) noexcept;
}  // namespace vt
