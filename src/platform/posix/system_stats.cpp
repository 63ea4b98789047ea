#include "platform/system_stats.h"

#include <sys/statvfs.h>

#include <cerrno>
#include <fstream>
#include <sstream>

namespace vt {

bool queryDiskSpace(const std::string& path, DiskSpace& out, uint32_t& error) noexcept {
    struct statvfs s {};
    if (::statvfs(path.c_str(), &s) != 0) {
        error = static_cast<uint32_t>(errno);
        return false;
    }
    out.totalBytes = static_cast<uint64_t>(s.f_blocks) * s.f_frsize;
    out.availableBytes = static_cast<uint64_t>(s.f_bavail) * s.f_frsize;
    return true;
}

const char* defaultDiskPath() noexcept {
    return "/";
}

bool queryCpuTimes(std::vector<CpuTimes>& out) {
    std::ifstream in("/proc/stat");
    std::stringstream text;
    text << in.rdbuf();
    return in.good() && parseProcStat(text.str(), out);
}

}  // namespace vt
