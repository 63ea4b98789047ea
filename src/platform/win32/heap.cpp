#include "platform/heap.h"

#include <windows.h>

namespace vt {
// Looked up at run time so that the program still starts on systems without the call.
LowFragmentationHeap enableLowFragmentationHeap(uint32_t& error) noexcept {
    error = 0;
    using HeapSetInformationFn = BOOL(WINAPI*)(HANDLE, HEAP_INFORMATION_CLASS, PVOID, SIZE_T);
    HMODULE kernel = GetModuleHandleA("Kernel32.dll");
    auto fn = kernel ? reinterpret_cast<HeapSetInformationFn>(
                           reinterpret_cast<void*>(GetProcAddress(kernel, "HeapSetInformation")))
                     : nullptr;
    if (!fn) return LowFragmentationHeap::ApiNotFound;
    ULONG compatibility = 2;  // the low-fragmentation heap
    if (fn(GetProcessHeap(), HeapCompatibilityInformation, &compatibility, sizeof compatibility))
        return LowFragmentationHeap::Enabled;
    error = GetLastError();
    return LowFragmentationHeap::Failed;
}
}  // namespace vt
