#include "platform/system_error.h"

#include <cerrno>

namespace vt {
uint32_t lastSystemError() noexcept {
    return static_cast<uint32_t>(errno);
}
void setLastSystemError(uint32_t code) noexcept {
    errno = static_cast<int>(code);
}
}  // namespace vt
