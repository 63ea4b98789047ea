#pragma once
#include <cstdint>

#include "engine/action_config.h"

// Settings of the write-to-event-log action.
class CActionConfigWriteNTEventReport : public CActionConfig {
  public:
    explicit CActionConfigWriteNTEventReport(const CQuilletString& keyPath)
        : CActionConfig(keyPath) {}
    void LoadConfig() override;

    uint32_t m_bReplaceEventLogSource = 0;  // 1: report under "szCustomSource"
    uint32_t m_nEventType = 0;              // 1 error, 2 warning, anything else information
    uint32_t m_nEventID = 113;
    CQuilletString m_szMessageContent;  // a template, rendered against the unit
    CQuilletString m_szCustomSource;
};

// Reports the rendered message as an event: the Application log on Windows, the local syslog
// socket on Linux (the source is the tag there).
class CActionWriteNTEventReport : public CAction {
  public:
    explicit CActionWriteNTEventReport(CActionConfigWriteNTEventReport& config)
        : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

  private:
    CActionConfigWriteNTEventReport& m_config;
};
