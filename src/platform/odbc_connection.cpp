#include "platform/odbc_connection.h"

#ifdef _WIN32
#include <windows.h>
#endif
#include <sql.h>
#include <sqlext.h>

namespace {

SQLHANDLE h(void* p) {
    return static_cast<SQLHANDLE>(p);
}

// The driver's own words for what went wrong.
void diagnostics(SQLSMALLINT type, SQLHANDLE handle, std::string& state, std::string& text) {
    SQLCHAR sqlState[6] = {};
    SQLCHAR message[1024] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    if (handle && SQL_SUCCEEDED(SQLGetDiagRec(type, handle, 1, sqlState, &native, message,
                                              sizeof message, &length))) {
        state = reinterpret_cast<char*>(sqlState);
        text = reinterpret_cast<char*>(message);
    }
}

}  // namespace

COdbcConnection::~COdbcConnection() {
    close();
}

bool COdbcConnection::fail(const char* call, int handleType, void* handle) {
    m_failure = Failure{call, "", ""};
    diagnostics(static_cast<SQLSMALLINT>(handleType), h(handle), m_failure.state, m_failure.text);
    return false;
}

bool COdbcConnection::open(const std::string& connectionString, uint32_t timeoutSeconds) {
    close();
    SQLHANDLE env = SQL_NULL_HANDLE, dbc = SQL_NULL_HANDLE, stmt = SQL_NULL_HANDLE;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env)))
        return fail("SQLAllocEnv failed", SQL_HANDLE_ENV, nullptr);
    m_env = env;
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc)))
        return fail("SQLAllocConnect failed", SQL_HANDLE_ENV, env);
    m_dbc = dbc;
    SQLSetConnectAttr(dbc, SQL_ATTR_LOGIN_TIMEOUT,
                      reinterpret_cast<SQLPOINTER>(static_cast<uintptr_t>(timeoutSeconds)), 0);
    SQLCHAR out[1024];
    SQLSMALLINT outLength = 0;
    std::string in = connectionString;
    if (!SQL_SUCCEEDED(SQLDriverConnect(dbc, nullptr, reinterpret_cast<SQLCHAR*>(in.data()),
                                        SQL_NTS, out, sizeof out, &outLength, SQL_DRIVER_NOPROMPT)))
        return fail("SQLDriverConnect failed", SQL_HANDLE_DBC, dbc);
    m_connected = true;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt)))
        return fail("SQLAllocStmt failed", SQL_HANDLE_DBC, dbc);
    m_stmt = stmt;
    return true;
}

void COdbcConnection::close() noexcept {
    if (m_stmt) SQLFreeHandle(SQL_HANDLE_STMT, h(m_stmt));
    if (m_connected) SQLDisconnect(h(m_dbc));
    if (m_dbc) SQLFreeHandle(SQL_HANDLE_DBC, h(m_dbc));
    if (m_env) SQLFreeHandle(SQL_HANDLE_ENV, h(m_env));
    m_stmt = m_dbc = m_env = nullptr;
    m_connected = false;
}

bool COdbcConnection::execute(const std::string& statement, const std::vector<Value>& values) {
    SQLHANDLE stmt = h(m_stmt);
    SQLFreeStmt(stmt, SQL_CLOSE);
    SQLFreeStmt(stmt, SQL_RESET_PARAMS);
    std::string text = statement;
    if (!SQL_SUCCEEDED(SQLPrepare(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS)))
        return fail("SQLPrepare failed", SQL_HANDLE_STMT, stmt);
    // The bound buffers must live until the execution.
    std::vector<SQLLEN> lengths(values.size());
    std::vector<SQLBIGINT> numbers(values.size());
    std::vector<SQL_TIMESTAMP_STRUCT> stamps(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
        const Value& v = values[i];
        const SQLUSMALLINT n = static_cast<SQLUSMALLINT>(i + 1);
        SQLRETURN r;
        if (v.type == Type::Integer) {
            numbers[i] = v.number;
            r = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_SBIGINT, SQL_BIGINT, 0, 0,
                                 &numbers[i], 0, nullptr);
        } else if (v.type == Type::Timestamp) {
            const vt::CivilTime& t = v.time;
            stamps[i] = SQL_TIMESTAMP_STRUCT{SQLSMALLINT(t.year),
                                             SQLUSMALLINT(t.month),
                                             SQLUSMALLINT(t.day),
                                             SQLUSMALLINT(t.hour),
                                             SQLUSMALLINT(t.minute),
                                             SQLUSMALLINT(t.second),
                                             0};
            r = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_TYPE_TIMESTAMP, SQL_TYPE_TIMESTAMP,
                                 19, 0, &stamps[i], 0, nullptr);
        } else {
            lengths[i] = static_cast<SQLLEN>(v.text.size());
            r = SQLBindParameter(stmt, n, SQL_PARAM_INPUT, SQL_C_CHAR, SQL_VARCHAR,
                                 v.text.empty() ? 1 : v.text.size(), 0,
                                 const_cast<char*>(v.text.data()), 0, &lengths[i]);
        }
        if (!SQL_SUCCEEDED(r)) {
            m_failure = Failure{"SqlBindParameter " +
                                    (v.label.empty() ? std::to_string(i + 1) : v.label) + " failed",
                                "", ""};
            diagnostics(SQL_HANDLE_STMT, stmt, m_failure.state, m_failure.text);
            return false;
        }
    }
    const SQLRETURN r = SQLExecute(stmt);
    if (!SQL_SUCCEEDED(r) && r != SQL_NO_DATA)
        return fail("SQLExecute failed", SQL_HANDLE_STMT, stmt);
    return true;
}

bool COdbcConnection::queryNumber(const std::string& statement, int64_t& number) {
    SQLHANDLE stmt = h(m_stmt);
    SQLFreeStmt(stmt, SQL_CLOSE);
    SQLFreeStmt(stmt, SQL_RESET_PARAMS);
    std::string text = statement;
    if (!SQL_SUCCEEDED(SQLExecDirect(stmt, reinterpret_cast<SQLCHAR*>(text.data()), SQL_NTS)))
        return fail("SqlExecDirect to obtain ID column failed", SQL_HANDLE_STMT, stmt);
    SQLBIGINT value = 0;
    SQLLEN indicator = 0;
    if (!SQL_SUCCEEDED(SQLBindCol(stmt, 1, SQL_C_SBIGINT, &value, 0, &indicator)))
        return fail("SqlBindCol 1 to obtain ID column failed", SQL_HANDLE_STMT, stmt);
    if (!SQL_SUCCEEDED(SQLFetch(stmt)))
        return fail("SqlFetch to obtain ID column failed", SQL_HANDLE_STMT, stmt);
    SQLFreeStmt(stmt, SQL_CLOSE);
    number = indicator == SQL_NULL_DATA ? 0 : value;
    return true;
}
