#include "sources/event_log/event_log_monitor.h"

#include <chrono>
#include <cstdio>

#include "base/debug_log.h"
#include "base/error_reporter.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "model/property_replacer.h"
#include "platform/utf_codec.h"

namespace {

constexpr char kCaller[] = "CInfoSourceNTEventReport";
constexpr int kMaxCorruptPerPass = 100;

template <class... Args>
std::string format(const char* pattern, Args... args) {
    char text[1024];
    std::snprintf(text, sizeof text, pattern, args...);
    return text;
}

// Reported to the event log and written to the debug log.
void reportBoth(uint32_t eventId, bool warning, const std::string& text) {
    vt::debugWrite(vt::DBG_ERROR, text.c_str());
    if (warning)
        vt::reportWarning(eventId, kCaller, text);
    else
        vt::reportError(eventId, kCaller, text);
}

std::string hexOf(const std::string& bytes) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string out;
    for (const unsigned char c : bytes) {
        out.push_back(kHex[c >> 4]);
        out.push_back(kHex[c & 15]);
    }
    return out;
}

// success, information, warning, error, audit success, audit failure
size_t priorityIndex(uint16_t type) {
    switch (type) {
        case 0:
            return 0;
        case 2:
            return 2;
        case 1:
            return 3;
        case 8:
            return 4;
        case 16:
            return 5;
        default:
            return 1;
    }
}

}  // namespace

// What one pass over one log works with.
struct CInfoSourceNTEventReport::Pass {
    const LogConfig& log;
    vt::IEventLogReader& reader;
    LogState& state;
    std::vector<vt::EventRecord> records;
    bool skipFirst = false;  // the first record is the one handed on last time
    bool suppress = false;   // records only move the position
    bool hadRecords = false;
};

CInfoSourceNTEventReport::CInfoSourceNTEventReport(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}
CInfoSourceNTEventReport::~CInfoSourceNTEventReport() = default;

bool CInfoSourceNTEventReport::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceNTEventReport|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg, CQuilletString(u"Tallyvent"))) return isEnabled();
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"bAddFacilityString", m_bAddFacilityString, 1);
    reg.ReadDWORDValue(u"nCompressControlChars", m_nCompressControlChars, 1);
    reg.ReadDWORDValue(u"nRemoveControlCharsFromParams", m_nRemoveControlCharsFromParams, 0);
    reg.ReadDWORDValue(u"nDoNotProcessLastRecord", m_nDoNotProcessLastRecord, 0);
    reg.ReadDWORDValue(u"nDoNotProcessLastRecordOnStartup", m_nDoNotProcessLastRecordOnStartup, 0);
    reg.ReadDWORDValue(u"nEventLogCor", m_nEventLogCor, 1);
    reg.ReadDWORDValue(u"bShowSyslogMsgNbr", m_bShowSyslogMsgNbr, 1);
    reg.ReadDWORDValue(u"nAddUserName", m_nAddUserName, 1);
    reg.ReadDWORDValue(u"nAddLogType", m_nAddLogType, 0);
    reg.ReadDWORDValue(u"bUseLegacyFormat", m_bUseLegacyFormat, 0);
    reg.ReadDWORDValue(u"nPreventOverrunDelay", m_nPreventOverrunDelay, 5);
    reg.ReadDWORDValue(u"nEnabledRemote", m_nEnabledRemote, 0);
    reg.ReadStringValue(u"szServerName", m_szServerName, CQuilletString());
    uint32_t lcid = 0xffffffffu;
    reg.ReadDWORDValue(u"nLanguageLCID", lcid, lcid);
    m_nLanguageLCID = static_cast<int32_t>(lcid) <= 0 ? 1024 : static_cast<int32_t>(lcid & 0xffff);
    std::vector<std::u16string> subkeys;
    reg.EnumSubKeys(subkeys);
    m_logs.clear();
    for (const std::u16string& subkey : subkeys) loadLog(reg, subkey);
    reg.CloseKey();
    return isEnabled();
}

