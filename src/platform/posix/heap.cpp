#include "platform/heap.h"

namespace vt {
// glibc's allocator has no switchable heap kind; there is nothing to look up.
LowFragmentationHeap enableLowFragmentationHeap(uint32_t& error) noexcept {
    error = 0;
    return LowFragmentationHeap::ApiNotFound;
}
}  // namespace vt
