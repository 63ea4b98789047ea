#include "sources/database_monitor/database_monitor.h"

#include <chrono>

#include "base/debug_log.h"
#include "base/reg_access.h"
#include "model/info_unit_types.h"
#include "platform/odbc_connection.h"

CInfoSourceDBMonitor::CInfoSourceDBMonitor(const vt::InfoSourceContext& context)
    : CInfoSource(context) {}
CInfoSourceDBMonitor::~CInfoSourceDBMonitor() = default;

bool CInfoSourceDBMonitor::LoadConfig() {
    vt::debugWrite(vt::DBG_INFO, "CInfoSourceDBMonitor|LoadConfig: Loading settings\r\n");
    CRegAccess reg;
    if (!beginLoadConfig(reg)) return isEnabled();
    reg.ReadStringValue(u"szODBCDsn", m_szODBCDsn, CQuilletString());
    reg.ReadStringValue(u"szODBCUid", m_szODBCUid, CQuilletString());
    reg.ReadStringValue(u"szODBCPwd", m_szODBCPwd, CQuilletString());
    reg.ReadStringValue(u"szQuery", m_szQuery, CQuilletString(u"select 1"));
    reg.ReadDWORDValue(u"nSleepTime", m_nSleepTime, 60000);
    reg.ReadDWORDValue(u"nTimeOutLimit", m_nTimeOutLimit, 10000);
    reg.ReadDWORDValue(u"nRepeatInterval", m_nRepeatInterval, 3600);
    reg.ReadDWORDValue(u"nReportRecovery", m_nReportRecovery, 1);
    reg.CloseKey();
    m_watch = std::make_unique<CThresholdWatch>(m_nRepeatInterval, m_nReportRecovery == 1);
    return isEnabled();
}

std::string CInfoSourceDBMonitor::check(uint32_t& milliseconds) const {
    const auto start = std::chrono::steady_clock::now();
    COdbcConnection db;
    const std::string connect = "DSN=" + std::string(m_szODBCDsn.getStringA()) +
                                ";UID=" + m_szODBCUid.getStringA() +
                                ";PWD=" + m_szODBCPwd.getStringA();
    int64_t ignored = 0;
    const uint32_t loginSeconds = (m_nTimeOutLimit + 999) / 1000;
    const bool ok =
        db.open(connect, loginSeconds) && db.queryNumber(m_szQuery.getStringA(), ignored);
    milliseconds = static_cast<uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                             std::chrono::steady_clock::now() - start)
                                             .count());
    // The driver's words say what went wrong; the call's name only when it has none.
    if (!ok) return db.lastFailure().text.empty() ? db.lastFailure().call : db.lastFailure().text;
    if (milliseconds > m_nTimeOutLimit)
        return "the answer took " + std::to_string(milliseconds) + " ms";
    return "";
}

void CInfoSourceDBMonitor::Run() {
    if (!m_watch)
        m_watch = std::make_unique<CThresholdWatch>(m_nRepeatInterval, m_nReportRecovery == 1);
    while (keepRunning()) {
        uint32_t ms = 0;
        const std::string failure = check(ms);
        const auto event = m_watch->observe(!failure.empty(), getClock().steadyNow());
        if (event != CThresholdWatch::Event::None) {
            auto unit = std::make_unique<CInfoUnitDBMonitor>();
            setCommonInfoUnitSettings(*unit);
            const std::string dsn = m_szODBCDsn.getStringA();
            unit->setPropertyStringA(u"source", dsn);
            unit->setPropertyInt(u"querytime", static_cast<int32_t>(ms));
            unit->setMsgA(event == CThresholdWatch::Event::Recovered
                              ? "Database monitor: '" + dsn + "' answers again (" +
                                    std::to_string(ms) + " ms)"
                              : "Database monitor: '" + dsn + "' failed - " + failure);
            Enqueue(std::move(unit));
        }
        if (!waitWhileRunning(std::chrono::milliseconds(m_nSleepTime))) break;
    }
}
