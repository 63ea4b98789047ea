#pragma once
#include <array>
#include <cstdint>
#include <optional>
#include <string>

namespace vt {

// A GUID as its sixteen bytes in the Windows layout (Data1..Data3 as numbers, Data4 as bytes).
struct Guid {
    uint32_t data1 = 0;
    uint16_t data2 = 0;
    uint16_t data3 = 0;
    std::array<uint8_t, 8> data4{};
};

// A new GUID (Windows: CoCreateGuid; Linux: a random version-4 UUID); none when the system
// could not give one.
std::optional<Guid> createGuid();

// The registry text form: "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}", upper-case hex, 38
// characters.
std::u16string guidToText(const Guid& guid);

// A new GUID in its registry text form (Windows: StringFromGUID2), or none.
std::optional<std::u16string> createGuidText();

}  // namespace vt
