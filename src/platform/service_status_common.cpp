#include "platform/service_status.h"

namespace vt {

const char* serviceStateText(ServiceState state) noexcept {
    switch (state) {
        case ServiceState::Running:
            return "running";
        case ServiceState::Starting:
            return "starting";
        case ServiceState::Stopping:
            return "stopping";
        case ServiceState::Stopped:
            return "stopped";
        case ServiceState::Pausing:
            return "pausing";
        case ServiceState::Paused:
            return "paused";
        case ServiceState::Continuing:
            return "continuing";
        case ServiceState::NotFound:
            return "not installed";
    }
    return "unknown";
}

}  // namespace vt
