#include "platform/append_file.h"

#include <windows.h>

#include <string>

namespace vt {
namespace {

std::wstring toWide(std::u16string_view text) {
    return std::wstring(text.begin(), text.end());
}

HANDLE handleOf(void* h) {
    return static_cast<HANDLE>(h);
}

}  // namespace

uint32_t AppendFile::open(std::u16string_view path) {
    close();
    const std::wstring wide = toWide(path);
    // FILE_APPEND_DATA without FILE_WRITE_DATA: every write lands at the current end, in one
    // piece, whoever else appends. Readers, renamers and deleters are let in.
    HANDLE h = CreateFileW(wide.c_str(), FILE_APPEND_DATA | FILE_READ_ATTRIBUTES | SYNCHRONIZE,
                           FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                           OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE) return static_cast<uint32_t>(GetLastError());
    m_handle = h;
    m_path.assign(path);
    // The rename check runs before every line; opening the path each time costs more than the
    // write. The directory's change notification says when a name in it changed; only then is
    // the path opened. Without one every check opens the path.
    const size_t slash = wide.find_last_of(L"\\/");
    if (slash != std::wstring::npos && slash > 0) {
        HANDLE change = FindFirstChangeNotificationW(wide.substr(0, slash).c_str(), FALSE,
                                                     FILE_NOTIFY_CHANGE_FILE_NAME);
        if (change != INVALID_HANDLE_VALUE) {
            m_change = change;
            // The name may have changed between opening and watching.
            if (!pathNamesOpenFile()) {
                FindCloseChangeNotification(handleOf(m_change));
                m_change = nullptr;
            }
        }
    }
    return 0;
}

bool AppendFile::isOpen() const noexcept {
    return m_handle != nullptr;
}

void AppendFile::close() noexcept {
    if (m_change) FindCloseChangeNotification(handleOf(m_change));
    m_change = nullptr;
    if (m_handle) CloseHandle(handleOf(m_handle));
    m_handle = nullptr;
}

bool AppendFile::write(const char* data, size_t size, size_t& written, uint32_t& error) noexcept {
    written = 0;
    error = 0;
    if (!m_handle) {
        error = ERROR_INVALID_HANDLE;
        return false;
    }
    if (size > 0xFFFFFFFFu) {
        error = ERROR_INVALID_PARAMETER;
        return false;
    }
    DWORD done = 0;
    if (!WriteFile(handleOf(m_handle), data, static_cast<DWORD>(size), &done, nullptr)) {
        error = static_cast<uint32_t>(GetLastError());
        written = done;
        return false;
    }
    written = done;
    if (written != size) {
        error = ERROR_DISK_FULL;
        return false;
    }
    return true;
}

bool AppendFile::size(uint64_t& bytes, uint32_t& error) const noexcept {
    LARGE_INTEGER li;
    if (!m_handle || !GetFileSizeEx(handleOf(m_handle), &li)) {
        error = m_handle ? static_cast<uint32_t>(GetLastError()) : ERROR_INVALID_HANDLE;
        return false;
    }
    bytes = static_cast<uint64_t>(li.QuadPart);
    return true;
}

bool AppendFile::seekEnd(uint32_t& error) noexcept {
    LARGE_INTEGER zero{};
    if (!m_handle || !SetFilePointerEx(handleOf(m_handle), zero, nullptr, FILE_END)) {
        error = m_handle ? static_cast<uint32_t>(GetLastError()) : ERROR_INVALID_HANDLE;
        return false;
    }
    return true;
}

bool AppendFile::isDetached() const noexcept {
    if (!m_handle) return false;
    FILE_STANDARD_INFO standard{};
    if (GetFileInformationByHandleEx(handleOf(m_handle), FileStandardInfo, &standard,
                                     sizeof standard) &&
        (standard.DeletePending || standard.NumberOfLinks == 0))
        return true;
    if (m_change) {
        if (WaitForSingleObject(handleOf(m_change), 0) == WAIT_TIMEOUT) return false;
        // A name in the directory changed: watch on, then let the path decide.
        FindNextChangeNotification(handleOf(m_change));
    }
    return !pathNamesOpenFile();
}

bool AppendFile::pathNamesOpenFile() const noexcept {
    BY_HANDLE_FILE_INFORMATION open{};
    if (!GetFileInformationByHandle(handleOf(m_handle), &open)) return true;
    // What the path names now: gone, or another file (renamed away and maybe replaced).
    const std::wstring wide = toWide(m_path);
    HANDLE named = CreateFileW(wide.c_str(), FILE_READ_ATTRIBUTES,
                               FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
    if (named == INVALID_HANDLE_VALUE) {
        const DWORD e = GetLastError();
        return e != ERROR_FILE_NOT_FOUND && e != ERROR_PATH_NOT_FOUND;
    }
    BY_HANDLE_FILE_INFORMATION now{};
    const bool ok = GetFileInformationByHandle(named, &now) != 0;
    CloseHandle(named);
    if (!ok) return true;
    return now.dwVolumeSerialNumber == open.dwVolumeSerialNumber &&
           now.nFileIndexHigh == open.nFileIndexHigh && now.nFileIndexLow == open.nFileIndexLow;
}

uint32_t createDirectories(std::u16string_view directory, bool& created) {
    created = false;
    std::wstring path = toWide(directory);
    while (path.size() > 3 && (path.back() == L'\\' || path.back() == L'/')) path.pop_back();
    if (path.empty()) return 0;
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes != INVALID_FILE_ATTRIBUTES)
        return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? 0 : ERROR_DIRECTORY;
    // Each missing level from the top down, skipping a drive ("C:") or UNC server part.
    for (size_t pos = 1; pos <= path.size(); ++pos) {
        if (pos != path.size() && path[pos] != L'\\' && path[pos] != L'/') continue;
        const std::wstring level = path.substr(0, pos);
        if (level.size() == 2 && level[1] == L':') continue;
        if (level.rfind(L"\\\\", 0) == 0 && level.find(L'\\', 2) == std::wstring::npos) continue;
        if (GetFileAttributesW(level.c_str()) != INVALID_FILE_ATTRIBUTES) continue;
        if (CreateDirectoryW(level.c_str(), nullptr)) {
            created = true;
        } else {
            const DWORD e = GetLastError();
            if (e != ERROR_ALREADY_EXISTS) return static_cast<uint32_t>(e);
        }
    }
    return 0;
}

uint32_t deleteFile(std::u16string_view path) {
    const std::wstring wide = toWide(path);
    return DeleteFileW(wide.c_str()) ? 0 : static_cast<uint32_t>(GetLastError());
}

bool isSharingViolation(uint32_t error) noexcept {
    return error == ERROR_SHARING_VIOLATION;
}

}  // namespace vt
