#include "platform/computer_name.h"

#include <windows.h>

namespace vt {
bool localComputerName(std::u16string& name) {
    wchar_t buffer[16] = {};
    DWORD size = 16;
    if (!GetComputerNameW(buffer, &size)) return false;
    name.assign(reinterpret_cast<const char16_t*>(buffer), size);
    return true;
}
}  // namespace vt
