#pragma once
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/debug_log.h"
#include "base/error_report.h"

namespace vt::test {

// A fresh directory below the system's temporary directory, removed with its content.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;
    const std::filesystem::path& path() const { return m_path; }

  private:
    std::filesystem::path m_path;
};

// A registry a test may change freely. Linux: a new hive file in a temporary directory.
// Windows: the real registry; `base()` is a unique key below SOFTWARE that is deleted at the
// end, and so are the keys passed to `alsoRemove` (for code with fixed key paths).
class ScopedRegistry {
  public:
    ScopedRegistry();
    ~ScopedRegistry();
    ScopedRegistry(const ScopedRegistry&) = delete;
    ScopedRegistry& operator=(const ScopedRegistry&) = delete;
    const std::u16string& base() const { return m_base; }
    void alsoRemove(std::u16string path);
    std::filesystem::path hiveFile() const { return m_dir.path() / "registry.db"; }

  private:
    TempDir m_dir;
    std::u16string m_base;
    std::vector<std::u16string> m_remove;
};

// Points the debug log at other settings and restores the previous ones when it goes.
class DebugLogScope {
  public:
    explicit DebugLogScope(const DebugLogSettings& settings);
    ~DebugLogScope() { debugConfigure(m_previous); }
    DebugLogScope(const DebugLogScope&) = delete;
    DebugLogScope& operator=(const DebugLogScope&) = delete;

  private:
    DebugLogSettings m_previous;
};

// Sends the debug log to a temporary file with the given level mask while it lives.
class DebugCapture {
  public:
    explicit DebugCapture(uint32_t mask = DBG_ERROR | DBG_MINIMUM | DBG_INFO | DBG_RULEENG |
                                          DBG_ULTRA);
    // The lines without their thread, time and level prefix.
    std::string text() const;
    size_t count(const std::string& what) const;
    std::string raw() const;
    void clear();

  private:
    TempDir m_dir;
    std::string m_file;
    DebugLogScope m_scope;
};

// Writes registry values below HKLM, creating keys as needed; fails the test on error.
void regSetDword(const std::u16string& key, std::u16string_view name, uint32_t value);
void regSetString(const std::u16string& key, std::u16string_view name, std::u16string_view value);

// Sets an environment variable for the scope's lifetime; "TZ" is re-read.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::string& value);
    ~ScopedEnv();
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

  private:
    std::string m_name, m_previous;
    bool m_had = false;
};

std::string readFileBytes(const std::filesystem::path& file);
// The lines of `text` ended by "\r\n"; a last line without one is kept.
std::vector<std::string> splitLines(const std::string& text);
size_t countOf(const std::string& text, const std::string& what);
// `text` as a file in UTF-16LE with its byte order mark.
std::string utf16File(std::u16string_view text);

// Runs `f`; returns the report it threw (the caller now owns it), or null if none was thrown.
template <class F>
std::unique_ptr<CErrorReport> thrownReport(F&& f) {
    try {
        f();
    } catch (CErrorReport* report) {
        return std::unique_ptr<CErrorReport>(report);
    }
    return nullptr;
}

// Polls a condition that other threads make true; false when `limit` passes first.
template <class Pred>
bool eventually(Pred pred, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!pred()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace vt::test
