#include "service/debug_log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <mutex>

#include "platform/text_codec.h"

// Minimal writer: appends lines to the configured file. Rotation, the line prefix and the
// out-of-memory writer come with the service runtime.
namespace vt {
namespace {
std::mutex g_mutex;
DebugLogSettings g_settings;
std::atomic<bool> g_enabled{false};
std::atomic<uint32_t> g_mask{DBG_ERROR};
}  // namespace

void debugConfigure(const DebugLogSettings& settings) {
    std::lock_guard lock(g_mutex);
    g_settings = settings;
    g_enabled = settings.enabled;
    g_mask = settings.mask;
}

DebugLogSettings debugSettings() {
    std::lock_guard lock(g_mutex);
    return g_settings;
}

bool debugOn(uint32_t level) noexcept {
    return g_enabled.load(std::memory_order_relaxed) &&
           (g_mask.load(std::memory_order_relaxed) & level & 0xFF) != 0;
}

void debugWrite(uint32_t level, std::string_view text) {
    if (!debugOn(level)) return;
    std::lock_guard lock(g_mutex);
    FILE* f = std::fopen(g_settings.fileName.c_str(), "ab");
    if (!f) return;
    std::fwrite(text.data(), 1, text.size(), f);
    if (text.empty() || text.back() != '\n') std::fwrite("\r\n", 1, 2, f);
    std::fclose(f);
}

void debugWrite(uint32_t level, std::u16string_view text) {
    if (!debugOn(level)) return;
    std::string narrow;
    wideToNarrow(text, narrow);
    debugWrite(level, narrow);
}

void debugVPrintf(uint32_t level, const char* format, va_list args) {
    if (!debugOn(level)) return;
    char buffer[1024];
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (n < 0) return;
    debugWrite(level, std::string_view(buffer, std::min<size_t>(n, sizeof buffer - 1)));
}

void debugPrintf(uint32_t level, const char* format, ...) {
    if (!debugOn(level)) return;
    va_list args;
    va_start(args, format);
    debugVPrintf(level, format, args);
    va_end(args);
}

}  // namespace vt
