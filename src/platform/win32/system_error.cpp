#include "platform/system_error.h"

#include <windows.h>

namespace vt {
uint32_t lastSystemError() noexcept {
    return static_cast<uint32_t>(GetLastError());
}
void setLastSystemError(uint32_t code) noexcept {
    SetLastError(code);
}
}  // namespace vt
