#include "actions/database/action_odbc.h"

#include <set>

#include "base/debug_log.h"
#include "base/error_report.h"
#include "base/error_reporter.h"
#include "model/info_unit.h"
#include "model/property_replacer.h"
#include "model/unit_time.h"
#include "platform/local_time.h"
#include "platform/utf_codec.h"

namespace {

using Value = COdbcConnection::Value;
using Type = COdbcConnection::Type;

// At most `limit` bytes, not cutting a UTF-8 character.
std::string limited(std::string text, size_t limit) {
    if (text.size() <= limit) return text;
    size_t end = limit;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80) --end;
    text.resize(end);
    return text;
}

Value text(const CInfoUnit& unit, const char16_t* property, const char* label, size_t limit) {
    const char16_t* v = unit.getPropertyString(property);
    return Value{Type::Text, limited(vt::utf16ToUtf8(v ? v : u""), limit), 0, {}, label};
}

Value number(int64_t n, const char* label) {
    return Value{Type::Integer, "", n, {}, label};
}

Value stamp(int64_t seconds, bool utc, const char* label) {
    vt::CivilTime t;
    if (utc || !vt::localTimeOf(seconds, t)) vt::utcBreakdown(seconds, t);
    return Value{Type::Timestamp, "", 0, t, label};
}

int64_t intOf(const CInfoUnit& unit, const char16_t* property) {
    return unit.getProperties().findEntry(property) ? unit.getPropertyInt(property) : 0;
}

// "Column not found": S0022 (ODBC 2), 42S22 (ODBC 3), 42703 (PostgreSQL's driver); SQLite's
// driver says it only in words.
bool isMissingColumn(const COdbcConnection::Failure& f) {
    return f.state == "S0022" || f.state == "42S22" || f.state == "42703" ||
           f.text.find("no column named") != std::string::npos ||
           f.text.find("no such column") != std::string::npos;
}

}  // namespace

std::string CActionRelaylogV3ODBC::statement(const CActionConfigODBC& c, const CInfoUnit& unit,
                                             std::vector<Value>& values) {
    const size_t limit = c.m_nMaxValueLength;
    const auto& col = c.m_columns;
    std::vector<std::string> names = {
        col[ReceivedAt], col[DeviceReportedTime], col[FromHost],   col[Message],
        col[Facility],   col[Priority],           col[NTSeverity], col[Importance],
        col[InfoUnitID], col[CustomerID],         col[SystemID]};
    values = {
        stamp(unit.getPropertyTime(u"timegenerated"), c.m_nUTCReceivedAt == 1, "1 (TimeStamp)"),
        stamp(unit.getPropertyTime(u"timereported"), c.m_nUTCDeviceReportedTime == 1,
              "2 (TimeStampDev)"),
        text(unit, u"source", "3 (SourceSystem)", limit),
        Value{
            Type::Text,
            limited(vt::utf16ToUtf8(vt::replaceProperties(c.m_szODBCMessageContent.view(), &unit)),
                    limit),
            0,
            {},
            "4 (Message)"},
        number(intOf(unit, u"syslogfacility"), "5 (iFac)"),
        number(intOf(unit, u"syslogpriority"), "6 (iPrio)"),
        number(intOf(unit, u"severityid"), "7 (iNTSeverity)"),
        number(intOf(unit, u"importance"), "8 (iImportance)"),
        number(intOf(unit, u"iut"), "9 (iInfoUnitID)"),
        number(intOf(unit, u"CustomerID"), "10 (CustomerID)"),
        number(intOf(unit, u"SystemID"), "11 (SystemID)"),
    };
    switch (intOf(unit, u"iut")) {
        case 11:
            names.insert(names.end(), {col[CurrUsage], col[MaxAvailable]});
            values.push_back(number(intOf(unit, u"currusage"), "12 (CurrUsage)"));
            values.push_back(number(intOf(unit, u"maxavailable"), "13 (MaxAvailable)"));
            break;
        case 5:
            names.push_back(col[GenericFileName]);
            values.push_back(text(unit, u"genericfilename", "12 (GenericFileName)", limit));
            break;
        case 1:
            names.push_back(col[SysLogTag]);
            values.push_back(text(unit, u"syslogtag", "12 (SysLogTag)", limit));
            break;
        case 3:
            names.insert(names.end(), {col[EventSource], col[EventUser], col[EventCategory],
                                       col[EventID], col[EventBinaryData], col[NTEventLogType]});
            values.push_back(text(unit, u"sourceproc", "12 (EventSource)", limit));
            values.push_back(text(unit, u"user", "13 (EventUser)", limit));
            values.push_back(number(intOf(unit, u"category") & 0xffff, "14 (EventCategory)"));
            values.push_back(number(intOf(unit, u"id"), "15 (EventID)"));
            values.push_back(text(unit, u"bdata", "16 (EventBinaryData)", limit));
            values.push_back(text(unit, u"nteventlogtype", "17 (NTEventLogType)", limit));
            break;
        default:
            break;
    }
    std::string sql = "insert into " + std::string(c.m_szTableName.getStringA()) + " (";
    for (size_t i = 0; i < names.size(); ++i) sql += (i ? ", " : "") + names[i];
    sql += ") values (";
    for (size_t i = 0; i < names.size(); ++i) sql += i ? ", ?" : "?";
    return sql + ")";
}

