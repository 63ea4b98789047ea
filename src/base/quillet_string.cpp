#include "base/quillet_string.h"

#include <atomic>

#include "base/debug_log.h"
#include "platform/charset_codec.h"
#include "platform/system_error.h"
#include "platform/text_codec.h"

namespace vt {
namespace {
std::atomic<bool> g_eightBitPassThrough{false};
}
void setEightBitPassThrough(bool on) noexcept {
    g_eightBitPassThrough = on;
}
bool eightBitPassThrough() noexcept {
    return g_eightBitPassThrough.load(std::memory_order_relaxed);
}

char16_t toLowerChar(char16_t c) noexcept {
    if (c < 0x80) return (c >= u'A' && c <= u'Z') ? static_cast<char16_t>(c + 32) : c;
    if (c >= 0xC0 && c <= 0xDE && c != 0xD7) return static_cast<char16_t>(c + 32);
    if (c >= 0x100 && c <= 0x17F) {
        if (c == 0x130) return u'i';
        if (c == 0x178) return 0xFF;
        const bool oddUpper = (c >= 0x139 && c <= 0x148) || (c >= 0x179 && c <= 0x17E);
        const bool evenUpper =
            (c <= 0x12F) || (c >= 0x132 && c <= 0x137) || (c >= 0x14A && c <= 0x177);
        if (oddUpper && (c & 1)) return static_cast<char16_t>(c + 1);
        if (evenUpper && !(c & 1)) return static_cast<char16_t>(c + 1);
        return c;
    }
    if (c >= 0x391 && c <= 0x3A9 && c != 0x3A2) return static_cast<char16_t>(c + 32);
    if (c >= 0x410 && c <= 0x42F) return static_cast<char16_t>(c + 32);
    if (c >= 0x400 && c <= 0x40F) return static_cast<char16_t>(c + 80);
    return c;
}

char16_t toUpperChar(char16_t c) noexcept {
    if (c < 0x80) return (c >= u'a' && c <= u'z') ? static_cast<char16_t>(c - 32) : c;
    if (c >= 0xE0 && c <= 0xFE && c != 0xF7) return static_cast<char16_t>(c - 32);
    if (c == 0xFF) return 0x178;
    if (c >= 0x100 && c <= 0x17F) {
        if (c == 0x131) return u'I';
        const bool evenLower = (c >= 0x13A && c <= 0x148) || (c >= 0x17A && c <= 0x17E);
        const bool oddLower =
            (c <= 0x12F) || (c >= 0x133 && c <= 0x137) || (c >= 0x14B && c <= 0x177);
        if (evenLower && !(c & 1)) return static_cast<char16_t>(c - 1);
        if (oddLower && (c & 1)) return static_cast<char16_t>(c - 1);
        return c;
    }
    if (c == 0x3C2) return 0x3A3;
    if (c >= 0x3B1 && c <= 0x3C9) return static_cast<char16_t>(c - 32);
    if (c >= 0x430 && c <= 0x44F) return static_cast<char16_t>(c - 32);
    if (c >= 0x450 && c <= 0x45F) return static_cast<char16_t>(c - 80);
    return c;
}
}  // namespace vt

void CQuilletString::setString(std::string_view narrow) {
    dropNarrow();
    if (!vt::narrowToWide(narrow, m_wide)) {
        m_wide.clear();
        vt::debugPrintf(vt::DBG_ERROR,
                        "CQuilletString|setString: Failed to convert from char to wchar_t with "
                        "error '%u'\r\n",
                        vt::lastSystemError());
    }
}

void CQuilletString::setString(std::u16string_view wide) {
    dropNarrow();
    m_wide.assign(wide);
}

const char* CQuilletString::getStringA() const {
    if (m_narrowValid && m_narrowCharset == 0) return m_narrow.c_str();
    if (vt::eightBitPassThrough()) {
        m_narrow.assign(m_wide.size(), '\0');
        for (size_t i = 0; i < m_wide.size(); ++i)
            m_narrow[i] = static_cast<char>(m_wide[i] & 0xFF);
    } else if (!vt::wideToNarrow(m_wide, m_narrow)) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CQuilletString|getStringA: Failed to convert from wchar_t to char with "
                        "error '%u' - m_iLength = '%u' m_iLengthA = '%u' \r\n",
                        vt::lastSystemError(), getLength(), 0u);
        m_narrow.clear();
    }
    m_narrowValid = true;
    m_narrowCharset = 0;
    return m_narrow.c_str();
}

uint32_t CQuilletString::getLengthA() const {
    getStringA();
    return static_cast<uint32_t>(m_narrow.size());
}

CQuilletString& CQuilletString::append(char16_t c) {
    dropNarrow();
    m_wide.push_back(c);
    return *this;
}

CQuilletString& CQuilletString::append(std::u16string_view text) {
    dropNarrow();
    m_wide.append(text);
    return *this;
}

void CQuilletString::clear() noexcept {
    dropNarrow();
    m_wide.clear();
}

const char* CQuilletString::getStringInCharset(uint32_t charsetId) const {
    if (charsetId == 0) return getStringA();
    if (m_narrowValid && m_narrowCharset == charsetId) return m_narrow.c_str();
    if (!vt::wideToCharset(charsetId, m_wide, m_narrow)) {
        vt::debugPrintf(vt::DBG_ERROR,
                        "CQuilletString|getStringInCharset: Failed to convert to character set "
                        "%u - m_iLength = '%u'\r\n",
                        charsetId, getLength());
        m_narrow.clear();
    }
    m_narrowValid = true;
    m_narrowCharset = charsetId;
    return m_narrow.c_str();
}

uint32_t CQuilletString::getLengthInCharset(uint32_t charsetId) const {
    getStringInCharset(charsetId);
    return static_cast<uint32_t>(m_narrow.size());
}

void CQuilletString::toLower() {
    dropNarrow();
    for (char16_t& c : m_wide) c = vt::toLowerChar(c);
}

void CQuilletString::toUpper() {
    dropNarrow();
    for (char16_t& c : m_wide) c = vt::toUpperChar(c);
}
