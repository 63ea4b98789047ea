#pragma once
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

// The machine registry below HKEY_LOCAL_MACHINE: the Win32 registry on Windows, the hive file
// (an SQLite database) elsewhere. Every call returns a Windows error code, so callers and
// traces show the same numbers on both platforms. Key paths are relative to the root and use
// '\' between names; key and value names compare without regard to case and keep the case
// they were created with. The empty value name is the key's default value.
namespace vt {

// Windows error codes returned by the registry calls.
inline constexpr uint32_t kRegOk = 0;             // ERROR_SUCCESS
inline constexpr uint32_t kRegNotFound = 2;       // ERROR_FILE_NOT_FOUND: no such key or value
inline constexpr uint32_t kRegAccessDenied = 5;   // ERROR_ACCESS_DENIED
inline constexpr uint32_t kRegInvalidHandle = 6;  // ERROR_INVALID_HANDLE: key not open
inline constexpr uint32_t kRegInvalidData = 13;   // ERROR_INVALID_DATA: value of another type
inline constexpr uint32_t kRegInvalidParameter = 87;
inline constexpr uint32_t kRegBadPathname = 161;  // ERROR_BAD_PATHNAME
inline constexpr uint32_t kRegBusy = 170;         // ERROR_BUSY: hive locked beyond the timeout
inline constexpr uint32_t kRegCorrupt = 1015;     // ERROR_REGISTRY_CORRUPT
inline constexpr uint32_t kRegIoFailed = 1016;    // ERROR_REGISTRY_IO_FAILED
inline constexpr uint32_t kRegKeyDeleted = 1018;  // ERROR_KEY_DELETED: handle of a deleted key

// Value types, with the Windows numbers.
inline constexpr uint32_t kRegNone = 0;
inline constexpr uint32_t kRegSz = 1;
inline constexpr uint32_t kRegExpandSz = 2;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;
inline constexpr uint32_t kRegMultiSz = 7;
inline constexpr uint32_t kRegQword = 11;

// Access masks, with the Windows numbers. The hive checks the query-value bit for reads and
// enumeration and the set-value bit for writing and deleting values.
inline constexpr uint32_t kKeyQueryValue = 0x0001;
inline constexpr uint32_t kKeySetValue = 0x0002;
inline constexpr uint32_t kKeyRead = 0x20019;
inline constexpr uint32_t kKeyWrite = 0x20006;
inline constexpr uint32_t kKeyAllAccess = 0xF003F;

enum class RegRoot { LocalMachine };

struct RegValue {
    std::u16string name;
    uint32_t type = kRegNone;
    std::vector<uint8_t> data;  // raw bytes as stored: strings are UTF-16LE with terminator
};

// An open key. One handle may be used from many threads at once; opening and closing it must
// not race with its use. On the hive a handle names the key's identity, not its path: after the
// key is deleted every call on the handle fails with kRegKeyDeleted, even when a key of the
// same path is created again, as a Windows handle does.
class RegKey {
  public:
    RegKey() noexcept = default;
    ~RegKey() { close(); }
    RegKey(RegKey&& other) noexcept { swap(other); }
    RegKey& operator=(RegKey&& other) noexcept {
        if (this != &other) {
            close();
            swap(other);
        }
        return *this;
    }
    RegKey(const RegKey&) = delete;
    RegKey& operator=(const RegKey&) = delete;

    bool isOpen() const noexcept { return m_open; }
    void close() noexcept;

    // Closes any key held first. Opening a key that does not exist fails with kRegNotFound and
    // creates nothing (on the hive: not even the hive file).
    uint32_t open(RegRoot root, std::u16string_view path, uint32_t access);
    // Opens the key, creating it and any missing parent first.
    uint32_t create(RegRoot root, std::u16string_view path, uint32_t access = kKeyAllAccess);

    uint32_t queryValue(std::u16string_view name, uint32_t& type, std::vector<uint8_t>& data) const;
    uint32_t setValue(std::u16string_view name, uint32_t type, const void* data, size_t size) const;
    uint32_t deleteValue(std::u16string_view name) const;
    // Subkey names sorted without regard to case; values in the order they were created on the
    // hive (Windows: the registry's own order).
    uint32_t enumSubKeys(std::vector<std::u16string>& names) const;
    uint32_t enumValues(std::vector<RegValue>& values) const;

  private:
    void swap(RegKey& other) noexcept {
        std::swap(m_open, other.m_open);
        std::swap(m_handle, other.m_handle);
        std::swap(m_id, other.m_id);
        std::swap(m_access, other.m_access);
    }

    bool m_open = false;
    void* m_handle = nullptr;  // Windows: the HKEY
    int64_t m_id = -1;         // hive: the key's row id (0 is the root)
    uint32_t m_access = 0;
};

// Deletes a key that has no subkeys (a key with subkeys gives kRegAccessDenied, as on Windows).
uint32_t regDeleteKey(RegRoot root, std::u16string_view path);
// Deletes a key with all its subkeys and values.
uint32_t regDeleteTree(RegRoot root, std::u16string_view path);

// Runs `body` so that its registry writes take effect together or not at all. On the hive the
// body runs inside one transaction, committed when it returns kRegOk and rolled back otherwise;
// other threads of the process wait meanwhile. The Win32 registry has no such transaction: the
// body runs as it is, so callers validate everything before they call this.
uint32_t regRunAtomically(const std::function<uint32_t()>& body);

// The hive file: `path` when set here (vtreg --registry, tests), else $VTAGENT_REGISTRY, else
// /var/lib/vtagent/registry.db. Setting it closes the process's connection to the old hive.
// No effect on Windows.
void regSetHivePath(std::string path);
std::string regHivePath();
// Closes the process's connection to the hive, folding its journal back into the file; the
// next call reopens it. For orderly ends (vtreg, service stop); nothing to do on Windows.
void regCloseHive();

// Helpers for the raw form of typed values, identical on both platforms.
std::vector<uint8_t> regStringBytes(std::u16string_view text);      // UTF-16LE plus terminator
std::u16string regBytesToString(const std::vector<uint8_t>& data);  // drops trailing NULs
std::vector<uint8_t> regDwordBytes(uint32_t value);
std::vector<uint8_t> regQwordBytes(uint64_t value);

}  // namespace vt
