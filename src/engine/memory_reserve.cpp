#include "engine/memory_reserve.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "base/debug_log.h"
#include "base/error_reporter.h"

namespace vt {
namespace {

std::atomic<bool> g_lowMemory{false};
std::atomic<bool> g_inAllocReserveMemory{false};
std::mutex g_reserveLock;  // guards g_reserve against the handler running on several threads
char* g_reserve = nullptr;

}  // namespace

bool allocateReserveMemory() {
    std::lock_guard lock(g_reserveLock);
    if (g_reserve) return true;
    g_inAllocReserveMemory = true;
    g_reserve = new (std::nothrow) char[kReserveMemorySize];
    g_inAllocReserveMemory = false;
    return g_reserve != nullptr;
}

void freeReserveMemory() noexcept {
    std::lock_guard lock(g_reserveLock);
    delete[] g_reserve;
    g_reserve = nullptr;
}

bool holdsReserveMemory() noexcept {
    std::lock_guard lock(g_reserveLock);
    return g_reserve != nullptr;
}

bool lowMemory() noexcept {
    return g_lowMemory.load(std::memory_order_relaxed);
}
void setLowMemory(bool on) noexcept {
    g_lowMemory.store(on, std::memory_order_relaxed);
}

void outOfMemoryHandler() {
    // The standard handler is not told the size that failed; 0 stands for "unknown".
    debugPrintf(DBG_MINIMUM, "ERROR: Out of memory condition occured, size requested %d!\r\n", 0);
    if (g_inAllocReserveMemory.load()) {
        debugWrite(DBG_ERROR,
                   "m_bInAllocReserveMemory is set, we do NOT handle out-of-memory condition "
                   "(typically, this should be OK and expected)\r\n");
        throw std::bad_alloc();
    }
    setLowMemory(true);
    char* reserve;
    {
        std::lock_guard lock(g_reserveLock);
        reserve = g_reserve;
        g_reserve = nullptr;
    }
    if (reserve) {
        delete[] reserve;
        reportWarning(
            1045, "pnhOutOfMem",
            "Out of memory: the memory reserve was released so that the agent can go on.");
        debugWrite(DBG_ERROR, "Out Of Memory Condition could temporarily be resolved.\r\n");
        return;  // the allocator retries
    }
    reportError(1043, "pnhOutOfMem", "Out of memory: no memory reserve is left.");
    debugWrite(DBG_ERROR, "Out Of Memory Condition could not be resolved, failing...\r\n");
    throw std::bad_alloc();
}

void installOutOfMemoryHandler() {
    std::set_new_handler(&outOfMemoryHandler);
}

}  // namespace vt
