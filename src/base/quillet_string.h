#pragma once
#include <cstdint>
#include <string>
#include <string_view>

namespace vt {
// The global 8-bit pass-through switch: when on, the narrow form of every string is each wide
// character's low byte, so bytes received from the wire come out as they went in. The
// configuration store owns the registry value that sets it.
void setEightBitPassThrough(bool on) noexcept;
bool eightBitPassThrough() noexcept;

// Simple one-to-one case mapping (ASCII, Latin-1, Latin Extended-A, Greek, Cyrillic); other
// characters, surrogates included, are returned unchanged.
char16_t toLowerChar(char16_t c) noexcept;
char16_t toUpperChar(char16_t c) noexcept;
}  // namespace vt

// The system's one string type: wide (UTF-16) text with a narrow form in the ANSI code page
// (UTF-8 on Linux) built on first use and cached. Any change of the wide text drops the cache.
// The cache is filled lazily from const methods, so one object must not be read from two
// threads at once unless its narrow form was built before it was shared.
class CQuilletString {
  public:
    CQuilletString() = default;
    CQuilletString(const char16_t* wide) : m_wide(wide ? wide : u"") {}
    CQuilletString(std::u16string_view wide) : m_wide(wide) {}
    CQuilletString(std::u16string&& wide) : m_wide(std::move(wide)) {}
    CQuilletString(const char* narrow) { setString(std::string_view(narrow ? narrow : "")); }
    CQuilletString(std::string_view narrow) { setString(narrow); }
    CQuilletString(const CQuilletString&) = default;
    CQuilletString(CQuilletString&&) noexcept = default;
    CQuilletString& operator=(const CQuilletString&) = default;
    CQuilletString& operator=(CQuilletString&&) noexcept = default;
    CQuilletString& operator=(std::u16string_view wide) {
        setString(wide);
        return *this;
    }

    // Narrow input, converted with the ANSI code page.
    void setString(std::string_view narrow);
    void setString(std::u16string_view wide);
    // Moves the text in without a copy.
    void takeString(std::u16string&& wide) noexcept {
        dropNarrow();
        m_wide = std::move(wide);
    }

    const char16_t* getString() const noexcept { return m_wide.c_str(); }
    uint32_t getLength() const noexcept { return static_cast<uint32_t>(m_wide.size()); }
    std::u16string_view view() const noexcept { return m_wide; }
    const std::u16string& wide() const noexcept { return m_wide; }
    std::u16string& mutableWide() noexcept {
        dropNarrow();
        return m_wide;
    }
    bool empty() const noexcept { return m_wide.empty(); }

    const char* getStringA() const;
    uint32_t getLengthA() const;
    std::string_view narrowView() const { return {getStringA(), getLengthA()}; }

    // The text in the character set `charsetId` (0: the narrow form of getStringA). The
    // converted text is cached until the text changes or another id is asked for. A failed
    // conversion is logged and yields "".
    const char* getStringInCharset(uint32_t charsetId) const;
    uint32_t getLengthInCharset(uint32_t charsetId) const;

    // In place, wide text and cached narrow form alike.
    void toLower();
    void toUpper();

    CQuilletString& append(char16_t c);
    CQuilletString& append(std::u16string_view text);
    CQuilletString& operator+=(std::u16string_view text) { return append(text); }
    void clear() noexcept;

    friend bool operator==(const CQuilletString& a, const CQuilletString& b) noexcept {
        return a.m_wide == b.m_wide;
    }
    friend bool operator==(const CQuilletString& a, std::u16string_view b) noexcept {
        return a.m_wide == b;
    }
    friend bool operator==(const CQuilletString& a, const char16_t* b) noexcept {
        return a.m_wide == std::u16string_view(b ? b : u"");
    }

  private:
    void dropNarrow() const noexcept {
        m_narrowValid = false;
        m_narrowCharset = 0;
    }

    std::u16string m_wide;
    mutable std::string m_narrow;
    mutable bool m_narrowValid = false;
    mutable uint32_t m_narrowCharset = 0;
};
