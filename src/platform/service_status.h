#pragma once
// The state of the system's services, for the service monitor: the service control manager on
// Windows, systemd over the system bus on Linux (a name without a suffix is taken as
// "<name>.service").
#include <string>

namespace vt {

enum class ServiceState {
    Running,
    Starting,
    Stopping,
    Stopped,
    Pausing,
    Paused,
    Continuing,
    NotFound
};

// Between two states: the service manager is still working on a request.
inline bool isPending(ServiceState s) noexcept {
    return s == ServiceState::Starting || s == ServiceState::Stopping ||
           s == ServiceState::Pausing || s == ServiceState::Continuing;
}

// The requests of the control-service action, by its configuration codes.
enum class ServiceControl { Start = 1, Stop = 2, Pause = 4, Continue = 5 };

// Which step of a request failed, with the system's error number.
struct ServiceControlResult {
    enum class Step { None, Manager, Service, Request } failed = Step::None;
    uint32_t error = 0;
    std::string text;  // the reason in words where the system gives one
};

const char* serviceStateText(ServiceState state) noexcept;

// False with `error` saying why when the service manager cannot be asked (no system bus, no
// rights); a service it does not know is NotFound, not a failure.
bool queryServiceState(const std::string& name, ServiceState& state, std::string& error);
// Asks the service manager to start the service; false with `error`.
bool startSystemService(const std::string& name, std::string& error);
// Sends one request (Linux: start, stop, freeze and thaw of the unit); false with `result`.
bool controlSystemService(const std::string& name, ServiceControl control,
                          ServiceControlResult& result);

}  // namespace vt
