#include "sources/alive_monitor/alive_echo.h"

#include <memory>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "base/reg_access.h"
#include "platform/computer_name.h"
#include "platform/utf_codec.h"
#include "sources/alive_monitor/alive_protocol.h"

CInfoSourceAliveMonEcho::CInfoSourceAliveMonEcho(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}

bool CInfoSourceAliveMonEcho::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceAliveMonEcho|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadDWORDValue(u"nListenPort", m_nListenPort, vt::alive::kDefaultPort);
    reg.ReadStringValue(u"szMyIPAddress", m_szMyIPAddress, CQuilletString());
    reg.CloseKey();
    if (m_nListenPort > 65535) m_nListenPort = vt::alive::kDefaultPort;
    return isEnabled();
}

void CInfoSourceAliveMonEcho::wake() {
    CInfoSource::wake();
    m_udp.stop();
}

void CInfoSourceAliveMonEcho::Run() {
    try {
        m_udp.open(m_szMyIPAddress.getStringA(), static_cast<uint16_t>(m_nListenPort));
    } catch (CErrorReport* raw) {
        std::unique_ptr<CErrorReport> report(raw);
        vt::debugPrintf(vt::DBG_ERROR,
                        "CInfoSourceAliveMonEcho::Run: cannot listen on port %u (%s)\r\n",
                        m_nListenPort, report->getMessage().getStringA());
        vt::reportError(114, "CInfoSourceAliveMonEcho", "Can't bind to socket",
                        report->getMessage().getStringA());
        return;
    }
    m_boundPort.store(m_udp.localPort(), std::memory_order_release);
    vt::debugPrintf(vt::DBG_MINIMUM, "CInfoSourceAliveMonEcho| listening on UDP %s port %u\r\n",
                    m_szMyIPAddress.getStringA(), unsigned(m_udp.localPort()));
    std::u16string name;
    const std::string responder = vt::localComputerName(name) ? vt::utf16ToUtf8(name) : "unknown";
    std::string datagram;
    CIPAddress sender;
    while (keepRunning()) {
        const CUDPServer::Result result = m_udp.receiveMessage(datagram, sender, -1);
        if (result == CUDPServer::Result::Stopped) break;
        uint32_t sequence = 0;
        if (result != CUDPServer::Result::Message || !vt::alive::parseRequest(datagram, sequence))
            continue;  // anything but a request gets no answer, so we cannot be used to reflect
        if (!m_udp.sendTo(vt::alive::echo(sequence, responder), sender))
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceAliveMonEcho| echo to %s failed - error %u\r\n",
                            sender.toText().c_str(), m_udp.lastError());
    }
    m_udp.close();
}
