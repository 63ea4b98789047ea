#include "platform/thread_id.h"

#include <unistd.h>

namespace vt {
uint32_t currentThreadId() noexcept {
    return static_cast<uint32_t>(gettid());
}
}  // namespace vt
