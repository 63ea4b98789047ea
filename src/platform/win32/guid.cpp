#include "platform/guid.h"

#include <objbase.h>
#include <windows.h>

#include <cstring>

namespace vt {

std::optional<Guid> createGuid() {
    GUID native;
    if (FAILED(::CoCreateGuid(&native))) return std::nullopt;
    Guid guid;
    guid.data1 = native.Data1;
    guid.data2 = native.Data2;
    guid.data3 = native.Data3;
    std::memcpy(guid.data4.data(), native.Data4, 8);
    return guid;
}

std::optional<std::u16string> createGuidText() {
    GUID native;
    if (FAILED(::CoCreateGuid(&native))) return std::nullopt;
    WCHAR text[40] = {};
    const int length = ::StringFromGUID2(native, text, 40);
    if (length <= 1) return std::nullopt;
    return std::u16string(reinterpret_cast<const char16_t*>(text), static_cast<size_t>(length - 1));
}

}  // namespace vt
