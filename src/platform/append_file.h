#pragma once
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

// A log file opened for appending. Every write is one system call at the end of the file, so
// lines from several writers never interleave inside a line. Other programs may read, rename
// and delete the file while it is open; `isDetached` tells when that has happened.
namespace vt {

// The path separator of file paths the agent builds.
#ifdef _WIN32
inline constexpr char16_t kPathSeparator = u'\\';
#else
inline constexpr char16_t kPathSeparator = u'/';
#endif

class AppendFile {
  public:
    AppendFile() = default;
    ~AppendFile() { close(); }
    AppendFile(const AppendFile&) = delete;
    AppendFile& operator=(const AppendFile&) = delete;

    // Creates the file when it is missing and keeps existing content. 0 on success, otherwise
    // the system error code (nothing is open then).
    uint32_t open(std::u16string_view path);
    bool isOpen() const noexcept;
    void close() noexcept;

    // One write call at the end of the file. False with the system error code on failure;
    // `written` is what the system accepted.
    bool write(const char* data, size_t size, size_t& written, uint32_t& error) noexcept;
    bool size(uint64_t& bytes, uint32_t& error) const noexcept;
    // Positions at the end (for the writes that do not append by themselves).
    bool seekEnd(uint32_t& error) noexcept;

    // True when the open file is no longer the one its path names: it was deleted or renamed
    // by someone else. A check that cannot be made counts as "still attached".
    bool isDetached() const noexcept;

  private:
#ifndef _WIN32
    void watchPath() noexcept;
#endif
#ifdef _WIN32
    void* m_handle = nullptr;
    void* m_change = nullptr;  // change notification of the file's directory, or null
    bool pathNamesOpenFile() const noexcept;
#else
    int m_fd = -1;
#endif
    std::u16string m_path;  // for the detachment check
#ifndef _WIN32
    std::string m_narrowPath;
    uint64_t m_device = 0;  // identity of the open file, taken when it was opened
    uint64_t m_inode = 0;
    int m_notify = -1;  // inotify descriptor watching the file and its directory, or -1
#endif
};

// Creates `directory` and any missing parents. 0 on success (also when it exists); `created`
// tells whether a level had to be made.
uint32_t createDirectories(std::u16string_view directory, bool& created);
// 0 on success, otherwise the system error code.
uint32_t deleteFile(std::u16string_view path);
// True for the error of a file locked by another process.
bool isSharingViolation(uint32_t error) noexcept;

}  // namespace vt
