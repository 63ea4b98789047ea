#pragma once
#include <cstdint>

namespace vt {
enum class LowFragmentationHeap { Enabled, Failed, ApiNotFound };

// Switches the process heap to the low-fragmentation heap: HeapSetInformation, looked up in
// Kernel32.dll at run time, on Windows; on Linux the call does not exist and the answer is
// always ApiNotFound. `error` receives the system error when the call fails.
LowFragmentationHeap enableLowFragmentationHeap(uint32_t& error) noexcept;
}  // namespace vt
