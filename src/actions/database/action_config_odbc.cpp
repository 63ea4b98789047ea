#include "actions/database/action_config_odbc.h"

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "platform/utf_codec.h"

namespace {

constexpr const char16_t* kColumnValues[kLegacyColumns] = {
    u"szODBCReceivedAt",      u"szODBCDeviceReportedTime", u"szODBCFacility",
    u"szODBCPriority",        u"szODBCFromHost",           u"szODBCMessage",
    u"szODBCImportance",      u"szODBCNTSeverity",         u"szODBCEventSource",
    u"szODBCEventUser",       u"szODBCEventCategory",      u"szODBCEventID",
    u"szODBCEventBinaryData", u"szODBCMaxAvailable",       u"szODBCCurrUsage",
    u"szODBCCustomerID",      u"szODBCSystemID",           u"szODBCNTEventLogType",
    u"szODBCSysLogTag",       u"szODBCGenericFileName",    u"szODBCInfoUnitID"};

}  // namespace

CActionConfigODBC::~CActionConfigODBC() {
    closeConnection(false);
}

bool CActionConfigODBC::isPlainIdentifier(const std::string& name) {
    if (name.empty() || name.size() > 128) return false;
    bool partStart = true;
    for (const char c : name) {
        if (c == '.' && !partStart) {
            partStart = true;
            continue;
        }
        const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
        const bool digit = c >= '0' && c <= '9';
        if (!(letter || (digit && !partStart))) return false;
        partStart = false;
    }
    return !partStart;
}

std::string CActionConfigODBC::generateSqlStatement(const std::string& table,
                                                    const std::vector<std::string>& fields,
                                                    uint32_t statementType) {
    if (fields.empty())
        throw new CErrorReport(115, CQuilletString(u"CMiscODBCHelper|GenerateSQLStatement: Error, "
                                                   u"No fields defined, cannot create a SQL "
                                                   u"Statement"));
    std::string text = statementType == 1 ? "{Call " + table + " (" : "INSERT INTO " + table + " (";
    if (statementType != 1) {
        for (size_t i = 0; i < fields.size(); ++i) text += (i ? ", " : "") + fields[i];
        text += ") values(";
    }
    for (size_t i = 0; i + 1 < fields.size(); ++i) text += "?, ";
    text += "?)";
    if (statementType == 1) text += "}";
    vt::debugPrintf(vt::DBG_ULTRA, "CActionConfigODBC| Generated SQL Statement: %s \r\n",
                    text.c_str());
    return text;
}

void CActionConfigODBC::LoadConfig() {
    if (!loadEnabled()) return;
    auto& r = m_regAccess;
    r.ReadStringValue(u"szODBCDsn", m_szODBCDsn, u"");
    r.ReadStringValue(u"szODBCUid", m_szODBCUid, u"");
    r.ReadStringValue(u"szODBCPwd", m_szODBCPwd, u"");
    r.ReadStringValue(u"szTableName", m_szTableName, u"SystemEvents");
    r.ReadStringValue(u"szPropertiesTableName", m_szPropertiesTableName, u"SystemEventsProperties");
    r.ReadDWORDValue(u"nODBCEnCryption", m_nODBCEnCryption, 0);
    r.ReadDWORDValue(u"nPropertiesTable", m_nPropertiesTable, 1);
    r.ReadDWORDValue(u"nMaxValueLength", m_nMaxValueLength, 512);
    r.ReadDWORDValue(u"nSQLStatementType", m_nSQLStatementType, 0);
    r.ReadDWORDValue(u"nSQLConnectionTimeOut", m_nSQLConnectionTimeOut, 60);
    r.ReadDWORDValue(u"nDBAVersion", m_nDBAVersion, 1);
    if (m_nODBCEnCryption == 1) {
        vt::debugWrite(vt::DBG_INFO, "CActionConfigODBC| Password encryption enabled\r\n");
        // The scrambling is not known to this agent; a scrambled password would be sent as it is.
        vt::debugWrite(vt::DBG_ERROR,
                       "CActionConfigODBC| scrambled passwords are not supported - store "
                       "\"szODBCPwd\" in plain text\r\n");
    }
    if (m_nMaxValueLength >= 65536) {
        vt::debugWrite(vt::DBG_MINIMUM,
                       "CActionConfigODBC| MaxValueLength Buffer to high configured, setting back "
                       "to 65535\r\n");
        m_nMaxValueLength = 65535;
    }
    if (m_nDBAVersion == 1)
        loadLegacyColumns();
    else
        loadFields();
    r.CloseKey();
    createTimer();
}

