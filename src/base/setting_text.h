#pragma once
#include <string>
#include <string_view>

#include "base/quillet_string.h"

// Text that many threads read once it is loaded: a configured name, a key path, a template.
// Both forms it serves, the wide text and the narrow one, are built when it is made, and it
// changes only by being replaced as a whole while nobody else reads it (at load time). Readers
// therefore need neither a lock nor a first call that fills a cache.
class CSettingText {
  public:
    CSettingText() { build(); }
    CSettingText(const CQuilletString& text) : m_text(text) { build(); }
    CSettingText(std::u16string_view text) : m_text(text) { build(); }
    CSettingText(const char16_t* text) : m_text(text) { build(); }
    CSettingText(const CSettingText& other) : m_text(other.m_text) { build(); }
    CSettingText& operator=(const CSettingText& other) {
        m_text = other.m_text;
        build();
        return *this;
    }

    // For passing on to what takes the string type; its narrow form is already built, and
    // must not be asked for in another character set.
    const CQuilletString& text() const noexcept { return m_text; }
    operator const CQuilletString&() const noexcept { return m_text; }

    const char* getStringA() const noexcept { return m_narrow; }
    std::u16string_view view() const noexcept { return m_text.view(); }
    const std::u16string& wide() const noexcept { return m_text.wide(); }
    bool empty() const noexcept { return m_text.empty(); }
    friend bool operator==(const CSettingText& a, std::u16string_view b) noexcept {
        return a.view() == b;
    }

  private:
    void build() { m_narrow = m_text.getStringA(); }

    CQuilletString m_text;
    const char* m_narrow = "";
};
