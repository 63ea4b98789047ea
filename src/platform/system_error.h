#pragma once
#include <cstdint>

namespace vt {
// The last error code of the calling thread: GetLastError() on Windows, errno elsewhere.
uint32_t lastSystemError() noexcept;
void setLastSystemError(uint32_t code) noexcept;
}  // namespace vt
