#pragma once
#include <cstdint>
#include <string_view>

#include "base/net/udp_server.h"
#include "sources/syslog/syslog_splitter.h"

namespace vt {
// The port a syslog source listens on: "nListenPort" 0 means the "syslog"/"udp" entry of the
// services database (514 without one); 65536 and above are ignored and `previous` is kept.
uint16_t syslogListenPort(uint32_t configured, uint16_t previous);
}  // namespace vt

// The datagram side of the syslog receiver: receives like CUDPServer and holds the message
// being split.
class CSyslogServer : public CUDPServer {
  public:
    void setRFC3164Parsing(bool on) noexcept { m_rfc3164Parsing = on; }
    bool rfc3164Parsing() const noexcept { return m_rfc3164Parsing; }

    // Splits `message` with this server's parsing flag into held(); returns it as well.
    const vt::SyslogParts& splitSyslogMsg(std::u16string_view message);
    const vt::SyslogParts& held() const noexcept { return m_held; }

  private:
    bool m_rfc3164Parsing = true;
    vt::SyslogParts m_held;
};
