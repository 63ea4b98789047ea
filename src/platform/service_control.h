#pragma once
#include <cstdint>
#include <string>

// The service control manager as the host sees it. Windows: the SCM. Linux: systemd (a unit
// file for install and remove, sd_notify for status, SIGTERM and SIGINT as the stop control).
namespace vt {

// Same fields, same order and same meaning as the Windows SERVICE_STATUS block.
struct ServiceStatus {
    uint32_t serviceType = 16;  // own process
    uint32_t currentState = 1;  // 1 stopped, 2 start pending, 3 stop pending, 4 running
    uint32_t controlsAccepted = 1;
    uint32_t win32ExitCode = 0;
    uint32_t serviceSpecificExitCode = 0;
    uint32_t checkPoint = 0;
    uint32_t waitHint = 0;
};

using ServiceStatusHandle = uintptr_t;  // 0: none
using ServiceMainRoutine = void (*)(uint32_t argc, char** argv);
using ServiceControlHandler = void (*)(uint32_t control);
using ConsoleStopHandler = void (*)();

// Installed means the service can be opened by name (Linux: the unit file exists).
bool serviceIsInstalled(const char* name);
// Creates the service: own process, automatic start, normal error control, LocalSystem.
// Linux: writes the unit file and asks systemd to reload and enable it (failures of systemctl
// are written as a warning to standard error and do not fail the install). False on failure,
// the system error set.
bool serviceCreate(const char* name, const std::string& binaryPath);
// Deletes the service (Linux: disables the unit and deletes the file). False on failure.
bool serviceDelete(const char* name);

// Runs the dispatcher: calls `serviceMain` on a thread of its own and plays the dispatcher
// thread until it has returned. False with system error 1063 at once when the process was not
// started by the service manager (Linux: NOTIFY_SOCKET is not set).
bool runServiceDispatcher(const char* name, ServiceMainRoutine serviceMain);
// Registers the control handler of the service; 0 on failure (system error set).
ServiceStatusHandle registerServiceControlHandler(const char* name, ServiceControlHandler handler);
// Sends the status. Linux: sd_notify with READY=1 for 4, STOPPING=1 for 3, always STATUS=<text>,
// and EXTEND_TIMEOUT_USEC=<wait hint> while stop is pending.
bool sendServiceStatus(ServiceStatusHandle handle, const ServiceStatus& status);

// Console mode: calls `handler` on a thread of its own when the console interrupt arrives
// (Windows: Ctrl+C or Ctrl+Break; Linux: SIGINT or SIGTERM). Remove before the process ends.
bool installConsoleStopHandler(ConsoleStopHandler handler);
// The user controls the agent's log rotation request and its counters request arrive as.
inline constexpr uint32_t kReopenLogsControl = 128;
inline constexpr uint32_t kWriteCountersControl = 129;
// Linux: SIGHUP and SIGUSR1 are handed to `handler` as kReopenLogsControl and
// kWriteCountersControl, in service and console mode.
// Windows: nothing to do, the service control manager delivers user controls to the service.
void installUserControlSignal(ServiceControlHandler handler);
void removeConsoleStopHandler();

// Linux only, exposed for tests: the systemd unit text for the given executable and hive.
std::string systemdUnitText(const std::string& binaryPath, const std::string& registryPath);

}  // namespace vt
