#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/quillet_string.h"
#include "platform/event_log_reader.h"
#include "sources/event_log/event_log_text.h"
#include "sources/info_source.h"

class CInfoUnitNTEventReport;
class CRegAccess;

// Reads event logs (the Windows logs, the systemd journal, .evt backup files) in scheduled
// runs. Every record is handed to the rule engine and waited for, and its position is saved
// at once, so each record is handed on once across restarts (at most the record in work
// during a kill comes twice).
class CInfoSourceNTEventReport : public CInfoSource {
  public:
    // One monitored log: its subkey of the monitor's key.
    struct LogConfig {
        std::u16string subkey;
        uint32_t nEnabled = 1;
        uint32_t nFacility = 128;
        uint32_t nFilterEventType = 255;
        uint32_t bReportTruncatedLog = 1;
        uint32_t nNoExistingEntries = 0;
        uint32_t nTryConvSIDtoObj = 0;
        uint32_t nTryConvertDsClasses = 0;
        uint32_t nReadFromFile = 0;
        CQuilletString szLogFileName;
        CQuilletString szLogType{u"Application"};
        CQuilletString szJournalDirectory;  // Linux: journal files of another machine
        uint32_t nClearEventLog = 0;        // 0 never, 1 every n-th run, 2 after an interval
        uint32_t nClearEveryNthRun = 1;
        uint32_t nClearIntervalMinutes = 1440;
        uint32_t nClearBackup = 0;
        CQuilletString szClearBackupFile;
        uint32_t nPriority[6] = {5, 5, 4, 3, 5, 4};  // success, info, warning, error, audits
    };
    // Where a log stands; kept in the log's state key.
    struct LogState {
        vt::LogPosition position;  // "nLastRecord", "szLastCursor"
        uint32_t nLastSyslogMsgNbr = 0;
        uint32_t nCurrPollingCycle = 0;
        uint32_t nEvtClrErrorLogged = 0;
        uint32_t tEvtClrLast = 0;
        bool known = false;  // a saved position existed
        vt::LogPosition written;
        uint32_t writtenMsgNbr = 0;
    };
    using ReaderFactory = std::function<std::unique_ptr<vt::IEventLogReader>(const LogConfig&)>;

    explicit CInfoSourceNTEventReport(const vt::InfoSourceContext& context);
    ~CInfoSourceNTEventReport() override;

    bool LoadConfig() override;
    void Run() override;
    void setRegPathes() override;
    // One scheduled run over every enabled log.
    void runOnce();
    // One pass over one log; false when the pass was stopped.
    bool ShowEvtLog(const LogConfig& log);

    uint32_t m_nSleepTime = 60000;
    uint32_t m_bAddFacilityString = 1;
    uint32_t m_nCompressControlChars = 1;
    uint32_t m_nRemoveControlCharsFromParams = 0;
    uint32_t m_nDoNotProcessLastRecord = 0;
    uint32_t m_nDoNotProcessLastRecordOnStartup = 0;
    uint32_t m_nEventLogCor = 1;
    uint32_t m_bShowSyslogMsgNbr = 1;
    uint32_t m_nAddUserName = 1;
    uint32_t m_nAddLogType = 0;
    uint32_t m_bUseLegacyFormat = 0;
    uint32_t m_nPreventOverrunDelay = 5;
    uint32_t m_nEnabledRemote = 0;
    CQuilletString m_szServerName;
    int32_t m_nLanguageLCID = -1;
    std::vector<LogConfig> m_logs;
    ReaderFactory m_makeReader;  // the system's readers; tests put in recorded ones

  protected:
    // Hands the unit to the rule engine and waits; true when it did its work without a
    // failure. Tests replace it.
    virtual bool handOver(CInfoUnitNTEventReport& unit);

  private:
    struct Pass;
    void loadLog(CRegAccess& monitor, const std::u16string& subkey);
    CQuilletString statePathOf(const LogConfig& log) const;
    void migrateState(const LogConfig& log);
    LogState loadState(const LogConfig& log) const;
    void PersistState(const LogConfig& log, LogState& state);
    void PersistLogClearState(const LogConfig& log, const LogState& state);
    uint32_t firstRead(Pass& pass);
    uint32_t handleCorruption(Pass& pass);
    void reportDamaged(const Pass& pass, uint32_t error);
    bool handleRecords(Pass& pass);
    std::unique_ptr<CInfoUnitNTEventReport> makeUnit(const LogConfig& log,
                                                     const vt::EventRecord& record,
                                                     LogState& state) const;
    void clearIfDue(const LogConfig& log, vt::IEventLogReader& reader, LogState& state,
                    bool hadRecords);
    EventTextOptions textOptions() const;

    bool m_startupSkip = false;
};
