#include "actions/send_serial/action_send_serial.h"

#include "base/debug_log.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

void CActionConfigSendSerial::LoadConfig() {
    if (!loadEnabled()) return;
    m_regAccess.ReadStringValue(u"szMessage", m_szMessage, u"%msg%");
    m_regAccess.ReadStringValue(u"szPortName", m_szPortName,
                                CQuilletString(std::string_view(vt::defaultSerialPortName())));
    m_regAccess.ReadDWORDValue(u"nTimeOutLimit", m_nTimeOutLimit, 60000);
    m_regAccess.ReadDWORDValue(u"nBps", m_port.bps, 57600);
    m_regAccess.ReadDWORDValue(u"nDatabits", m_port.dataBits, 8);
    m_regAccess.ReadDWORDValue(u"nParity", m_port.parity, 0);
    m_regAccess.ReadDWORDValue(u"nStopbits", m_port.stopBits, 0);
    m_regAccess.ReadDWORDValue(u"nDtsControl", m_port.dtrControl, 0);
    m_regAccess.ReadDWORDValue(u"nRtsControl", m_port.rtsControl, 0);
    m_regAccess.CloseKey();
}

void CActionSendSerial::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    const std::string port = m_config.m_szPortName.getStringA();
    const std::string message =
        vt::utf16ToUtf8(vt::replaceProperties(m_config.m_szMessage.view(), &unit));
    vt::CSerialPort serial;
    uint32_t error = 0;
    if (!serial.open(port, m_config.m_port, error)) {
        vt::debugPrintf(vt::DBG_ERROR, "CActionSendSerial| Can't open port '%s' - error %u\r\n",
                        port.c_str(), error);
        unit.setActionFailed(1);
        return;
    }
    if (!serial.write(message, m_config.m_nTimeOutLimit)) {
        vt::debugPrintf(vt::DBG_ERROR, "CActionSendSerial| writing to '%s' failed or timed out\r\n",
                        port.c_str());
        unit.setActionFailed(1);
    }
}
