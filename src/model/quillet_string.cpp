#include "model/quillet_string.h"

#include <atomic>

#include "platform/system_error.h"
#include "platform/text_codec.h"
#include "service/debug_log.h"

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
