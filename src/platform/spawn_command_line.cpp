#include "platform/spawn_process.h"

namespace vt {

std::vector<std::string> splitCommandLine(std::string_view line) {
    std::vector<std::string> args;
    std::string current;
    bool inArgument = false, quoted = false;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if ((c == ' ' || c == '\t') && !quoted) {
            if (inArgument) args.push_back(std::move(current));
            current.clear();
            inArgument = false;
            continue;
        }
        inArgument = true;
        if (c == '\\') {
            size_t slashes = 0;
            while (i < line.size() && line[i] == '\\') ++slashes, ++i;
            if (i < line.size() && line[i] == '"') {
                current.append(slashes / 2, '\\');
                if (slashes % 2)
                    current.push_back('"');
                else
                    --i;  // the quote is seen again below as a quote
            } else {
                current.append(slashes, '\\');
                --i;
            }
            continue;
        }
        if (c == '"') {
            if (quoted && i + 1 < line.size() && line[i + 1] == '"') {
                current.push_back('"');
                ++i;
            } else {
                quoted = !quoted;
            }
            continue;
        }
        current.push_back(c);
    }
    if (inArgument) args.push_back(std::move(current));
    return args;
}

std::string joinCommandLine(const std::vector<std::string>& args) {
    std::string line;
    for (const std::string& arg : args) {
        if (!line.empty()) line.push_back(' ');
        if (!arg.empty() && arg.find_first_of(" \t\"") == std::string::npos) {
            line += arg;
            continue;
        }
        line.push_back('"');
        size_t slashes = 0;
        for (const char c : arg) {
            if (c == '\\') {
                ++slashes;
                continue;
            }
            // Backslashes before a quote are doubled, and the quote escaped.
            line.append(c == '"' ? slashes * 2 + 1 : slashes, '\\');
            slashes = 0;
            line.push_back(c);
        }
        line.append(slashes * 2, '\\');  // before the closing quote
        line.push_back('"');
    }
    return line;
}

}  // namespace vt
