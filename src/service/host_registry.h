#pragma once
#include <string>

namespace vt {
// Registers the event source of the service: the key
// SYSTEM\CurrentControlSet\Services\EventLog\Application\<name> with "EventMessageFile"
// (REG_EXPAND_SZ, the executable that carries the message table) and "TypesSupported" 7.
// False when the key or a value cannot be written (system error set).
bool registerEventSourceKey(const char* serviceName, const std::string& messageFile);
}  // namespace vt
