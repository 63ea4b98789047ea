#pragma once
#include <cstddef>
#include <string>

#include "platform/snmp_trap_listener.h"

namespace vt {

// The longest message text a trap makes; a longer one is cut and marked " [TRUNCATED]\n".
inline constexpr size_t kSnmpMessageLimit = 8192;

// "Cold Start" ... "Enterprise Specific" for generic types 0 to 6, else "Unknown Type".
const char* snmpGenericTrapName(long genericType) noexcept;
// The up-time part of a version 1 message: ticks, then days and h:mm:ss.cc ("123, 0:00:01.23",
// "8640000, 1 day 0:00:00.00").
std::string snmpUptimeText(unsigned long ticks);
// "snmp_var_<n>".
std::string snmpVarPropertyName(size_t number);
// The value of "snmp_var_<n>": "<name>: '<value>'".
std::string snmpVarPropertyText(const SnmpVarBind& binding);
// The unit's message text for a decoded trap, cut to `limit`.
std::string snmpTrapMessage(const SnmpTrap& trap, size_t limit = kSnmpMessageLimit);

}  // namespace vt
