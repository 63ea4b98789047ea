#include "platform/service_status.h"

#include <systemd/sd-bus.h>

#include <cstdlib>
#include <cstring>
#include <memory>

namespace vt {

namespace {

constexpr char kDestination[] = "org.freedesktop.systemd1";
constexpr char kManagerPath[] = "/org/freedesktop/systemd1";
constexpr char kManager[] = "org.freedesktop.systemd1.Manager";
constexpr char kUnit[] = "org.freedesktop.systemd1.Unit";

struct BusDeleter {
    void operator()(sd_bus* bus) const { sd_bus_flush_close_unref(bus); }
};
using Bus = std::unique_ptr<sd_bus, BusDeleter>;

std::string unitName(const std::string& name) {
    return name.find('.') == std::string::npos ? name + ".service" : name;
}

bool openBus(Bus& bus, std::string& error) {
    sd_bus* raw = nullptr;
    const int r = sd_bus_open_system(&raw);
    if (r < 0) {
        error = std::string("cannot reach the system bus: ") + std::strerror(-r);
        return false;
    }
    bus.reset(raw);
    return true;
}

// Keeps an sd_bus_error and frees what it holds.
struct BusError {
    sd_bus_error e = SD_BUS_ERROR_NULL;
    ~BusError() { sd_bus_error_free(&e); }
    std::string text(int r) const {
        return e.message ? std::string(e.message) : std::string(std::strerror(-r));
    }
};

bool unitProperty(sd_bus* bus, const char* path, const char* property, std::string& value,
                  std::string& error) {
    BusError e;
    char* text = nullptr;
    const int r = sd_bus_get_property_string(bus, kDestination, path, kUnit, property, &e.e, &text);
    if (r < 0) {
        error = "systemd does not answer: " + e.text(r);
        return false;
    }
    value = text;
    std::free(text);
    return true;
}

}  // namespace

bool queryServiceState(const std::string& name, ServiceState& state, std::string& error) {
    Bus bus;
    if (!openBus(bus, error)) return false;
    BusError e;
    sd_bus_message* reply = nullptr;
    // LoadUnit, not GetUnit: an installed but inactive service is often not loaded.
    int r = sd_bus_call_method(bus.get(), kDestination, kManagerPath, kManager, "LoadUnit", &e.e,
                               &reply, "s", unitName(name).c_str());
    if (r < 0) {
        error = "systemd does not answer: " + e.text(r);
        return false;
    }
    const char* path = nullptr;
    r = sd_bus_message_read(reply, "o", &path);
    const std::string unitPath = r >= 0 && path ? path : "";
    sd_bus_message_unref(reply);
    if (unitPath.empty()) {
        error = "systemd gave no unit path";
        return false;
    }
    std::string load, active;
    if (!unitProperty(bus.get(), unitPath.c_str(), "LoadState", load, error) ||
        !unitProperty(bus.get(), unitPath.c_str(), "ActiveState", active, error))
        return false;
    if (load == "not-found")
        state = ServiceState::NotFound;
    else if (active == "active" || active == "reloading")
        state = ServiceState::Running;
    else if (active == "activating")
        state = ServiceState::Starting;
    else if (active == "deactivating")
        state = ServiceState::Stopping;
    else
        state = ServiceState::Stopped;
    return true;
}

bool startSystemService(const std::string& name, std::string& error) {
    ServiceControlResult result;
    if (controlSystemService(name, ServiceControl::Start, result)) return true;
    error = result.text;
    return false;
}

bool controlSystemService(const std::string& name, ServiceControl control,
                          ServiceControlResult& result) {
    Bus bus;
    if (!openBus(bus, result.text)) {
        result.failed = ServiceControlResult::Step::Manager;
        result.error = ENOENT;
        return false;
    }
    // Pause and continue are the freezing and thawing of the unit's processes.
    const bool job = control == ServiceControl::Start || control == ServiceControl::Stop;
    const char* method = control == ServiceControl::Start   ? "StartUnit"
                         : control == ServiceControl::Stop  ? "StopUnit"
                         : control == ServiceControl::Pause ? "FreezeUnit"
                                                            : "ThawUnit";
    BusError e;
    sd_bus_message* reply = nullptr;
    const std::string unit = unitName(name);
    const int r = job ? sd_bus_call_method(bus.get(), kDestination, kManagerPath, kManager, method,
                                           &e.e, &reply, "ss", unit.c_str(), "replace")
                      : sd_bus_call_method(bus.get(), kDestination, kManagerPath, kManager, method,
                                           &e.e, &reply, "s", unit.c_str());
    if (r < 0) {
        const bool missing = sd_bus_error_has_name(&e.e, "org.freedesktop.systemd1.NoSuchUnit");
        result.failed =
            missing ? ServiceControlResult::Step::Service : ServiceControlResult::Step::Request;
        result.error = static_cast<uint32_t>(-r);
        result.text = e.text(r);
        return false;
    }
    sd_bus_message_unref(reply);
    return true;
}

}  // namespace vt