std::vector<std::pair<std::string, std::string>> CActionRelaylogV3ODBC::extraProperties(
    const CInfoUnit& unit) {
    static const std::set<std::string> kInRow = {"timegenerated",
                                                 "msg",
                                                 "timereported",
                                                 "syslogpriority",
                                                 "resource",
                                                 "syslogfacility",
                                                 "source",
                                                 "syslogtag",
                                                 "id",
                                                 "sourceproc",
                                                 "user",
                                                 "category",
                                                 "severity",
                                                 "NTEventLogType",
                                                 "genericfilename",
                                                 "iut"};
    std::vector<std::pair<std::string, std::string>> out;
    const CNameValueTree& properties = unit.getProperties();
    for (auto* e = properties.firstEntry(); e; e = properties.nextEntry(e)) {
        const std::string name = e->getName().getStringA();
        if (e->getChild() || kInRow.count(name)) continue;
        out.emplace_back(name, vt::utf16ToUtf8(e->getValue().getString()));
    }
    return out;
}

bool CActionRelaylogV3ODBC::addMissingColumns(COdbcConnection& db) {
    const auto& col = m_config.m_columns;
    const std::string table = m_config.m_szTableName.getStringA();
    const std::pair<std::string, const char*> columns[] = {{col[InfoUnitID], "INT"},
                                                           {col[SysLogTag], "VARCHAR(60)"},
                                                           {col[NTEventLogType], "VARCHAR(60)"},
                                                           {col[GenericFileName], "VARCHAR(60)"},
                                                           {col[CustomerID], "INT"},
                                                           {col[SystemID], "INT"}};
    std::string all = "alter table " + table + " add ";
    for (size_t i = 0; i < std::size(columns); ++i)
        all += (i ? ", " : "") + columns[i].first + " " + columns[i].second + " null";
    bool added = db.execute(all, {});
    // Databases that add one column per statement: each on its own (those there already fail).
    if (!added)
        for (const auto& [name, type] : columns)
            added =
                db.execute("alter table " + table + " add " + name + " " + type + " null", {}) ||
                added;
    if (added) {
        vt::debugWrite(vt::DBG_INFO, "Successfully updated the database\r\n");
        vt::reportInformation(116, "CActionRelaylogV3ODBC",
                              "ODBC Information: One or more fields were missing but have been "
                              "successfully created.\r\n");
    } else {
        vt::debugWrite(vt::DBG_ERROR, "Database could not be updated\r\n");
        const auto& f = db.lastFailure();
        vt::reportError(116, "CActionRelaylogV3ODBC",
                        "ODBC Information: One or more fields are missing and could not be "
                        "created.\r\n ODBC Error Code: '" +
                            f.state + "'\r\nODBC Error Description: '" + f.text + "'.");
    }
    return added;
}

