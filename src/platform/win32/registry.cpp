// HKEY_LOCAL_MACHINE through the Win32 registry calls (the 64-bit view of a 64-bit build).
#include "platform/registry.h"

#include <windows.h>

namespace vt {
namespace {

std::wstring wide(std::u16string_view s) {
    return std::wstring(s.begin(), s.end());
}

std::u16string fromWide(const wchar_t* s, size_t n) {
    return std::u16string(s, s + n);
}

HKEY rootKey(RegRoot) {
    return HKEY_LOCAL_MACHINE;
}

HKEY handleOf(void* h) {
    return static_cast<HKEY>(h);
}

}  // namespace

void RegKey::close() noexcept {
    if (m_open && m_handle) RegCloseKey(handleOf(m_handle));
    m_open = false;
    m_handle = nullptr;
    m_access = 0;
}

uint32_t RegKey::open(RegRoot root, std::u16string_view path, uint32_t access) {
    close();
    HKEY key = nullptr;
    const LONG rc = RegOpenKeyExW(rootKey(root), wide(path).c_str(), 0, access, &key);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    m_open = true;
    m_handle = key;
    m_access = access;
    return kRegOk;
}

uint32_t RegKey::create(RegRoot root, std::u16string_view path, uint32_t access) {
    close();
    HKEY key = nullptr;
    const LONG rc = RegCreateKeyExW(rootKey(root), wide(path).c_str(), 0, nullptr,
                                    REG_OPTION_NON_VOLATILE, access, nullptr, &key, nullptr);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    m_open = true;
    m_handle = key;
    m_access = access;
    return kRegOk;
}

uint32_t RegKey::queryValue(std::u16string_view name, uint32_t& type,
                            std::vector<uint8_t>& data) const {
    if (!m_open) return kRegInvalidHandle;
    const std::wstring n = wide(name);
    // The value may grow between the size query and the read: retry on ERROR_MORE_DATA.
    DWORD size = 256;
    for (;;) {
        data.resize(size);
        DWORD t = 0;
        DWORD got = size;
        const LONG rc =
            RegQueryValueExW(handleOf(m_handle), n.c_str(), nullptr, &t, data.data(), &got);
        if (rc == ERROR_MORE_DATA) {
            size = got > size ? got : size * 2;
            continue;
        }
        if (rc != ERROR_SUCCESS) {
            data.clear();
            return static_cast<uint32_t>(rc);
        }
        data.resize(got);
        type = t;
        return kRegOk;
    }
}

uint32_t RegKey::setValue(std::u16string_view name, uint32_t type, const void* data,
                          size_t size) const {
    if (!m_open) return kRegInvalidHandle;
    if (size > 0xFFFFFFFFu) return kRegInvalidParameter;
    return static_cast<uint32_t>(RegSetValueExW(handleOf(m_handle), wide(name).c_str(), 0, type,
                                                static_cast<const BYTE*>(data),
                                                static_cast<DWORD>(size)));
}

uint32_t RegKey::deleteValue(std::u16string_view name) const {
    if (!m_open) return kRegInvalidHandle;
    return static_cast<uint32_t>(RegDeleteValueW(handleOf(m_handle), wide(name).c_str()));
}

uint32_t RegKey::enumSubKeys(std::vector<std::u16string>& names) const {
    names.clear();
    if (!m_open) return kRegInvalidHandle;
    wchar_t buffer[256];
    for (DWORD i = 0;; ++i) {
        DWORD len = 256;
        const LONG rc =
            RegEnumKeyExW(handleOf(m_handle), i, buffer, &len, nullptr, nullptr, nullptr, nullptr);
        if (rc == ERROR_NO_MORE_ITEMS) return kRegOk;
        if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
        names.push_back(fromWide(buffer, len));
    }
}

uint32_t RegKey::enumValues(std::vector<RegValue>& values) const {
    values.clear();
    if (!m_open) return kRegInvalidHandle;
    DWORD maxName = 0, maxData = 0;
    LONG rc = RegQueryInfoKeyW(handleOf(m_handle), nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, &maxName, &maxData, nullptr, nullptr);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    std::wstring name(maxName + 1, L'\0');
    std::vector<uint8_t> data(maxData + 1);
    for (DWORD i = 0;;) {
        DWORD nameLen = static_cast<DWORD>(name.size());
        DWORD dataLen = static_cast<DWORD>(data.size());
        DWORD type = 0;
        rc = RegEnumValueW(handleOf(m_handle), i, name.data(), &nameLen, nullptr, &type,
                           data.data(), &dataLen);
        if (rc == ERROR_NO_MORE_ITEMS) return kRegOk;
        if (rc == ERROR_MORE_DATA) {  // changed since the size query: grow and read again
            name.resize(name.size() * 2 + 256);
            data.resize(data.size() * 2 + 256);
            continue;
        }
        if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
        values.push_back({fromWide(name.data(), nameLen), type,
                          std::vector<uint8_t>(data.begin(), data.begin() + dataLen)});
        ++i;
    }
}

uint32_t regDeleteKey(RegRoot root, std::u16string_view path) {
    if (path.empty()) return kRegAccessDenied;
    return static_cast<uint32_t>(RegDeleteKeyW(rootKey(root), wide(path).c_str()));
}

uint32_t regDeleteTree(RegRoot root, std::u16string_view path) {
    if (path.empty()) return kRegAccessDenied;
    HKEY key = nullptr;
    LONG rc = RegOpenKeyExW(rootKey(root), wide(path).c_str(), 0, KEY_ALL_ACCESS, &key);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    rc = RegDeleteTreeW(key, nullptr);
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return static_cast<uint32_t>(rc);
    return static_cast<uint32_t>(RegDeleteKeyW(rootKey(root), wide(path).c_str()));
}

uint32_t regRunAtomically(const std::function<uint32_t()>& body) {
    return body();
}

void regSetHivePath(std::string) {}

std::string regHivePath() {
    return "HKEY_LOCAL_MACHINE";
}

void regCloseHive() {}

}  // namespace vt
