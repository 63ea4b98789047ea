#include "base/reg_access.h"

#include "base/debug_log.h"
#include "platform/case_fold.h"

namespace {

// Values whose text never reaches the debug log.
bool isPasswordValue(const CQuilletString& name) {
    const std::u16string folded = vt::upcase(name.view());
    return folded == u"SZSMTPPASSWORD" || folded == u"SZDBPASS";
}

uint64_t littleEndian(const std::vector<uint8_t>& data) {
    uint64_t v = 0;
    for (size_t i = 0; i < data.size() && i < 8; ++i)
        v |= static_cast<uint64_t>(data[i]) << (8 * i);
    return v;
}

}  // namespace

bool CRegAccess::OpenKey(vt::RegRoot root, const CQuilletString& path, uint32_t access) {
    CloseKey();
    m_keyPath = path;
    m_lastError = m_key.open(root, path.view(), access);
    if (m_lastError != vt::kRegOk) {
        vt::debugPrintf(m_lastError == vt::kRegNotFound ? vt::DBG_ULTRA : vt::DBG_ERROR,
                        "CRegAccess::OpenKey - Key '%s' could not be opened with Error '%d'!\r\n",
                        m_keyPath.getStringA(), static_cast<int>(m_lastError));
        return false;
    }
    m_isOpen = true;
    return true;
}

bool CRegAccess::CreateKey(vt::RegRoot root, const CQuilletString& path) {
    CloseKey();
    m_keyPath = path;
    m_lastError = m_key.create(root, path.view(), vt::kKeyRead | vt::kKeyWrite);
    if (m_lastError != vt::kRegOk) {
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CRegAccess::CreateKey - Key '%s' - LastError='%d' failed to create key!\r\n",
            m_keyPath.getStringA(), static_cast<int>(m_lastError));
        return false;
    }
    m_isOpen = true;
    return true;
}

void CRegAccess::CloseKey() noexcept {
    m_key.close();
    m_isOpen = false;
}

uint32_t CRegAccess::query(const CQuilletString& name, uint32_t& type, std::vector<uint8_t>& data) {
    const uint32_t err =
        m_isOpen ? m_key.queryValue(name.view(), type, data) : vt::kRegInvalidHandle;
    m_lastError = err;
    return err;
}

bool CRegAccess::ReadDWORDValue(const CQuilletString& name, uint32_t& value) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    uint32_t read = 0;
    bool ok = query(name, type, data) == vt::kRegOk;
    if (ok && (type != vt::kRegDword || data.size() != 4)) {
        m_lastError = vt::kRegInvalidData;
        ok = false;
    }
    if (ok) {
        read = static_cast<uint32_t>(littleEndian(data));
        value = read;
    }
    vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:DWORD:%s\\%s:'%d' (state %d)\r\n",
                    m_keyPath.getStringA(), name.getStringA(), static_cast<int>(read), ok ? 1 : 0);
    return ok;
}

bool CRegAccess::ReadDWORDValue(const CQuilletString& name, uint32_t& value,
                                uint32_t defaultValue) {
    if (ReadDWORDValue(name, value)) return true;
    value = defaultValue;
    vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:DWORD:%s\\%s: DEFAULT ('%d') used.\r\n",
                    m_keyPath.getStringA(), name.getStringA(), static_cast<int>(defaultValue));
    return false;
}

bool CRegAccess::ReadQWORDValue(const CQuilletString& name, uint64_t& value) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    uint64_t read = 0;
    bool ok = query(name, type, data) == vt::kRegOk;
    if (ok && type == vt::kRegQword && data.size() == 8) {
        read = littleEndian(data);
    } else if (ok && type == vt::kRegDword && data.size() == 4) {
        read = littleEndian(data);
    } else if (ok) {
        m_lastError = vt::kRegInvalidData;
        ok = false;
    }
    if (ok) value = read;
    // '%d' shows the low 32 bits, as the QWORD lines always have.
    vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:QWORD:%s\\%s:'%d' (state %d)\r\n",
                    m_keyPath.getStringA(), name.getStringA(), static_cast<int>(read), ok ? 1 : 0);
    return ok;
}

bool CRegAccess::ReadQWORDValue(const CQuilletString& name, uint64_t& value,
                                uint64_t defaultValue) {
    if (ReadQWORDValue(name, value)) return true;
    value = defaultValue;
    vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:QWORD:%s\\%s: DEFAULT ('%d') used.\r\n",
                    m_keyPath.getStringA(), name.getStringA(), static_cast<int>(defaultValue));
    return false;
}

