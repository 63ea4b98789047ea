#include "platform/snmp_trap_listener.h"

// The Windows build has no SNMP library yet: the trap receiver reports that it cannot run.
namespace vt {

struct CSnmpTrapListener::Impl {
    SnmpLogSink log;
};

bool snmpAvailable() noexcept {
    return false;
}

bool decodeSnmpDatagram(std::string_view, bool, SnmpTrap&) {
    return false;
}

CSnmpTrapListener::CSnmpTrapListener(SnmpListenerOptions, SnmpTrapHandler, SnmpLogSink log)
    : m_impl(std::make_unique<Impl>()) {
    m_impl->log = std::move(log);
}

CSnmpTrapListener::~CSnmpTrapListener() = default;

bool CSnmpTrapListener::open() {
    if (m_impl->log)
        m_impl->log(SnmpLogLevel::Error,
                    "CInfoSourceSNMPTrap| SNMP is not available in this build\r\n");
    return false;
}

bool CSnmpTrapListener::poll(std::chrono::milliseconds) {
    return false;
}

void CSnmpTrapListener::close() {}

std::string CSnmpTrapListener::longName(const std::vector<uint32_t>& name, size_t) const {
    std::string path;
    for (uint32_t id : name) {
        if (!path.empty()) path += '.';
        path += std::to_string(id);
    }
    return path;
}

}  // namespace vt
