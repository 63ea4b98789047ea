#pragma once
#include <cstdint>
#include <string>

#include "engine/action_config.h"

class CIPAddress;

// Settings of the resolve-host-name action: the property holding an address
// ("szSourcePropertyName", or a template when it contains "%"), the property the name goes to
// ("szDestinationPropertyName"), whether the shared host name cache is used ("nCacheNameEntry")
// and whether a text that is already a name is resolved to its canonical name
// ("nResolveIfName"; 0 copies it unchanged).
class CActionConfigResolveHostname : public CActionConfig {
  public:
    explicit CActionConfigResolveHostname(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szDestinationPropertyName;
    CQuilletString m_szSourcePropertyName;
    uint32_t m_nCacheNameEntry = 1;
    uint32_t m_nResolveIfName = 1;
};

// Writes the host name of an address property into another property. An address without a
// name gives its own text, as received syslog does.
class CActionResolveHostname : public CAction {
  public:
    explicit CActionResolveHostname(CActionConfigResolveHostname& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // The name for `text` under the settings.
    std::string resolve(const std::string& text) const;

  private:
    std::string nameOf(const CIPAddress& address) const;

    CActionConfigResolveHostname& m_config;
};
