#pragma once
#include <cstdint>
#include <string>
#include <string_view>

// Numbered registry names ("nActionType3", "R12") and key paths ("<key>\RS2"), built in wide
// text so that any character of a configured key path survives.
namespace vt {

inline std::u16string numberedName(std::u16string_view prefix, uint32_t n) {
    std::u16string name(prefix);
    char digits[16];
    int len = 0;
    do {
        digits[len++] = static_cast<char>('0' + n % 10);
        n /= 10;
    } while (n != 0);
    while (len > 0) name.push_back(static_cast<char16_t>(digits[--len]));
    return name;
}

// "%s\\<prefix>%d"
inline std::u16string numberedSubkey(std::u16string_view keyPath, std::u16string_view prefix,
                                     uint32_t n) {
    std::u16string path(keyPath);
    path.push_back(u'\\');
    path += numberedName(prefix, n);
    return path;
}

// "%s\\<name>"
inline std::u16string subkeyPath(std::u16string_view keyPath, std::u16string_view name) {
    std::u16string path(keyPath);
    path.push_back(u'\\');
    path += name;
    return path;
}

}  // namespace vt
