#pragma once
#include <cstdint>

#include "base/quillet_string.h"
#include "sources/info_source.h"

// Proves the agent and its rules are alive: a unit with a configured message every interval,
// which a receiver elsewhere can miss and alert on.
class CInfoSourceHeartbeat : public CInfoSource {
  public:
    explicit CInfoSourceHeartbeat(const vt::InfoSourceContext& context);

    bool LoadConfig() override;
    void Run() override;
    // One heartbeat unit handed to the queue.
    bool beat();

    uint32_t m_nSleepTime = 60000;             // "nSleepTime", milliseconds
    CQuilletString m_szMessage{u"Heartbeat"};  // "szHeartbeatMessage"
};
