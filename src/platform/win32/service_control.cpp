#include "platform/service_control.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace vt {
namespace {

ServiceMainRoutine g_serviceMain = nullptr;
std::atomic<ServiceControlHandler> g_controlHandler{nullptr};
std::atomic<ConsoleStopHandler> g_consoleHandler{nullptr};

// The dispatcher returns as soon as the service reports "stopped", which the service thread
// does a moment before it leaves its main routine; the process must not end (and destroy the
// service object) under that thread, so the dispatcher waits for it.
std::mutex g_mainMutex;
std::condition_variable g_mainDone;
int g_activeMains = 0;

void WINAPI serviceMainTrampoline(DWORD argc, LPSTR* argv) {
    {
        std::lock_guard lock(g_mainMutex);
        ++g_activeMains;
    }
    if (g_serviceMain) g_serviceMain(argc, argv);
    std::lock_guard lock(g_mainMutex);
    --g_activeMains;
    g_mainDone.notify_all();
}

void WINAPI controlHandlerTrampoline(DWORD control) {
    if (ServiceControlHandler handler = g_controlHandler.load()) handler(control);
}

BOOL WINAPI consoleHandlerTrampoline(DWORD ctrlType) {
    if (ctrlType != CTRL_C_EVENT && ctrlType != CTRL_BREAK_EVENT) return FALSE;
    if (ConsoleStopHandler handler = g_consoleHandler.load()) handler();
    return TRUE;
}

// Closes a service handle on every path out of a function.
struct ScHandle {
    SC_HANDLE h;
    explicit ScHandle(SC_HANDLE handle) : h(handle) {}
    ~ScHandle() {
        if (h) {
            const DWORD error = GetLastError();
            CloseServiceHandle(h);
            SetLastError(error);
        }
    }
    ScHandle(const ScHandle&) = delete;
    ScHandle& operator=(const ScHandle&) = delete;
    explicit operator bool() const { return h != nullptr; }
};

// A crash of the process is followed by a restart; this is a best effort, a manager that does
// not know failure actions leaves the service without them.
void setRestartOnFailure(SC_HANDLE service) {
    SC_ACTION actions[3] = {
        {SC_ACTION_RESTART, 10000}, {SC_ACTION_RESTART, 10000}, {SC_ACTION_RESTART, 60000}};
    SERVICE_FAILURE_ACTIONSA failure{};
    failure.dwResetPeriod = 86400;
    failure.cActions = 3;
    failure.lpsaActions = actions;
    ChangeServiceConfig2A(service, SERVICE_CONFIG_FAILURE_ACTIONS, &failure);
}

}  // namespace

bool serviceIsInstalled(const char* name) {
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) return false;
    ScHandle service(OpenServiceA(manager.h, name, SERVICE_QUERY_CONFIG));
    return static_cast<bool>(service);
}

bool serviceCreate(const char* name, const std::string& binaryPath) {
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) return false;
    ScHandle service(CreateServiceA(
        manager.h, name, name, SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START,
        SERVICE_ERROR_NORMAL, binaryPath.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr));
    if (!service) return false;
    setRestartOnFailure(service.h);
    return true;
}

bool serviceDelete(const char* name) {
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
    if (!manager) return false;
    ScHandle service(OpenServiceA(manager.h, name, DELETE));
    if (!service) return false;
    return DeleteService(service.h) != FALSE;
}

bool runServiceDispatcher(const char* name, ServiceMainRoutine serviceMain) {
    g_serviceMain = serviceMain;
    SERVICE_TABLE_ENTRYA table[] = {{const_cast<char*>(name), serviceMainTrampoline},
                                    {nullptr, nullptr}};
    if (!StartServiceCtrlDispatcherA(table)) return false;
    std::unique_lock lock(g_mainMutex);
    g_mainDone.wait_for(lock, std::chrono::seconds(5), [] { return g_activeMains == 0; });
    return true;
}

ServiceStatusHandle registerServiceControlHandler(const char* name, ServiceControlHandler handler) {
    g_controlHandler = handler;
    return reinterpret_cast<ServiceStatusHandle>(
        RegisterServiceCtrlHandlerA(name, controlHandlerTrampoline));
}

bool sendServiceStatus(ServiceStatusHandle handle, const ServiceStatus& status) {
    if (handle == 0) return false;
    SERVICE_STATUS s{};
    s.dwServiceType = status.serviceType;
    s.dwCurrentState = status.currentState;
    s.dwControlsAccepted = status.controlsAccepted;
    s.dwWin32ExitCode = status.win32ExitCode;
    s.dwServiceSpecificExitCode = status.serviceSpecificExitCode;
    s.dwCheckPoint = status.checkPoint;
    s.dwWaitHint = status.waitHint;
    return SetServiceStatus(reinterpret_cast<SERVICE_STATUS_HANDLE>(handle), &s) != FALSE;
}

void installUserControlSignal(ServiceControlHandler) {}

bool installConsoleStopHandler(ConsoleStopHandler handler) {
    g_consoleHandler = handler;
    return SetConsoleCtrlHandler(consoleHandlerTrampoline, TRUE) != FALSE;
}

void removeConsoleStopHandler() {
    SetConsoleCtrlHandler(consoleHandlerTrampoline, FALSE);
    g_consoleHandler = nullptr;
}

}  // namespace vt
