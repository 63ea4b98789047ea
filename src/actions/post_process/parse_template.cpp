#include "actions/post_process/parse_template.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

#include "base/debug_log.h"

namespace {

constexpr const char* kKindNames[] = {"",
                                      "Character Match",
                                      "Integer",
                                      "IPV4 Address",
                                      "Word",
                                      "UpTo",
                                      "RestOfMessage",
                                      "ISO-like Timestamp",
                                      "UNIX-like Timestamp"};
constexpr int kKinds = 8;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

// Each reader takes a piece from the front of `rest`; the length taken, or 0 when it does not
// fit (every kind but RestOfMessage needs at least one character).
size_t readInteger(std::string_view rest) {
    size_t n = !rest.empty() && rest[0] == '-' ? 1 : 0;
    const size_t start = n;
    while (n < rest.size() && isDigit(rest[n])) ++n;
    return n > start ? n : 0;
}

size_t readIPv4(std::string_view rest) {
    size_t n = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (n >= rest.size() || rest[n] != '.') return 0;
            ++n;
        }
        int value = 0, digits = 0;
        while (n < rest.size() && isDigit(rest[n]) && digits < 3)
            value = value * 10 + (rest[n++] - '0'), ++digits;
        if (digits == 0 || value > 255) return 0;
    }
    return n < rest.size() && isDigit(rest[n]) ? 0 : n;
}

size_t readWord(std::string_view rest) {
    size_t n = 0;
    while (n < rest.size() && rest[n] != ' ') ++n;
    return n;
}

// Reads `pattern` where 'd' is a digit and any other character itself.
bool fits(std::string_view rest, size_t at, std::string_view pattern) {
    if (rest.size() < at + pattern.size()) return false;
    for (size_t i = 0; i < pattern.size(); ++i)
        if (pattern[i] == 'd' ? !isDigit(rest[at + i]) : rest[at + i] != pattern[i]) return false;
    return true;
}

// 2024-05-01T12:34:56, a space for the T, fractions, and Z or an offset.
size_t readIsoTimestamp(std::string_view rest) {
    if (!fits(rest, 0, "dddd-dd-dd") || rest.size() < 19 || (rest[10] != 'T' && rest[10] != ' ') ||
        !fits(rest, 11, "dd:dd:dd"))
        return 0;
    size_t n = 19;
    if (n < rest.size() && rest[n] == '.') {
        size_t digits = 0;
        while (n + 1 + digits < rest.size() && isDigit(rest[n + 1 + digits])) ++digits;
        if (digits) n += 1 + digits;
    }
    if (n < rest.size() && rest[n] == 'Z') return n + 1;
    if (n < rest.size() && (rest[n] == '+' || rest[n] == '-') && fits(rest, n + 1, "dd:dd"))
        return n + 6;
    return n;
}

// "May  1 12:34:56" (the day blank-padded or not).
size_t readUnixTimestamp(std::string_view rest) {
    static const char* kMonths[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                    "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    if (rest.size() < 15) return 0;
    bool month = false;
    for (const char* m : kMonths) month = month || rest.substr(0, 3) == m;
    if (!month || rest[3] != ' ') return 0;
    const size_t day = rest[4] == ' ' ? 5 : 4;
    if (!isDigit(rest[day])) return 0;
    size_t n = day + 1;
    if (n < rest.size() && isDigit(rest[n])) ++n;
    if (n >= rest.size() || rest[n] != ' ' || !fits(rest, n + 1, "dd:dd:dd")) return 0;
    return n + 9;
}

int kindOf(std::string_view name) {
    for (int k = 1; k <= kKinds; ++k)
        if (name == kKindNames[k]) return k;
    if (!name.empty() && name.find_first_not_of("0123456789") == std::string_view::npos &&
        name.size() < 9)
        return std::atoi(std::string(name).c_str());
    return -1;
}

}  // namespace

const char* CCustomParseList::kindName(int kind) noexcept {
    return kind >= 1 && kind <= kKinds ? kKindNames[kind] : "unknown";
}

