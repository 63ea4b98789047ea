#pragma once
#include <memory>
#include <string>
#include <vector>

#include "actions/database/action_config_odbc.h"
#include "engine/action_config.h"
#include "platform/odbc_connection.h"

class CInfoUnit;

// The legacy layout: one row of well-known columns per unit (the columns of its type), and
// the unit's further properties into the properties table.
class CActionRelaylogV3ODBC : public CAction {
  public:
    explicit CActionRelaylogV3ODBC(CActionConfigODBC& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;

    // The statement and its values for the unit.
    static std::string statement(const CActionConfigODBC& config, const CInfoUnit& unit,
                                 std::vector<COdbcConnection::Value>& values);
    // The properties that go to the properties table: every one but the row's own.
    static std::vector<std::pair<std::string, std::string>> extraProperties(const CInfoUnit& unit);

  private:
    bool addMissingColumns(COdbcConnection& db);
    void writeProperties(COdbcConnection& db, const CInfoUnit& unit);

    CActionConfigODBC& m_config;
};

// The field-list layout: the generated statement with each field's rendered content.
class CActionODBCv2 : public CAction {
  public:
    explicit CActionODBCv2(CActionConfigODBC& config) : m_config(config) {}
    void doAction(CInfoUnit& unit, const CConfigSettings& settings,
                  CActionListEntry& entry) override;
    static std::vector<COdbcConnection::Value> values(const CActionConfigODBC& config,
                                                      const CInfoUnit& unit);

  private:
    CActionConfigODBC& m_config;
};

// The behaviour the settings ask for: the legacy layout for "nDBAVersion" 1, else the field
// list.
std::unique_ptr<CAction> makeOdbcAction(CActionConfig& config);
