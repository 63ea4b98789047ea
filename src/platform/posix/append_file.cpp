#include "platform/append_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/utf_codec.h"

namespace vt {

uint32_t AppendFile::open(std::u16string_view path) {
    close();
    const std::string narrow = utf16ToUtf8(path);
    int fd;
    do {
        fd = ::open(narrow.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) return static_cast<uint32_t>(errno);
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        const int e = errno;
        ::close(fd);
        return static_cast<uint32_t>(e);
    }
    m_fd = fd;
    m_device = static_cast<uint64_t>(st.st_dev);
    m_inode = static_cast<uint64_t>(st.st_ino);
    m_path.assign(path);
    m_narrowPath = narrow;
    return 0;
}

bool AppendFile::isOpen() const noexcept {
    return m_fd >= 0;
}

void AppendFile::close() noexcept {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
}

bool AppendFile::write(const char* data, size_t size, size_t& written, uint32_t& error) noexcept {
    written = 0;
    error = 0;
    if (m_fd < 0) {
        error = EBADF;
        return false;
    }
    ssize_t n;
    do {
        n = ::write(m_fd, data, size);
    } while (n < 0 && errno == EINTR);
    if (n < 0) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    written = static_cast<size_t>(n);
    if (written != size) {
        error = ENOSPC;  // a short write on a regular file means the disk or quota is full
        return false;
    }
    return true;
}

bool AppendFile::size(uint64_t& bytes, uint32_t& error) const noexcept {
    struct stat st;
    if (m_fd < 0 || ::fstat(m_fd, &st) != 0) {
        error = m_fd < 0 ? EBADF : static_cast<uint32_t>(errno);
        return false;
    }
    bytes = static_cast<uint64_t>(st.st_size);
    return true;
}

bool AppendFile::seekEnd(uint32_t& error) noexcept {
    if (m_fd < 0 || ::lseek(m_fd, 0, SEEK_END) < 0) {
        error = m_fd < 0 ? EBADF : static_cast<uint32_t>(errno);
        return false;
    }
    return true;
}

bool AppendFile::isDetached() const noexcept {
    if (m_fd < 0) return false;
    // One look at the path per call: it runs for every line written. A deleted file has no
    // path; a renamed one leaves the path empty or to another file.
    struct stat named;
    if (::stat(m_narrowPath.c_str(), &named) != 0) return errno == ENOENT || errno == ENOTDIR;
    return static_cast<uint64_t>(named.st_ino) != m_inode ||
           static_cast<uint64_t>(named.st_dev) != m_device;
}

uint32_t createDirectories(std::u16string_view directory, bool& created) {
    created = false;
    std::string path = utf16ToUtf8(directory);
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (path.empty()) return 0;
    struct stat st;
    if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
    // Each missing level from the top down; a level made by someone else meanwhile is fine.
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != '/') continue;
        const std::string level = path.substr(0, pos);
        if (::mkdir(level.c_str(), 0755) == 0)
            created = true;
        else if (errno != EEXIST)
            return static_cast<uint32_t>(errno);
    }
    return 0;
}

uint32_t deleteFile(std::u16string_view path) {
    return ::unlink(utf16ToUtf8(path).c_str()) == 0 ? 0 : static_cast<uint32_t>(errno);
}

bool isSharingViolation(uint32_t error) noexcept {
    return error == ETXTBSY;
}

}  // namespace vt
