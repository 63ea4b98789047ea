#pragma once
#include <cstdint>

#include "engine/action_config.h"
#include "platform/serial_port.h"

// Settings of the send-to-serial action. The port name is taken as configured, never from the
// unit, so message text cannot pick a device.
class CActionConfigSendSerial : public CActionConfig {
  public:
    explicit CActionConfigSendSerial(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    void LoadConfig() override;

    CQuilletString m_szMessage;  // a template, rendered against the unit
    CQuilletString m_szPortName;
    uint32_t m_nTimeOutLimit = 60000;
    vt::SerialSettings m_port;  // "nBps", "nDatabits", "nParity", "nStopbits", "nDtsControl",
                                // "nRtsControl"
};

// Writes the rendered message to the port, opened for each unit and closed again, so the
// agent never keeps a device that another program may need between two alerts.
class CActionSendSerial : public CAction {
  public:
    explicit CActionSendSerial(CActionConfigSendSerial& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigSendSerial& m_config;
};
