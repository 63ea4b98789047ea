#include "sources/setting_list.h"

#include <algorithm>

namespace vt {

std::vector<std::string> splitSettingList(const std::string& list) {
    std::vector<std::string> entries;
    size_t start = 0;
    while (start <= list.size()) {
        const size_t end = std::min(list.find(';', start), list.size());
        std::string entry = list.substr(start, end - start);
        entry.erase(0, entry.find_first_not_of(' '));
        entry.erase(entry.find_last_not_of(' ') + 1);
        if (!entry.empty()) entries.push_back(entry);
        start = end + 1;
    }
    return entries;
}

}  // namespace vt
