#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "platform/local_time.h"

// One ODBC connection with one statement, for the database output and the database monitor:
// unixODBC on Linux, odbc32 on Windows. Values are always bound as parameters; only the
// configuration's table and column names ever become statement text.
class COdbcConnection {
  public:
    enum class Type { Text, Integer, Timestamp };
    struct Value {
        Type type = Type::Text;
        std::string text;    // Text: UTF-8
        int64_t number = 0;  // Integer
        vt::CivilTime time;  // Timestamp
        std::string label;   // how a failed bind is named ("12 (GenericFileName)")
    };
    struct Failure {
        std::string call;   // "SQLDriverConnect failed" ...
        std::string state;  // SQLSTATE, "S0022" ...
        std::string text;   // the driver's diagnostic text
    };

    COdbcConnection() = default;
    ~COdbcConnection();
    COdbcConnection(const COdbcConnection&) = delete;
    COdbcConnection& operator=(const COdbcConnection&) = delete;

    bool isOpen() const noexcept { return m_connected; }
    // False with lastFailure() set.
    bool open(const std::string& connectionString, uint32_t timeoutSeconds);
    void close() noexcept;
    // Runs `statement` with `values` bound as parameters in order.
    bool execute(const std::string& statement, const std::vector<Value>& values);
    // Runs a statement without parameters and returns the first column of the first row.
    bool queryNumber(const std::string& statement, int64_t& number);
    const Failure& lastFailure() const noexcept { return m_failure; }

  private:
    bool fail(const char* call, int handleType, void* handle);

    void* m_env = nullptr;
    void* m_dbc = nullptr;
    void* m_stmt = nullptr;
    bool m_connected = false;
    Failure m_failure;
};
