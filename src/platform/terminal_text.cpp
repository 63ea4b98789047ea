#include "platform/terminal_message.h"

namespace vt {

std::string terminalSafeText(const std::string& text) {
    std::string out;
    out.reserve(text.size() + 8);
    for (const char c : text) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '\n')
            out += "\r\n";
        else if (c == '\r')
            continue;
        else if (u < 32 || u == 127)
            out.push_back('?');
        else
            out.push_back(c);
    }
    return out;
}

}  // namespace vt
