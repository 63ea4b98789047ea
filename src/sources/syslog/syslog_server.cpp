#include "sources/syslog/syslog_server.h"

const vt::SyslogParts& CSyslogServer::splitSyslogMsg(std::u16string_view message) {
    m_held = vt::splitSyslogMsg(message, m_rfc3164Parsing);
    return m_held;
}

namespace vt {
uint16_t syslogListenPort(uint32_t configured, uint16_t previous) {
    if (configured >= 65536) return previous;
    if (configured == 0) return CIP::servicePort("syslog", "udp", 514);
    return static_cast<uint16_t>(configured);
}
}  // namespace vt