void CInfoSourceNTEventReport::loadLog(CRegAccess& monitor, const std::u16string& subkey) {
    CRegAccess reg;
    if (!reg.OpenKey(m_root,
                     CQuilletString(std::u16string(monitor.GetKeyPath().view()) + u"\\" + subkey),
                     vt::kKeyRead))
        return;
    LogConfig log;
    log.subkey = subkey;
    reg.ReadDWORDValue(u"nEnabled", log.nEnabled, 1);
    reg.ReadDWORDValue(u"nFacility", log.nFacility, 128);
    reg.ReadDWORDValue(u"nFilterEventType", log.nFilterEventType, 255);
    reg.ReadDWORDValue(u"bReportTruncatedLog", log.bReportTruncatedLog, 1);
    reg.ReadDWORDValue(u"nNoExistingEntries", log.nNoExistingEntries, 0);
    reg.ReadDWORDValue(u"nTryConvSIDtoObj", log.nTryConvSIDtoObj, 0);
    reg.ReadDWORDValue(u"nReadFromFile", log.nReadFromFile, 0);
    reg.ReadStringValue(u"szLogFileName", log.szLogFileName, CQuilletString());
    reg.ReadStringValue(u"szLogType", log.szLogType, CQuilletString(u"Application"));
    reg.ReadStringValue(u"szJournalDirectory", log.szJournalDirectory, CQuilletString());
    const bool security = vt::utf16ToUtf8(log.szLogType.getString()) == "security" ||
                          vt::utf16ToUtf8(log.szLogType.getString()) == "Security";
    reg.ReadDWORDValue(u"nTryConvertDsClasses", log.nTryConvertDsClasses, security ? 1 : 0);
    reg.ReadDWORDValue(u"nClearEventLog", log.nClearEventLog, 0);
    reg.ReadDWORDValue(u"nClearEveryNthRun", log.nClearEveryNthRun, 1);
    reg.ReadDWORDValue(u"nClearIntervalMinutes", log.nClearIntervalMinutes, 1440);
    reg.ReadDWORDValue(u"nClearBackup", log.nClearBackup, 0);
    reg.ReadStringValue(u"szClearBackupFile", log.szClearBackupFile, CQuilletString());
    const char16_t* names[6] = {u"nPrioritySuccess",      u"nPriorityInformation",
                                u"nPriorityWarning",      u"nPriorityError",
                                u"nPriorityAuditSuccess", u"nPriorityAuditFailure"};
    const uint32_t defaults[6] = {5, 5, 4, 3, 5, 4};
    for (size_t i = 0; i < 6; ++i) reg.ReadDWORDValue(names[i], log.nPriority[i], defaults[i]);
    m_logs.push_back(std::move(log));
}

void CInfoSourceNTEventReport::setRegPathes() {
    CInfoSource::setRegPathes();
    for (const LogConfig& log : m_logs) migrateState(log);
    m_startupSkip = m_nDoNotProcessLastRecordOnStartup == 1;
}

CQuilletString CInfoSourceNTEventReport::statePathOf(const LogConfig& log) const {
    return CQuilletString(std::u16string(getStatePath().view()) + u"\\" + log.subkey);
}

// Older versions kept the position in the log's configuration key.
void CInfoSourceNTEventReport::migrateState(const LogConfig& log) {
    CRegAccess config, state;
    const CQuilletString configPath(std::u16string(configKeyPath().view()) + u"\\" + log.subkey);
    if (!config.OpenKey(m_root, configPath, vt::kKeyAllAccess)) return;
    if (!state.CreateKey(m_root, statePathOf(log))) return;
    for (const char16_t* name : {u"nLastRecord", u"nLastSyslogMsgNbr"}) {
        uint32_t old = 0, current = 0;
        if (!config.ReadDWORDValue(name, old)) continue;
        if (!state.ReadDWORDValue(name, current) && old != 0xffffffffu)
            state.SetDWORDValue(name, old);
        config.DeleteValue(name);
    }
}

