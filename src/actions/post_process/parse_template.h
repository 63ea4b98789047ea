#pragma once
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// The templates of the post-process action. A template is text with elements:
//   literal text        must appear as it is ("Character Match"); "%%" is one "%"
//   %name:Kind%         a piece of a kind, stored in property "name" ("-" parses and drops it)
//   %name:UpTo:text%    everything up to (not including) the next "text"
// Kinds, by name or number: 1 "Character Match" (%name:1:text%), 2 "Integer", 3 "IPV4 Address",
// 4 "Word", 5 "UpTo", 6 "RestOfMessage", 7 "ISO-like Timestamp", 8 "UNIX-like Timestamp".
class CCustomParseList {
  public:
    enum Kind : int {
        CharacterMatch = 1,
        Integer,
        IPv4Address,
        Word,
        UpTo,
        RestOfMessage,
        IsoTimestamp,
        UnixTimestamp,
    };
    struct Element {
        int kind = CharacterMatch;
        std::string property;  // empty for literal text
        std::string value;     // the literal, or the UpTo delimiter
    };
    using Properties = std::vector<std::pair<std::string, std::string>>;

    // Compiles one template; false with `error` for a template that cannot be used. Elements
    // of an unknown kind number are logged and left out.
    bool add(std::string_view templ, std::string& error);
    size_t size() const noexcept { return m_templates.size(); }

    // The properties of the first template that matches the whole message; false (each
    // failure logged) when none does.
    bool parse(std::string_view message, Properties& out) const;

    static const char* kindName(int kind) noexcept;

  private:
    bool parseWith(const std::vector<Element>& elements, std::string_view message,
                   Properties& out) const;

    std::vector<std::vector<Element>> m_templates;
};
