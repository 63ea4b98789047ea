#pragma once
#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

// The debug log: one text file written by every thread, switched on and filtered by level.
// Callers test debugOn(level) before formatting anything costly; debugPrintf does that test
// itself, so a line whose level is off costs one atomic load.
namespace vt {

enum DebugLevel : uint32_t {
    DBG_ERROR = 8,
    DBG_MINIMUM = 16,
    DBG_INFO = 32,
    DBG_RULEENG = 64,
    DBG_ULTRA = 128,
};

// A level above this one means "write, then close the file" (the next line reopens it).
constexpr uint32_t DBG_WRITE_AND_CLOSE_ABOVE = 10000000;

struct DebugLogSettings {
    bool enabled = false;            // "nEnableDebugOutput" != 0
    uint32_t mask = DBG_ERROR;       // sum of the level bits whose switch is exactly 1
    std::string fileName = "VTAgentDebug.txt";
    bool circular = true;            // "nCircularLogging"
    uint32_t numberOfFiles = 10;     // "nNumberOfLogfiles"
    uint32_t maxFileSizeKb = 51200;  // "nMaxFileSize", in kilobytes
};

// Applies new settings: closes the current file so the next line reopens it under the new name.
void debugConfigure(const DebugLogSettings& settings);
DebugLogSettings debugSettings();

// True when debug output is on and every bit of `level` that names a level is in the mask.
bool debugOn(uint32_t level) noexcept;

void debugWrite(uint32_t level, std::string_view text);
void debugWrite(uint32_t level, std::u16string_view text);
void debugPrintf(uint32_t level, const char* format, ...) __attribute__((format(printf, 2, 3)));
void debugVPrintf(uint32_t level, const char* format, va_list args);

}  // namespace vt
