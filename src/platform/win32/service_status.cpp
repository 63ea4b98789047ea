#include "platform/service_status.h"

#include <windows.h>

#include <memory>
#include <type_traits>

#include "platform/utf_codec.h"

namespace vt {

namespace {

struct HandleCloser {
    void operator()(SC_HANDLE h) const { CloseServiceHandle(h); }
};
using ServiceHandle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, HandleCloser>;

std::string errorText(const char* what) {
    return std::string(what) + " failed - error " + std::to_string(GetLastError());
}

// Opens the service with `access`; null with `error` set, or with `missing` for an unknown name.
ServiceHandle openService(const std::string& name, DWORD access, bool& missing,
                          std::string& error) {
    missing = false;
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        error = errorText("OpenSCManager");
        return nullptr;
    }
    const std::u16string wide = utf8ToUtf16(name);
    ServiceHandle service(
        OpenServiceW(manager.get(), reinterpret_cast<LPCWSTR>(wide.c_str()), access));
    if (!service) {
        missing = GetLastError() == ERROR_SERVICE_DOES_NOT_EXIST;
        if (!missing) error = errorText("OpenService");
    }
    return service;
}

}  // namespace

bool queryServiceState(const std::string& name, ServiceState& state, std::string& error) {
    bool missing = false;
    ServiceHandle service = openService(name, SERVICE_QUERY_STATUS, missing, error);
    if (missing) {
        state = ServiceState::NotFound;
        return true;
    }
    if (!service) return false;
    SERVICE_STATUS status{};
    if (!QueryServiceStatus(service.get(), &status)) {
        error = errorText("QueryServiceStatus");
        return false;
    }
    switch (status.dwCurrentState) {
        case SERVICE_RUNNING:
            state = ServiceState::Running;
            break;
        case SERVICE_START_PENDING:
        case SERVICE_CONTINUE_PENDING:
            state = ServiceState::Starting;
            break;
        case SERVICE_STOP_PENDING:
        case SERVICE_PAUSE_PENDING:
            state = ServiceState::Stopping;
            break;
        default:
            state = ServiceState::Stopped;
            break;
    }
    return true;
}

bool startSystemService(const std::string& name, std::string& error) {
    bool missing = false;
    ServiceHandle service = openService(name, SERVICE_START, missing, error);
    if (!service) {
        if (missing) error = "the service is not installed";
        return false;
    }
    if (!StartServiceW(service.get(), 0, nullptr) &&
        GetLastError() != ERROR_SERVICE_ALREADY_RUNNING) {
        error = errorText("StartService");
        return false;
    }
    return true;
}

bool controlSystemService(const std::string& name, ServiceControl control,
                          ServiceControlResult& result) {
    ServiceHandle manager(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) {
        result = {ServiceControlResult::Step::Manager, GetLastError(), "OpenSCManager failed"};
        return false;
    }
    const std::u16string wide = utf8ToUtf16(name);
    const DWORD access = control == ServiceControl::Start  ? SERVICE_START
                         : control == ServiceControl::Stop ? SERVICE_STOP
                                                           : SERVICE_PAUSE_CONTINUE;
    ServiceHandle service(
        OpenServiceW(manager.get(), reinterpret_cast<LPCWSTR>(wide.c_str()), access));
    if (!service) {
        result = {ServiceControlResult::Step::Service, GetLastError(), "OpenService failed"};
        return false;
    }
    SERVICE_STATUS status{};
    const BOOL ok = control == ServiceControl::Start ? StartServiceW(service.get(), 0, nullptr)
                    : control == ServiceControl::Stop
                        ? ControlService(service.get(), SERVICE_CONTROL_STOP, &status)
                    : control == ServiceControl::Pause
                        ? ControlService(service.get(), SERVICE_CONTROL_PAUSE, &status)
                        : ControlService(service.get(), SERVICE_CONTROL_CONTINUE, &status);
    if (!ok) {
        result = {ServiceControlResult::Step::Request, GetLastError(), "the request failed"};
        return false;
    }
    return true;
}

}  // namespace vt
