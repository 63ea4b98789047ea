#include "service/info_source_types.h"

#include <map>
#include <mutex>

#include "sources/alive_monitor/alive_echo.h"
#include "sources/alive_monitor/alive_request.h"
#include "sources/cpu_monitor/cpu_monitor.h"
#include "sources/database_monitor/database_monitor.h"
#include "sources/disk_space/disk_space_monitor.h"
#include "sources/event_log/event_log_monitor.h"
#include "sources/file_monitor/file_monitor.h"
#include "sources/heartbeat/heartbeat.h"
#include "sources/probes/dialogue_probes.h"
#include "sources/probes/port_ping_probes.h"
#include "sources/serial_monitor/serial_monitor.h"
#include "sources/service_monitor/service_monitor.h"
#include "sources/snmp_trap/info_source_snmp_trap.h"
#include "sources/syslog/info_source_syslog.h"

namespace vt {
namespace {

// The agent's input types: the ids stored configurations contain. Each input issue puts its
// factory into its row (makeInfoSource<CInfoSource...>); a row without one is an input this
// build does not have yet.
const InfoSourceType kInfoSourceTypes[] = {
    {1, "CInfoSourceSyslog", makeInfoSource<CInfoSourceSyslog>},
    {2, "CInfoSourceHeartbeat", makeInfoSource<CInfoSourceHeartbeat>},
    {3, "CInfoSourceNTEventReport", makeInfoSource<CInfoSourceNTEventReport>},
    {4, "CInfoSourceSNMPTrap", makeInfoSource<CInfoSourceSNMPTrap>},
    {5, "CInfoSourceFileMonitor", makeInfoSource<CInfoSourceFileMonitor>},
    {8, "CInfoSourcePingProbe", makeInfoSource<CInfoSourcePingProbe>},
    {9, "CInfoSourcePortProbe", makeInfoSource<CInfoSourcePortProbe>},
    {10, "CInfoSourceNTServiceMonitor", makeInfoSource<CInfoSourceNTServiceMonitor>},
    {11, "CInfoSourceDiskSpaceMonitor", makeInfoSource<CInfoSourceDiskSpaceMonitor>},
    {12, "CInfoSourceDBMonitor", makeInfoSource<CInfoSourceDBMonitor>},
    {13, "CInfoSourceSerialMonitor", makeInfoSource<CInfoSourceSerialMonitor>},
    {14, "CInfoSourceCPUMonitor", makeInfoSource<CInfoSourceCPUMonitor>},
    {16, "CInfoSourceAliveMonRequest", makeInfoSource<CInfoSourceAliveMonRequest>},
    {17, "CInfoSourceSMTPProbe", makeInfoSource<CInfoSourceSMTPProbe>},
    {18, "CInfoSourceFTPProbe", makeInfoSource<CInfoSourceFTPProbe>},
    {19, "CInfoSourceHTTPProbe", makeInfoSource<CInfoSourceHTTPProbe>},
    {20, "CInfoSourcePOP3Probe", makeInfoSource<CInfoSourcePOP3Probe>},
    {21, "CInfoSourceIMAPProbe", makeInfoSource<CInfoSourceIMAPProbe>},
    {22, "CInfoSourceNNTPProbe", makeInfoSource<CInfoSourceNNTPProbe>},
    {23, "CInfoSourceWevtMonitor", nullptr},
    {1999998, "CInfoSourceAliveMonEcho", makeInfoSource<CInfoSourceAliveMonEcho>},
    {1999999, "CInfoSourceVTRP", nullptr},
};

std::mutex& extraLock() {
    static std::mutex lock;
    return lock;
}
std::map<uint32_t, InfoSourceType>& extraTypes() {
    static std::map<uint32_t, InfoSourceType> types;
    return types;
}

}  // namespace

const InfoSourceType* findInfoSourceType(uint32_t id) noexcept {
    {
        std::lock_guard lock(extraLock());
        auto it = extraTypes().find(id);
        if (it != extraTypes().end()) return &it->second;
    }
    for (const InfoSourceType& type : kInfoSourceTypes)
        if (type.id == id) return &type;
    return nullptr;
}

ScopedInfoSourceType::ScopedInfoSourceType(const InfoSourceType& type) : m_id(type.id) {
    std::lock_guard lock(extraLock());
    extraTypes()[type.id] = type;
}

ScopedInfoSourceType::~ScopedInfoSourceType() {
    std::lock_guard lock(extraLock());
    extraTypes().erase(m_id);
}

}  // namespace vt
