#pragma once
#include <cstdint>
#include <string>
#include <vector>

namespace vt {

// Which file a name leads to: device and inode on Linux, volume serial number and file index
// on Windows. Two equal identities are the same file even when its name changed.
struct FileIdentity {
    uint64_t volume = 0;
    uint64_t index = 0;
    bool operator==(const FileIdentity&) const = default;
};

// A file opened for reading that other programs may go on writing, rename and delete while it
// is open (Windows: read, write and delete sharing). Closed by the destructor.
class SharedReadFile {
  public:
    SharedReadFile() = default;
    ~SharedReadFile();
    SharedReadFile(const SharedReadFile&) = delete;
    SharedReadFile& operator=(const SharedReadFile&) = delete;

    // False with `error` set (a system error number) when the file cannot be opened, or when
    // the name is a directory (error EISDIR / ERROR_DIRECTORY... reported as `isDirectory`).
    bool open(const std::string& utf8Path, uint32_t& error, bool& isDirectory);
    void close() noexcept;
    bool isOpen() const noexcept;
    // Current size of the open file; false on failure.
    bool size(uint64_t& out, uint32_t& error) const;
    bool identity(FileIdentity& out, uint32_t& error) const;
    // Reads up to `length` bytes at `offset`; `got` 0 at the end of the file.
    bool readAt(uint64_t offset, void* buffer, size_t length, size_t& got, uint32_t& error);
    intptr_t nativeHandle() const noexcept { return m_handle; }

  private:
    intptr_t m_handle = -1;
};

// The names (not paths) of the regular files in `utf8Dir`, sorted; false when the directory
// cannot be listed.
bool listDirectoryFiles(const std::string& utf8Dir, std::vector<std::string>& names);

// Case-insensitive on Windows, case-sensitive elsewhere: "*" any run, "?" one character.
bool wildcardMatch(std::string_view pattern, std::string_view name) noexcept;

// The directory separator of the platform's paths; both '/' and '\\' are accepted on Windows.
bool isPathSeparator(char c) noexcept;

}  // namespace vt
