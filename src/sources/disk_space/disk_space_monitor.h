#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/quillet_string.h"
#include "platform/system_stats.h"
#include "sources/info_source.h"
#include "sources/threshold_watch.h"

class CInfoUnit;

// Watches the free space of one or more file systems and alerts when it falls below the
// threshold (in MB or percent of the size), again every repeat interval while it stays low,
// and when it recovers. Units carry "currusage" (used MB) and "maxavailable" (size in MB), so
// that disk space filters compute the free space from them.
class CInfoSourceDiskSpaceMonitor : public CInfoSource {
  public:
    using Reader = std::function<bool(const std::string&, vt::DiskSpace&, uint32_t&)>;

    explicit CInfoSourceDiskSpaceMonitor(const vt::InfoSourceContext& context);
    ~CInfoSourceDiskSpaceMonitor() override;

    bool LoadConfig() override;
    void Run() override;
    // One reading of every path; the units it produces go to the queue.
    void check();
    // The unit for one reading and watch event (null for Event::None).
    std::unique_ptr<CInfoUnit> makeUnit(const std::string& path, const vt::DiskSpace& space,
                                        CThresholdWatch::Event event) const;
    bool isLow(const vt::DiskSpace& space) const;

    uint32_t m_nSleepTime = 60000;         // "nSleepTime", milliseconds
    CQuilletString m_szDiskPaths;          // "szDiskPaths": paths separated by ";"
    uint32_t m_nThresholdMode = 1;         // "nThresholdMode": 0 MB free, 1 percent free
    uint32_t m_nThreshold = 10;            // "nThreshold"
    uint32_t m_nRepeatInterval = 3600;     // "nRepeatInterval", seconds; 0 alerts once per crossing
    uint32_t m_nReportRecovery = 1;        // "nReportRecovery"
    Reader m_reader = vt::queryDiskSpace;  // tests put in their own readings

  private:
    struct Watched {
        std::string path;
        CThresholdWatch watch;
        bool failureLogged = false;
    };
    std::vector<Watched> m_watched;
};
