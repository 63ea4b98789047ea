#include "platform/computer_name.h"

#include <unistd.h>

#include <climits>
#include <cstring>

#include "platform/utf_codec.h"

namespace vt {
bool localComputerName(std::u16string& name) {
    char buffer[HOST_NAME_MAX + 1] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0) return false;
    std::string host(buffer, strnlen(buffer, sizeof buffer));
    const auto dot = host.find('.');
    if (dot != std::string::npos) host.resize(dot);
    if (host.empty()) return false;
    utf8ToUtf16(host, name);
    return true;
}
}  // namespace vt
