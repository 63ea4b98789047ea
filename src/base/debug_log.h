#pragma once
#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

// The debug log: one text file written by every thread, switched on and filtered by level.
// Callers test debugOn(level) before formatting anything costly; debugPrintf does that test
// itself, so a line whose level is off costs one atomic load.
//
// Each line is "<thread id>\t| <seconds since 1970> | <level name>\t| <text>\r\n". The prefix
// and the whole line are built before the lock is taken; the lock covers only opening,
// writing (one write per line) and rotating, so lines of different threads never interleave.
namespace vt {

enum DebugLevel : uint32_t {
    DBG_ERROR = 8,
    DBG_MINIMUM = 16,
    DBG_INFO = 32,
    DBG_RULEENG = 64,
    DBG_ULTRA = 128,
};

// A level above this one means "write, then close the file" (the next line reopens it).
// Such a level is formed as DBG_WRITE_AND_CLOSE_ABOVE + one of the levels above, see
// writeAndClose(); the part above the threshold selects the mask bit and the level name.
constexpr uint32_t DBG_WRITE_AND_CLOSE_ABOVE = 10000000;
constexpr uint32_t writeAndClose(uint32_t level) noexcept {
    return DBG_WRITE_AND_CLOSE_ABOVE + level;
}

struct DebugLogSettings {
    bool enabled = false;       // "nEnableDebugOutput" != 0
    uint32_t mask = DBG_ERROR;  // sum of the level bits whose switch is exactly 1
    std::string fileName = "VTAgentDebug.txt";
    bool circular = true;            // "nCircularLogging"
    uint32_t numberOfFiles = 10;     // "nNumberOfLogfiles"; fewer than 2 behaves as 2
    uint32_t maxFileSizeKb = 51200;  // "nMaxFileSize", in kilobytes
};

// Applies new settings: closes the current file so the next line reopens it under the new name
// and starts the rotation again at index 1.
void debugConfigure(const DebugLogSettings& settings);
DebugLogSettings debugSettings();

namespace detail {
// The level bits that are written: the mask while debug output is on, else 0. Read inline,
// because the hot paths test levels that are almost always off.
inline std::atomic<uint32_t> g_debugActiveMask{0};
void debugWriteOn(uint32_t level, std::string_view text);
void debugWriteOn(uint32_t level, std::u16string_view text);
}  // namespace detail

// The level without the "write, then close" part.
constexpr uint32_t baseLevel(uint32_t level) noexcept {
    return level > DBG_WRITE_AND_CLOSE_ABOVE ? level - DBG_WRITE_AND_CLOSE_ABOVE : level;
}

// True when debug output is on and the level's bit is in the mask.
inline bool debugOn(uint32_t level) noexcept {
    return (detail::g_debugActiveMask.load(std::memory_order_relaxed) & baseLevel(level) & 0xFF) !=
           0;
}

inline void debugWrite(uint32_t level, std::string_view text) {
    if (debugOn(level)) detail::debugWriteOn(level, text);
}
inline void debugWrite(uint32_t level, std::u16string_view text) {
    if (debugOn(level)) detail::debugWriteOn(level, text);
}
void debugPrintf(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void debugVPrintf(uint32_t level, const char* format, va_list args);

// The writer for the out-of-memory handler: same prefix and rotation, but it allocates nothing
// on the heap (the prefix goes into a stack buffer, the pieces are written one after another
// under the lock). If the file is not open and cannot be opened without creating directories,
// the line is dropped.
void debugWriteNoAlloc(uint32_t level, const char* text) noexcept;

// The file the next line goes to (with the rotation suffix when circular logging is on).
std::string debugCurrentFileName();

// Closes the file; the next line reopens it. Used at process end and by tests.
void debugClose();

// The prefix of a line, "%d\t| %d | %s\t| ", cut at 47 characters; exposed for tests.
std::string debugLinePrefix(uint32_t threadId, int64_t seconds, uint32_t level);

}  // namespace vt
