#pragma once
#include <filesystem>
#include <string>
#include <vector>

#include "service/debug_log.h"

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

    // Path of a key (not yet existing) reserved for this test, e.g. "SOFTWARE\vtagent-test-..".
    const std::u16string& base() const { return m_base; }
    void alsoRemove(std::u16string path);
    // Linux: the hive file (it may not exist yet).
    std::filesystem::path hiveFile() const { return m_dir.path() / "registry.db"; }

  private:
    TempDir m_dir;
    std::u16string m_base;
    std::vector<std::u16string> m_remove;
};

// Sends the debug log to a temporary file with the given level mask while it lives; the
// previous settings come back at the end.
class DebugCapture {
  public:
    explicit DebugCapture(uint32_t mask = DBG_ERROR | DBG_MINIMUM | DBG_INFO | DBG_RULEENG |
                                          DBG_ULTRA);
    ~DebugCapture();
    DebugCapture(const DebugCapture&) = delete;
    DebugCapture& operator=(const DebugCapture&) = delete;
    std::string text() const;
    void clear();

  private:
    TempDir m_dir;
    DebugLogSettings m_previous;
    std::string m_file;
};

}  // namespace vt::test
