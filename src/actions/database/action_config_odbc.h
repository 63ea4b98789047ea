#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "engine/action_config.h"
#include "platform/odbc_connection.h"

// Settings of the database output, and its connection, kept open between units and closed by
// the idle timer. Table and column names come from the configuration only and must be plain
// identifiers; every value is a bound parameter.
class CActionConfigODBC : public CActionConfig {
  public:
    struct Field {
        CQuilletString name;
        uint32_t type = 0;  // 0 text, 1 integer, 2 date and time (UTC)
        CQuilletString content;
    };

    explicit CActionConfigODBC(const CQuilletString& keyPath) : CActionConfig(keyPath) {}
    ~CActionConfigODBC() override;
    void LoadConfig() override;

    // "INSERT INTO T (A, B) values(?, ?)" or "{Call T (?, ?)}"; throws CErrorReport* 115 without
    // fields.
    static std::string generateSqlStatement(const std::string& table,
                                            const std::vector<std::string>& fields,
                                            uint32_t statementType);
    // A name that can go into a statement as it is: letters, digits and "_", not starting with a
    // digit, optionally "schema.name".
    static bool isPlainIdentifier(const std::string& name);

    // The connection, under the action's lock. Throws CErrorReport* when it cannot be opened.
    COdbcConnection& connection();
    // Drops the connection after an error ("Break DB Connection"), or closes it when idle.
    void closeConnection(bool broken) noexcept;
    // Reports a failed ODBC call with the driver's diagnostics and the unit's message, breaks
    // the connection and throws.
    [[noreturn]] void fail(const std::string& message);
    static void TimerAPCProc(void* context, uint32_t, uint32_t);

    CQuilletString m_szODBCDsn, m_szODBCUid, m_szODBCPwd, m_szTableName, m_szPropertiesTableName;
    uint32_t m_nODBCEnCryption = 0;
    uint32_t m_nPropertiesTable = 1;
    uint32_t m_nMaxValueLength = 512;
    uint32_t m_nSQLStatementType = 0;
    uint32_t m_nSQLConnectionTimeOut = 60;
    uint32_t m_nDBAVersion = 1;
    // A connection stays open this long after the last unit (the design leaves it open).
    static constexpr uint32_t kIdleCloseMs = 30000;
    std::vector<Field> m_fields;
    std::string m_statement;  // the field-list layout's statement
    bool m_valid = true;      // false when the names are not plain identifiers
    // The legacy layout's column names (index by LegacyColumn) and message template.
    std::vector<std::string> m_columns;
    CQuilletString m_szODBCMessageContent{u"%msg%"};
    uint32_t m_nUTCReceivedAt = 1, m_nUTCDeviceReportedTime = 1;

  private:
    void loadLegacyColumns();
    void loadFields();

    COdbcConnection m_connection;
};

// The legacy columns in the order of their settings.
enum LegacyColumn {
    ReceivedAt,
    DeviceReportedTime,
    Facility,
    Priority,
    FromHost,
    Message,
    Importance,
    NTSeverity,
    EventSource,
    EventUser,
    EventCategory,
    EventID,
    EventBinaryData,
    MaxAvailable,
    CurrUsage,
    CustomerID,
    SystemID,
    NTEventLogType,
    SysLogTag,
    GenericFileName,
    InfoUnitID,
    kLegacyColumns
};