void CActionRelaylogV3ODBC::writeProperties(COdbcConnection& db, const CInfoUnit& unit) {
    int64_t id = 0;
    if (!db.queryNumber("select max(id) from systemevents", id)) m_config.fail(unit.getMsgA());
    vt::debugPrintf(vt::DBG_ULTRA, "Obtained ID %d\r\n", static_cast<int>(id));
    const size_t limit = m_config.m_nMaxValueLength;
    for (const auto& [name, value] : extraProperties(unit)) {
        const std::vector<Value> values = {
            Value{Type::Integer, "", id, {}, "1 (SystemEventID) in Details"},
            Value{Type::Text, limited(name, limit), 0, {}, "2 (ParamName) in Details"},
            Value{Type::Text, limited(value, limit), 0, {}, "3 (ParamValue) in Details"}};
        if (!db.execute("insert into SystemEventsProperties(systemeventid, ParamName, ParamValue) "
                        "values (?, ?, ?)",
                        values))
            m_config.fail(unit.getMsgA());
    }
}

void CActionRelaylogV3ODBC::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    m_config.cancelTimer();
    if (!m_config.m_valid)
        throw new CErrorReport(
            115,
            CQuilletString(u"CActionConfigODBC: table or column names are not plain identifiers"));
    COdbcConnection& db = m_config.connection();
    std::vector<Value> values;
    const std::string sql = statement(m_config, unit, values);
    if (!db.execute(sql, values)) {
        if (!isMissingColumn(db.lastFailure()) || !addMissingColumns(db) ||
            !db.execute(sql, values))
            m_config.fail(unit.getMsgA());
    }
    vt::debugWrite(vt::DBG_ULTRA, "SQLExecute SUCCESS\n");
    if (m_config.m_nPropertiesTable == 1) writeProperties(db, unit);
    m_config.armTimer(&CActionConfigODBC::TimerAPCProc, &m_config, CActionConfigODBC::kIdleCloseMs);
}

std::vector<Value> CActionODBCv2::values(const CActionConfigODBC& c, const CInfoUnit& unit) {
    std::vector<Value> out;
    for (size_t i = 0; i < c.m_fields.size(); ++i) {
        const auto& field = c.m_fields[i];
        const std::u16string rendered = vt::replaceProperties(field.content.view(), &unit);
        const std::string label = std::to_string(i + 1) + " (" + field.name.getStringA() + ")";
        if (field.type == 1) {
            int32_t n = 0;
            vt::parseIntValue(rendered, n);
            out.push_back(Value{Type::Integer, "", n, {}, label});
        } else if (field.type == 2) {
            int64_t seconds = 0;
            if (!vt::parseTimeText(rendered, seconds)) seconds = 0;
            out.push_back(stamp(seconds, true, label.c_str()));
        } else {
            out.push_back(Value{
                Type::Text, limited(vt::utf16ToUtf8(rendered), c.m_nMaxValueLength), 0, {}, label});
        }
    }
    return out;
}

void CActionODBCv2::doAction(CInfoUnit& unit, const CConfigSettings&, CActionListEntry&) {
    m_config.cancelTimer();
    if (!m_config.m_valid)
        throw new CErrorReport(
            115,
            CQuilletString(u"CActionConfigODBC: table or column names are not plain identifiers"));
    COdbcConnection& db = m_config.connection();
    if (!db.execute(m_config.m_statement, values(m_config, unit))) m_config.fail(unit.getMsgA());
    vt::debugWrite(vt::DBG_ULTRA, "SQLExecute SUCCESS\n");
    m_config.armTimer(&CActionConfigODBC::TimerAPCProc, &m_config, CActionConfigODBC::kIdleCloseMs);
}

std::unique_ptr<CAction> makeOdbcAction(CActionConfig& config) {
    auto& odbc = static_cast<CActionConfigODBC&>(config);
    if (odbc.m_nDBAVersion == 1) return std::make_unique<CActionRelaylogV3ODBC>(odbc);
    return std::make_unique<CActionODBCv2>(odbc);
}
