#pragma once
// What the system monitors read from the machine: the space of a file system and the time its
// processors spent busy.
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vt {

struct DiskSpace {
    uint64_t totalBytes = 0;
    uint64_t availableBytes = 0;  // what an unprivileged program can still write
};

// The file system holding `path` (a mount point on Linux, "C:\" or a share on Windows). False
// with `error` set (errno or GetLastError) when it cannot be read.
bool queryDiskSpace(const std::string& path, DiskSpace& out, uint32_t& error) noexcept;
// The path a disk space monitor watches when none is configured: "/" or "C:\".
const char* defaultDiskPath() noexcept;

struct CpuTimes {
    uint64_t busy = 0;   // in the system's ticks
    uint64_t total = 0;  // busy and idle
};

// [0] all processors together, then one entry per processor where the system tells them apart
// (Windows gives only the total). False when the counters cannot be read.
bool queryCpuTimes(std::vector<CpuTimes>& out);
// The counters of a /proc/stat text: "cpu" first, then "cpu0", "cpu1" ... Idle and I/O wait
// count as idle. False when there is no "cpu" line.
bool parseProcStat(std::string_view text, std::vector<CpuTimes>& out);

}  // namespace vt