bool CRegAccess::ReadStringValue(const CQuilletString& name, CQuilletString& value) {
    uint32_t type = 0;
    std::vector<uint8_t> data;
    CQuilletString read;
    bool ok = query(name, type, data) == vt::kRegOk;
    if (ok && type != vt::kRegSz && type != vt::kRegExpandSz) {
        m_lastError = vt::kRegInvalidData;
        ok = false;
    }
    if (ok) {
        std::u16string text = vt::regBytesToString(data);
        if (const size_t nul = text.find(u'\0'); nul != std::u16string::npos) text.resize(nul);
        read.setString(std::u16string_view(text));
        value = read;
    }
    if (vt::debugOn(vt::DBG_ULTRA)) {
        if (isPasswordValue(name))
            vt::debugPrintf(vt::DBG_ULTRA,
                            "RegistryRead:STRING:%s\\%s:'***PASSWORD PROTECTED***' (state %d)\r\n",
                            m_keyPath.getStringA(), name.getStringA(), ok ? 1 : 0);
        else
            vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:STRING:%s\\%s:'%s' (state %d)\r\n",
                            m_keyPath.getStringA(), name.getStringA(), read.getStringA(),
                            ok ? 1 : 0);
    }
    return ok;
}

bool CRegAccess::ReadStringValue(const CQuilletString& name, CQuilletString& value,
                                 const CQuilletString& defaultValue) {
    if (ReadStringValue(name, value)) return true;
    value = defaultValue;
    vt::debugPrintf(vt::DBG_ULTRA, "RegistryRead:STRING:%s\\%s: DEFAULT ('%s') used.\r\n",
                    m_keyPath.getStringA(), name.getStringA(), defaultValue.getStringA());
    return false;
}

bool CRegAccess::setValue(const CQuilletString& name, uint32_t type,
                          const std::vector<uint8_t>& data) {
    m_lastError = m_isOpen ? m_key.setValue(name.view(), type, data.data(), data.size())
                           : vt::kRegInvalidHandle;
    return m_lastError == vt::kRegOk;
}

bool CRegAccess::SetDWORDValue(const CQuilletString& name, uint32_t value) {
    if (setValue(name, vt::kRegDword, vt::regDwordBytes(value))) return true;
    // The DWORD writer has always reported under the string writer's name; kept so that
    // existing log searches still match.
    vt::debugPrintf(
        vt::DBG_ERROR,
        "CRegAccess|SetStringValue: DWORD Value '%s' could not be written with Error '%d'!\r\n",
        name.getStringA(), static_cast<int>(m_lastError));
    return false;
}

bool CRegAccess::SetQWORDValue(const CQuilletString& name, uint64_t value) {
    if (setValue(name, vt::kRegQword, vt::regQwordBytes(value))) return true;
    vt::debugPrintf(
        vt::DBG_ERROR,
        "CRegAccess|SetQWORDValue: DWORD Value '%s' could not be written with Error '%d'!\r\n",
        name.getStringA(), static_cast<int>(m_lastError));
    return false;
}

bool CRegAccess::SetStringValue(const CQuilletString& name, const CQuilletString& value) {
    if (setValue(name, vt::kRegSz, vt::regStringBytes(value.view()))) return true;
    // This line has always printed its placeholders literally, without the numbers.
    vt::debugPrintf(vt::DBG_ERROR,
                    "CRegAccess|SetStringValue: String Value '%s' could not be written, cc = 'd%%' "
                    "GetLastError = 'd%%'!\r\n",
                    name.getStringA());
    return false;
}

bool CRegAccess::DeleteValue(const CQuilletString& name) {
    m_lastError = m_isOpen ? m_key.deleteValue(name.view()) : vt::kRegInvalidHandle;
    if (m_lastError == vt::kRegOk) return true;
    vt::debugPrintf(vt::DBG_ERROR,
                    "CRegAccess::RegDeleteValue - Failed deleting  Value '%s' could not be written "
                    "with Error '%d'!\r\n",
                    name.getStringA(), static_cast<int>(m_lastError));
    return false;
}

bool CRegAccess::DeleteKey(vt::RegRoot root, const CQuilletString& path) {
    m_lastError = vt::regDeleteTree(root, path.view());
    if (m_lastError == vt::kRegOk) return true;
    vt::debugPrintf(vt::DBG_ERROR,
                    "CRegAccess::DeleteKey - Failed deleting Key '%s' with Error '%d'!\r\n",
                    path.getStringA(), static_cast<int>(m_lastError));
    return false;
}

bool CRegAccess::EnumSubKeys(std::vector<std::u16string>& names) {
    m_lastError = m_isOpen ? m_key.enumSubKeys(names) : vt::kRegInvalidHandle;
    return m_lastError == vt::kRegOk;
}

bool CRegAccess::EnumValues(std::vector<vt::RegValue>& values) {
    m_lastError = m_isOpen ? m_key.enumValues(values) : vt::kRegInvalidHandle;
    return m_lastError == vt::kRegOk;
}