bool CCustomParseList::add(std::string_view templ, std::string& error) {
    std::vector<Element> elements;
    auto literal = [&](std::string_view text) {
        if (elements.empty() || !elements.back().property.empty() ||
            elements.back().kind != CharacterMatch)
            elements.push_back({CharacterMatch, "", ""});
        elements.back().value += text;
    };
    for (size_t at = 0; at < templ.size();) {
        if (templ[at] != '%') {
            const size_t end = std::min(templ.find('%', at), templ.size());
            literal(templ.substr(at, end - at));
            at = end;
            continue;
        }
        if (at + 1 < templ.size() && templ[at + 1] == '%') {
            literal("%");
            at += 2;
            continue;
        }
        const size_t close = templ.find('%', at + 1);
        if (close == std::string_view::npos) {
            error = "a '%' without its closing '%'";
            return false;
        }
        const std::string_view body = templ.substr(at + 1, close - at - 1);
        at = close + 1;
        const size_t colon = body.find(':');
        if (colon == std::string_view::npos || colon == 0) {
            error = "element '" + std::string(body) + "' is not name:kind";
            return false;
        }
        const std::string_view kindText = body.substr(colon + 1);
        const size_t second = kindText.find(':');
        const int kind = kindOf(kindText.substr(0, second));
        const std::string value(second == std::string_view::npos ? ""
                                                                 : kindText.substr(second + 1));
        if (kind < 0) {
            error = "unknown element kind '" + std::string(kindText.substr(0, second)) + "'";
            return false;
        }
        if (kind < 1 || kind > kKinds) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "Unsupported parse type (syntax) %d was detected - please check "
                            "software versions. Syntax ignored - can lead to other errors.\r\n",
                            kind);
            continue;
        }
        if ((kind == UpTo || kind == CharacterMatch) && value.empty()) {
            error = std::string(kKindNames[kind]) + " needs its text after a second ':'";
            return false;
        }
        elements.push_back({kind, std::string(body.substr(0, colon)), value});
    }
    m_templates.push_back(std::move(elements));
    return true;
}

bool CCustomParseList::parse(std::string_view message, Properties& out) const {
    for (const auto& elements : m_templates) {
        Properties found;
        if (parseWith(elements, message, found)) {
            out = std::move(found);
            return true;
        }
    }
    return false;
}

bool CCustomParseList::parseWith(const std::vector<Element>& elements, std::string_view message,
                                 Properties& out) const {
    std::string_view rest = message;
    for (const Element& e : elements) {
        size_t taken = 0;
        switch (e.kind) {
            case CharacterMatch:
                taken = rest.substr(0, e.value.size()) == e.value ? e.value.size() : 0;
                break;
            case Integer:
                taken = readInteger(rest);
                break;
            case IPv4Address:
                taken = readIPv4(rest);
                break;
            case Word:
                taken = readWord(rest);
                break;
            case UpTo: {
                const size_t end = rest.find(e.value);
                taken = end == std::string_view::npos ? 0 : end;
                if (end == 0) taken = 0;
                break;
            }
            case RestOfMessage:
                taken = rest.size();
                break;
            case IsoTimestamp:
                taken = readIsoTimestamp(rest);
                break;
            case UnixTimestamp:
                taken = readUnixTimestamp(rest);
                break;
        }
        const bool emptyRest = e.kind == RestOfMessage;
        if (taken == 0 && !emptyRest) {
            const char* name = e.property.empty() ? "" : e.property.c_str();
            const std::string toParse(rest.substr(0, 30));
            if (e.kind == CharacterMatch || e.kind == UpTo)
                vt::debugPrintf(
                    vt::DBG_INFO,
                    "The template parser could NOT (re)parse an object of type \"%s\" - "
                    "Property \"%s\", ToParse \"%.30s\", Value \"%s\".\r\n",
                    kKindNames[e.kind], name, toParse.c_str(), e.value.c_str());
            else
                vt::debugPrintf(
                    vt::DBG_INFO,
                    "The template parser could NOT (re)parse an object of type \"%s\" - "
                    "Property \"%s\", ToParse \"%.30s\".\r\n",
                    kKindNames[e.kind], name, toParse.c_str());
            return false;
        }
        if (!e.property.empty() && e.property != "-")
            out.emplace_back(e.property, std::string(rest.substr(0, taken)));
        rest.remove_prefix(taken);
    }
    return rest.empty();
}
