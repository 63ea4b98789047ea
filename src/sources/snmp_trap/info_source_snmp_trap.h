#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "base/quillet_string.h"
#include "platform/snmp_trap_listener.h"
#include "sources/info_source.h"

class CInfoUnitSNMPTrap;

// Receives SNMP traps (version 1 and 2c, informs, and version 3 for configured users) and
// turns each into a unit whose properties hold the trap's fields and variable bindings.
class CInfoSourceSNMPTrap : public CInfoSource {
  public:
    explicit CInfoSourceSNMPTrap(const vt::InfoSourceContext& context);

    bool LoadConfig() override;
    void Run() override;

    // The unit one decoded trap makes, filled but not yet handed over.
    std::unique_ptr<CInfoUnitSNMPTrap> buildUnit(const vt::SnmpTrap& trap) const;
    // What the listener is opened with: transports, version filter, users, MIB directories.
    vt::SnmpListenerOptions listenerOptions() const;

    uint32_t m_nListenPort = 162;
    uint32_t m_nResolveLongMibNames = 0;
    int32_t m_nSnmpVersion = -1;
    CQuilletString m_szMyIPAddress{u"0.0.0.0"};
    std::vector<vt::SnmpUsmUser> m_users;  // the "SNMPv3Users" subkey

  private:
    void readUsers(CRegAccess& reg);
    void listen(vt::CSnmpTrapListener& listener);
};
