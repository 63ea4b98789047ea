#include "platform/file_access.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace vt {

SharedReadFile::~SharedReadFile() {
    close();
}

bool SharedReadFile::open(const std::string& utf8Path, uint32_t& error, bool& isDirectory) {
    close();
    isDirectory = false;
    const int fd = ::open(utf8Path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (fd < 0) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        error = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        isDirectory = S_ISDIR(st.st_mode);
        ::close(fd);
        return false;
    }
    m_handle = fd;
    error = 0;
    return true;
}

void SharedReadFile::close() noexcept {
    if (m_handle >= 0) ::close(static_cast<int>(m_handle));
    m_handle = -1;
}

bool SharedReadFile::isOpen() const noexcept {
    return m_handle >= 0;
}

bool SharedReadFile::size(uint64_t& out, uint32_t& error) const {
    struct stat st {};
    if (m_handle < 0 || ::fstat(static_cast<int>(m_handle), &st) != 0) {
        error = m_handle < 0 ? EBADF : static_cast<uint32_t>(errno);
        return false;
    }
    out = static_cast<uint64_t>(st.st_size);
    return true;
}

bool SharedReadFile::identity(FileIdentity& out, uint32_t& error) const {
    struct stat st {};
    if (m_handle < 0 || ::fstat(static_cast<int>(m_handle), &st) != 0) {
        error = m_handle < 0 ? EBADF : static_cast<uint32_t>(errno);
        return false;
    }
    out.volume = static_cast<uint64_t>(st.st_dev);
    out.index = static_cast<uint64_t>(st.st_ino);
    return true;
}

bool SharedReadFile::readAt(uint64_t offset, void* buffer, size_t length, size_t& got,
                            uint32_t& error) {
    got = 0;
    for (;;) {
        const ssize_t n =
            ::pread(static_cast<int>(m_handle), buffer, length, static_cast<off_t>(offset));
        if (n >= 0) {
            got = static_cast<size_t>(n);
            return true;
        }
        if (errno != EINTR) {
            error = static_cast<uint32_t>(errno);
            return false;
        }
    }
}

bool listDirectoryFiles(const std::string& utf8Dir, std::vector<std::string>& names) {
    names.clear();
    DIR* dir = ::opendir(utf8Dir.empty() ? "." : utf8Dir.c_str());
    if (!dir) return false;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        if (name == "." || name == "..") continue;
        struct stat st {};
        const std::string full = (utf8Dir.empty() ? std::string(".") : utf8Dir) + "/" + name;
        if (::stat(full.c_str(), &st) == 0 && S_ISREG(st.st_mode)) names.push_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    return true;
}

}  // namespace vt
