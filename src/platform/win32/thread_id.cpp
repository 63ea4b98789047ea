#include "platform/thread_id.h"

#include <windows.h>

namespace vt {
uint32_t currentThreadId() noexcept {
    return static_cast<uint32_t>(GetCurrentThreadId());
}
}  // namespace vt
