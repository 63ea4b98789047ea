#include <charconv>

#include "platform/system_stats.h"

namespace vt {

namespace {

bool parseCpuLine(std::string_view line, CpuTimes& out) {
    // user nice system idle iowait irq softirq steal (guest time is already in user)
    uint64_t fields[8] = {};
    size_t count = 0;
    size_t pos = line.find(' ');
    while (pos != std::string_view::npos && count < 8) {
        while (pos < line.size() && line[pos] == ' ') ++pos;
        const char* begin = line.data() + pos;
        const char* end = line.data() + line.size();
        auto [next, ec] = std::from_chars(begin, end, fields[count]);
        if (ec != std::errc() || next == begin) break;
        ++count;
        pos = static_cast<size_t>(next - line.data());
    }
    if (count < 4) return false;
    const uint64_t idle = fields[3] + fields[4];
    out.total = 0;
    for (size_t i = 0; i < count; ++i) out.total += fields[i];
    out.busy = out.total - idle;
    return true;
}

}  // namespace

bool parseProcStat(std::string_view text, std::vector<CpuTimes>& out) {
    out.clear();
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = text.substr(0, end);
        text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
        if (line.substr(0, 3) != "cpu") continue;
        const bool total = line.size() > 3 && line[3] == ' ';
        if (total != out.empty()) continue;  // the total line first, then the processors
        CpuTimes times;
        if (parseCpuLine(line, times)) out.push_back(times);
    }
    return !out.empty();
}

}  // namespace vt
