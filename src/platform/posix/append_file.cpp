#include "platform/append_file.h"

#include <fcntl.h>
#include <sys/inotify.h>
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
    watchPath();
    return 0;
}

// The rename check runs before every line. Looking the path up each time costs about as much
// as the write itself, so the kernel is asked to tell when the file is renamed, deleted (its
// link count changes) or replaced, or its directory moved; only then is the path looked up.
// Without inotify (no instance left) every check looks the path up.
void AppendFile::watchPath() noexcept {
    m_notify = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    if (m_notify < 0) return;
    bool ok = ::inotify_add_watch(m_notify, m_narrowPath.c_str(),
                                  IN_MOVE_SELF | IN_DELETE_SELF | IN_ATTRIB) >= 0;
    const size_t slash = m_narrowPath.find_last_of('/');
    if (ok && slash != std::string::npos && slash > 0)
        ok = ::inotify_add_watch(m_notify, m_narrowPath.substr(0, slash).c_str(),
                                 IN_MOVE_SELF | IN_DELETE_SELF) >= 0;
    // The path may have changed between opening and watching: then the watch is of no use.
    struct stat named;
    if (ok && (::stat(m_narrowPath.c_str(), &named) != 0 ||
               static_cast<uint64_t>(named.st_ino) != m_inode ||
               static_cast<uint64_t>(named.st_dev) != m_device))
        ok = false;
    if (!ok) {
        ::close(m_notify);
        m_notify = -1;
    }
}

bool AppendFile::isOpen() const noexcept {
    return m_fd >= 0;
}

void AppendFile::close() noexcept {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    if (m_notify >= 0) ::close(m_notify);
    m_notify = -1;
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
    if (m_notify >= 0) {
        alignas(struct inotify_event) char events[4096];
        const ssize_t n = ::read(m_notify, events, sizeof events);
        if (n < 0 && errno == EAGAIN) return false;  // nothing happened to the file
        // Something did (perhaps only a change of mode): the path decides.
    }
    // A deleted file has no path; a renamed one leaves the path empty or to another file.
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
