#pragma once
// The state of the system's services, for the service monitor: the service control manager on
// Windows, systemd over the system bus on Linux (a name without a suffix is taken as
// "<name>.service").
#include <string>

namespace vt {

enum class ServiceState { Running, Starting, Stopping, Stopped, NotFound };

const char* serviceStateText(ServiceState state) noexcept;

// False with `error` saying why when the service manager cannot be asked (no system bus, no
// rights); a service it does not know is NotFound, not a failure.
bool queryServiceState(const std::string& name, ServiceState& state, std::string& error);
// Asks the service manager to start the service; false with `error`.
bool startSystemService(const std::string& name, std::string& error);

}  // namespace vt
