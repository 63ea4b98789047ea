#include "base/debug_log.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <system_error>

#include "base/reopen_request.h"
#include "platform/text_codec.h"
#include "platform/thread_id.h"

namespace vt {
namespace {

// Guarded by `mutex`; the level test reads only detail::g_debugActiveMask.
struct DebugLogState {
    std::mutex mutex;
    DebugLogSettings settings;
    uint32_t numberOfFiles = 10;
    uint64_t sizeLimit = uint64_t{51200} << 10;
    uint32_t fileIndex = 1;
    std::FILE* file = nullptr;
    uint64_t size = 0;
    uint64_t openedGeneration = 0;  // the reopen request the file was opened under
    // The current file name lives in a fixed buffer so that rotating from the out-of-memory
    // writer does not allocate.
    char path[2048] = "VTAgentDebug.txt";
};

DebugLogState& state() {
    static DebugLogState s;
    return s;
}

const char* levelName(uint32_t level) noexcept {
    switch (baseLevel(level)) {
        case DBG_ERROR:
            return "Error";
        case DBG_MINIMUM:
            return "Minimum";
        case DBG_INFO:
            return "Info";
        case DBG_RULEENG:
            return "RuleEng";
        case DBG_ULTRA:
            return "Ultra";
        default:
            return "";
    }
}

void formPathLocked(DebugLogState& s) noexcept {
    if (s.settings.circular)
        std::snprintf(s.path, sizeof s.path, "%s_%d", s.settings.fileName.c_str(),
                      static_cast<int>(s.fileIndex));
    else
        std::snprintf(s.path, sizeof s.path, "%s", s.settings.fileName.c_str());
}

void closeLocked(DebugLogState& s) noexcept {
    if (s.file) std::fclose(s.file);
    s.file = nullptr;
    s.size = 0;
}

bool createParentDirectories(const char* path) {
    std::error_code ec;
    const std::filesystem::path parent = std::filesystem::path(path).parent_path();
    if (parent.empty() || std::filesystem::exists(parent, ec)) return false;
    return std::filesystem::create_directories(parent, ec) && !ec;
}

// Opens (or creates) the current file for appending. Missing directories are created only when
// `mayCreateDirectories` is set, because that needs the heap.
bool openLocked(DebugLogState& s, bool mayCreateDirectories) {
    const uint64_t generation = reopenGeneration();
    if (s.file && s.openedGeneration != generation) closeLocked(s);
    if (s.file) return true;
    s.openedGeneration = generation;
    s.file = std::fopen(s.path, "ab");
    if (!s.file && mayCreateDirectories && createParentDirectories(s.path))
        s.file = std::fopen(s.path, "ab");
    if (!s.file) return false;
    // Unbuffered: each line reaches the file in one write, and a crash loses nothing written.
    std::setvbuf(s.file, nullptr, _IONBF, 0);
    s.size = 0;
    if (s.settings.circular && std::fseek(s.file, 0, SEEK_END) == 0) {
        const long end = std::ftell(s.file);
        if (end > 0) s.size = static_cast<uint64_t>(end);
    }
    return true;
}

void rotateLocked(DebugLogState& s, bool mayCreateDirectories) {
    closeLocked(s);
    s.fileIndex = s.fileIndex >= s.numberOfFiles ? 1 : s.fileIndex + 1;
    formPathLocked(s);
    std::remove(s.path);
    s.size = 0;
    openLocked(s, mayCreateDirectories);
}

// Writes the pieces of one line under the lock already held, then rotates or closes as the
// settings and the level ask.
void writePiecesLocked(DebugLogState& s, uint32_t level, const std::string_view* pieces,
                       size_t count, bool mayCreateDirectories) {
    if (!openLocked(s, mayCreateDirectories)) return;
    uint64_t written = 0;
    for (size_t i = 0; i < count; ++i)
        written += std::fwrite(pieces[i].data(), 1, pieces[i].size(), s.file);
    if (s.settings.circular) {
        s.size += written;
        if (s.size >= s.sizeLimit) rotateLocked(s, mayCreateDirectories);
    }
    if (level > DBG_WRITE_AND_CLOSE_ABOVE) closeLocked(s);
}

bool needsLineEnd(std::string_view text) noexcept {
    return text.empty() || text.back() != '\n';
}

int64_t nowSeconds() noexcept {
    return static_cast<int64_t>(std::time(nullptr));
}

void formatPrefix(char (&buffer)[48], uint32_t threadId, int64_t seconds, uint32_t level) {
    const int n =
        std::snprintf(buffer, sizeof buffer, "%d\t| %d | %s\t| ", static_cast<int>(threadId),
                      static_cast<int>(seconds), levelName(level));
    if (n < 0) buffer[0] = '\0';
}

}  // namespace

std::string debugLinePrefix(uint32_t threadId, int64_t seconds, uint32_t level) {
    char buffer[48];
    formatPrefix(buffer, threadId, seconds, level);
    return buffer;
}

void debugConfigure(const DebugLogSettings& settings) {
    DebugLogState& s = state();
    std::lock_guard lock(s.mutex);
    closeLocked(s);
    s.settings = settings;
    s.numberOfFiles = std::max<uint32_t>(settings.numberOfFiles, 2);
    s.sizeLimit = uint64_t{settings.maxFileSizeKb} << 10;
    s.fileIndex = 1;
    formPathLocked(s);
    detail::g_debugActiveMask.store(settings.enabled ? settings.mask : 0,
                                    std::memory_order_relaxed);
}

DebugLogSettings debugSettings() {
    DebugLogState& s = state();
    std::lock_guard lock(s.mutex);
    return s.settings;
}

std::string debugCurrentFileName() {
    DebugLogState& s = state();
    std::lock_guard lock(s.mutex);
    return s.path;
}

void debugClose() {
    DebugLogState& s = state();
    std::lock_guard lock(s.mutex);
    closeLocked(s);
}

void detail::debugWriteOn(uint32_t level, std::string_view text) {
    char prefix[48];
    formatPrefix(prefix, currentThreadId(), nowSeconds(), level);
    std::string line;
    line.reserve(sizeof prefix + text.size() + 2);
    line.append(prefix).append(text);
    if (needsLineEnd(text)) line.append("\r\n");

    DebugLogState& s = state();
    const std::string_view piece(line);
    std::lock_guard lock(s.mutex);
    writePiecesLocked(s, level, &piece, 1, true);
}

void detail::debugWriteOn(uint32_t level, std::u16string_view text) {
    std::string narrow;
    wideToNarrow(text, narrow);
    debugWrite(level, narrow);
}

void debugWriteNoAlloc(uint32_t level, const char* text) noexcept {
    if (!debugOn(level) || !text) return;
    char prefix[48];
    formatPrefix(prefix, currentThreadId(), nowSeconds(), level);
    const std::string_view body(text);
    const std::string_view pieces[3] = {prefix, body,
                                        needsLineEnd(body) ? "\r\n" : std::string_view()};
    DebugLogState& s = state();
    std::lock_guard lock(s.mutex);
    try {
        writePiecesLocked(s, level, pieces, 3, false);
    } catch (...) {
        // Nothing on this path should throw; if it does, the line is lost rather than the
        // out-of-memory handler.
    }
}

void debugVPrintf(uint32_t level, const char* format, va_list args) {
    if (!debugOn(level)) return;
    char buffer[1024];
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    if (n < 0) {
        va_end(copy);
        return;
    }
    if (static_cast<size_t>(n) < sizeof buffer) {
        va_end(copy);
        debugWrite(level, std::string_view(buffer, static_cast<size_t>(n)));
        return;
    }
    // Longer than the usual buffer: format again at full length rather than cut the line.
    std::string large(static_cast<size_t>(n) + 1, '\0');
    std::vsnprintf(large.data(), large.size(), format, copy);
    va_end(copy);
    large.resize(static_cast<size_t>(n));
    debugWrite(level, large);
}

void debugPrintf(uint32_t level, const char* format, ...) {
    if (!debugOn(level)) return;
    va_list args;
    va_start(args, format);
    debugVPrintf(level, format, args);
    va_end(args);
}

}  // namespace vt