CInfoSourceNTEventReport::LogState CInfoSourceNTEventReport::loadState(const LogConfig& log) const {
    LogState s;
    CRegAccess reg;
    if (!reg.OpenKey(m_root, statePathOf(log), vt::kKeyRead)) return s;
    s.known = reg.ReadDWORDValue(u"nLastRecord", s.position.record);
    CQuilletString cursor;
    if (reg.ReadStringValue(u"szLastCursor", cursor))
        s.position.cursor = vt::utf16ToUtf8(cursor.getString());
    reg.ReadDWORDValue(u"nLastSyslogMsgNbr", s.nLastSyslogMsgNbr, 0);
    reg.ReadDWORDValue(u"nCurrPollingCycle", s.nCurrPollingCycle, 0);
    reg.ReadDWORDValue(u"nEvtClrErrorLogged", s.nEvtClrErrorLogged, 0);
    reg.ReadDWORDValue(u"tEvtClrLast", s.tEvtClrLast, 0);
    s.written = s.position;
    s.writtenMsgNbr = s.nLastSyslogMsgNbr;
    return s;
}

void CInfoSourceNTEventReport::PersistState(const LogConfig& log, LogState& s) {
    const bool record =
        s.position.record != s.written.record || s.position.cursor != s.written.cursor;
    const bool number = m_bShowSyslogMsgNbr == 1 && s.nLastSyslogMsgNbr != s.writtenMsgNbr;
    if (!record && !number) return;
    CRegAccess reg;
    bool ok = reg.CreateKey(m_root, statePathOf(log));
    if (ok && record) {
        ok = reg.SetDWORDValue(u"nLastRecord", s.position.record) &&
             reg.SetStringValue(u"szLastCursor",
                                CQuilletString(std::string_view(s.position.cursor)));
        if (ok) s.written = s.position;
    }
    if (ok && number) {
        ok = reg.SetDWORDValue(u"nLastSyslogMsgNbr", s.nLastSyslogMsgNbr);
        if (ok) s.writtenMsgNbr = s.nLastSyslogMsgNbr;
    }
    if (!ok)
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceNTEventReport|PersistState: Error saving nLastRecord\r\n");
}

void CInfoSourceNTEventReport::PersistLogClearState(const LogConfig& log, const LogState& s) {
    CRegAccess reg;
    const bool ok = reg.CreateKey(m_root, statePathOf(log)) &&
                    reg.SetDWORDValue(u"nCurrPollingCycle", s.nCurrPollingCycle) &&
                    reg.SetDWORDValue(u"nEvtClrErrorLogged", s.nEvtClrErrorLogged) &&
                    reg.SetDWORDValue(u"tEvtClrLast", s.tEvtClrLast);
    if (!ok)
        vt::debugWrite(
            vt::DBG_ERROR,
            "CInfoSourceNTEventReport|PersistLogClearState: Error saving parameters\r\n");
}

