#pragma once
#include <cstdint>

namespace vt {
// The operating system's id of the calling thread, as shown in debug lines.
uint32_t currentThreadId() noexcept;
}  // namespace vt
