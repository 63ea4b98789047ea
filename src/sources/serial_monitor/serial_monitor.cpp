#include "sources/serial_monitor/serial_monitor.h"

#include <chrono>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"

void CSerialLineSplitter::feed(std::string_view bytes,
                               const std::function<void(std::string_view)>& onLine) {
    for (const char c : bytes) {
        if (c == '\r' || c == '\n') {
            if (!m_line.empty()) onLine(m_line);
            m_line.clear();
            continue;
        }
        m_line.push_back(c);
        if (m_line.size() >= m_maxLength) {
            onLine(m_line);
            m_line.clear();
        }
    }
}

CInfoSourceSerialMonitor::CInfoSourceSerialMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}

bool CInfoSourceSerialMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceSerialMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadStringValue(u"szPortName", m_szPortName,
                        CQuilletString(std::string_view(vt::defaultSerialPortName())));
    reg.ReadDWORDValue(u"nBps", m_port.bps, 57600);
    reg.ReadDWORDValue(u"nDatabits", m_port.dataBits, 8);
    reg.ReadDWORDValue(u"nParity", m_port.parity, 0);
    reg.ReadDWORDValue(u"nStopbits", m_port.stopBits, 0);
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 10000);
    reg.ReadDWORDValue(u"nMaxBytesPerMessage", m_nMaxBytesPerMessage, 4096);
    reg.CloseKey();
    if (m_nMaxBytesPerMessage == 0 || m_nMaxBytesPerMessage > 65536) m_nMaxBytesPerMessage = 4096;
    return isEnabled();
}

void CInfoSourceSerialMonitor::Run() {
    bool failureLogged = false;
    while (keepRunning()) {
        vt::CSerialPort port;
        uint32_t error = 0;
        if (port.open(m_szPortName.getStringA(), m_port, error)) {
            vt::debugPrintf(vt::DBG_MINIMUM, "CInfoSourceSerialMonitor| reading '%s'\r\n",
                            m_szPortName.getStringA());
            failureLogged = false;
            readPort(port);
        } else if (!failureLogged) {
            // Once per outage: a port that is missing for a week is worth one line, not 60,000.
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceSerialMonitor| Can't open port '%s' - error %u\r\n",
                            m_szPortName.getStringA(), error);
            failureLogged = true;
        }
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

void CInfoSourceSerialMonitor::readPort(vt::CSerialPort& port) {
    CSerialLineSplitter splitter(m_nMaxBytesPerMessage);
    char buffer[4096];
    while (keepRunning()) {
        // Short waits, so that a stop is seen within a fifth of a second.
        const int n = port.read(buffer, sizeof buffer, 200);
        if (n < 0) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CInfoSourceSerialMonitor| port '%s' failed - opening it again\r\n",
                            m_szPortName.getStringA());
            return;
        }
        splitter.feed(std::string_view(buffer, static_cast<size_t>(n)),
                      [this](std::string_view line) { handOver(line); });
    }
}

bool CInfoSourceSerialMonitor::handOver(std::string_view line) {
    auto unit = std::make_unique<CInfoUnitSerialMonitor>();
    setCommonInfoUnitSettings(*unit);
    unit->setPropertyString(u"portname", m_szPortName);
    unit->setMsgA(line);
    return Enqueue(std::move(unit));
}
