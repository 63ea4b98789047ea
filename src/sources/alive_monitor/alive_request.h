#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "base/quillet_string.h"
#include "sources/info_source.h"
#include "sources/threshold_watch.h"

class CInfoUnit;

// The asking half of the alive monitor: every interval it asks a peer agent's echo responder
// whether it is alive, and alerts when no echo comes back, after the retries, within the
// time-out (again every repeat interval while it stays silent, and once when it answers again).
class CInfoSourceAliveMonRequest : public CInfoSource {
  public:
    explicit CInfoSourceAliveMonRequest(const vt::InfoSourceContext& context);
    ~CInfoSourceAliveMonRequest() override;

    bool LoadConfig() override;
    void Run() override;

    struct Outcome {
        uint32_t status = 0;  // 0 an echo came; otherwise the socket error (10060: none in time)
        uint32_t roundTripMs = 0;
        std::string responder;
    };
    // One round of requests to the target, with retries.
    Outcome ask();
    // The unit for an outcome and its watch event (null for Event::None).
    std::unique_ptr<CInfoUnit> makeUnit(const Outcome& outcome, CThresholdWatch::Event event) const;

    CQuilletString m_szTargetHost;      // "szTargetHost"
    uint32_t m_nTargetPort = 13514;     // "nTargetPort"
    uint32_t m_nSleepTime = 60000;      // "nSleepTime": milliseconds between two rounds
    uint32_t m_nTimeOutLimit = 5000;    // "nTimeOutLimit": milliseconds to wait for each echo
    uint32_t m_nNbrOfRetries = 2;       // "nNbrOfRetries": further requests before alerting
    uint32_t m_nRepeatInterval = 3600;  // "nRepeatInterval", seconds; 0 alerts once
    uint32_t m_nReportRecovery = 1;     // "nReportRecovery"

  private:
    std::unique_ptr<CThresholdWatch> m_watch;
    uint32_t m_sequence;
};
