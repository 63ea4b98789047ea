#pragma once
#include <cstdint>
#include <memory>
#include <string>

#include "base/quillet_string.h"
#include "sources/info_source.h"
#include "sources/threshold_watch.h"

class CInfoUnit;

// Checks a database through ODBC every interval: it connects ("szODBCDsn", "szODBCUid",
// "szODBCPwd"), runs "szQuery", and alerts when that fails or takes longer than
// "nTimeOutLimit" ms (again per "nRepeatInterval", and once when it answers again).
class CInfoSourceDBMonitor : public CInfoSource {
  public:
    explicit CInfoSourceDBMonitor(const vt::InfoSourceContext& context);
    ~CInfoSourceDBMonitor() override;

    bool LoadConfig() override;
    void Run() override;
    // One check; the failure's reason, or "" when the database answered in time.
    std::string check(uint32_t& milliseconds) const;

    CQuilletString m_szODBCDsn, m_szODBCUid, m_szODBCPwd;
    CQuilletString m_szQuery{u"select 1"};
    uint32_t m_nSleepTime = 60000;
    uint32_t m_nTimeOutLimit = 10000;
    uint32_t m_nRepeatInterval = 3600;
    uint32_t m_nReportRecovery = 1;

  private:
    std::unique_ptr<CThresholdWatch> m_watch;
};
