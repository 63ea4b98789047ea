#pragma once
#include <atomic>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "actions/write_file/write_file_config.h"
#include "base/config_settings.h"
#include "common/registry_fixture.h"
#include "engine/action_list.h"

class CInfoUnit;

namespace vt::test {

// Makes vt::currentTime() return a time the test sets, for the scope's lifetime. Units made
// meanwhile carry it as their generated and reported time.
class ScopedFakeTime {
  public:
    explicit ScopedFakeTime(int64_t now);
    ~ScopedFakeTime();
    void set(int64_t now);
    ScopedFakeTime(const ScopedFakeTime&) = delete;
    ScopedFakeTime& operator=(const ScopedFakeTime&) = delete;
};

std::u16string u16(const std::string& ascii);
std::u16string u16(const std::filesystem::path& path);

// A write-file action on a fresh key and a fresh directory. Values are written to the key
// before `load()` builds the action entry the way a rule does.
class WriteFileRig {
  public:
    WriteFileRig();
    void setDword(std::u16string_view name, uint32_t value);
    void setString(std::u16string_view name, std::u16string_view value);
    // Each unit becomes its message and "\r\n", nothing else.
    void messageLines();
    // Builds the entry (settings loaded, behaviour made). "szFilePath" defaults to dir().
    void load();

    // Runs the entry for a syslog unit with this message and source; returns the unit's
    // action-failed flag.
    uint8_t write(std::u16string_view msg, std::u16string_view source = u"host1");
    // Runs the entry for `unit` as a worker does that finds no further unit queued: on a thread
    // with a timer queue, the routines due then run too.
    void write(CInfoUnit& unit);
    // Runs the entry for a unit with this message as a worker does that has more units to go.
    void writeBusy(std::u16string_view msg);
    void writeBusy(CInfoUnit& unit);

    CActionConfigWriteFile& config();
    CActionListEntry& entry() { return *m_entry; }
    const std::filesystem::path& dir() const { return m_files.path(); }
    const std::u16string& keyPath() const { return m_key; }
    uint32_t storedDword(std::u16string_view name);

  private:
    ScopedRegistry m_registry;
    TempDir m_files;
    std::u16string m_key;
    bool m_pathSet = false;
    CConfigSettings m_settings;
    std::unique_ptr<CActionListEntry> m_entry;
};

}  // namespace vt::test
