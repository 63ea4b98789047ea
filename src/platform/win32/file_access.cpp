#include "platform/file_access.h"

#include <windows.h>

#include <algorithm>

#include "platform/utf_codec.h"

namespace vt {

namespace {
std::wstring widePath(const std::string& utf8) {
    const std::u16string wide = utf8ToUtf16(utf8);
    return std::wstring(wide.begin(), wide.end());
}
HANDLE toHandle(intptr_t h) {
    return reinterpret_cast<HANDLE>(h);
}
}  // namespace

SharedReadFile::~SharedReadFile() {
    close();
}

bool SharedReadFile::open(const std::string& utf8Path, uint32_t& error, bool& isDirectory) {
    close();
    isDirectory = false;
    const std::wstring path = widePath(utf8Path);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY)) {
        isDirectory = true;
        error = ERROR_DIRECTORY;
        return false;
    }
    // Sharing for write and delete lets the writer go on appending and rotate (rename or
    // delete) the file while it is open here.
    HANDLE h = CreateFileW(path.c_str(), GENERIC_READ,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) {
        error = GetLastError();
        return false;
    }
    m_handle = reinterpret_cast<intptr_t>(h);
    error = 0;
    return true;
}

void SharedReadFile::close() noexcept {
    if (m_handle != -1) CloseHandle(toHandle(m_handle));
    m_handle = -1;
}

bool SharedReadFile::isOpen() const noexcept {
    return m_handle != -1;
}

bool SharedReadFile::size(uint64_t& out, uint32_t& error) const {
    LARGE_INTEGER size{};
    if (m_handle == -1 || !GetFileSizeEx(toHandle(m_handle), &size)) {
        error = m_handle == -1 ? ERROR_INVALID_HANDLE : GetLastError();
        return false;
    }
    out = static_cast<uint64_t>(size.QuadPart);
    return true;
}

bool SharedReadFile::identity(FileIdentity& out, uint32_t& error) const {
    BY_HANDLE_FILE_INFORMATION info{};
    if (m_handle == -1 || !GetFileInformationByHandle(toHandle(m_handle), &info)) {
        error = m_handle == -1 ? ERROR_INVALID_HANDLE : GetLastError();
        return false;
    }
    out.volume = info.dwVolumeSerialNumber;
    out.index = (static_cast<uint64_t>(info.nFileIndexHigh) << 32) | info.nFileIndexLow;
    return true;
}

bool SharedReadFile::readAt(uint64_t offset, void* buffer, size_t length, size_t& got,
                            uint32_t& error) {
    got = 0;
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset & 0xFFFFFFFFu);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD read = 0;
    const DWORD want = static_cast<DWORD>(std::min<size_t>(length, 1u << 30));
    if (!ReadFile(toHandle(m_handle), buffer, want, &read, &at)) {
        const DWORD e = GetLastError();
        if (e == ERROR_HANDLE_EOF) return true;
        error = e;
        return false;
    }
    got = read;
    return true;
}

bool listDirectoryFiles(const std::string& utf8Dir, std::vector<std::string>& names) {
    names.clear();
    const std::wstring pattern = widePath((utf8Dir.empty() ? std::string(".") : utf8Dir) + "\\*");
    WIN32_FIND_DATAW data{};
    HANDLE find = FindFirstFileW(pattern.c_str(), &data);
    if (find == INVALID_HANDLE_VALUE) return GetLastError() == ERROR_FILE_NOT_FOUND;
    do {
        if (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) continue;
        const std::wstring w = data.cFileName;
        names.push_back(utf16ToUtf8(std::u16string(w.begin(), w.end())));
    } while (FindNextFileW(find, &data));
    FindClose(find);
    std::sort(names.begin(), names.end());
    return true;
}

}  // namespace vt
