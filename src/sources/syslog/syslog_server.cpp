#include "sources/syslog/syslog_server.h"

const vt::SyslogParts& CSyslogServer::splitSyslogMsg(std::u16string_view message) {
    m_held = vt::splitSyslogMsg(message, m_rfc3164Parsing);
    return m_held;
}
