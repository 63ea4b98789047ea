#pragma once
#include <cstdint>
#include <functional>
#include <string>

#include "engine/action_config.h"
#include "engine/action_types.h"
#include "platform/service_status.h"

// Settings of the control-service action: the service ("szServiceName", as configured, never
// from the unit), the request ("nAction": 1 start, 2 stop, 4 pause, 5 continue) and how long
// to wait for it to be carried out ("nTimeOutLimit", milliseconds).
class CActionConfigControlNTService : public CActionConfig {
  public:
    CActionConfigControlNTService(const CQuilletString& keyPath,
                                  const vt::ActionLoadContext& context)
        : CActionConfig(keyPath), m_clock(context.clock) {}
    void LoadConfig() override;

    CQuilletString m_szServiceName;
    uint32_t m_nAction = 1;
    uint32_t m_nTimeOutLimit = 60000;
    vt::Clock* m_clock;  // what the pending-state polling waits with
};

// Sends the request and waits while the service is pending, looking every second, up to the
// time-out. The service manager is reached through the two functions below, which tests
// replace.
class CActionControlNTService : public CAction {
  public:
    using Control =
        std::function<bool(const std::string&, vt::ServiceControl, vt::ServiceControlResult&)>;
    using Query = std::function<bool(const std::string&, vt::ServiceState&, std::string&)>;

    explicit CActionControlNTService(CActionConfigControlNTService& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    Control m_control = vt::controlSystemService;
    Query m_query = vt::queryServiceState;

  private:
    bool request(const std::string& name, vt::ServiceControl control);
    void waitWhilePending(const std::string& name);

    CActionConfigControlNTService& m_config;
};