void CInfoSourceNTEventReport::Run() {
    while (keepRunning()) {
        runOnce();
        if (isRunOnce()) {
            vt::debugWrite(
                vt::DBG_MINIMUM,
                "CInfoSourceNTEventReport|RUN: -r -o option set - terminating product.\r\n");
            setRun(false);
            stopAgent();
            return;
        }
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}

void CInfoSourceNTEventReport::runOnce() {
    vt::debugWrite(vt::DBG_MINIMUM, "Event Log Monitor is starting a scheduled run.\r\n");
    if (!vt::eventLogNamesReadable()) {
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceNTEventReport|RUN: Error, can't enumerate event log names!\r\n");
    } else if (m_logs.empty()) {
        vt::debugWrite(vt::DBG_ERROR,
                       "CInfoSourceNTEventReport|RUN: Error, there is no Eventlog configured\r\n");
    } else {
        for (const LogConfig& log : m_logs) {
            if (log.nEnabled != 1 || !keepRunning()) continue;
            CRegAccess key;
            const CQuilletString path(std::u16string(configKeyPath().view()) + u"\\" + log.subkey);
            if (!key.OpenKey(m_root, path, vt::kKeyRead)) {
                vt::debugPrintf(
                    vt::DBG_ERROR,
                    "CInfoSourceNTEventReport|RUN: %s processing failed, could not open "
                    "'%s' key!\r\n",
                    log.szLogType.getStringA(), path.getStringA());
                continue;
            }
            key.CloseKey();
            ShowEvtLog(log);
        }
    }
    m_startupSkip = false;
    vt::debugWrite(vt::DBG_MINIMUM, "CInfoSourceNTEventReport|RUN: finished the run.\r\n");
}

bool CInfoSourceNTEventReport::ShowEvtLog(const LogConfig& log) {
    LogState state = loadState(log);
    std::unique_ptr<vt::IEventLogReader> reader;
    if (m_makeReader) {
        reader = m_makeReader(log);
    } else {
        vt::EventLogSource source;
        source.backupFile = log.nReadFromFile == 1;
        source.fileName = log.szLogFileName.getStringA();
        source.logName = log.szLogType.getStringA();
        source.server = m_nEnabledRemote == 1 ? m_szServerName.getStringA() : "";
        source.journalDirectory = log.szJournalDirectory.getStringA();
        reader = vt::makeEventLogReader(source);
    }
    reader->log = [](const std::string& line) {
        vt::debugPrintf(vt::DBG_INFO, "%s\r\n", line.c_str());
    };
    if (const uint32_t error = reader->open()) {
        vt::debugPrintf(
            vt::DBG_ERROR,
            "CInfoSourceNTEventReport|ShowEvtLog: Could not Open the EventLog Profile "
            "'%s'. GetLastError = %d\r\n",
            log.nReadFromFile == 1 ? log.szLogFileName.getStringA() : log.szLogType.getStringA(),
            static_cast<int>(error));
        return true;
    }
    Pass pass{log, *reader, state, {}};
    bool stopped = false;
    uint32_t status = firstRead(pass);
    // A log may also turn out corrupted further on; each corrupted record is handled as at the
    // start of a pass (a bounded number per pass, so a log of garbage cannot hold the thread).
    for (int corrupted = 0; status == 0 && !stopped;) {
        if (!handleRecords(pass)) {
            stopped = true;
            break;
        }
        status = reader->readNext(pass.records);
        // Starting again at the beginning is done once per pass; stepping over records as
        // often as the bound allows.
        const int limit = m_nEventLogCor == 0 ? 1 : kMaxCorruptPerPass;
        if (status == vt::kEventLogCorrupt && ++corrupted <= limit)
            status = handleCorruption(pass);
        else if (status != 0 && status != vt::kEventLogEnd)
            reportDamaged(pass, status);
    }
    if (stopped) {
        vt::debugWrite(vt::DBG_MINIMUM,
                       "Lanternix Service run aborted for some reason - state info will not be "
                       "written.\r\n");
        return false;
    }
    clearIfDue(log, *reader, state, pass.hadRecords);
    return true;
}

uint32_t CInfoSourceNTEventReport::firstRead(Pass& pass) {
    LogState& state = pass.state;
    const std::string name = pass.log.szLogType.getStringA();
    pass.suppress = m_startupSkip || (pass.log.nNoExistingEntries == 1 && !state.known);
    const bool seek = state.position.record != 0;
    uint32_t error = pass.reader.readFirst(state.position, pass.records);
    pass.skipFirst = seek && error == 0;
    switch (error) {
        case 0:
        case vt::kEventLogEnd:
            return error;
        case vt::kEventLogNoRecord:
            if (pass.log.bReportTruncatedLog == 1)
                reportBoth(1011, false,
                           format("CInfoSourceNTEventReport| ShowEvtLog: ERROR \"%s\"/%d\r\n",
                                  name.c_str(), static_cast<int>(error)));
            state.position = {};
            if (m_nDoNotProcessLastRecord == 1) pass.suppress = true;
            return pass.reader.readFirst(state.position, pass.records);
        case vt::kEventLogCorrupt:
            return handleCorruption(pass);
        default:
            reportDamaged(pass, error);
            return error;
    }
}

void CInfoSourceNTEventReport::reportDamaged(const Pass& pass, uint32_t error) {
    reportBoth(150, false,
               format("The Eventlog '%s' is damaged at entry %d with error code %d\r\nNo "
                      "action could be done\r\n",
                      pass.log.szLogType.getStringA(), static_cast<int>(pass.state.position.record),
                      static_cast<int>(error)));
}

uint32_t CInfoSourceNTEventReport::handleCorruption(Pass& pass) {
    LogState& state = pass.state;
    const std::string name = pass.log.szLogType.getStringA();
    if (m_nEventLogCor == 1) {
        reportBoth(114, true,
                   format("The Eventlog '%s' is corrupted at entry %d. You have configured "
                          "Lanternix corruption handling to ignore corrupted Events, so this is "
                          "just a warning message.\r\n",
                          name.c_str(), static_cast<int>(state.position.record)));
        ++state.position.record;
        state.position.cursor.clear();
        PersistState(pass.log, state);
        // Go on after the corrupted record; it is the saved one now, but was never handed on,
        // so the record after it is the first to report.
        const uint32_t error = pass.reader.readFirst({state.position.record + 1, ""}, pass.records);
        pass.skipFirst = false;
        return error == vt::kEventLogNoRecord ? vt::kEventLogEnd : error;
    }
    if (m_nEventLogCor == 2) {
        const uint32_t error = pass.reader.clear("");
        if (error == 0) {
            reportBoth(114, true,
                       format("The Eventlog '%s' was corrupted. You have configured Eventlog "
                              "corruption handling to clear the Eventlog in such cases. This has "
                              "been successfully done!\r\n",
                              name.c_str()));
            state.position = {};
            PersistState(pass.log, state);
        } else {
            reportBoth(150, false,
                       format("The Eventlog '%s' is corrupted. While trying to clear it, the "
                              "following error occured: %d\r\n",
                              name.c_str(), static_cast<int>(error)));
        }
        return vt::kEventLogCorrupt;
    }
    state.position = {};
    const uint32_t error = pass.reader.readFirst(state.position, pass.records);
    pass.skipFirst = false;
    if (error != 0 && error != vt::kEventLogEnd)
        reportBoth(150, false,
                   format("The Eventlog '%s' is corrupted. While trying to start reading from the "
                          "beginning, the following error occured: %d\r\n",
                          name.c_str(), static_cast<int>(error)));
    return error;
}

bool CInfoSourceNTEventReport::handleRecords(Pass& pass) {
    for (size_t i = 0; i < pass.records.size(); ++i) {
        const vt::EventRecord& record = pass.records[i];
        if (pass.skipFirst && i == 0) continue;
        pass.hadRecords = true;
        if (!keepRunning()) return false;
        const bool wanted = (pass.log.nFilterEventType & eventFilterBit(record.type)) != 0;
        if (wanted && !pass.suppress) {
            auto unit = makeUnit(pass.log, record, pass.state);
            vt::debugWrite(vt::DBG_ULTRA, "Enqueue Event Log Event for processing\r\n");
            if (!handOver(*unit)) {
                vt::debugWrite(vt::DBG_ERROR,
                               "Aborting current event log reporting run because the rule engine "
                               "indicated an error while processing the InfoUnit.\r\n");
                return false;
            }
            if (m_nPreventOverrunDelay != 0) getClock().sleepMs(m_nPreventOverrunDelay);
        }
        pass.state.position = record.position;
        PersistState(pass.log, pass.state);
    }
    pass.skipFirst = false;
    return true;
}

EventTextOptions CInfoSourceNTEventReport::textOptions() const {
    EventTextOptions o;
    o.legacy = m_bUseLegacyFormat == 1;
    o.addFacility = m_bAddFacilityString == 1;
    o.addUser = m_nAddUserName == 1;
    o.addLogType = m_nAddLogType == 1;
    o.compressControl = m_nCompressControlChars == 1;
    o.removeControlFromParams = m_nRemoveControlCharsFromParams == 1;
    return o;
}

std::unique_ptr<CInfoUnitNTEventReport> CInfoSourceNTEventReport::makeUnit(const LogConfig& log,
                                                                           const vt::EventRecord& r,
                                                                           LogState& state) const {
    auto unit = std::make_unique<CInfoUnitNTEventReport>();
    setCommonInfoUnitSettings(*unit);
    const std::string logName = log.szLogType.getStringA();
    unit->setMsgA(eventText(r, logName, textOptions()));
    unit->setPropertyInt(u"id", static_cast<int32_t>(r.eventId & 0xffffu));
    unit->setEventType(r.type);
    unit->setPropertyStringA(u"severity", severityTag(r.type));
    unit->setPropertyStringA(u"sourceproc", r.source);
    unit->setPropertyStringA(u"user", r.user);
    unit->setPropertyInt(u"category", r.category);
    unit->setPropertyStringA(u"bdata", hexOf(r.data));
    unit->setEventLogTypeName(vt::utf8ToUtf16(logName));
    if (!r.computer.empty()) unit->setPropertyStringA(u"source", r.computer);
    if (r.timeGenerated != 0) unit->setPropertyTime(u"timereported", r.timeGenerated);
    unit->setSyslogFacility(static_cast<int32_t>(log.nFacility >> 3));
    unit->setSyslogPriority(static_cast<int32_t>(log.nPriority[priorityIndex(r.type)]));
    if (m_bShowSyslogMsgNbr == 1)
        unit->setPropertyInt(u"msgnumber", static_cast<int32_t>(++state.nLastSyslogMsgNbr));
    return unit;
}

void CInfoSourceNTEventReport::clearIfDue(const LogConfig& log, vt::IEventLogReader& reader,
                                          LogState& state, bool hadRecords) {
    if (log.nClearEventLog != 1 && log.nClearEventLog != 2) return;
    const int64_t now = getClock().nowSeconds();
    bool due = false;
    if (log.nClearEventLog == 1) {
        ++state.nCurrPollingCycle;
        due = hadRecords && state.nCurrPollingCycle >= log.nClearEveryNthRun;
    } else {
        due = now - int64_t(state.tEvtClrLast) >= int64_t(log.nClearIntervalMinutes) * 60;
    }
    if (!due) {
        PersistLogClearState(log, state);
        return;
    }
    const std::string name = log.szLogType.getStringA();
    const std::string backup =
        log.nClearBackup == 1
            ? vt::utf16ToUtf8(vt::replaceProperties(log.szClearBackupFile.view(), nullptr))
            : std::string();
    const uint32_t error = reader.clear(backup);
    if (error == 0) {
        state.position = {};
        state.nCurrPollingCycle = 0;
        state.tEvtClrLast = static_cast<uint32_t>(now);
        state.nEvtClrErrorLogged = 0;
        PersistState(log, state);
        vt::reportInformation(1052, kCaller,
                              format("The Eventlog '%s' has been cleared", name.c_str()));
    } else if (error == 183 || error == 50) {
        // The same cause every run: said once, until a clearing works again.
        if (state.nEvtClrErrorLogged == 0)
            reportBoth(error == 183 ? 1051 : 1050, false,
                       error == 183 ? format("The Eventlog '%s' was not cleared: the backup file "
                                             "'%s' exists\r\n",
                                             name.c_str(), backup.c_str())
                                    : format("The Eventlog '%s' cannot be cleared by this agent "
                                             "(error 50): it is left as it is\r\n",
                                             name.c_str()));
        state.nEvtClrErrorLogged = 1;
    } else {
        reportBoth(1050, false,
                   format("The Eventlog '%s' could not be cleared - error %d\r\n", name.c_str(),
                          static_cast<int>(error)));
    }
    PersistLogClearState(log, state);
}

bool CInfoSourceNTEventReport::handOver(CInfoUnitNTEventReport& unit) {
    const bool processed = EnqueueAndWait(unit);
    return processed && unit.getActionFailed() == 0;
}
