#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/quillet_string.h"
#include "platform/service_status.h"
#include "sources/info_source.h"
#include "sources/threshold_watch.h"

class CInfoUnit;

// Watches a list of the system's services and alerts when one is not running (again every
// repeat interval while it stays down, and once when it runs again); optionally asks the
// service manager to start it. Units carry the service name in "sourceproc", where filters on
// "ntservicename" look.
class CInfoSourceNTServiceMonitor : public CInfoSource {
  public:
    using Query = std::function<bool(const std::string&, vt::ServiceState&, std::string&)>;
    using Starter = std::function<bool(const std::string&, std::string&)>;

    explicit CInfoSourceNTServiceMonitor(const vt::InfoSourceContext& context);
    ~CInfoSourceNTServiceMonitor() override;

    bool LoadConfig() override;
    void Run() override;
    // One look at every service; returns the number of units handed over.
    int check();

    CQuilletString m_szServiceNames;        // "szServiceNames": names separated by ";"
    uint32_t m_nSleepTime = 60000;          // "nSleepTime", milliseconds
    uint32_t m_nRestartService = 0;         // "nRestartService": 1 starts a stopped service
    uint32_t m_nRepeatInterval = 3600;      // "nRepeatInterval", seconds; 0 alerts once
    uint32_t m_nReportRecovery = 1;         // "nReportRecovery"
    Query m_query = vt::queryServiceState;  // tests put in their own service manager
    Starter m_start = vt::startSystemService;

  private:
    struct Watched {
        std::string name;
        CThresholdWatch watch;
    };
    std::unique_ptr<CInfoUnit> makeUnit(const Watched& w, vt::ServiceState state,
                                        CThresholdWatch::Event event,
                                        const std::string& restart) const;
    std::string restart(const std::string& name);

    std::vector<Watched> m_watched;
    bool m_failureLogged = false;
};
