#include <cctype>
#include <string_view>

#include "platform/file_access.h"

namespace vt {

namespace {
bool sameChar(char a, char b) noexcept {
#ifdef _WIN32
    return std::tolower(static_cast<unsigned char>(a)) ==
           std::tolower(static_cast<unsigned char>(b));
#else
    return a == b;
#endif
}
}  // namespace

bool wildcardMatch(std::string_view pattern, std::string_view name) noexcept {
    // Iterative matcher with one back-track point: linear in practice, no recursion depth
    // that a hostile pattern could blow up.
    size_t p = 0, n = 0, starP = std::string_view::npos, starN = 0;
    while (n < name.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || sameChar(pattern[p], name[n]))) {
            ++p;
            ++n;
        } else if (p < pattern.size() && pattern[p] == '*') {
            starP = p++;
            starN = n;
        } else if (starP != std::string_view::npos) {
            p = starP + 1;
            n = ++starN;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') ++p;
    return p == pattern.size();
}

bool isPathSeparator(char c) noexcept {
#ifdef _WIN32
    return c == '/' || c == '\\';
#else
    return c == '/';
#endif
}

}  // namespace vt