void CActionConfigODBC::loadLegacyColumns() {
    auto& r = m_regAccess;
    m_columns.clear();
    for (const char16_t* value : kColumnValues) {
        CQuilletString name;
        r.ReadStringValue(value, name, CQuilletString(std::u16string_view(value + 6)));
        m_columns.push_back(name.getStringA());
    }
    r.ReadStringValue(u"szODBCMessageContent", m_szODBCMessageContent, u"%msg%");
    r.ReadDWORDValue(u"nUTCReceivedAt", m_nUTCReceivedAt, 1);
    r.ReadDWORDValue(u"nUTCDeviceReportedTime", m_nUTCDeviceReportedTime, 1);
    std::vector<std::string> names = m_columns;
    names.push_back(m_szTableName.getStringA());
    for (const std::string& name : names)
        if (!isPlainIdentifier(name)) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigODBC| '%s' is not a plain table or column name - the "
                            "action will not write\r\n",
                            name.c_str());
            m_valid = false;
        }
}

void CActionConfigODBC::loadFields() {
    auto& r = m_regAccess;
    uint32_t count = 0;
    r.ReadDWORDValue(u"nFieldsCount", count, 0);
    m_fields.clear();
    std::vector<std::string> names;
    for (uint32_t n = 1; n <= count && n <= 1000; ++n) {
        std::string suffix = std::to_string(n);
        suffix.insert(suffix.begin(), '_');
        Field field;
        r.ReadStringValue(CQuilletString(std::string_view("szFieldName" + suffix)), field.name,
                          u"");
        r.ReadDWORDValue(CQuilletString(std::string_view("nFieldType" + suffix)), field.type, 0);
        r.ReadStringValue(CQuilletString(std::string_view("szFieldContent" + suffix)),
                          field.content, u"");
        names.push_back(field.name.getStringA());
        m_fields.push_back(std::move(field));
    }
    names.push_back(m_szTableName.getStringA());
    for (const std::string& name : names)
        if (!isPlainIdentifier(name)) {
            vt::debugPrintf(vt::DBG_ERROR,
                            "CActionConfigODBC| '%s' is not a plain table or column name - the "
                            "action will not write\r\n",
                            name.c_str());
            m_valid = false;
        }
    names.pop_back();
    m_statement = generateSqlStatement(m_szTableName.getStringA(), names, m_nSQLStatementType);
}

COdbcConnection& CActionConfigODBC::connection() {
    if (m_connection.isOpen()) {
        vt::debugWrite(vt::DBG_ULTRA, "CActionConfigODBC| DB Connection already open\r\n");
        return m_connection;
    }
    vt::debugWrite(vt::DBG_INFO, "CActionConfigODBC| Opening DB Connection\r\n");
    vt::debugWrite(vt::DBG_ULTRA, "Create new DBConn!\r\n");
    const std::string connect = "DSN=" + std::string(m_szODBCDsn.getStringA()) +
                                ";UID=" + m_szODBCUid.getStringA() +
                                ";PWD=" + m_szODBCPwd.getStringA();
    if (!m_connection.open(connect, m_nSQLConnectionTimeOut)) fail("");
    return m_connection;
}

void CActionConfigODBC::closeConnection(bool broken) noexcept {
    if (!m_connection.isOpen()) return;
    vt::debugWrite(vt::DBG_INFO, broken ? "CActionConfigODBC| Break DB Connection\r\n"
                                        : "CActionConfigODBC| Closing DB Connection\r\n");
    m_connection.close();
}

void CActionConfigODBC::fail(const std::string& message) {
    const COdbcConnection::Failure& f = m_connection.lastFailure();
    vt::debugPrintf(vt::DBG_ERROR, "ConfigODBC| ODBCError: %s: %s \r\n", f.call.c_str(),
                    f.text.c_str());
    std::string text =
        "ODBC Error Code: '" + f.state + "'\r\nODBC Error Description: '" + f.text + "'.";
    if (!message.empty())
        text +=
            " ODBC ERR MSG: '" + f.call + "' ORIGINAL Message that caused ODBC error: " + message;
    closeConnection(true);
    throw new CErrorReport(116, CQuilletString(std::string_view(text)));
}

void CActionConfigODBC::TimerAPCProc(void* context, uint32_t, uint32_t) {
    auto* config = static_cast<CActionConfigODBC*>(context);
    config->enterLock();
    if (!config->isTimerPending()) config->closeConnection(false);
    config->leaveLock();
}
