#include "base/reopen_request.h"

#include <atomic>

namespace vt {
namespace {
std::atomic<uint64_t> g_generation{0};
}  // namespace

void requestReopen() noexcept {
    g_generation.fetch_add(1, std::memory_order_release);
}

uint64_t reopenGeneration() noexcept {
    return g_generation.load(std::memory_order_acquire);
}

}  // namespace vt
