#pragma once
#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "base/quillet_string.h"
#include "base/setting_text.h"
#include "platform/registry.h"

// The one reader and writer of the registry. Opens one key, reads typed values with or without
// a default and traces every read at debug level 128 (so a configuration can be checked from
// the debug log alone); writes the few values the agent keeps. A read on a closed object or of
// a missing value fails and gives the default: a missing key or value is never an error.
//
// Type rules: a DWORD read takes a REG_DWORD of four bytes; a QWORD read takes a REG_QWORD or a
// REG_DWORD (widened); a string read takes REG_SZ or REG_EXPAND_SZ (not expanded), cut at the
// first NUL. A value of another type counts as missing.
//
// One object may be read from several threads once its key is open; opening, creating and
// closing must not race with its use.
class CRegAccess {
  public:
    CRegAccess() = default;
    ~CRegAccess() = default;  // the key closes with m_key
    CRegAccess(const CRegAccess&) = delete;
    CRegAccess& operator=(const CRegAccess&) = delete;

    // Closes any key held, then opens `path` below `root`. A key that cannot be opened is
    // traced (at level 128 when it does not exist, at level 8 for any other failure).
    bool OpenKey(vt::RegRoot root, const CQuilletString& path, uint32_t access = vt::kKeyRead);
    // Opens the key, creating it and its missing parents, with read and write access.
    bool CreateKey(vt::RegRoot root, const CQuilletString& path);
    void CloseKey() noexcept;
    bool IsOpen() const noexcept { return m_isOpen; }
    const CQuilletString& GetKeyPath() const noexcept { return m_keyPath; }
    // The Windows error code of the last failed call on this object (0 after a success).
    uint32_t GetLastError() const noexcept { return m_lastError; }

    bool ReadDWORDValue(const CQuilletString& name, uint32_t& value);
    bool ReadDWORDValue(const CQuilletString& name, uint32_t& value, uint32_t defaultValue);
    bool ReadQWORDValue(const CQuilletString& name, uint64_t& value);
    bool ReadQWORDValue(const CQuilletString& name, uint64_t& value, uint64_t defaultValue);
    bool ReadStringValue(const CQuilletString& name, CQuilletString& value);
    bool ReadStringValue(const CQuilletString& name, CQuilletString& value,
                         const CQuilletString& defaultValue);

    bool SetDWORDValue(const CQuilletString& name, uint32_t value);
    bool SetQWORDValue(const CQuilletString& name, uint64_t value);
    bool SetStringValue(const CQuilletString& name, const CQuilletString& value);
    bool DeleteValue(const CQuilletString& name);
    // Deletes `path` below `root` with all its subkeys and values; independent of the key held.
    bool DeleteKey(vt::RegRoot root, const CQuilletString& path);

    // For the loaders of rule sets and services: names of the subkeys of the key held (sorted
    // without regard to case) and its values with their raw data.
    bool EnumSubKeys(std::vector<std::u16string>& names);
    bool EnumValues(std::vector<vt::RegValue>& values);

  private:
    uint32_t query(const CQuilletString& name, uint32_t& type, std::vector<uint8_t>& data);
    bool setValue(const CQuilletString& name, uint32_t type, const std::vector<uint8_t>& data);

    vt::RegKey m_key;
    bool m_isOpen = false;
    CSettingText m_keyPath;
    std::atomic<uint32_t> m_lastError{0};  // written by concurrent readers too
};
